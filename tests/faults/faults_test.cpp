// SPDX-License-Identifier: MIT
// Faults of the system, of memory and of peers: the server logs the fault, loses no resource, and
// serves the next client.
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <netinet/udp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <deque>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "cbb.h"
#include "faults/interpose.h"
#include "rtp_session.h"
#include "rtsp_msg.h"
#include "rtsp_msg_parser.h"
#include "rtsps_server.h"
#include "rtsps_session_mgr.h"
#include "support/fake_clock.h"
#include "support/log_capture.h"
#include "support/trans_info.h"

namespace {

const std::string REFUSED = "RTSP/1.0 500 Internal Server Error\r\nCSeq: 3\r\n\r\n";

const char* const TRANSPORTS[CPlayer::TRANSPORTS] = {"Udp", "Tcp", "Interleaved"};

// Sweeps ended sessions continuously, not only when the accept thread finds no client.
struct CSweeper {
    ~CSweeper() {
        isDone = true;
        thread.join();
    }
    std::atomic<bool> isDone{false};
    std::thread thread{[this] {
        while (!isDone) {
            CRtspSessionManager::Instance()->DelExceptionSession();
            CBB_Sleep(1);
        }
    }};
};

class CFaultTest : public CServerTest {
  protected:
    void TearDown() override {
        ExpectAllPorts();
        CServerTest::TearDown();
    }

    // Ends all sessions; then the pool has all its ports.
    void ExpectAllPorts() {
        CRtspSessionManager::Instance()->Close();
        EXPECT_TRUE(WaitUntil([] { return CountThreads() <= OwnThreads() + 1; }));
        CRtspSessionManager::Instance()->DelExceptionSession();
        std::set<int> ports;
        for (int port = 1; port != 0; ports.insert(port)) {
            port = CRtspServer::Instance()->BorrowDataPort();
        }
        for (int port = m_para.nMinPort; port <= m_para.nMaxPort; port += 2) {
            EXPECT_EQ(ports.count(port), 1U) << "port " << port << " is lost";
            CRtspServer::Instance()->GivebackDataPort(port);
        }
    }

    // Checks that the next client is served, and that the media of another one continue.
    void ExpectServed(CPlayer* other = nullptr) {
        CPlayer next(m_port, CPlayer::INTERLEAVED);
        const std::vector<Bytes> units = PushRun(1, 333);
        EXPECT_TRUE(next.Gets(units));
        EXPECT_TRUE(other == nullptr || other->Gets(units));
    }

    // Pushes a run. Returns its units.
    std::vector<Bytes> PushRun(size_t count, size_t payload) {
        const std::vector<Bytes> units = MakeUnits({96, m_sequence, 7, payload, 5}, count);
        m_sequence = static_cast<uint16_t>(m_sequence + count);
        PushUnits(units);
        return units;
    }

    // From all eight offsets to an aligned address, which depend on the sequence number. The
    // sanitizer for undefined behaviour reports an access that requires alignment.
    void PushUnits(const std::vector<Bytes>& units) {
        Bytes run = Join(units);
        const int size = static_cast<int>(run.size());
        const size_t offset = m_sequence % 8;
        run.insert(run.begin(), offset, 0);
        const CInLibrary in;
        RTSPServer_SendRealSteam(1, 0, &run[offset], size);
    }

    CLogCapture m_dump{2};
    CLogCapture m_log;
    uint16_t m_sequence = 1;
};

TEST_F(CFaultTest, StartsThatFail) {
    const struct {
        ECall call;
        int error;
        std::string line;
    } rows[] = {{SOCKET, EMFILE, "E CreateSocket failed "},
                {BIND, EACCES,
                 "E bind " + std::to_string(m_port) + " failed,errno 13|E m_pListener open error"},
                {LISTEN, EADDRINUSE, "E Listen failed "},
                {THREAD, EAGAIN, "E create data thread failed "},
                {NEW, ENOMEM, "E new(std::nothrow) CRtspListener failed "}};
    Init();
    for (const auto& row : rows) {
        const CLogCapture log;
        const CInLibrary in;
        const CFailingCall fault(row.call, 1, row.error);
        EXPECT_EQ(RTSPServer_Start(), -1);
        EXPECT_TRUE(log.HasLines(row.line));
        EXPECT_EQ(CountDescriptors(), m_descriptorsBefore + 2) << "the log's two, " << row.line;
        EXPECT_EQ(CRtspServer::Instance()->FreeDataPorts(), 0U) << "the pool is gone";
    }
    EXPECT_EQ(RTSPServer_Start(), 0);
}

TEST_F(CFaultTest, CallsThatFail) {
    const std::string noMedia = "|E m_pTransCtrl->Open failed";
    const std::string noReports = "|E Open m_pRtcpSession error!;";
    const struct {
        CPlayer::ETransport transport;
        ECall call;
        int nth;
        int error;
        std::string lines;
        std::string reply;  // "": the client plays
    } rows[] = {
        {CPlayer::UDP, THREAD, 1, EAGAIN,
         "E create process_msg_svc! error!, FD[#]|E Open thread to process msg ERROR!!", "none"},
        {CPlayer::UDP, ACCEPT, 1, EMFILE, "", ""},  // accepted later
        {CPlayer::UDP, ACCEPT, 1, ECONNABORTED, "", ""},
        {CPlayer::UDP, SOCKET, 1, EMFILE, "E CreateSocket failed " + noMedia, REFUSED},
        {CPlayer::UDP, SOCKET, 2, EMFILE, "E CreateSocket failed " + noReports, ""},
        {CPlayer::UDP, BIND, 1, EADDRINUSE, "E Bind failed " + noMedia, REFUSED},
        {CPlayer::UDP, BIND, 2, EADDRINUSE, "E Bind failed " + noReports, ""},
        {CPlayer::TCP, SOCKET, 1, EMFILE, "E CreateSocket failed " + noMedia, REFUSED},
        {CPlayer::TCP, BIND, 1, EADDRINUSE, "E Bind failed " + noMedia, REFUSED},
        {CPlayer::TCP, LISTEN, 1, EADDRINUSE, "E Listen failed " + noMedia, REFUSED},
        {CPlayer::TCP, THREAD, 2, EAGAIN, "E create accept_connect_svc thread failed ", REFUSED}};
    Init();
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << TRANSPORTS[row.transport] << ", number " << row.nth
                                        << " of call " << row.call << ": " << row.lines);
        const CLogCapture log;
        RTSPServer_Stop();  // the next pool does not have the ports of the refused players
        ASSERT_EQ(RTSPServer_Start(), 0);
        const CSweeper sweeper;
        const CFailingCall fault(row.call, row.nth, row.error);
        CPlayer player(m_port, row.transport);
        EXPECT_TRUE(fault.HasFailed());
        EXPECT_TRUE(row.lines.empty() || log.HasLines(row.lines));
        if (row.reply.empty()) {
            ExpectServed(&player);
        } else {
            EXPECT_EQ(player.reply, row.reply == "none" ? "" : row.reply);
            EXPECT_TRUE(player.Socket().AtEnd());
            ExpectServed();
        }
    }
}

TEST_F(CFaultTest, ExhaustedPortPool) {
    m_para.nMaxPort = m_para.nMinPort + 2;
    StartServer();
    const CSweeper sweeper;
    CPlayer first(m_port, CPlayer::UDP);
    CPlayer second(m_port, CPlayer::UDP);
    EXPECT_EQ(second.reply, REFUSED);
    EXPECT_TRUE(m_log.HasLines("E ERROR! borrow_data_port Err!!!") && second.Socket().AtEnd());
    ExpectServed(&first);
}

TEST_F(CFaultTest, DescriptorsBeyond1024) {
    StartServer();
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    if (IsEmulated() || limit.rlim_max < 1200) {
        GTEST_SKIP() << "select() of the emulator, or the limit, ends at 1024 descriptors";
    }
    std::vector<CTestSocket> fillers;
    do {
        fillers.emplace_back(dup(0));
    } while (fillers.back().Fd() < 1100);
    for (const int transport : {CPlayer::UDP, CPlayer::TCP}) {
        CPlayer player(m_port, transport);
        ExpectServed(&player);
        EXPECT_TRUE(Ok(player.Ask("TEARDOWN", player.Url())));
    }
}

TEST_F(CFaultTest, ClockThatJumps) {
    StartServer();
    CPlayer player(m_port, CPlayer::UDP);
    CFakeClock clock(0);
    int64_t usec = 0;  // different times give the sessions different ids
    for (const int64_t now : {1700000000, 1700003600, 1700000000, 1, 2000000000}) {
        SCOPED_TRACE(now);
        clock.Set(now, ++usec);
        EXPECT_TRUE(Ok(player.Ask("OPTIONS", player.Url())));
        ExpectServed(&player);
    }
}

TEST(TimedWaits, EndThoughTheClockJumps) {
    struct CJump final : CSocketModel {
        explicit CJump(int64_t now) : to(now) {}
        short Poll(int /*fd*/) override {
            clock.Set(to);
            return ++polls < 10 ? short{0} : short{POLLNVAL};
        }
        CFakeClock clock{1700000000};
        const int64_t to;
        int polls = 0;
    };
    for (const int64_t to : {1699996400, 1700003600}) {
        CJump model(to);
        EXPECT_EQ(CBB_Sendn(0, "x", 1, 100), 0);  // accepting and receiving wait in the same way
        EXPECT_EQ(model.polls, 1) << to;
    }
}

TEST_F(CFaultTest, PeersThatResetInEachStateOverEachTransport) {
    m_para.nMaxPort = m_para.nMinPort + 5;
    StartServer();
    const CSweeper sweeper;
    const int descriptors = CountDescriptors();
    int gone = 0;
    for (int transport = CPlayer::UDP; transport < CPlayer::TRANSPORTS; ++transport) {
        int state = transport == CPlayer::UDP ? CPlayer::CONNECTED : CPlayer::SET_UP;
        for (; state <= CPlayer::TORN_DOWN; ++state) {
            SCOPED_TRACE(testing::Message() << TRANSPORTS[transport] << ", state " << state);
            {
                CPlayer player(m_port, transport, static_cast<CPlayer::EState>(state));
                ASSERT_TRUE(Ok(player.reply));
                player.Socket().ResetHard();
            }
            PushRun(1, 100);
            ++gone;
            ASSERT_TRUE(WaitUntil([&] {
                return m_log.Count(" exit\n") == gone && CountDescriptors() == descriptors;
            }));
        }
    }
    ExpectServed();
}

// Clients that take no media are dropped after 21 short pushes; the others miss nothing.
TEST_F(CFaultTest, PeersThatTakeNoMedia) {
    enum EPeer { NEVER_READS_INTERLEAVED, NEVER_READS, RESETS_ITS_MEDIA, PEERS };
    StartServer();
    CPlayer udp(m_port, CPlayer::UDP);
    for (int peer = 0; peer < PEERS; ++peer) {
        SCOPED_TRACE(peer);
        const bool isInterleaved = peer == NEVER_READS_INTERLEAVED;
        const CLogCapture log;
        CPlayer slow(m_port, isInterleaved ? CPlayer::INTERLEAVED : CPlayer::TCP, CPlayer::PLAYING,
                     4096);
        if (peer == RESETS_ITS_MEDIA) {
            slow.media[0].ResetHard();
        }
        const std::string over = " send failed over thresold and exit\n";
        for (int i = 0; i < 400 && !log.Has(over) && !HasFailure(); ++i) {
            EXPECT_TRUE(udp.Gets(PushRun(40, 1400)));
        }
        EXPECT_EQ(log.Count(over), 1);
        // Over separate TCP a whole push may end an earlier run of short ones.
        EXPECT_GE(log.Count(" send failed,nLen="), 21);
        EXPECT_TRUE(!isInterleaved || log.Count(" send failed,nLen=") == 21);
        EXPECT_EQ(log.Has("remain bufsize="), isInterleaved);
        EXPECT_TRUE(log.WaitFor(" exit\n"));
        EXPECT_FALSE(log.Has("Recvn ,nRecvlen")) << "the end is no receive error";
    }
    ExpectServed(&udp);
}

// Runs of equal units leave in one call per client, unless the kernel does not segment UDP.
TEST_F(CFaultTest, RunsLeaveInFewSystemCalls) {
    const struct {
        const char* why;
        CPlayer::ETransport transport;
        bool segments;
        int units, polls, sends, sendmsgs;
    } rows[] = {
        {"UDP with segmentation", CPlayer::UDP, true, 40, 1, 0, 1},
        {"two datagrams", CPlayer::UDP, true, 2, 1, 0, 1},
        {"UDP without segmentation", CPlayer::UDP, false, 40, 40, 40, 0},
        {"interleaved", CPlayer::INTERLEAVED, true, 40, 1, 1, 0},
        {"two frames", CPlayer::INTERLEAVED, true, 2, 1, 1, 0},
    };
    StartServer();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const CMissingOption missing(IPPROTO_UDP, row.segments ? 0 : UDP_SEGMENT);
        CPlayer player(m_port, row.transport);
        EXPECT_TRUE(player.Gets(PushRun(1, 200)));  // starts the interval of the reports
        const int before[] = {t_calls[POLL], t_calls[SEND], t_calls[SENDMSG]};
        EXPECT_TRUE(player.Gets(PushRun(static_cast<size_t>(row.units), 200)));
        EXPECT_EQ(t_calls[POLL] - before[0], row.polls);
        EXPECT_EQ(t_calls[SEND] - before[1], row.sends);
        EXPECT_EQ(t_calls[SENDMSG] - before[2], row.sendmsgs);
        CRtspSessionManager::Instance()->Close();
    }
}

// Units that are larger than a path takes in a run leave one by one, smaller ones still in a run.
TEST_F(CFaultTest, RunsKeepToTheSizeThatThePathTakes) {
    StartServer();
    CPlayer player(m_port, CPlayer::UDP);
    EXPECT_TRUE(player.Gets(PushRun(1, 200)));
    const CFailingCall fault(SENDMSG, 1, EMSGSIZE);
    const std::pair<size_t, int> rows[] = {{200, 1}, {200, 0}, {199, 1}};
    for (const auto& [payload, sendmsgs] : rows) {
        const int before = g_scripts[SENDMSG].calls;
        EXPECT_TRUE(player.Gets(PushRun(5, payload)));
        EXPECT_EQ(g_scripts[SENDMSG].calls - before, sendmsgs) << payload;
    }
}

// The lines in alphabetical order, because several threads write them, with '#' for each number.
std::multiset<std::string> LinesOf(const CLogCapture& log) {
    std::istringstream text(std::regex_replace(log.Text(), std::regex("0x[0-9a-f]+|[0-9]+"), "#"));
    std::multiset<std::string> lines;
    for (std::string line; std::getline(text, line);) {
        lines.insert(line);
    }
    return lines;
}

// Old and reduced kernels lack options: clients receive the same bytes, and the log is the same.
TEST_F(CFaultTest, KernelsThatLackAnOption) {
    const struct {
        const char* why;
        int level;
        int name;
    } rows[] = {
        {"nothing: the log to compare with", 0, 0},
        {"the name of a thread", CMissingOption::PRCTL, PR_SET_NAME},
        {"UDP segmentation", IPPROTO_UDP, UDP_SEGMENT},
        {"a port is used again at once", SOL_SOCKET, SO_REUSEADDR},
        {"send buffers of the library's size", SOL_SOCKET, SO_SNDBUF},
        {"receive buffers of the library's size", SOL_SOCKET, SO_RCVBUF},
        {"probes of a silent peer", SOL_SOCKET, SO_KEEPALIVE},
        {"the time before the first probe", IPPROTO_TCP, TCP_KEEPIDLE},
        {"the time between two probes", IPPROTO_TCP, TCP_KEEPINTVL},
        {"the number of probes", IPPROTO_TCP, TCP_KEEPCNT},
        {"small packets leave at once", IPPROTO_TCP, TCP_NODELAY},
    };
    // No other test uses these ports, and here the clients close first: the server binds them at
    // once without SO_REUSEADDR, too.
    m_para.nMinPort += 600;
    m_para.nMaxPort = m_para.nMinPort + 7;
    std::multiset<std::string> expected;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const CLogCapture log;
        const CMissingOption missing(row.level, row.name);
        m_para.nServerPort = m_port = FreeTcpPort();
        {
            const CInLibrary in;
            Init(true);
            ASSERT_EQ(RTSPServer_Start(), 0);
        }
        {
            std::deque<CPlayer> players;
            for (int transport = CPlayer::UDP; transport < CPlayer::TRANSPORTS; ++transport) {
                players.emplace_back(m_port, transport);
            }
            const std::vector<Bytes> units = PushRun(40, 1388);
            for (CPlayer& player : players) {
                EXPECT_TRUE(player.Gets(units));
            }
        }
        EXPECT_TRUE(WaitUntil([&] { return log.Count(" exit\n") == CPlayer::TRANSPORTS; }));
        RTSPServer_Stop();
        RTSPServer_Release();
        EXPECT_EQ(CMissingOption::Refusals() > 0, row.name != 0);
        expected = expected.empty() ? LinesOf(log) : expected;
        EXPECT_EQ(LinesOf(log), expected);
    }
    StartServer();
}

// The counters of a client that plays for a year at 8 Mbit/s, which is about 750 packets of 1400
// bytes per second. This test covers RTP sequence numbers (16 bits, wrap after 87 s), RTP time
// stamps (32 bits, 13 h) and the milliseconds in which a client sent nothing, which stop at 31 bits
// (24 days). rtcp_session_test.cpp covers a report's octets (32 bits, 5 days), packets (32 bits, 66
// days) and seconds (in 2036). All other counters have 64 bits, or count pushes: 1.5e9 at 50 per
// second.
TEST_F(CFaultTest, CountersThatWrapWhileAClientPlays) {
    constexpr int WAIT_MS = 3000;
    StartServer();
    CPlayer player(m_port, CPlayer::UDP);
    g_skippedWaits = INT_MAX / WAIT_MS + 10;
    // Wakes the thread from its first wait. If it did not wait yet, it replies after all the
    // others.
    player.Socket().Send("OPTIONS * RTSP/1.0\r\nCSeq: 1\r\n\r\n");
    EXPECT_TRUE(Ok(player.ReadReply(100000)));
    EXPECT_TRUE(WaitUntil([] { return g_skippedWaits == 0; }, std::chrono::seconds(100)));
    EXPECT_TRUE(Ok(player.Ask("OPTIONS", "*"))) << "a client that was quiet for 24 days";
    m_sequence = 65530;
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(player.Gets(PushRun(4, 1388)));
    }
    const Bytes early = MakeUnit({96, 10, 0xFFFFFFFF, 100, 1});
    const Bytes late = MakeUnit({96, 11, 0x00000E0F, 100, 2});
    for (const Bytes& unit : {early, late}) {
        Push(unit);
        EXPECT_TRUE(player.Gets({unit}));
    }
    EXPECT_FALSE(m_log.Has("[RTSPS ERROR]"));
}

TEST_F(CFaultTest, SteadyPushesAllocateNothing) {
    StartServer();
    std::deque<CPlayer> players;
    for (int transport = CPlayer::UDP; transport < CPlayer::TRANSPORTS; ++transport) {
        players.emplace_back(m_port, transport);
    }
    int before = 0;
    for (int push = 0; push < 1000 && !HasFailure(); ++push) {
        std::vector<Bytes> units = PushRun(3, 200);
        units.push_back(MakeUnit({8, 1, 0, 160, 1}));
        PushUnits({units.back()});
        const int calls = g_scripts[NEW].calls;
        before = push == 0 ? calls : before;  // the first push of a stream may allocate
        EXPECT_EQ(calls, before);
        for (CPlayer& player : players) {
            EXPECT_TRUE(player.Gets(units));
        }
    }
}

// An incomplete reply is not sent, but the next message on the same thread is.
TEST(MessageFaults, OnlyTheIncompleteMessageIsRefused) {
    const std::string text =
        "SETUP x RTSP/1.0\r\nCSeq: 1\r\nSession: 2;timeout=60\r\nFolded: a\r\n b\r\n"
        "Range: npt=1-\r\nAuthorization: x\r\nTransport: RTP/AVP;unicast,RTP/AVP/TCP\r\n\r\n";
    const auto reply = [&](int failing, bool* hasFailed) -> std::string {
        char bytes[1024] = {};
        bool sent = false;
        {
            const CFailingCall fault(NEW, failing, ENOMEM);
            const CInLibrary in;
            const std::unique_ptr<CRtspMsg> request(
                CRtspMsgParser().parse(text.data(), static_cast<int>(text.size())));
            CRtspResponse response(RTSP_STATUS_200);
            response.append_cseq(request.get());
            response.append_session_id(request.get());
            response.append_transport(request.get(), protocol_udp, 1, 2, 3, nullptr, nullptr,
                                      nullptr);
            response.append("Public", "OPTIONS");
            sent = request != nullptr && response.as_binary(bytes, sizeof(bytes)) > 0;
            *hasFailed = fault.HasFailed();
        }
        return sent ? bytes : "";
    };
    bool hasFailed = false;
    const std::string whole = reply(1000, &hasFailed);
    ASSERT_NE(whole.find("Session: 2;timeout=60\r\n"), whole.npos);
    int allocations = 0;
    for (hasFailed = true; hasFailed && !HasFailure(); ++allocations) {
        SCOPED_TRACE(allocations);
        const std::string bytes = reply(allocations + 1, &hasFailed);
        EXPECT_EQ(bytes, hasFailed ? "" : whole);
        bool hasFailedAgain = false;
        EXPECT_EQ(reply(1000, &hasFailedAgain), whole) << "the next message is complete";
    }
    EXPECT_GT(allocations, 25) << "the allocations of the messages are seen";
}

TEST(RtpSessionFaults, WithoutMemoryForReportsTheMediaArriveAlone) {
    const CSocketPair connection;
    TRANS_INFO info = MakeTransInfo(RTPOVERRTSP_MODE, 0, 0, connection.server.Fd());
    CRtpSession session(RTPOVERRTSP_MODE);
    const CLogCapture log;
    const CInLibrary in;
    const CFailingCall fault(NEW, 2, ENOMEM);  // the first one is the transmitter
    EXPECT_EQ(session.open(&info), 0);
    EXPECT_TRUE(log.HasLines("E new m_rtcpSession error!;"));
    Bytes unit = MakeUnit({});
    const auto size = static_cast<int>(unit.size());
    EXPECT_EQ(session.send(unit.data(), size, 0), size);
}

// Each allocation fails once, with a newly started server for each.
class CNthAllocationTest : public CFaultTest, public ::testing::WithParamInterface<int> {
  protected:
    // A whole dialogue, and pushes until one arrives. Returns whether the client was served. A
    // client that is not served can tell.
    bool Serve() {
        CPlayer player(m_port, GetParam());
        if (!Ok(player.reply)) {
            EXPECT_TRUE(player.reply.empty() || player.reply.rfind("RTSP/1.0 500 ", 0) == 0)
                << "no request or reply lacks a part: " << player.reply;
            EXPECT_TRUE(player.Ask("OPTIONS", "*") != "" || player.Socket().AtEnd(0));
            return false;
        }
        if (CRtspSessionManager::Instance()->GetCurrSessionNums() == 0) {
            return false;  // not registered, so it gets no media
        }
        EXPECT_TRUE(player.Gets(PushRun(1, 100)) || player.Gets(PushRun(1, 100)));
        return true;
    }
};

TEST_P(CNthAllocationTest, CostsAtMostItsClient) {
    m_para.nMaxPort = m_para.nMinPort + 11;  // six pairs
    Init();
    int n = 0;
    for (bool hasFailed = true; hasFailed && !HasFailure(); ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        const CFailingCall fault(NEW, n + 1, ENOMEM);
        {
            const CInLibrary in;
            RTSPServer_Stop();
            EXPECT_TRUE(RTSPServer_Start() == 0 || (fault.HasFailed() && RTSPServer_Start() == 0));
        }
        {
            const CSweeper sweeper;
            const bool isServed = Serve();
            hasFailed = fault.HasFailed();
            EXPECT_TRUE(isServed || hasFailed);
            EXPECT_TRUE(!hasFailed || Serve()) << "the next client";
        }
        ExpectAllPorts();
    }
    EXPECT_GT(n, 60) << "the allocations of the dialogue are seen";
}
INSTANTIATE_TEST_SUITE_P(Transport, CNthAllocationTest,
                         ::testing::Values(CPlayer::UDP, CPlayer::TCP, CPlayer::INTERLEAVED),
                         [](const auto& row) { return TRANSPORTS[row.param]; });

}  // namespace
