// SPDX-License-Identifier: MIT
// What the server does when the system or a peer lets it down: the line that says so, nothing lost,
// and the next client is served.
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/resource.h>

#include <cerrno>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "cbb.h"
#include "faults/dialogue.h"
#include "faults/interpose.h"
#include "rtsps_session_mgr.h"
#include "support/log_capture.h"
#include "support/trans_info.h"

namespace {

const char* const REFUSED = "RTSP/1.0 500 Internal Server Error\r\nCSeq: 2\r\n\r\n";

class CFaultTest : public CServerTest {
  protected:
    // The next client is served, and another one's media go on.
    void ExpectServed(const CTestSocket* datagrams = nullptr) {
        CTestClient next(m_port);
        ASSERT_TRUE(next.PlayInterleaved(false));
        const Bytes unit = MakeUnit({96, ++m_sequence, 7, 333, 5});
        Push(unit);
        EXPECT_TRUE(next.Socket().ReceiveExactly(unit.size()) == FrameOf(unit, VIDEO_SSRC, 0));
        EXPECT_TRUE(datagrams == nullptr || datagrams->Receive() == PacketOf(unit, VIDEO_SSRC));
    }

    // Ended sessions are swept without waiting for the accept thread to do it.
    static bool IsClosed(CTestClient* client) {
        return WaitUntil([&] {
            CRtspSessionManager::Instance()->DelExceptionSession();
            return client->Socket().AtEnd(0);
        });
    }

    CLogCapture m_dump{2};
    CLogCapture m_log;
    uint16_t m_sequence = 0;
};

TEST_F(CFaultTest, StartFailsCleanly) {
    const std::string port = std::to_string(m_port);
    const struct {
        ECall call;
        int error;
        std::string line;
    } rows[] = {
        {ECall::SOCKET, EMFILE, "E CreateSocket failed "},
        {ECall::BIND, EADDRINUSE, "E bind " + port + " failed,errno 98"},
        {ECall::BIND, EACCES, "E bind " + port + " failed,errno 13"},
        {ECall::LISTEN, EADDRINUSE, "E Listen failed "},
        {ECall::THREAD, EAGAIN, "E create data thread failed "},
        {ECall::NEW, ENOMEM, "E new(std::nothrow) CRtspListener failed "},
    };
    Init();
    const CInLibrary in;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const CFailingCall fault(row.call, 1, row.error);
        EXPECT_EQ(RTSPServer_Start(), -1);
        EXPECT_TRUE(m_log.HasLines(row.line));
        EXPECT_EQ(CountDescriptors(), m_descriptorsBefore);
        EXPECT_EQ(CountThreads(), m_threadsBefore);
    }
    ASSERT_EQ(RTSPServer_Start(), 0);
    ExpectServed();
}

TEST_F(CFaultTest, SetupFailsWith500OrGoesOnWithoutReports) {
    StartServer();
    const struct {
        std::string transport;
        ECall call;
        int nth;
        const char* lines;
        bool isServed;
    } rows[] = {
        {UDP, ECall::SOCKET, 1, "E CreateSocket failed |E m_pTransCtrl->Open failed", false},
        {UDP, ECall::BIND, 1, "E Bind failed |E m_pTransCtrl->Open failed", false},
        {UDP, ECall::SOCKET, 2, "E CreateSocket failed |E Open m_pRtcpSession error!;", true},
        {UDP, ECall::BIND, 2, "E Bind failed |E Open m_pRtcpSession error!;", true},
        {TCP, ECall::SOCKET, 1, "E CreateSocket failed |E m_pTransCtrl->Open failed", false},
        {TCP, ECall::BIND, 1, "E Bind failed |E m_pTransCtrl->Open failed", false},
        {TCP, ECall::LISTEN, 1, "E Listen failed |E m_pTransCtrl->Open failed", false},
        {TCP, ECall::THREAD, 1, "E create accept_connect_svc thread failed ", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.transport << row.lines);
        const CLogCapture log;
        CTestClient client(m_port);
        ASSERT_TRUE(Ok(client.Describe()));
        const CTestSocket media = CTestSocket::BindUdp();
        std::string reply;
        {
            const CFailingCall fault(row.call, row.nth, EMFILE);
            reply = client.Setup(0, row.transport + std::to_string(media.Port()));
        }
        EXPECT_TRUE(log.HasLines(row.lines));
        if (row.isServed) {
            EXPECT_TRUE(Ok(client.Play()) && Ok(client.Ask("OPTIONS", client.Url())));
            ExpectServed(&media);
        } else {
            EXPECT_EQ(reply, REFUSED);
            EXPECT_TRUE(IsClosed(&client));
            ExpectServed();
        }
    }
}

TEST_F(CFaultTest, ClientsAreTurnedAwayOrTakenLater) {
    StartServer();
    const struct {
        ECall call;
        int error;
        const char* lines;  // of a client that is turned away; null: it is taken later
    } rows[] = {
        {ECall::THREAD, EAGAIN,
         "E create process_msg_svc! error!, FD[#]|E Open thread to process msg ERROR!!"},
        {ECall::ACCEPT, EMFILE, nullptr},
        {ECall::ACCEPT, ENOBUFS, nullptr},
        {ECall::ACCEPT, ECONNABORTED, nullptr},
        {ECall::ACCEPT, EINTR, nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.error);
        const CFailingCall fault(row.call, 1, row.error);
        CTestClient client(m_port);
        if (row.lines == nullptr) {
            EXPECT_TRUE(Ok(client.Ask("OPTIONS", client.Url())));
        } else {
            EXPECT_TRUE(client.Socket().AtEnd() && m_log.HasLines(row.lines));
        }
        EXPECT_TRUE(fault.HasFailed());
        ExpectServed();
    }
}

TEST_F(CFaultTest, ExhaustedPortPool) {
    m_para.nMaxPort = m_para.nMinPort;
    StartServer();
    CTestClient first(m_port);
    CTestSocket media;
    ASSERT_TRUE(first.PlayUdp(&media));
    CTestClient second(m_port);
    ASSERT_TRUE(Ok(second.Describe()));
    // Kept: a failed SETUP puts the client's port into the pool; this one is free.
    EXPECT_EQ(second.Setup(0, UDP + std::to_string(m_para.nMinPort + 20)), REFUSED);
    EXPECT_TRUE(m_log.HasLines("E ERROR! borrow_data_port Err!!!"));
    EXPECT_TRUE(IsClosed(&second));
    ASSERT_TRUE(Ok(first.Ask("TEARDOWN", first.Url())));
    for (int i = 0; i < 2; ++i) {
        CTestClient next(m_port);
        ASSERT_TRUE(next.PlayUdp(&media));
        ExpectServed(&media);
    }
}

TEST_F(CFaultTest, DescriptorsBeyond1024) {
    if (IsEmulated()) {
        GTEST_SKIP() << "the emulator passes select() no more than 1024 descriptors, and aborts";
    }
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    std::vector<CTestSocket> fillers;
    do {
        fillers.emplace_back(dup(0));
    } while (fillers.back().Fd() != -1 && fillers.back().Fd() < 1100);
    if (fillers.back().Fd() == -1) {
        GTEST_SKIP() << "the system allows no such descriptors";
    }
    StartServer();
    CTestClient udp(m_port);
    CTestClient tcp(m_port);
    CTestSocket datagrams;
    CTestSocket data;
    ASSERT_TRUE(Reach(PLAYING, UDP, &udp, &datagrams) && Reach(PLAYING, TCP, &tcp, &data));
    ExpectServed(&datagrams);
    EXPECT_TRUE(WaitUntil([&] {  // the first pushes wait for the connection to be taken
        Push(MakeUnit({96, ++m_sequence, 7, 333, 5}));
        return data.Receive(65536, 10).size() >= 349;
    }));
    EXPECT_TRUE(Ok(udp.Ask("TEARDOWN", udp.Url())) && Ok(tcp.Ask("TEARDOWN", tcp.Url())));
}

TEST_F(CFaultTest, ClockThatJumps) {
    StartServer();
    const auto port = static_cast<uint16_t>(m_para.nMinPort + 610);
    const CTestSocket media = BindUdpAt(port);
    const CTestSocket reports = BindUdpAt(static_cast<uint16_t>(port + 1));
    CTestClient client(m_port);
    ASSERT_TRUE(Ok(client.Describe()) && Ok(client.Setup(0, UDP + std::to_string(port))) &&
                Ok(client.Play()) && Ok(client.Ask("HEARTBEAT", client.Url())));
    CWallClock clock;
    ExpectServed(&media);
    const struct {
        int64_t jump;
        bool hasReport;  // every 5 seconds, and when the next is more than 11 away
    } rows[] = {{0, false},  {3600, true}, {3, false}, {-3, false},     {-3600, true},
                {-3, false}, {-4, true},   {6, true},  {1 << 30, true}, {-(1 << 30), true}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.jump);
        clock.Jump(row.jump);
        EXPECT_TRUE(Ok(client.Ask("OPTIONS", client.Url())));
        ExpectServed(&media);
        EXPECT_EQ(reports.Receive(99, row.hasReport ? 5000 : 0).size(), row.hasReport ? 24U : 0U);
    }
}

// The clock is set while somebody waits.
TEST(Fault, TimeLimitedCallsEndWhateverTheClockDoes) {
    struct CJumpingClock final : CSocketModel {
        short Poll(int /*fd*/) override {
            clock.Jump(jump);
            return ++polls < 10 ? short{0} : short{POLLNVAL};
        }
        ssize_t Send(int, const char*, size_t) override { return -1; }
        ssize_t SendMessage(int, const msghdr&) override { return -1; }
        CWallClock clock;
        int64_t jump = 0;
        int polls = 0;
    };
    char byte = 0;
    const std::function<int()> calls[] = {[&] { return CBB_Accept(0, nullptr, 100); },
                                          [&] { return CBB_RecvWithTimeOut(0, &byte, 1, 100); },
                                          [&] { return CBB_Recvn(0, &byte, 1, 100); },
                                          [&] { return CBB_Sendn(0, &byte, 1, 100); }};
    for (size_t i = 0; i < std::size(calls); ++i) {
        for (const int64_t jump : {-3600, 3600}) {
            CJumpingClock model;
            model.jump = jump;
            EXPECT_EQ(calls[i](), i < 2 ? -1 : 0) << i;
            EXPECT_EQ(model.polls, 1) << i << ", " << jump;
        }
    }
}

// How a client goes in each of its states, over each transport.
TEST_F(CFaultTest, PeersThatVanish) {
    enum EWay { RESET, CLOSED, HALF_CLOSED, UNREAD, WITHOUT_A_WORD };
    StartServer();
    int gone = 0;
    for (const std::string& transport : {UDP, TCP, INTERLEAVED}) {
        for (int state = transport == UDP ? CONNECTED : SET_UP; state <= TORN_DOWN; ++state) {
            // Nothing tells the server of a silent end but media on the same connection.
            const bool speaks = state == PLAYING && transport == INTERLEAVED;
            for (int way = RESET; way <= (speaks ? WITHOUT_A_WORD : UNREAD); ++way) {
                SCOPED_TRACE(testing::Message() << transport << state << ", way " << way);
                CTestClient client(m_port);
                CTestSocket media;
                ASSERT_TRUE(Reach(static_cast<EState>(state), transport, &client, &media));
                const int on = 1;
                if (way == RESET) {
                    client.Socket().ResetHard();
                } else if (way == HALF_CLOSED) {
                    shutdown(client.Socket().Fd(), SHUT_WR);
                } else if (way == UNREAD) {
                    client.Socket().Send("OPTIONS * RTSP/1.0\r\nCSeq: 9\r\n\r\n");
                } else if (way == WITHOUT_A_WORD) {  // where the system allows it
                    setsockopt(client.Socket().Fd(), IPPROTO_TCP, TCP_REPAIR, &on, sizeof(on));
                }
                if (way != HALF_CLOSED) {
                    client.Socket().Reset();
                }
                media.Reset();
                Push(MakeUnit({96, ++m_sequence, 0, 100, 1}));
                ++gone;
                ASSERT_TRUE(WaitUntil([&] { return m_log.Count(" exit\n") == gone; }));
            }
        }
    }
    ExpectServed();
}

// Clients that take no media are dropped after 21 short pushes; the others miss nothing.
TEST_F(CFaultTest, PeersThatTakeNoMedia) {
    enum EPeer { NEVER_READS_INTERLEAVED, NEVER_READS, RESETS, NEVER_CONNECTS, PEERS };
    constexpr size_t UNITS = 40;
    StartServer();
    CTestClient udp(m_port);
    CTestClient healthy(m_port);
    CTestSocket datagrams;
    ASSERT_TRUE(udp.PlayUdp(&datagrams) && healthy.PlayInterleaved(false));
    for (int peer = 0; peer < PEERS; ++peer) {
        SCOPED_TRACE(peer);
        const CLogCapture log;
        CTestClient slow(m_port, 4096);
        CTestSocket media;
        if (peer == NEVER_CONNECTS) {
            ASSERT_TRUE(Ok(slow.Describe()) && Ok(slow.Setup(0, TCP + "9")) && Ok(slow.Play()));
            ASSERT_TRUE(Ok(slow.Ask("HEARTBEAT", slow.Url())));
        } else {
            const bool isInterleaved = peer == NEVER_READS_INTERLEAVED;
            ASSERT_TRUE(Reach(PLAYING, isInterleaved ? INTERLEAVED : TCP, &slow, &media, 4096));
        }
        if (peer == RESETS) {
            media.ResetHard();
        }
        const std::string over = " send failed over thresold and exit\n";
        for (int i = 0; i < 400 && !log.Has(over); ++i) {
            const Bytes run = MakeRun({96, m_sequence, 0, 1400, static_cast<uint8_t>(i)}, UNITS);
            m_sequence = static_cast<uint16_t>(m_sequence + UNITS);
            Push(run);
            std::string frames;
            for (size_t nth = 0; nth < UNITS; ++nth) {
                const auto at = run.begin() + static_cast<long>(nth * 1416);
                frames += FrameOf(Bytes(at, at + 1416), VIDEO_SSRC, 0);
                ASSERT_EQ(datagrams.Receive(), frames.substr(frames.size() - 1412));
            }
            ASSERT_TRUE(healthy.Socket().ReceiveExactly(frames.size()) == frames);
        }
        EXPECT_EQ(log.Count(over), 1);
        // Over separate TCP the last ones in a row; taking the connection helps in between.
        EXPECT_GE(log.Count(" send failed,nLen="), 21);
        EXPECT_TRUE(peer != NEVER_READS_INTERLEAVED || log.Count(" send failed,nLen=") == 21);
        EXPECT_EQ(log.Has("remain bufsize="), peer == NEVER_READS_INTERLEAVED);
        EXPECT_TRUE(log.WaitFor(" exit\n"));
    }
    ExpectServed(&datagrams);
}

TEST_F(CFaultTest, PeerThatSendsOneByteAtATime) {
    StartServer();
    CTestClient slow(m_port);
    CBB_SetNoDelay(slow.Socket().Fd(), 1);
    const std::string url = slow.Url() + " RTSP/1.0\r\n";
    for (const std::string& request :
         {"OPTIONS " + url, "DESCRIBE " + url,
          "SETUP " + slow.Url("streamid=0") + " RTSP/1.0\r\nTransport: " + INTERLEAVED + "\r\n",
          "PLAY " + url, "HEARTBEAT " + url}) {
        for (const char byte : request + "CSeq: 77\r\n\r\n") {
            ASSERT_TRUE(slow.Socket().Send(std::string(1, byte)));
        }
        EXPECT_TRUE(Ok(slow.ReadReply())) << request;
    }
    const Bytes unit = MakeUnit({});
    Push(unit);
    EXPECT_EQ(slow.Socket().ReceiveExactly(unit.size()), FrameOf(unit, VIDEO_SSRC, 0));
}

}  // namespace
