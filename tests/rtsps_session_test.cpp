// SPDX-License-Identifier: MIT
// One session on a socket pair. Its own thread frames the received bytes. The tests of its fields
// dispatch requests on the test's thread.
#include "rtsps_session.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>

#include "rtsp_msg.h"
#include "rtsps_server.h"
#include "support/session_probe.h"
#include "support/trans_info.h"

namespace {

std::string Request(const std::string& method, const std::string& headers = "",
                    const std::string& cseq = "9") {
    return method + " rtsp://127.0.0.1/chan1/main/streamid=0 RTSP/1.0\r\nCSeq: " + cseq + "\r\n" +
           headers + "\r\n";
}

std::string Status(const std::string& status, const std::string& headers = "") {
    return "RTSP/1.0 " + status + "\r\nCSeq: 9\r\n" + headers + "\r\n";
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
        TRtspServerStreamInfo info = MakeStreamInfo();
        CRtspServer::Instance()->SetStreamInfo(1, 0, &info);
    }
    // A session without a thread, in a given state.
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

    // Sends one piece and waits until the session's thread has received it.
    void SendPiece(const std::string& piece) {
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
    CSocketPair connection;
    CTestSocket& client = connection.client;
    const CBB_SOCK_T fd = connection.server.Take();
    const CBB_ADDR_T addr = MakeAddr("10.0.0.7", 1234);
    CRtspSession session{ID};
    CRtspSessionProbe probe{session};
};

TEST(Session, FramingLimits) {
    const auto sized = [](size_t size, const std::string& end) {
        std::string request = "HEARTBEAT x RTSP/1.0\r\nCSeq: 4\r\nX: ";
        request.resize(size - end.size(), 'x');
        return request + end;
    };
    const std::string end = "\r\n\r\n";
    const std::string beat = Request("HEARTBEAT", "", "5");
    const struct {
        const char* why;
        std::vector<std::string> pieces;
        int answered;  // the sequence number of the only reply
    } rows[] = {
        {"a leading line end", {"\r\n" + beat, "half a line"}, 5},
        {"4096 bytes without an end", {sized(4096, ""), end}, 4},
        {"4097 bytes without an end are dropped", {std::string(4097, 'x'), beat}, 5},
        {"8192 bytes with an end", {sized(8192, end)}, 4},
        {"8193 bytes with an end are dropped", {sized(8193, end), beat}, 5},
        {"channel 255 is text", {Frame('\xFF', 65535, 5000), beat}, 5},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        CSessionOnPair s;
        EXPECT_EQ(s.session.Open(s.fd, &s.addr), 0);
        for (const std::string& piece : row.pieces) {
            s.SendPiece(piece);
        }
        const std::string reply =
            "RTSP/1.0 200 OK\r\nCSeq: " + std::to_string(row.answered) + "\r\n\r\n";
        EXPECT_EQ(s.client.ReceiveExactly(reply.size()), reply);
        s.session.Close();
        EXPECT_EQ(s.Replies(), "");
        EXPECT_FALSE(s.log.Has("[RTSPS ERROR]")) << "a normal stop is no error";
    }
}

// Clients send reports of interleaved media and requests on one connection, so a segment may hold
// both. A session that misses one boundary answers no further request.
TEST(Session, ReportsAndRequestsShareSegments) {
    const std::string report = Frame(1, 48, 52);
    const std::string empty = Frame(1, 0, 4);
    const struct {
        const char* why;
        std::string before, after;  // the request
        bool cutsBefore = false, cutsAfter = false;
    } rows[] = {
        {"a report before a request", report, ""},
        {"a request before a report", "", report},
        {"two reports before a request", report + report, ""},
        {"a request between two reports", report, report},
        {"reports without content", empty, empty},
        {"a report cut anywhere, its end with a request", report, "", true},
        {"a report cut anywhere, its beginning with a request", "", report, false, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        CSessionOnPair s;
        EXPECT_EQ(s.session.Open(s.fd, &s.addr), 0);
        for (size_t round = 1; round < report.size(); ++round) {
            const std::string cseq = std::to_string(round);
            const size_t begin = row.cutsBefore ? round : 0;
            const size_t end = row.cutsAfter ? round : row.after.size();
            s.SendPiece(row.before.substr(0, begin));
            s.SendPiece(row.before.substr(begin) + Request("HEARTBEAT", "", cseq) +
                        row.after.substr(0, end));
            s.SendPiece(row.after.substr(end));
            const std::string reply = "RTSP/1.0 200 OK\r\nCSeq: " + cseq + "\r\n\r\n";
            ASSERT_EQ(s.client.ReceiveExactly(reply.size()), reply);
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

const std::string CREDENTIALS = "Authorization: Basic YTpi, x;y=z\r\n";

// A request in a state, and its result.
struct CCheckRow {
    const char* why;
    std::string method;
    eRTSP_METHOD_INDEX state;
    std::string headers;
    std::string replies;
    std::string lines = {};
    int result = 0;
    int mode = 1;  // of authentication: 1 Basic, 2 Digest
};

void ExpectCheck(const CCheckRow& row, bool checksId) {
    SCOPED_TRACE(row.why);
    CSessionOnPair s(row.state);
    s.probe.bNeedCheckId = checksId;
    s.probe.nCheckUserPwdMode = checksId ? 0 : row.mode;
    s.probe.stuReqCfg.nReqType = row.state == RTSP_PLAY ? 1 : 0;  // only recordings pause
    EXPECT_EQ(s.Dispatch(Request(row.method, row.headers)), row.result);
    EXPECT_EQ(s.Replies(), row.replies);
    EXPECT_TRUE(s.log.HasLines(row.lines));
    EXPECT_EQ(s.probe.nCSeq, row.result == 0 ? 9 : 0) << "of the last request that succeeded";
    EXPECT_EQ(s.probe.emRtspStat == RTSP_ERROR, row.result != 0) << "takes no push any more";
}

TEST(Session, AuthenticationIsCheckedOnDemand) {
    const std::string unauthorized = "401 Unauthorized";
    const std::string basic = Status(unauthorized, "WWW-Authenticate: Basic realm=\"/\"\r\n");
    const std::string digest = Status(unauthorized, "Authorization: Digest\r\n");
    const std::string missing = "E no Header Authorization|";
    const std::string failed = "E check_authentication";
    const CCheckRow rows[] = {
        {"the client of a refused DESCRIBE may ask again", "DESCRIBE", RTSP_UNKNOWN, "", basic,
         missing + "W Need Authorization Basic|E check_authentication failed"},
        {"kept: Digest asks in another header", "DESCRIBE", RTSP_UNKNOWN, "", digest,
         missing + "W Need Authorization Digest", 0, 2},
        {"an unknown mode", "DESCRIBE", RTSP_UNKNOWN, CREDENTIALS, Status(unauthorized),
         "E unsupported Auth!|W m_CheckUserPwdMode ERROR 7", 0, 7},
        {"SETUP ends the session", "SETUP", RTSP_DESCRIBE, "", basic, failed, -1},
        {"PLAY ends it", "PLAY", RTSP_SETUP, "", digest, failed, -1, 2},
        {"PAUSE ends it", "PAUSE", RTSP_PLAY, "", basic, failed, -1},
        {"any credentials are accepted", "PAUSE", RTSP_PLAY, CREDENTIALS, PAUSED},
    };
    for (const CCheckRow& row : rows) {
        ExpectCheck(row, false);
    }
}

TEST(Session, CredentialsLastForOneRequestOrForTheSession) {
    for (const bool each : {true, false}) {
        for (const std::string& given : {CREDENTIALS, std::string("Authorization:\r\n")}) {
            CSessionOnPair s(RTSP_UNKNOWN);
            s.probe.nCheckUserPwdMode = 1;
            s.probe.bEachReqAuthCheck = each;
            EXPECT_EQ(s.Dispatch(Request("DESCRIBE", given)), 0);
            EXPECT_EQ(s.Dispatch(Request("SETUP", "Transport: RTP/AVP/TCP\r\n")), each ? -1 : 0);
        }
    }
}

TEST(Session, SessionIdIsCheckedOnDemand) {
    const std::string bad = Status("454 Session Not Found");
    const std::string line = "E BadSessionID!!!, FD[#]";
    const CCheckRow rows[] = {
        {"its own id", "PLAY", RTSP_SETUP, "Session: 3000000000;timeout=60\r\n", PLAYED},
        {"kept: contained anywhere in 127 bytes", "PLAY", RTSP_SETUP,
         "Session: " + std::string(117, 'a') + "3000000000\r\n", PLAYED},
        // Kept: once the 454 is sent, the handler continues.
        {"another id", "PLAY", RTSP_SETUP, "Session: 300000000\r\n", bad + PLAYED,
         line + "|W ERROR!!! BAD SessionID SRC[#], Coming [#]"},
        {"no value", "TEARDOWN", RTSP_SETUP, "Session:\r\n", bad + TORN_DOWN,
         line + "|W ERROR!!! CheckSessionId,pHeader->GetHeaderValue ERROR!"},
        {"another case", "PAUSE", RTSP_SETUP, "session: 3000000000\r\n",
         bad + Status("455 Method Not Valid In This State"),
         line + "|W ERROR!!! CheckSessionId,\"Session\" not found! "},
    };
    for (const CCheckRow& row : rows) {
        ExpectCheck(row, true);
    }
}

TEST(Session, OnlyRunningLiveSessionsTakePushes) {
    CSessionOnPair s(RTSP_PLAY);
    Bytes unit = MakeUnit({});
    const auto push = [&] { return s.session.SendRealStream(1, 0, unit.data(), 116); };
    EXPECT_EQ(push(), 0) << "has ended";
    s.probe.bQuit = false;
    EXPECT_EQ(push(), 116);
    EXPECT_EQ(s.Replies(), FrameOf(unit, MakeStreamInfo().dwVideoSSrc, 0));
    Bytes other = MakeUnit({97});
    EXPECT_EQ(s.session.SendRealStream(1, 0, other.data(), 116), -1) << "no stream has its type";
    s.probe.stuReqCfg.nReqType = 1;
    EXPECT_EQ(push(), 0) << "a recording";
    EXPECT_EQ(s.log.Count("[RTSPS ERROR]"), 1) << "of the other type";
}

TEST(Session, RepliesThatDoNotFitAreNotSent) {
    constexpr size_t LARGEST = 1023;
    const struct {
        std::string method;
        size_t cseqLength, sent;
        const char* lines;
    } rows[] = {
        {"HEARTBEAT", 996, LARGEST, ""},
        {"HEARTBEAT", 997, 0, "E send_response failed|E send_response failed, , fd[#],errno[#]"},
        {"DESCRIBE", 625, LARGEST, ""},
        {"DESCRIBE", 626, 0, "W Send SDP INFO ERROR, , FD[#]|E send_sdp_response failed "},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.method + " " + std::to_string(row.cseqLength));
        CSessionOnPair s(RTSP_UNKNOWN);
        std::string cseq;  // repeated in the reply; in parameters, because a long one is cut
        while (cseq.size() < row.cseqLength) {
            cseq += "a=" + std::string(97, 'b') + ";";
        }
        const std::string request = Request(row.method, "", cseq.substr(0, row.cseqLength));
        EXPECT_EQ(s.Dispatch(request), row.sent != 0 ? 0 : -1);
        EXPECT_EQ(s.Replies().size(), row.sent);
        EXPECT_TRUE(s.log.HasLines(row.lines));
        const bool isDescribed = row.method == "DESCRIBE" && row.sent != 0;
        EXPECT_EQ(s.probe.stuReqCfg.nChan, isDescribed ? 1 : 0)
            << "a failed DESCRIBE selects nothing";
    }
}

}  // namespace
