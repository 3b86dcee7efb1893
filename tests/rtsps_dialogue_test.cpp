// SPDX-License-Identifier: MIT
// The dialogue over real sockets: every reply byte for byte.
#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <sstream>

#include "rtsps_server.h"
#include "rtsps_session_mgr.h"
#include "support/log_capture.h"
#include "support/test_net.h"

namespace {

constexpr char INTERLEAVED[] = "RTP/AVP/TCP;unicast;interleaved=0-1";

class CDialogueTest : public CServerTest {
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
    void ExpectGoesOn(CTestClient& client) {
        ExpectReply(client, client.Ask("HEARTBEAT", client.Url()), "200 OK");
        EXPECT_EQ(m_log.Count(" exit\n"), m_ended);
    }
    void ExpectEnds() {
        ++m_ended;
        EXPECT_TRUE(WaitUntil([&] { return m_log.Count(" exit\n") == m_ended; }));
    }

    CLogCapture m_log;
    int m_ended = 0;
};

TEST_F(CDialogueTest, WholeRoadOverUdp) {
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
        ExpectReply(client, client.Setup(id, transport), "200 OK", "",
                    SessionHeader() + "Transport: " + transport +
                        ";server_port=" + std::to_string(port) + "-" + std::to_string(port + 1) +
                        (id == 0 ? ";ssrc=11223344\r\n" : ";ssrc=55667788\r\n"));
    }
    ExpectReply(client, client.Play(), "200 OK", "", SessionHeader());
    ExpectReply(client, client.Ask("PAUSE", client.Url()), "405 Method Not Allowed");
    ExpectReply(client, client.Ask("HEARTBEAT", "*"), "200 OK");
    ExpectReply(client, client.Ask("TEARDOWN", client.Url()), "200 OK",
                SessionHeader() + "Connection: close\r\n");
    EXPECT_FALSE(client.Socket().AtEnd(0)) << "the client closes";
}

TEST_F(CDialogueTest, EveryMethodInEveryState) {
    std::map<std::string, std::string> phrases = {{"405", "405 Method Not Allowed"},
                                                  {"455", "455 Method Not Valid In This State"},
                                                  {"500", "500 Internal Server Error"}};
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
            } else if (outcome == "200") {
                EXPECT_EQ(client.Ask(method, url, headers).substr(0, 16), "RTSP/1.0 200 OK\r");
            } else {
                ExpectReply(client, client.Ask(method, url, headers),
                            phrases[outcome.substr(0, 3)]);
            }
            if (outcome.back() == '!') {
                ExpectEnds();
            } else if (outcome[0] != '-' && method != "TEARDOWN") {
                ExpectGoesOn(client);
            }
            EXPECT_EQ(client.Socket().Receive(65536, 0), "");
        }
        EXPECT_TRUE(m_log.HasLines(lines));
    }
    EXPECT_FALSE(m_log.Has("[RTSPS INFO]"));
}

TEST_F(CDialogueTest, RefusalsEndTheSession) {
    StartServer();
    const std::string host = "rtsp://127.0.0.1:1/";
    const std::string video = host + "chan1/main/streamid=0";
    const std::string none = "404 Not Found";
    const std::string bad = "400 Bad Request";
    const std::string never = "501 Not Implemented";
    const std::string badId = "E bad streamid ";
    const std::string multicast = "E setup not support mcast";
    const std::string rows[][4] = {
        {host + "live", "", none, "E can not find chan|E  url is invalid"},
        {host + "chan1/hd%s%n", "", none,
         "E Error!not find 'main' or 'sub' or 'third' [hd%s%n]|E  url is invalid"},
        {"*", "", none, "E host_port error! *"},
        {host + "chan1/third", "", none,
         "E get stream info failed,reqtype[0],chan[1],streamtype[2]|"
         "E generate_sdp_description failed"},
        {host + "chan1/main/", "RTP/AVP;client_port=5000", bad, badId},
        {host + "chan1/main/streamid=2", "RTP/AVP;client_port=5000", bad, badId},
        {host + "streamid=0", "RTP/AVP;client_port=5000", bad, "E set up url invalid."},
        {video, "-", bad, "E bad Transport "},
        {video, "RTP/AVP;multicast", never, multicast},
        {video, "RTP/AVP/UDP;mcast;client_port=2-3", never, multicast},
        {video, "RTP/AVP;unicast", bad, badId},
        {video, " ", bad, badId},
        {video, "RTP/AVP;client_port=0", bad, badId},
        {video, "RTP/AVP;client_port=65536-65537", bad, badId},
        {video, "RTP/AVP/TCP;client_port=x", bad, badId},
    };
    for (const auto& [url, transport, status, lines] : rows) {
        SCOPED_TRACE(url + " " + transport);
        const CLogCapture log;
        CTestClient client(m_port);
        if (!transport.empty()) {
            client.Describe();
        }
        ExpectReply(client,
                    client.Ask(transport.empty() ? "DESCRIBE" : "SETUP", url,
                               transport == "-" ? "" : "Transport: " + transport + "\r\n"),
                    status);
        EXPECT_TRUE(log.HasLines(lines + "|C exit"));
    }
    EXPECT_EQ(CRtspServer::Instance()->BorrowDataPort(), m_para.nMinPort) << "none was lost";
    CTestClient early(m_port);
    ExpectReply(early, early.Setup(0, INTERLEAVED), none);
    EXPECT_TRUE(m_log.HasLines("E get stream info failed,reqtype[0],chan[0],streamtype[0]"));
}

TEST_F(CDialogueTest, DataPortInUseIsAnsweredWith500) {
    m_para.nMaxPort = m_para.nMinPort;
    const CTestSocket taken = CTestSocket::ListenTcp(static_cast<uint16_t>(m_para.nMinPort));
    StartServer();
    CTestClient client(m_port);
    client.Describe();
    ExpectReply(client, client.Setup(0, "RTP/AVP/TCP;client_port=7000"),
                "500 Internal Server Error");
    EXPECT_TRUE(
        m_log.HasLines("E m_pTransCtrl->Open failed|W ERROR!!! RTSP_STATUS_500, FD[#]|C exit"));
    EXPECT_EQ(CRtspServer::Instance()->BorrowDataPort(), m_para.nMinPort);
    // Kept: the refused client's own port number has joined the pool.
    EXPECT_EQ(CRtspServer::Instance()->BorrowDataPort(), 7000);
}

TEST_F(CDialogueTest, AudioAloneCannotBeAnswered) {
    StartServer();
    for (const char* transport : {INTERLEAVED, "RTP/AVP;client_port=5000"}) {
        const CLogCapture log;
        CTestClient client(m_port);
        client.Describe();
        client.Socket().Send("SETUP " + client.Url("streamid=1") +
                             " RTSP/1.0\r\nTransport: " + transport + "\r\n\r\n");
        EXPECT_TRUE(log.HasLines("E m_pVideoSession is NULL|E send_response failed|C exit"));
        EXPECT_EQ(client.Socket().Receive(65536, 0), "");
    }
}

TEST_F(CDialogueTest, OtherMethodsAreNotAllowedAndCseqIsEchoedAsItCame) {
    StartServer();
    CTestClient client(m_port);
    const std::pair<const char*, int> methods[] = {{"RECORD", 5},         {"GET_PARAMETER", 10},
                                                   {"SETVIDEOPARAM", 14}, {"UNKNOW", 0},
                                                   {"options", -1},       {"%s%n", -1}};
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

TEST_F(CDialogueTest, HostileClientsHarmNobodyElse) {
    StartServer();
    CTestClient good(m_port);
    ASSERT_TRUE(good.PlayInterleaved());
    const auto fill = [](size_t n, const std::string& what) {
        std::string text;
        for (; text.size() < n; text += what) {
        }
        return text;
    };
    const std::string head = "DESCRIBE rtsp://127.0.0.1/chan1/main RTSP/1.0\r\n";
    const std::string setup =
        "SETUP rtsp://127.0.0.1/chan1/main/streamid=0 RTSP/1.0\r\nTransport: ";
    std::string noise(20000, '\0');
    for (size_t i = 0; i < noise.size(); ++i) {
        noise[i] = static_cast<char>((i * 2654435761U) >> 13);
    }
    const std::vector<std::string> rows[] = {
        {fill(70000, "x")},
        {noise},
        {"OPTIONS " + fill(7000, "u") + " RTSP/99999999999.-1\r\n\r\n"},
        {"DESCRIBE rtsp://127.0.0.1/chan" + fill(200, "9") + "/main RTSP/1.0\r\n\r\n"},
        {head + "CSeq: " + fill(3500, "a=b;") + "\r\n\r\n"},
        {head + "Content-length: -5\r\n\r\n", head + "\r\n"},
        {head + "Range: npt=99999999999999999999.9-\r\nRTP-Info: url=,seq=,url=\r\n\r\n"},
        {head + "\r\n", setup + fill(3900, "RTP/AVP;client_port=-1;") + "\r\n\r\n"},
        {head + "\r\n", setup + "RTP/AVP/TCP;interleaved=-1-99999999999\r\n\r\n",
         "PLAY * RTSP/1.0\r\n\r\n"},
        {std::string("$\0\xFF\xFF", 4) + fill(9000, "f")},
        {fill(8192, "OPTIONS * RTSP/1.0\r\n\r\n"), fill(8192, "HEARTBEAT * RTSP/1.0\r\n\r\n")},
    };
    const Bytes unit = MakeUnit({});
    const std::string frame = FrameOf(unit, VIDEO_SSRC, 0);
    for (const auto& pieces : rows) {
        CTestClient bad(m_port);
        for (const std::string& piece : pieces) {
            bad.Socket().Send(piece);
            bad.Socket().Receive(65536, 5);
        }
        m_ended % 2 == 0 ? bad.Socket().Reset() : bad.Socket().ResetHard();
        ExpectEnds();
        Push(unit);
        EXPECT_EQ(good.Socket().ReceiveExactly(frame.size()), frame) << m_ended;
        ExpectGoesOn(good);
    }
}

TEST_F(CDialogueTest, ClientsBeyondTheRegistryGetRepliesButNoMedia) {
    StartServer();
    std::deque<CTestClient> clients;
    for (uint32_t i = 0; i < RTSPS_MAX_SESSIONS; ++i) {
        EXPECT_NE(clients.emplace_back(m_port).Ask("OPTIONS", "*"), "");
    }
    EXPECT_FALSE(m_log.Has("OverSize"));
    CTestClient refused(m_port);
    EXPECT_TRUE(refused.PlayInterleaved() && clients[0].PlayInterleaved());
    EXPECT_TRUE(m_log.HasLines("W ERROR! add_session,OverSize!!!"));
    const Bytes unit = MakeUnit({});
    const std::string frame = FrameOf(unit, VIDEO_SSRC, 0);
    Push(unit);
    EXPECT_EQ(clients[0].Socket().ReceiveExactly(frame.size()), frame);
    ExpectGoesOn(refused);  // with no frame before the reply

    RTSPServer_Stop();
    m_ended = m_log.Count(" exit\n");
    ExpectGoesOn(refused);  // Stop leaves refused clients alone
    refused.Socket().Reset();
    ExpectEnds();
    CRtspSessionManager::Instance()->DelExceptionSession();
}

}  // namespace
