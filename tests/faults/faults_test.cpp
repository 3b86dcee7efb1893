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
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "cbb.h"
#include "faults/interpose.h"
#include "rtsp_msg.h"
#include "rtsp_msg_parser.h"
#include "rtsps_server.h"
#include "rtsps_session_mgr.h"
#include "support/fake_clock.h"
#include "support/log_capture.h"
#include "support/trans_info.h"

namespace {

const std::string UDP = "RTP/AVP;unicast;client_port=";
const std::string TCP = "RTP/AVP/TCP;unicast;client_port=";
const std::string INTERLEAVED = "RTP/AVP/TCP;unicast;interleaved=0-1";

const std::string REFUSED = "RTSP/1.0 500 Internal Server Error\r\nCSeq: 3\r\n\r\n";

enum EState { CONNECTED, IN_A_REQUEST, DESCRIBED, SET_UP, PLAYING, TORN_DOWN };

bool Ok(const std::string& reply) {
    return reply.rfind("RTSP/1.0 200 OK\r\n", 0) == 0;
}

// A client that sends the requests up to a state, as long as they are answered.
struct CPeer : CTestClient {
    CPeer(uint16_t port, EState state, const std::string& transport, int nRecvBuffer = 0)
        : CTestClient(port, nRecvBuffer), reply(Ask("OPTIONS", Url())) {
        if (state == IN_A_REQUEST) {
            Socket().Send("DESCRIBE rtsp://");
        }
        if (Ok(reply) && state >= DESCRIBED) {
            reply = Describe();
        }
        if (Ok(reply) && state >= SET_UP) {
            const bool hasPorts = transport != INTERLEAVED;
            reply = Setup(0, transport + (hasPorts ? std::to_string(media.Port()) : ""));
            const auto serverPort = static_cast<uint16_t>(TransportNumber(reply, "server_port"));
            if (reply.find(transport) == std::string::npos || hasPorts != (serverPort != 0)) {
                reply = Ok(reply) ? "not as asked for: " + reply : reply;
            }
            if (transport == TCP && Ok(reply)) {
                media = CTestSocket::ConnectTcp(serverPort, nRecvBuffer);
            }
        }
        if (Ok(reply) && state >= PLAYING) {
            reply = Play();
            reply = Ok(reply) ? Ask("HEARTBEAT", "*") : reply;  // after this reply it plays
        }
        reply = Ok(reply) && state >= TORN_DOWN ? Ask("TEARDOWN", Url()) : reply;
    }
    CTestSocket media = CTestSocket::BindUdp();  // unless they are interleaved
    std::string reply;                           // the last one
};

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
    void ExpectServed(const CTestSocket* datagrams = nullptr) {
        CTestClient next(m_port);
        ASSERT_TRUE(next.PlayInterleaved(false));
        const std::string frame = PushRun(1, 333, datagrams);
        EXPECT_TRUE(next.Socket().ReceiveExactly(frame.size()) == frame);
    }

    // Pushes a run and returns its frames. Checks the same packets as datagrams, too.
    std::string PushRun(size_t units, size_t payload, const CTestSocket* datagrams = nullptr) {
        const Bytes run = MakeRun({96, m_sequence, 7, payload, 5}, units);
        m_sequence = static_cast<uint16_t>(m_sequence + units);
        Bytes copy = run;
        {
            const CInLibrary in;
            RTSPServer_SendRealSteam(1, 0, copy.data(), static_cast<int>(copy.size()));
        }
        std::string frames;
        const auto size = static_cast<long>(16 + payload);
        for (auto at = run.begin(); at != run.end(); at += size) {
            const Bytes unit(at, at + size);
            frames += FrameOf(unit, VIDEO_SSRC, 0);
            EXPECT_TRUE(datagrams == nullptr || datagrams->Receive() == PacketOf(unit, VIDEO_SSRC));
        }
        return frames;
    }

    // One client per transport receives a push. The clients close first, so that no closed
    // connection blocks a port of the server.
    void PlayOverEveryTransport(const CLogCapture& log) {
        {
            const CPeer udp(m_port, PLAYING, UDP);
            const CPeer tcp(m_port, PLAYING, TCP);
            CPeer interleaved(m_port, PLAYING, INTERLEAVED);
            ASSERT_TRUE(log.WaitFor("Found Needed Addr coming"));
            const std::string frames = PushRun(40, 1388, &udp.media);
            std::string separate = frames;
            for (size_t at = 0; at < separate.size(); at += 1404) {
                separate.replace(at + 2, 2, 2, '\0');
            }
            EXPECT_TRUE(interleaved.Socket().ReceiveExactly(frames.size()) == frames);
            EXPECT_TRUE(tcp.media.ReceiveExactly(frames.size()) == separate);
        }
        EXPECT_TRUE(WaitUntil([&] { return log.Count(" exit\n") == 3; }));
    }

    // Over separate TCP the first pushes wait until the server has accepted the connection.
    std::string PushUntilReceived(const CTestSocket& media) {
        std::string got;
        for (int i = 0; i < 100 && got.empty(); ++i) {
            PushRun(1, 100);
            got = media.Receive(65536, 10);
        }
        return got;
    }

    CLogCapture m_dump{2};
    CLogCapture m_log;
    uint16_t m_sequence = 1;
};

TEST_F(CFaultTest, CallsThatFail) {
    const std::string noMedia = "|E m_pTransCtrl->Open failed";
    const std::string noReports = "|E Open m_pRtcpSession error!;";
    const struct {
        std::string transport;  // none: the start of the server
        ECall call;
        int nth;
        int error;
        std::string lines;
        std::string reply = {};  // the last one
    } rows[] = {{"", SOCKET, 1, EMFILE, "E CreateSocket failed "},
                {"", BIND, 1, EACCES, "E bind " + std::to_string(m_port) + " failed,errno 13"},
                {"", LISTEN, 1, EADDRINUSE, "E Listen failed "},
                {"", THREAD, 1, EAGAIN, "E create data thread failed "},
                {"", NEW, 1, ENOMEM, "E new(std::nothrow) CRtspListener failed "},
                {UDP, THREAD, 1, EAGAIN,
                 "E create process_msg_svc! error!, FD[#]|E Open thread to process msg ERROR!!"},
                {UDP, ACCEPT, 1, EMFILE, "", "200"},  // accepted later
                {UDP, ACCEPT, 1, ECONNABORTED, "", "200"},
                {UDP, SOCKET, 1, EMFILE, "E CreateSocket failed " + noMedia, REFUSED},
                {UDP, SOCKET, 2, EMFILE, "E CreateSocket failed " + noReports, "200"},
                {UDP, BIND, 1, EADDRINUSE, "E Bind failed " + noMedia, REFUSED},
                {UDP, BIND, 2, EADDRINUSE, "E Bind failed " + noReports, "200"},
                {TCP, SOCKET, 1, EMFILE, "E CreateSocket failed " + noMedia, REFUSED},
                {TCP, BIND, 1, EADDRINUSE, "E Bind failed " + noMedia, REFUSED},
                {TCP, LISTEN, 1, EADDRINUSE, "E Listen failed " + noMedia, REFUSED},
                {TCP, THREAD, 2, EAGAIN, "E create accept_connect_svc thread failed ", REFUSED}};
    m_para.nMaxPort = m_para.nMinPort + 5;
    Init();
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.transport << row.lines << row.error);
        const CLogCapture log;
        if (row.transport.empty()) {
            const CInLibrary in;
            const CFailingCall fault(row.call, row.nth, row.error);
            EXPECT_EQ(RTSPServer_Start(), -1);
            EXPECT_EQ(CountDescriptors(), m_descriptorsBefore + 2) << "the log's two";
        } else {
            RTSPServer_Stop();  // the next pool does not have the ports of the refused peers
            ASSERT_EQ(RTSPServer_Start(), 0);
            const CSweeper sweeper;
            const CFailingCall fault(row.call, row.nth, row.error);
            CPeer peer(m_port, PLAYING, row.transport);
            EXPECT_TRUE(fault.HasFailed());
            const bool isServed = row.reply == "200";
            EXPECT_TRUE(isServed ? Ok(peer.reply)
                                 : peer.reply == row.reply && peer.Socket().AtEnd());
            ExpectServed(isServed ? &peer.media : nullptr);
        }
        EXPECT_TRUE(row.lines.empty() || log.HasLines(row.lines));
    }
}

TEST_F(CFaultTest, ExhaustedPortPool) {
    m_para.nMaxPort = m_para.nMinPort;
    StartServer();
    const CSweeper sweeper;
    const CPeer first(m_port, PLAYING, UDP);
    CPeer second(m_port, PLAYING, UDP);
    EXPECT_EQ(second.reply, REFUSED);
    EXPECT_TRUE(m_log.HasLines("E ERROR! borrow_data_port Err!!!") && second.Socket().AtEnd());
    ASSERT_TRUE(Ok(first.reply));
    ExpectServed(&first.media);
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
    for (const std::string& transport : {UDP, TCP}) {
        CPeer client(m_port, PLAYING, transport);
        EXPECT_TRUE(Ok(client.reply) && !PushUntilReceived(client.media).empty());
        ExpectServed();
        EXPECT_TRUE(Ok(client.Ask("TEARDOWN", client.Url())));
    }
}

TEST_F(CFaultTest, ClockThatJumps) {
    StartServer();
    CPeer client(m_port, PLAYING, UDP);
    CFakeClock clock(0);
    int64_t usec = 0;  // different times give the sessions different ids
    for (const int64_t now : {1700000000, 1700003600, 1700000000, 1, 2000000000}) {
        SCOPED_TRACE(now);
        clock.Set(now, ++usec);
        EXPECT_TRUE(Ok(client.Ask("OPTIONS", client.Url())));
        ExpectServed(&client.media);
    }
}

TEST(TimedWaits, EndThoughTheClockJumps) {
    struct CJump final : CSocketModel {
        explicit CJump(int64_t now) : to(now) {}
        short Poll(int /*fd*/) override {
            clock.Set(to);
            return ++polls < 10 ? short{0} : short{POLLNVAL};
        }
        ssize_t Send(int, const char*, size_t) override { return -1; }
        ssize_t SendMessage(int, const msghdr&) override { return -1; }
        CFakeClock clock{1700000000};
        const int64_t to;
        int polls = 0;
    };
    char byte = 0;
    for (const int64_t to : {1699996400, 1700003600}) {
        for (int call = 0; call < 4; ++call) {
            CJump model(to);
            const int result = call == 0   ? CBB_Accept(0, nullptr, 100)
                               : call == 1 ? CBB_RecvWithTimeOut(0, &byte, 1, 100)
                               : call == 2 ? CBB_Recvn(0, &byte, 1, 100)
                                           : CBB_Sendn(0, &byte, 1, 100);
            EXPECT_EQ(result, call < 2 ? -1 : 0) << call;
            EXPECT_EQ(model.polls, 1) << call << ", " << to;
        }
    }
}

// In each state and over each transport, a peer disconnects with RST. Where the system allows it, a
// peer also disappears without a packet: the server notices that only when it sends media on the
// same connection.
TEST_F(CFaultTest, PeersThatVanish) {
    m_para.nMaxPort = m_para.nMinPort + 5;
    StartServer();
    const CSweeper sweeper;
    const int descriptors = CountDescriptors();
    int gone = 0;
    for (const std::string& transport : {UDP, TCP, INTERLEAVED}) {
        for (int state = transport == UDP ? CONNECTED : SET_UP; state <= TORN_DOWN; ++state) {
            for (int way = 0; way < (state == PLAYING && transport == INTERLEAVED ? 2 : 1); ++way) {
                SCOPED_TRACE(testing::Message() << transport << state << ", way " << way);
                CPeer client(m_port, static_cast<EState>(state), transport);
                ASSERT_TRUE(Ok(client.reply));
                const int isSilent = way;
                setsockopt(client.Socket().Fd(), IPPROTO_TCP, TCP_REPAIR, &isSilent, sizeof(int));
                client.Socket().ResetHard();
                client.media.Reset();
                PushRun(1, 100);
                ++gone;
                ASSERT_TRUE(WaitUntil([&] {
                    return m_log.Count(" exit\n") == gone && CountDescriptors() == descriptors;
                }));
            }
        }
    }
    ExpectServed();
}

// Clients that take no media are dropped after 21 short pushes; the others miss nothing.
TEST_F(CFaultTest, PeersThatTakeNoMedia) {
    enum EPeer { NEVER_READS_INTERLEAVED, NEVER_READS, RESETS_ITS_MEDIA, PEERS };
    StartServer();
    const CPeer udp(m_port, PLAYING, UDP);
    for (int peer = 0; peer < PEERS; ++peer) {
        SCOPED_TRACE(peer);
        const bool isInterleaved = peer == NEVER_READS_INTERLEAVED;
        const CLogCapture log;
        CPeer slow(m_port, PLAYING, isInterleaved ? INTERLEAVED : TCP, 4096);
        if (peer == RESETS_ITS_MEDIA) {
            slow.media.ResetHard();
        }
        const std::string over = " send failed over thresold and exit\n";
        for (int i = 0; i < 400 && !log.Has(over) && !HasFailure(); ++i) {
            PushRun(40, 1400, &udp.media);
        }
        EXPECT_EQ(log.Count(over), 1);
        // Over separate TCP the accept of the connection may end an earlier run of short pushes.
        EXPECT_GE(log.Count(" send failed,nLen="), 21);
        EXPECT_TRUE(!isInterleaved || log.Count(" send failed,nLen=") == 21);
        EXPECT_EQ(log.Has("remain bufsize="), isInterleaved);
        EXPECT_TRUE(log.WaitFor(" exit\n"));
    }
    ExpectServed(&udp.media);
}

// Runs of equal units leave in one call per client, unless the kernel does not segment UDP.
TEST_F(CFaultTest, RunsLeaveInFewSystemCalls) {
    constexpr int UNITS = 40;
    const struct {
        const char* why;
        std::string transport;
        bool segments;
        int polls, sends, sendmsgs;
    } rows[] = {
        {"UDP with segmentation", UDP, true, 1, 0, 1},
        {"UDP without segmentation", UDP, false, UNITS, UNITS, 0},
        {"interleaved", INTERLEAVED, true, 1, 1, 0},
        {"interleaved needs no segmentation", INTERLEAVED, false, 1, 1, 0},
    };
    StartServer();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const CMissingOption missing(IPPROTO_UDP, row.segments ? 0 : UDP_SEGMENT);
        CPeer client(m_port, PLAYING, row.transport);
        ASSERT_TRUE(Ok(client.reply));
        const auto& media = row.transport == UDP ? client.media : client.Socket();
        for (int push = 0; push < 3; ++push) {  // the first one starts the reports' interval
            const int before[] = {g_scripts[POLL].calls, g_scripts[SEND].calls,
                                  g_scripts[SENDMSG].calls};
            const std::string frames = PushRun(UNITS, 200, row.transport == UDP ? &media : nullptr);
            EXPECT_TRUE(row.transport == UDP || media.ReceiveExactly(frames.size()) == frames);
            if (push == 0) {
                continue;
            }
            EXPECT_EQ(g_scripts[POLL].calls - before[0], row.polls);
            EXPECT_EQ(g_scripts[SEND].calls - before[1], row.sends);
            EXPECT_EQ(g_scripts[SENDMSG].calls - before[2], row.sendmsgs);
        }
        client.Socket().Reset();
        CRtspSessionManager::Instance()->Close();
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

// Whether ports can be bound without SO_REUSEADDR: no socket and no closed connection uses them.
bool AreFree(int first, int count) {
    bool areFree = true;
    for (int i = 0; i < 2 * count; ++i) {
        const int type = i % 2 == 0 ? SOCK_DGRAM : SOCK_STREAM;
        const CTestSocket probe(socket(AF_INET, type | SOCK_CLOEXEC, 0));
        const CBB_ADDR_T addr = MakeAddr("127.0.0.1", static_cast<uint16_t>(first + i / 2));
        areFree = areFree && CBB_Bind(probe.Fd(), &addr) == 0;
    }
    return areFree;
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
    std::multiset<std::string> expected;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const CLogCapture log;
        const CMissingOption missing(row.level, row.name);
        m_para.nServerPort = m_port = FreeTcpPort();
        while (!AreFree(m_para.nMinPort, 4)) {
            m_para.nMinPort += 2;
        }
        m_para.nMaxPort = m_para.nMinPort + 2;
        {
            const CInLibrary in;
            Init(true);
            ASSERT_EQ(RTSPServer_Start(), 0);
        }
        PlayOverEveryTransport(log);
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
    CPeer client(m_port, PLAYING, UDP);
    ASSERT_TRUE(Ok(client.reply));
    g_skippedWaits = INT_MAX / WAIT_MS + 10;
    EXPECT_TRUE(Ok(client.Ask("OPTIONS", "*"))) << "wakes the thread from its first wait";
    EXPECT_TRUE(WaitUntil([] { return g_skippedWaits == 0; }));
    EXPECT_TRUE(Ok(client.Ask("OPTIONS", "*"))) << "a client that was quiet for 24 days";
    m_sequence = 65530;
    for (int i = 0; i < 4; ++i) {
        PushRun(4, 1388, &client.media);
    }
    const Bytes early = MakeUnit({96, 10, 0xFFFFFFFF, 100, 1});
    const Bytes late = MakeUnit({96, 11, 0x00000E0F, 100, 2});
    for (const Bytes& unit : {early, late}) {
        Push(unit);
        EXPECT_EQ(client.media.Receive(), PacketOf(unit, VIDEO_SSRC));
    }
    EXPECT_FALSE(m_log.Has("[RTSPS ERROR]"));
}

TEST_F(CFaultTest, SteadyPushesAllocateNothing) {
    StartServer();
    const CPeer tcp(m_port, PLAYING, TCP);
    ASSERT_NE(PushUntilReceived(tcp.media), "");
    const CPeer udp(m_port, PLAYING, UDP);
    CPeer interleaved(m_port, PLAYING, INTERLEAVED);
    int before = 0;
    for (int round = 0; round < 11 && !HasFailure(); ++round) {
        std::string frames;
        for (int i = 0; i < 100; ++i) {  // so few units always fit every client's buffers
            frames += PushRun(3, 200, &udp.media);
        }
        const int calls = g_scripts[NEW].calls + g_scripts[MALLOC].calls;
        before = round == 0 ? calls : before;  // the first push of a stream may allocate
        EXPECT_EQ(calls, before);
        EXPECT_TRUE(interleaved.Socket().ReceiveExactly(frames.size()) == frames);
        EXPECT_EQ(tcp.media.ReceiveExactly(frames.size()).size(), frames.size());
    }
}

// An incomplete reply is not sent, but the next message on the same thread is.
TEST(MessageFaults, OnlyTheIncompleteMessageIsRefused) {
    const std::string text =
        "SETUP x RTSP/1.0\r\nCSeq: 1\r\nSession: 2;timeout=60\r\nFolded: a\r\n b\r\n"
        "Range: npt=1-\r\nTransport: RTP/AVP;unicast,RTP/AVP/TCP\r\n\r\n";
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
    ASSERT_NE(whole, "");
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

// Each allocation fails once, with a newly started server for each.
class CNthAllocationTest : public CFaultTest, public ::testing::WithParamInterface<std::string> {
  protected:
    enum EEnd { SERVED, TURNED_AWAY, SILENT };

    // A whole dialogue and one push.
    EEnd Serve() {
        CPeer client(m_port, PLAYING, GetParam());
        if (!Ok(client.reply)) {
            EXPECT_TRUE(client.reply.empty() || client.reply.rfind("RTSP/1.0 ", 0) == 0)
                << "no reply lacks a part: " << client.reply;
            return client.Ask("OPTIONS", "*") != "" || client.Socket().AtEnd(0) ? TURNED_AWAY
                                                                                : SILENT;
        }
        if (CRtspSessionManager::Instance()->GetCurrSessionNums() == 0) {
            return TURNED_AWAY;  // not registered, so it gets no media
        }
        const auto& socket = GetParam() == INTERLEAVED ? client.Socket() : client.media;
        return PushUntilReceived(socket).empty() ? SILENT : SERVED;
    }
};

TEST_P(CNthAllocationTest, CostsAtMostItsClient) {
    m_para.nMaxPort = m_para.nMinPort + 5;  // three pairs
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
            const EEnd end = Serve();
            hasFailed = fault.HasFailed();
            EXPECT_TRUE(hasFailed ? end != SILENT : end == SERVED) << end;
            EXPECT_TRUE(!hasFailed || Serve() == SERVED) << "the next client";
        }
        ExpectAllPorts();
    }
    EXPECT_GT(n, 60) << "the allocations of the dialogue are seen";
}
INSTANTIATE_TEST_SUITE_P(Transport, CNthAllocationTest, ::testing::Values(UDP, TCP, INTERLEAVED),
                         [](const auto& row) { return "number" + std::to_string(row.index); });

}  // namespace
