// SPDX-License-Identifier: MIT
// One session on a socket pair: framing by its own thread, and what its fields decide, by
// dispatching requests on the test's thread.
#include "rtsps_session.h"

#include <fcntl.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>

#include <functional>

#include "rtsp_msg.h"
#include "rtsps_server.h"
#include "support/session_probe.h"
#include "support/test_net.h"

namespace {

std::string Request(const std::string& method, const std::string& headers = "",
                    const std::string& cseq = "9") {
    return method + " rtsp://127.0.0.1/chan1/main/streamid=0 RTSP/1.0\r\nCSeq: " + cseq + "\r\n" +
           headers + "\r\n";
}

std::string Status(const std::string& status, const std::string& headers = "") {
    return "RTSP/1.0 " + status + "\r\nCSeq: 9\r\n" + headers + "\r\n";
}

std::string Beat(char n) {
    return std::string("HEARTBEAT x RTSP/1.0\r\nCSeq: ") + n + "\r\n\r\n";
}

std::string Frame(char channel, int length, size_t held) {
    const char head[] = {'$', channel, static_cast<char>(length >> 8), static_cast<char>(length)};
    return std::string(head, 4) + std::string(held - 4, 'x');
}

constexpr unsigned int ID = 3000000000U;  // prints differently with a sign
const std::string PLAYED = "RTSP/1.0 200 OK\r\nSession: 3000000000\r\nCSeq: 9\r\n\r\n";
const std::string PAUSED = Status("200 OK", "Session: -1294967296\r\n");
const std::string TORN_DOWN = Status("200 OK", "Session: 3000000000\r\nConnection: close\r\n");

// A session and its client on a socket pair.
struct CSessionOnPair {
    CSessionOnPair() {
        int pair[2] = {-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
        client = CTestSocket(pair[0]);
        fd = pair[1];
        CBB_MakeAddrByString(AF_INET, "10.0.0.7", 1234, &addr);
        TRtspServerStreamInfo info = MakeStreamInfo();
        CRtspServer::Instance()->SetStreamInfo(1, 0, &info);
    }
    // Without a thread, led to a state.
    explicit CSessionOnPair(eRTSP_METHOD_INDEX state) : CSessionOnPair() {
        probe.sockfd = fd;
        probe.clientAddr = addr;
        for (const char* method : {"DESCRIBE", "SETUP", "PLAY"}) {
            if (probe.emRtspStat != state) {
                Dispatch(Request(method, "Transport: RTP/AVP/TCP;interleaved=0-1\r\n"));
            }
        }
        probe.nCSeq = 0;
        Replies();
    }
    ~CSessionOnPair() { session.Close(); }

    // Sends one piece and waits until the session's thread has taken it.
    void SendPiece(const std::string& piece) {
        if (piece.empty()) {
            client.Reset();
            return;
        }
        EXPECT_TRUE(client.Send(piece));
        int queued = 1;
        EXPECT_TRUE(WaitUntil([&] {
            return (ioctl(client.Fd(), SIOCOUTQ, &queued), queued == 0) || !session.IsRunning();
        }));
    }
    int Dispatch(const std::string& text) {
        const std::unique_ptr<CRtspMsg> msg(
            CRtspMsgParser().parse(text.data(), static_cast<int>(text.size())));
        return session.proc_rtsp_msg_hook(msg.get());
    }
    std::string Replies() { return client.Receive(65536, 0); }

    CLogCapture log;
    CTestSocket client;
    CBB_SOCK_T fd = -1;
    CBB_ADDR_T addr{};
    CRtspSession session{ID};
    CRtspSessionProbe probe{session};
};

TEST(Session, FramingOfWhatArrivesInPieces) {
    const std::string unparsable = "E parse pMsg Error!!!, fd[#],client[10.0.0.7]";
    const std::string frame = Frame(7, 4, 8);
    const std::string longest = "HEARTBEAT x RTSP/1.0\r\nCSeq: 4\r\nX: " + std::string(4062, 'x');
    // The pieces ("": the client leaves), the sequence numbers of the replies, the line at the end.
    const std::tuple<std::vector<std::string>, std::string, std::string> rows[] = {
        {{Beat('1').substr(0, 3), Beat('1').substr(3), Beat('2')}, "12", ""},
        {{"\r\n" + Beat('3'), "half a line"}, "3", ""},
        {{longest, "\r\n\r\n"}, "4", ""},
        {{std::string(4097, 'x'), Beat('5')}, "5", ""},
        {{Frame('\xFF', 65535, 5000), Beat('5')}, "5", ""},
        {{frame, frame.substr(0, 2), frame.substr(2), Beat('6')}, "6", ""},
        {{Frame(0, 300, 303), "x", Beat('6')}, "6", ""},
        {{"RTSP/1.0 200 OK\r\nCSeq: 1\r\n\r\n", Beat('7')}, "7", ""},
        {{std::string("A\0\r\n\r\n", 6), Beat('1')}, "", ""},  // nothing behind a NUL is seen
        // Kept: what follows in the same receive is not moved to the front.
        {{Beat('1') + Beat('2'), Beat('3')}, "11", ""},
        {{Beat('1'), "\r\n\r\n", Beat('2')}, "1", unparsable},
        {{Frame(8, 257, 4) + "\r\n\r\n"}, "", unparsable},  // text
        {{"HEARTBEAT x RTSP/1.0\r\nContent-length: 3\r\n\r\nabc"}, "", unparsable},
        {{Frame(0, 65535, 8192), "x"}, "", "E Recvn ,nRecvlen [0]! left [0]! fd[#],errno[#]"},
        {{"HEAR", ""}, "", "E Recvn ,nRecvlen [0]! left [8188]! fd[#],errno[#]"},
    };
    for (const auto& [pieces, replies, end] : rows) {
        SCOPED_TRACE(pieces[0].substr(0, 60));
        CSessionOnPair s;
        EXPECT_EQ(s.session.Open(s.fd, &s.addr), 0);
        for (const std::string& piece : pieces) {
            s.SendPiece(piece);
        }
        for (const char n : replies) {
            const std::string reply = std::string("RTSP/1.0 200 OK\r\nCSeq: ") + n + "\r\n\r\n";
            EXPECT_EQ(s.client.ReceiveExactly(reply.size()), reply);
        }
        EXPECT_TRUE(s.log.HasLines(end.empty() ? "" : end + "|C exit"));
        EXPECT_TRUE(end.empty() || WaitUntil([&] { return !s.session.IsRunning(); }));
        EXPECT_NE(fcntl(s.fd, F_GETFD), -1) << "the end of the thread is not that of the socket";
        std::thread other([&] { EXPECT_EQ(s.session.Close(), 0); });
        EXPECT_EQ(s.session.Close(), 0);
        other.join();
        EXPECT_FALSE(s.session.IsRunning());
        EXPECT_EQ(fcntl(s.fd, F_GETFD), -1);
        EXPECT_EQ(s.Replies(), "");
        EXPECT_EQ(s.log.Has("[RTSPS ERROR]"), !end.empty()) << "a normal stop is no error";
    }
}

// A report of interleaved media and a request may share a segment: clients write both on one
// connection. A session that misses one boundary answers nothing from there on.
TEST(Session, ReportsAndRequestsShareSegments) {
    const std::string report = Frame(1, 48, 52);
    const std::string empty = Frame(1, 0, 4);
    using Pieces = std::vector<std::string>;
    const struct {
        const char* why;
        std::function<Pieces(const std::string& request, size_t round)> pieces;
    } rows[] = {
        {"a report before a request",
         [&](auto& request, size_t) { return Pieces{report + request}; }},
        {"a request before a report",
         [&](auto& request, size_t) { return Pieces{request + report}; }},
        {"two reports before a request",
         [&](auto& request, size_t) { return Pieces{report + report + request}; }},
        {"a request between two reports",
         [&](auto& request, size_t) { return Pieces{report + request + report}; }},
        {"reports without content",
         [&](auto& request, size_t) { return Pieces{empty + request + empty}; }},
        {"a report cut anywhere, its end with a request",
         [&](auto& request, size_t round) {
             return Pieces{report.substr(0, round), report.substr(round) + request};
         }},
        {"a report cut anywhere, its beginning with a request",
         [&](auto& request, size_t round) {
             return Pieces{request + report.substr(0, round), report.substr(round)};
         }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        CSessionOnPair s;
        EXPECT_EQ(s.session.Open(s.fd, &s.addr), 0);
        for (size_t round = 1; round < report.size(); ++round) {
            const std::string cseq = std::to_string(round);
            for (const std::string& piece : row.pieces(Request("HEARTBEAT", "", cseq), round)) {
                s.SendPiece(piece);
            }
            const std::string reply = "RTSP/1.0 200 OK\r\nCSeq: " + cseq + "\r\n\r\n";
            ASSERT_EQ(s.client.ReceiveExactly(reply.size(), 1000), reply);
        }
        EXPECT_EQ(s.session.Close(), 0);
        EXPECT_EQ(s.Replies(), "");
        EXPECT_FALSE(s.log.Has("[RTSPS ERROR]"));
    }
}

TEST(Session, IdleRuleIsOffUnlessSwitchedOn) {
    CSessionOnPair s(RTSP_UNKNOWN);
    EXPECT_FALSE(s.probe.IdleTooLong(2147483647));
    s.probe.bUseHeartBeat = true;
    EXPECT_FALSE(s.probe.IdleTooLong(30000));
    EXPECT_EQ(s.log.Text(), "");
    EXPECT_TRUE(s.probe.IdleTooLong(33000));
    EXPECT_TRUE(
        s.log.HasLines("E RtspSession in 30s ,close this session,! fd[#],client[10.0.0.7]"));
}

TEST(Session, AuthenticationAndSessionIdAreCheckedOnDemand) {
    constexpr int ID_CHECK = -1;
    const std::string given = "Authorization: Basic YTpi, x;y=z\r\n";
    const std::string no = "401 Unauthorized";
    const std::string basic = Status(no, "WWW-Authenticate: Basic realm=\"/\"\r\n");
    const std::string digest = Status(no, "Authorization: Digest\r\n");
    const std::string missing = "E no Header Authorization|";
    const std::string failed = "E check_authentication";
    const std::string goodId = "Session: 3000000000;timeout=60\r\n";
    const std::string bad = Status("454 Session Not Found");
    const std::string badLine = "E BadSessionID!!!, FD[#]";
    // An empty reply stands for any success.
    const std::tuple<std::string, eRTSP_METHOD_INDEX, int, std::string, int, std::string,
                     std::string>
        rows[] = {
            // The client of a refused DESCRIBE may ask again.
            {"DESCRIBE", RTSP_UNKNOWN, 1, "", 0, basic,
             missing + "W Need Authorization Basic|E check_authentication failed"},
            {"DESCRIBE", RTSP_UNKNOWN, 1, given, 0, "", ""},
            {"DESCRIBE", RTSP_UNKNOWN, 1, "Authorization:\r\n", 0, "", ""},
            {"DESCRIBE", RTSP_UNKNOWN, 2, "", 0, digest, missing + "W Need Authorization Digest"},
            {"DESCRIBE", RTSP_UNKNOWN, 7, given, 0, Status(no),
             "E unsupported Auth!|W m_CheckUserPwdMode ERROR 7"},
            {"SETUP", RTSP_DESCRIBE, 1, "", -1, basic, failed},
            {"PLAY", RTSP_SETUP, 2, "", -1, digest, failed},
            {"PAUSE", RTSP_PLAY, 1, "", -1, basic, failed},
            {"PAUSE", RTSP_PLAY, 1, given, 0, PAUSED, ""},
            // Not guarded.
            {"HEARTBEAT", RTSP_UNKNOWN, 1, "", 0, Status("200 OK"), ""},
            {"TEARDOWN", RTSP_PLAY, 1, "", 0, TORN_DOWN, ""},
            {"PLAY", RTSP_SETUP, ID_CHECK, goodId, 0, PLAYED, ""},
            // Kept: a 454 that went out counts as passed, and the handler carries on.
            {"PLAY", RTSP_SETUP, ID_CHECK, "Session: 300000000\r\n", 0, bad + PLAYED, badLine},
            {"TEARDOWN", RTSP_SETUP, ID_CHECK, "Session:\r\n", 0, bad + TORN_DOWN, badLine},
            {"PAUSE", RTSP_SETUP, ID_CHECK, "", 0,
             bad + Status("455 Method Not Valid In This State"), badLine},
        };
    for (const auto& [method, state, mode, headers, result, expected, lines] : rows) {
        SCOPED_TRACE(method + std::to_string(mode) + headers);
        CSessionOnPair s(state);
        s.probe.bNeedCheckId = mode == ID_CHECK;
        s.probe.nCheckUserPwdMode = std::max(mode, 0);
        s.probe.stuReqCfg.nReqType = state == RTSP_PLAY ? 1 : 0;  // only recordings pause
        EXPECT_EQ(s.Dispatch(Request(method, headers)), result);
        const std::string reply = s.Replies();
        EXPECT_EQ(expected.empty() ? reply.substr(0, 16) : reply,
                  expected.empty() ? "RTSP/1.0 200 OK\r" : expected);
        EXPECT_TRUE(s.log.HasLines(lines));
        EXPECT_EQ(s.probe.nCSeq, result == 0 ? 9 : 0) << "that of what succeeded";
    }
    for (const bool each : {true, false}) {
        CSessionOnPair s(RTSP_UNKNOWN);
        s.probe.nCheckUserPwdMode = 1;
        s.probe.bEachReqAuthCheck = each;
        EXPECT_EQ(s.Dispatch(Request("DESCRIBE", given)), 0);
        EXPECT_EQ(s.Dispatch(Request("SETUP", "Transport: RTP/AVP/TCP\r\n")), each ? -1 : 0);
    }
    CSessionOnPair gone(RTSP_DESCRIBE);
    gone.probe.bNeedCheckId = true;
    gone.client.Reset();
    for (const char* method : {"PAUSE", "TEARDOWN", "HEARTBEAT"}) {
        const CLogCapture log;
        EXPECT_EQ(gone.Dispatch(Request(method)), 0) << method;
        EXPECT_EQ(gone.probe.emRtspStat, RTSP_DESCRIBE) << method;
        EXPECT_TRUE(
            log.HasLines("E send_response failed, , fd[#],errno[#]|E check_req_session_id failed"));
    }
    EXPECT_EQ(gone.session.Open(gone.fd, nullptr), -1);
    EXPECT_TRUE(gone.log.HasLines("E invalid input para"));
}

TEST(Session, OnlyLiveStreamsTakePushesAndOnlyRecordingsPause) {
    CSessionOnPair s(RTSP_PLAY);
    Bytes unit = MakeUnit({});
    const auto push = [&] { return s.session.SendRealStream(1, 0, unit.data(), 116); };
    EXPECT_EQ(push(), 0) << "has ended";
    s.probe.bQuit = false;
    EXPECT_EQ(push(), 116);
    EXPECT_EQ(s.Replies(), FrameOf(unit, MakeStreamInfo().dwVideoSSrc, 0));
    s.probe.stuReqCfg.nReqType = 1;
    for (const char* method : {"PAUSE", "PAUSE", "PLAY", "PAUSE"}) {
        EXPECT_EQ(s.Dispatch(Request(method)) + push(), 0);
        EXPECT_EQ(s.Replies(), method[1] == 'A' ? PAUSED : PLAYED);
    }
    EXPECT_FALSE(s.log.Has("[RTSPS ERROR]"));
    CSessionOnPair bare(RTSP_DESCRIBE);
    bare.probe.bQuit = false;
    bare.probe.emRtspStat = RTSP_PLAY;
    EXPECT_EQ(bare.session.SendRealStream(1, 0, unit.data(), 116), -1);
    EXPECT_TRUE(bare.log.HasLines("E m_pTransCtrl is NULL"));
}

TEST(Session, RepliesThatDoNotFitAreNotSent) {
    const std::tuple<const char*, size_t, size_t, const char*> rows[] = {
        {"HEARTBEAT", 996, 1023, ""},
        {"HEARTBEAT", 997, 0, "E send_response failed|E send_response failed, , fd[#],errno[#]"},
        {"DESCRIBE", 625, 1023, ""},
        {"DESCRIBE", 626, 0, "W Send SDP INFO ERROR, , FD[#]|E send_sdp_response failed "},
    };
    for (const auto& [method, length, sent, lines] : rows) {
        CSessionOnPair s(RTSP_UNKNOWN);
        std::string cseq;  // a reply repeats it; each parameter alone would be cut
        while (cseq.size() < length) {
            cseq += "a=" + std::string(97, 'b') + ";";
        }
        EXPECT_EQ(s.Dispatch(Request(method, "", cseq.substr(0, length))), sent != 0 ? 0 : -1);
        EXPECT_EQ(s.Replies().size(), sent) << method << length;
        EXPECT_TRUE(s.log.HasLines(lines));
        EXPECT_EQ(s.probe.stuReqCfg.nChan, method[0] == 'D' && sent != 0 ? 1 : 0);
    }
}

}  // namespace
