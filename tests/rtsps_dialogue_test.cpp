// SPDX-License-Identifier: MIT
// The dialogue over real sockets: every reply byte for byte.

#include <unistd.h>

#include <deque>
#include <set>
#include <sstream>

#include "rtsps_server.h"
#include "support/test_net.h"

namespace {

constexpr char RULE[] = "\n-----------------------\n";
constexpr char INTERLEAVED[] = "RTP/AVP/TCP;unicast;interleaved=0-1";

class CDialogueTest : public CLoggedServerTest {
  protected:
    // The "Session" header of the youngest session, from the log.
    std::string SessionHeader() const {
        const std::string all = m_log.Text();
        const char* id = all.c_str() + all.rfind("New sessionID [0x") + 17;
        return "Session: " + std::to_string(strtoul(id, nullptr, 16)) + "\r\n";
    }
    // Compares with a status line and the headers that stand before and after the client's CSeq.
    static void ExpectReply(const CTestClient& client, const std::string& reply,
                            const std::string& status, const std::string& after = "",
                            const std::string& before = "", const std::string& body = "") {
        EXPECT_EQ(reply, "RTSP/1.0 " + status + "\r\n" + before + "CSeq: " +
                             std::to_string(client.Cseq()) + "\r\n" + after + "\r\n" + body);
    }
};

TEST_F(CDialogueTest, WholeRoadOverUdp) {
    const CLogCapture dump(2);
    std::string dumped;
    StartServer();
    CTestClient client(m_port);
    ExpectReply(client, client.Ask("OPTIONS", "*"), "200 OK",
                "Public: OPTIONS, DESCRIBE, SETUP, TEARDOWN, PLAY, PAUSE HEARTBEAT\r\n");
    ExpectReply(client, client.Describe(), "200 OK",
                "Content-Type: application/sdp\r\nContent-Length: 319\r\n", "",
                "v=0\r\no=- 1109162014219182 0 IN IP4 0.0.0.0\r\ns=Media Server\r\n"
                "i=Media Server Session Description : standard\r\ne=NONE\r\nc=IN IP4 0.0.0.0\r\n"
                "t=0 0\r\na=control:*\r\na=range:npt=0.0-\r\nm=video 0 RTP/AVP 96\r\n"
                "i=Video media\r\na=rtpmap:96 H264/90000\r\na=control:streamid=0\r\n"
                "m=audio 0 RTP/AVP 8\r\na=rtpmap:8 PCMA/8000\r\na=control:streamid=1\r\n");
    ExpectReply(client, client.Setup(0, INTERLEAVED), "200 OK", "",
                SessionHeader() + "Transport: " + INTERLEAVED + ";ssrc=11223344\r\n");
    for (const int id : {0, 1}) {
        const std::string transport = "RTP/AVP;unicast;client_port=5000-5001";
        const int port = m_para.nMinPort + 2 * id;
        for (const int one : {port, 5000, port + 1, 5001}) {
            char row[200];
            snprintf(row, sizeof(row), "%s\n 0001 |02 00 %02x %02x 7f 00 00 01 %s\n 0017 |%s%s",
                     RULE, one / 256, one % 256, "00 00 00 00 00 00 00 00 ",
                     "00 00 00 00 00 00 00 00 00 00 00 00 ", RULE);
            dumped += row;
        }
        ExpectReply(client, client.Setup(id, transport), "200 OK", "",
                    SessionHeader() + "Transport: " + transport +
                        ";server_port=" + std::to_string(port) + "-" + std::to_string(port + 1) +
                        (id == 0 ? ";ssrc=11223344\r\n" : ";ssrc=55667788\r\n"));
    }
    ExpectReply(client, client.Play(), "200 OK", "", SessionHeader());
    ExpectReply(client, client.Ask("TEARDOWN", client.Url()), "200 OK",
                SessionHeader() + "Connection: close\r\n");
    EXPECT_FALSE(client.Socket().AtEnd(0)) << "the client closes";
    EXPECT_EQ(dump.Text(), dumped);
}

TEST_F(CDialogueTest, EveryMethodInEveryState) {
    const std::string methods = "DESCRIBE SETUP PLAY PAUSE TEARDOWN OPTIONS HEARTBEAT";
    // The road to a state (D, S, P, T), each method's status ("-": no reply), "!" for the end of
    // the session, and what is said.
    const char* const rows[][3] = {
        {"", "200 455! 500! 455 200 200 200",
         "E  bad m_rtspstat : 0|W ERROR!!! RTSP_STATUS_500, FD[#]|E m_pTransCtrl == NULL|"
         "W pause timing sequence is illegal"},
        {"D", "455! 200 500! 455 200 200 200", "E describe timing sequence is illegal"},
        {"DS", "455! 200 200 455 200 200 200", ""},
        {"DSP", "455! 455! 455! 405 200 200 200",
         "E  bad m_rtspstat : 3|E rtsp status invalid|W RTSP_STATUS_405, FD[#]|"
         "W preview mode no support pause!"},
        {"T", "455! 455! 500! 455 200 200 200", "E  bad m_rtspstat : 2"},
        // The road of the replies ends with the media.
        {"DSPT", "-! -! -! - -! -! -!",
         "E m_pVideoSession is NULL|E send_response failed, , fd[#],errno[#]|"
         "E send_response failed"},
    };
    Init();
    TRtspServerStreamInfo info = MakeStreamInfo();
    RTSPServer_SetStreamInfo(0, 0, &info);  // what a session selects before DESCRIBE
    ASSERT_EQ(RTSPServer_Start(), 0);
    std::deque<CTestClient> clients;  // none leaves before the end
    int ended = 0;
    const std::string headers = std::string("Transport: ") + INTERLEAVED + "\r\n";
    for (const auto& [road, outcomes, lines] : rows) {
        std::istringstream nextMethod(methods);
        std::istringstream nextOutcome(outcomes);
        for (std::string method, outcome; nextMethod >> method && nextOutcome >> outcome;) {
            SCOPED_TRACE(std::string(road) + " " + method);
            CTestClient& client = clients.emplace_back(m_port);
            for (const char step : std::string(road)) {
                EXPECT_NE(step == 'D'   ? client.Describe()
                          : step == 'S' ? client.Setup(0, INTERLEAVED)
                          : step == 'P' ? client.Play()
                                        : client.Ask("TEARDOWN", client.Url()),
                          "");
            }
            const std::string url = client.Url(method == "SETUP" ? "streamid=0" : "");
            if (outcome[0] == '-') {
                client.Socket().Send(method + " " + url + " RTSP/1.0\r\n" + headers + "\r\n");
            } else {
                EXPECT_EQ(client.Ask(method, url, headers).substr(0, 12),
                          "RTSP/1.0 " + outcome.substr(0, 3));
            }
            ended += outcome.back() == '!' ? 1 : 0;
            if (outcome.size() == 3 && method != "TEARDOWN") {
                ExpectReply(client, client.Ask("HEARTBEAT", client.Url()), "200 OK");
            }
            EXPECT_TRUE(WaitUntil([&] { return m_log.Count(" exit\n") == ended; }));
            EXPECT_EQ(client.Socket().Receive(65536, 0), "");
        }
        EXPECT_TRUE(m_log.HasLines(lines));
    }
    EXPECT_FALSE(m_log.Has("[RTSPS INFO]"));
}

TEST_F(CDialogueTest, RefusalsEndTheSession) {
    m_para.nMaxPort = m_para.nMinPort;
    const CTestSocket taken = CTestSocket::ListenTcp(static_cast<uint16_t>(m_para.nMinPort));
    StartServer();
    const std::string host = "rtsp://127.0.0.1:1/";
    const std::string video = host + "chan1/main/streamid=0";
    const std::string audio = host + "chan1/main/streamid=1";
    const std::string none = "404 Not Found";
    const std::string bad = "400 Bad Request";
    const std::string badId = "E bad streamid ";
    const std::string noVideo = "E m_pVideoSession is NULL|E send_response failed";
    const std::string rows[][4] = {
        {host + "chan1/hd%s%n", "", none,
         "E Error!not find 'main' or 'sub' or 'third' [hd%s%n]|E  url is invalid"},
        {host + "chan1/third", "", none,
         "E get stream info failed,reqtype[0],chan[1],streamtype[2]|"
         "E generate_sdp_description failed"},
        {host + "chan1/main/", "RTP/AVP;client_port=5000", bad, badId},
        {host + "chan1/main/streamid=2", "RTP/AVP;client_port=5000", bad, badId},
        {host + "streamid=0", "RTP/AVP;client_port=5000", bad, "E set up url invalid."},
        {video, "-", bad, "E bad Transport "},
        {video, "RTP/AVP/UDP;mcast;client_port=2-3", "501 Not Implemented",
         "E setup not support mcast"},
        {video, "RTP/AVP;client_port=0", bad, badId},
        {video, "RTP/AVP;client_port=65536-65537", bad, badId},
        // Audio alone cannot be answered.
        {audio, INTERLEAVED, "", noVideo},
        {audio, "RTP/AVP;client_port=5000", "", noVideo},
        {video, "RTP/AVP/TCP;client_port=7000", "500 Internal Server Error",
         "E m_pTransCtrl->Open failed|W ERROR!!! RTSP_STATUS_500, FD[#]"},
    };
    for (const auto& [url, transport, status, lines] : rows) {
        SCOPED_TRACE(url + " " + transport);
        const CLogCapture log;
        CTestClient client(m_port);
        const std::string headers = transport == "-" ? "" : "Transport: " + transport + "\r\n";
        if (!transport.empty()) {
            client.Describe();
        }
        if (status.empty()) {
            client.Socket().Send("SETUP " + url + " RTSP/1.0\r\n" + headers + "\r\n");
        } else {
            ExpectReply(client, client.Ask(transport.empty() ? "DESCRIBE" : "SETUP", url, headers),
                        status);
        }
        EXPECT_TRUE(log.HasLines(lines + "|C exit"));
        EXPECT_EQ(client.Socket().Receive(65536, 0), "");
    }
    std::set<int> pool;
    for (int port = 1; port != 0; pool.insert(port)) {
        port = CRtspServer::Instance()->BorrowDataPort();
    }
    // None was lost. Kept: the own port numbers of refused clients have joined the pool.
    EXPECT_EQ(pool, (std::set<int>{0, 5000, 7000, m_para.nMinPort}));
    CTestClient early(m_port);
    ExpectReply(early, early.Setup(0, INTERLEAVED), none);
    EXPECT_TRUE(m_log.HasLines("E get stream info failed,reqtype[0],chan[0],streamtype[0]"));
}

// The C library interrupts all threads for that.
TEST_F(CDialogueTest, HostMayDropItsPrivileges) {
    StartServer();
    CTestClient client(m_port);
    for (int i = 0; i < 5; ++i) {
        EXPECT_NE(client.Ask("OPTIONS", client.Url()), "") << i;
        EXPECT_EQ(setuid(getuid()), 0);
    }
}

TEST_F(CDialogueTest, OtherMethodsAreNotAllowedAndCseqIsEchoedAsItCame) {
    StartServer();
    CTestClient client(m_port);
    const std::pair<const char*, int> methods[] = {
        {"RECORD", 5}, {"GET_PARAMETER", 10}, {"UNKNOW", 0}, {"options", -1}, {"%s%n", -1}};
    for (const auto& [method, index] : methods) {
        ExpectReply(client, client.Ask(method, "*"), "405 Method Not Allowed");
        EXPECT_TRUE(m_log.HasLines("W RTSP_STATUS_405, FD[#]|W unkown rtsp method[" +
                                   std::to_string(index) + "],client[127.0.0.1]"));
    }
    const std::pair<const char*, const char*> rows[] = {
        {"CSeq: 4294967296\r\n", "CSeq: 4294967296\r\n"},
        {"CSeq:7\r\nCSeq: 2\r\n", "CSeq: 7\r\n"},
        {"CSeq: %s%n\r\n", "CSeq: %s%n\r\n"},
        {"cseq: 7\r\n", ""}};
    for (const auto& [sent, echoed] : rows) {
        EXPECT_EQ(client.AskRaw(std::string("HEARTBEAT * RTSP/1.0\r\n") + sent + "\r\n"),
                  std::string("RTSP/1.0 200 OK\r\n") + echoed + "\r\n");
    }
}

}  // namespace
