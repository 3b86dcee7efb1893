// SPDX-License-Identifier: MIT
// The dialogue over real sockets: every reply byte for byte.

#include <unistd.h>

#include "rtsps_server.h"
#include "support/test_net.h"

namespace {

constexpr char RULE[] = "\n-----------------------\n";
constexpr char INTERLEAVED[] = "RTP/AVP/TCP;unicast;interleaved=0-1";

class CDialogueTest : public CLoggedServerTest {
  protected:
    // The "Session" header of the newest session, from the log.
    std::string SessionHeader() const {
        const std::string all = m_log.Text();
        const char* id = all.c_str() + all.rfind("New sessionID [0x") + 17;
        return "Session: " + std::to_string(strtoul(id, nullptr, 16)) + "\r\n";
    }
    // Compares with a status line and the headers before and after the client's CSeq.
    static void ExpectReply(const CTestClient& client, const std::string& reply,
                            const std::string& status, const std::string& after = "",
                            const std::string& before = "", const std::string& body = "") {
        EXPECT_EQ(reply, "RTSP/1.0 " + status + "\r\n" + before + "CSeq: " +
                             std::to_string(client.Cseq()) + "\r\n" + after + "\r\n" + body);
    }
};

TEST_F(CDialogueTest, EveryReplyOfAVisitOverUdp) {
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

class CRefusalTest : public CDialogueTest {
  protected:
    // Checks that a request is refused, that the session has ended, and the log lines. The log
    // holds no lines of earlier sessions.
    static void ExpectRefusal(const CLogCapture& log, CTestClient& client, const std::string& reply,
                              const std::string& status, const std::string& lines) {
        ExpectReply(client, reply, status);
        EXPECT_TRUE(log.HasLines(lines + "|C exit"));
        EXPECT_EQ(client.Socket().Receive(65536, 0), "");
    }
    const std::string m_host = "rtsp://127.0.0.1:1/";
};

TEST_F(CRefusalTest, DescribeOfWhatIsNotServed) {
    StartServer();
    const std::pair<const char*, const char*> rows[] = {
        {"chan1/hd%s%n", "E Error!not find 'main' or 'sub' or 'third' [hd%s%n]|E  url is invalid"},
        {"chan1/third",
         "E get stream info failed,reqtype[0],chan[1],streamtype[2]|"
         "E generate_sdp_description failed"}};
    for (const auto& [path, lines] : rows) {
        const CLogCapture log;
        CTestClient client(m_port);
        ExpectRefusal(log, client, client.Ask("DESCRIBE", m_host + path), "404 Not Found", lines);
    }
    CTestClient early(m_port);
    ExpectReply(early, early.Setup(0, INTERLEAVED), "404 Not Found");
    EXPECT_TRUE(m_log.HasLines("E get stream info failed,reqtype[0],chan[0],streamtype[0]"));
}

TEST_F(CRefusalTest, SetupOfWhatIsNotServed) {
    m_para.nMaxPort = m_para.nMinPort;
    const CTestSocket taken = CTestSocket::ListenTcp(static_cast<uint16_t>(m_para.nMinPort));
    StartServer();
    const std::string video = "chan1/main/streamid=0";
    const std::string bad = "400 Bad Request";
    const std::string badId = "E bad streamid ";
    const struct {
        const char* why;
        std::string path, headers, status, lines;
    } rows[] = {
        {"no stream", "chan1/main/", "Transport: RTP/AVP;client_port=5000\r\n", bad, badId},
        {"a third stream", "chan1/main/streamid=2", "Transport: RTP/AVP;client_port=5000\r\n", bad,
         badId},
        {"no channel", "streamid=0", "Transport: RTP/AVP;client_port=5000\r\n", bad,
         "E set up url invalid."},
        {"no transport", video, "", bad, "E bad Transport "},
        {"multicast", video, "Transport: RTP/AVP/UDP;mcast;client_port=2-3\r\n",
         "501 Not Implemented", "E setup not support mcast"},
        {"port 0", video, "Transport: RTP/AVP;client_port=0\r\n", bad, badId},
        {"a port of 17 bits", video, "Transport: RTP/AVP;client_port=65536-65537\r\n", bad, badId},
        {"the data port is taken", video, "Transport: RTP/AVP/TCP;client_port=7000\r\n",
         "500 Internal Server Error",
         "E m_pTransCtrl->Open failed|W ERROR!!! RTSP_STATUS_500, FD[#]"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const CLogCapture log;
        CTestClient client(m_port);
        client.Describe();
        ExpectRefusal(log, client, client.Ask("SETUP", m_host + row.path, row.headers), row.status,
                      row.lines);
    }
    // Kept: the client's own port number is given to the pool, after the server's port. The pool
    // lends first in, first out: the earlier clients gave none.
    for (const int port : {m_para.nMinPort, 7000}) {
        EXPECT_EQ(CRtspServer::Instance()->BorrowDataPort(), port);
    }
}

// For setuid() the C library interrupts all threads with a signal.
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
        const CLogCapture log;
        ExpectReply(client, client.Ask(method, "*"), "405 Method Not Allowed");
        EXPECT_TRUE(log.HasLines("W RTSP_STATUS_405, FD[#]|W unkown rtsp method[" +
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
