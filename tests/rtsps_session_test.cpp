// SPDX-License-Identifier: MIT
// One session on a socket pair: framing by its own thread, and what its fields decide, by
// dispatching requests on the test's thread.
#include "rtsps_session.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>

#include <thread>

#include "rtsp_msg.h"
#include "rtsps_server.h"
#include "support/log_capture.h"
#include "support/session_probe.h"
#include "support/test_net.h"

namespace {

std::string Request(const std::string& method, const std::string& headers = "") {
    return method + " rtsp://127.0.0.1/chan1/main/streamid=0 RTSP/1.0\r\nCSeq: 9\r\n" + headers +
           "\r\n";
}

std::string Status(const std::string& status, const std::string& headers = "") {
    return "RTSP/1.0 " + status + "\r\nCSeq: 9\r\n" + headers + "\r\n";
}

std::string Beat(char n) {
    return std::string("HEARTBEAT x RTSP/1.0\r\nCSeq: ") + n + "\r\n\r\n";
}

std::string Frame(char channel, int length, size_t held) {
    std::string bytes(held, 'x');
    bytes[0] = '$';
    bytes[1] = channel;
    bytes[2] = static_cast<char>(length >> 8);
    bytes[3] = static_cast<char>(length);
    return bytes;
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

    void Open() { EXPECT_EQ(session.Open(fd, &addr), 0); }
    // Sends one piece and waits until the session's thread has taken it.
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

    CTestSocket client;
    CBB_SOCK_T fd = -1;
    CBB_ADDR_T addr{};
    CRtspSession session{ID};
    CRtspSessionProbe probe{session};
};

class CSessionTest : public ::testing::Test {
  protected:
    CLogCapture m_log;
};

TEST(CheckPacket, CutsHeadsAndFrames) {
    const std::tuple<std::string, int, int> rows[] = {
        // length -1: not written
        {"\r\n\r", 2, -1},
        {"A\r\nContent-length: 3\r\n\r\nx\r\n\r\n", 0, 24},
        {std::string("A\0\r\n\r\n", 6), 2, -1},  // nothing behind a NUL is seen
        {Frame(7, 4, 20), 1, 8},
        {Frame(0, 300, 303), 2, -1},
        {Frame(0, 65535, 8192), 2, -1},
        {Frame(8, 0, 4), 2, -1},  // text
        {Frame('\xFF', 0, 5000), -1, -1},
    };
    for (const auto& [text, result, length] : rows) {
        int msgLen = -1;
        const int len = static_cast<int>(text.size());
        EXPECT_EQ(CRtspSession::check_packet(text.c_str(), 8192, len, msgLen), result) << text;
        EXPECT_EQ(msgLen, length) << text;
    }
}

TEST_F(CSessionTest, FramingOfWhatArrivesInPieces) {
    const std::string unparsable = "E parse pMsg Error!!!, fd[#],client[10.0.0.7]";
    const std::string frame = Frame(0, 4, 8);
    const std::string longest = "HEARTBEAT x RTSP/1.0\r\nCSeq: 4\r\nX: " + std::string(4062, 'x');
    const struct {
        std::vector<std::string> pieces;
        std::string replies;  // their sequence numbers
        std::string end;      // the line that ends the session
    } rows[] = {
        {{Beat('1').substr(0, 3), Beat('1').substr(3), Beat('2')}, "12", ""},
        {{"\r\n" + Beat('3')}, "3", ""},
        {{longest, "\r\n\r\n"}, "4", ""},
        {{std::string(4097, 'x'), Beat('5')}, "5", ""},
        {{frame, frame.substr(0, 2), frame.substr(2), Beat('6')}, "6", ""},
        {{"RTSP/1.0 200 OK\r\nCSeq: 1\r\n\r\n", Beat('7')}, "7", ""},
        // Kept: what follows in the same receive is not moved to the front.
        {{Beat('1') + Beat('2'), Beat('3')}, "11", ""},
        {{frame + Beat('1'), Beat('2')}, "", ""},
        {{Beat('1'), "\r\n\r\n", Beat('2')}, "1", unparsable},
        {{"HEARTBEAT x RTSP/1.0\r\nContent-length: 3\r\n\r\nabc"}, "", unparsable},
        {{Frame(0, 65535, 8192), "x"}, "", "E Recvn ,nRecvlen [0]! left [0]! fd[#],errno[#]"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.pieces[0].substr(0, 60));
        const CLogCapture log;
        CSessionOnPair s;
        s.Open();
        for (const std::string& piece : row.pieces) {
            s.SendPiece(piece);
        }
        for (const char n : row.replies) {
            const std::string reply = std::string("RTSP/1.0 200 OK\r\nCSeq: ") + n + "\r\n\r\n";
            EXPECT_EQ(s.client.ReceiveExactly(reply.size()), reply);
        }
        EXPECT_TRUE(log.HasLines(row.end.empty() ? "" : row.end + "|C exit"));
        EXPECT_TRUE(row.end.empty() || WaitUntil([&] { return !s.session.IsRunning(); }));
        EXPECT_EQ(s.session.Close(), 0);
        EXPECT_EQ(s.Replies(), "");
        EXPECT_EQ(log.Has("[RTSPS ERROR]"), !row.end.empty());
    }
}

TEST_F(CSessionTest, PeerThatLeavesEndsTheThreadButNotTheSocket) {
    CSessionOnPair s;
    EXPECT_EQ(s.session.Open(s.fd, nullptr), -1);
    s.Open();
    s.SendPiece("HEAR");
    s.client.Reset();
    EXPECT_TRUE(m_log.HasLines(
        "E invalid input para|C exit|E Recvn ,nRecvlen [0]! left [8188]! fd[#],errno[#]"));
    EXPECT_TRUE(WaitUntil([&] { return !s.session.IsRunning(); }));
    EXPECT_NE(fcntl(s.fd, F_GETFD), -1);
    EXPECT_EQ(s.session.Close(), 0);
    EXPECT_EQ(fcntl(s.fd, F_GETFD), -1);
}

TEST_F(CSessionTest, ClosesPromptlyQuietlyAndFromTwoThreads) {
    CSessionOnPair s;
    s.Open();
    s.SendPiece("half a line");
    const auto begin = std::chrono::steady_clock::now();
    std::thread other([&] { EXPECT_EQ(s.session.Close(), 0); });
    EXPECT_EQ(s.session.Close(), 0);
    other.join();
    const auto time = std::chrono::steady_clock::now() - begin;
    EXPECT_TRUE(!IsPlainBuild() || time < std::chrono::seconds(1));
    EXPECT_FALSE(s.session.IsRunning());
    EXPECT_FALSE(m_log.Has("[RTSPS ERROR]")) << "a normal stop is no receive error";
}

TEST_F(CSessionTest, IdleRuleIsOffUnlessSwitchedOn) {
    CSessionOnPair s(RTSP_UNKNOWN);
    EXPECT_FALSE(s.probe.IdleTooLong(2147483647));
    s.probe.bUseHeartBeat = true;
    EXPECT_FALSE(s.probe.IdleTooLong(30000));
    EXPECT_EQ(m_log.Text(), "");
    EXPECT_TRUE(s.probe.IdleTooLong(33000));
    EXPECT_TRUE(
        m_log.HasLines("E RtspSession in 30s ,close this session,! fd[#],client[10.0.0.7]"));
}

TEST_F(CSessionTest, AuthenticationModes) {
    const std::string given = "Authorization: Basic YTpi, x;y=z\r\n";
    const std::string no = "401 Unauthorized";
    const std::string basic = Status(no, "WWW-Authenticate: Basic realm=\"/\"\r\n");
    const std::string digest = Status(no, "Authorization: Digest\r\n");
    const std::string missing = "E no Header Authorization|";
    const struct {
        const char* method;
        eRTSP_METHOD_INDEX state;
        int mode;
        std::string headers;
        int result;
        std::string reply;  // "": any success
        std::string lines;
    } rows[] = {
        // The client of a refused DESCRIBE may ask again.
        {"DESCRIBE", RTSP_UNKNOWN, 1, "", 0, basic,
         missing + "W Need Authorization Basic|E check_authentication failed"},
        {"DESCRIBE", RTSP_UNKNOWN, 1, given, 0, "", ""},
        {"DESCRIBE", RTSP_UNKNOWN, 1, "Authorization:\r\n", 0, "", ""},
        {"DESCRIBE", RTSP_UNKNOWN, 2, "", 0, digest, missing + "W Need Authorization Digest"},
        {"DESCRIBE", RTSP_UNKNOWN, 7, given, 0, Status(no),
         "E unsupported Auth!|W m_CheckUserPwdMode ERROR 7"},
        {"SETUP", RTSP_DESCRIBE, 1, "", -1, basic, "E check_authentication"},
        {"PLAY", RTSP_SETUP, 2, "", -1, digest, "E check_authentication"},
        {"PAUSE", RTSP_PLAY, 1, "", -1, basic, "E check_authentication"},
        {"PAUSE", RTSP_PLAY, 1, given, 0, PAUSED, ""},
        // Not guarded.
        {"HEARTBEAT", RTSP_UNKNOWN, 1, "", 0, Status("200 OK"), ""},
        {"TEARDOWN", RTSP_PLAY, 1, "", 0, TORN_DOWN, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.method + std::to_string(row.mode) + row.headers);
        const CLogCapture log;
        CSessionOnPair s(row.state);
        s.probe.nCheckUserPwdMode = row.mode;
        s.probe.stuReqCfg.nReqType = row.state == RTSP_PLAY ? 1 : 0;  // only recordings pause
        EXPECT_EQ(s.Dispatch(Request(row.method, row.headers)), row.result);
        const std::string reply = s.Replies();
        EXPECT_EQ(row.reply.empty() ? reply.substr(0, 16) : reply,
                  row.reply.empty() ? "RTSP/1.0 200 OK\r" : row.reply);
        EXPECT_TRUE(log.HasLines(row.lines));
        EXPECT_EQ(s.probe.nCSeq, row.result == 0 ? 9 : 0) << "that of what succeeded";
    }
    for (const bool each : {true, false}) {
        CSessionOnPair s(RTSP_UNKNOWN);
        s.probe.nCheckUserPwdMode = 1;
        s.probe.bEachReqAuthCheck = each;
        EXPECT_EQ(s.Dispatch(Request("DESCRIBE", given)), 0);
        EXPECT_EQ(s.Dispatch(Request("SETUP", "Transport: RTP/AVP/TCP\r\n")), each ? -1 : 0);
    }
}

TEST_F(CSessionTest, SessionIdIsCheckedOnlyOnDemand) {
    const std::string good = "Session: 3000000000;timeout=60\r\n";
    const std::string bad = Status("454 Session Not Found");
    const std::tuple<const char*, std::string, std::string> rows[] = {
        {"PLAY", good, PLAYED},
        {"TEARDOWN", good, TORN_DOWN},
        // Kept: a 454 that went out counts as passed, and the handler carries on.
        {"PLAY", "Session: 300000000\r\n", bad + PLAYED},
        {"TEARDOWN", "Session:\r\n", bad + TORN_DOWN},
        {"PAUSE", "", bad + Status("455 Method Not Valid In This State")},
    };
    for (const auto& [method, headers, reply] : rows) {
        const CLogCapture log;
        CSessionOnPair s(RTSP_SETUP);
        s.probe.bNeedCheckId = true;
        EXPECT_EQ(s.Dispatch(Request(method, headers)), 0);
        EXPECT_EQ(s.Replies(), reply) << method << headers;
        EXPECT_TRUE(log.HasLines(reply[9] == '4' ? "E BadSessionID!!!, FD[#]" : ""));
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
}

TEST_F(CSessionTest, RecordingsPauseAndPlayOn) {
    CSessionOnPair s(RTSP_PLAY);
    s.probe.stuReqCfg.nReqType = 1;
    for (const char* method : {"PAUSE", "PAUSE", "PLAY", "PAUSE"}) {
        EXPECT_EQ(s.Dispatch(Request(method)), 0);
        EXPECT_EQ(s.Replies(), method[1] == 'A' ? PAUSED : PLAYED);
    }
}

TEST_F(CSessionTest, RepliesThatDoNotFitAreNotSent) {
    const std::tuple<const char*, size_t, size_t, const char*> rows[] = {
        {"HEARTBEAT", 996, 1023, ""},
        {"HEARTBEAT", 997, 0, "E send_response failed|E send_response failed, , fd[#],errno[#]"},
        {"DESCRIBE", 625, 1023, ""},
        {"DESCRIBE", 626, 0, "W Send SDP INFO ERROR, , FD[#]|E send_sdp_response failed "},
    };
    for (const auto& [method, length, sent, lines] : rows) {
        const CLogCapture log;
        CSessionOnPair s(RTSP_UNKNOWN);
        std::string cseq;  // a reply repeats it; each parameter alone would be cut
        while (cseq.size() + 100 < length) {
            cseq += "a=" + std::string(97, 'b') + ";";
        }
        cseq += std::string(length - cseq.size(), 'c');
        EXPECT_EQ(s.Dispatch(std::string(method) +
                             " rtsp://127.0.0.1/chan1/main RTSP/1.0\r\nCSeq: " + cseq + "\r\n\r\n"),
                  sent != 0 ? 0 : -1);
        EXPECT_EQ(s.Replies().size(), sent) << method << length;
        EXPECT_TRUE(log.HasLines(lines));
        EXPECT_EQ(s.probe.stuReqCfg.nChan, method[0] == 'D' && sent != 0 ? 1 : 0);
    }
}

}  // namespace
