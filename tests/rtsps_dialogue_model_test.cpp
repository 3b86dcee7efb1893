// SPDX-License-Identifier: MIT
// Compares dialogues with a model of the framing and the states: every method in every state, and
// random dialogues. A seed determines each random dialogue. RTSPS_SEED is the first seed (1),
// RTSPS_DIALOGUES the number of dialogues (200).
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <sstream>

#include "rtsps_session_mgr.h"
#include "support/test_net.h"

namespace {

using Texts = std::vector<std::string>;

const std::string STREAM = "rtsp://127.0.0.1/chan1/main/";
const std::string VIDEO = "rtsp://127.0.0.1/chan1/main/streamid=0";
const std::string AUDIO = "rtsp://127.0.0.1/chan1/main/streamid=1";
const std::string UNDECLARED = "rtsp://127.0.0.1/chan1/third/streamid=0";
const Texts URLS = {STREAM, VIDEO, AUDIO, UNDECLARED};
const Texts METHODS = {"DESCRIBE", "SETUP",   "PLAY",   "PAUSE", "HEARTBEAT",
                       "TEARDOWN", "OPTIONS", "RECORD", "play"};
const std::string TRANSPORT = "Transport: RTP/AVP/TCP;unicast;interleaved=2-3";
const std::string ANNOUNCED_BODY = "Content-length: 20";
const std::string USUAL_SPELLING = "Content-Length: 20";
const Texts HEADERS = {"", TRANSPORT, ANNOUNCED_BODY, USUAL_SPELLING};
const std::string RESPONSE = "RTSP/1.0 200 OK\r\n\r\n";

std::string Request(const std::string& method, const std::string& url, const std::string& cseq,
                    const std::string& header = TRANSPORT) {
    return method + " " + url + " RTSP/1.0\r\nCSeq: " + cseq + "\r\n" + header +
           (header.empty() ? "\r\n" : "\r\n\r\n");
}

bool Has(const Texts& texts, const std::string& text) {
    return std::count(texts.begin(), texts.end(), text) > 0;
}

// Makes what a client sends. The server receives each piece before the next one is sent.
class CGenerator {
  public:
    explicit CGenerator(unsigned seed) : m_random(seed) {}

    bool OneIn(size_t cases) { return Below(cases) == 0; }
    Texts Pieces() {
        Texts pieces = {""};
        for (size_t left = 1 + Below(16); left > 0; --left) {
            const std::string item = OneIn(3) ? OddItem() : NextRequest();
            const size_t cut = OneIn(4) ? Below(item.size()) : 0;
            pieces.back() += item.substr(0, cut);
            pieces.push_back(item.substr(cut));
            if (!OneIn(4)) {  // otherwise the next item is sent together with it
                pieces.emplace_back();
            }
        }
        return pieces;
    }

  private:
    // One draw per statement: compilers differ in the order in which they evaluate arguments, and
    // a seed determines the same dialogue everywhere.
    size_t Below(size_t limit) { return m_random() % limit; }
    std::string AnyOf(const Texts& texts) { return texts[Below(texts.size())]; }
    std::string Cseq() { return std::to_string(++m_cseq * (OneIn(4) ? 100000 : 1)); }

    std::string OddItem() {
        const size_t size = Below(100);
        const std::string channel(1, static_cast<char>(Below(10)));  // 8 and 9 are text
        const std::string cseq = Cseq();
        const std::string body(20, 'b');
        const std::string frame =
            '$' + channel + '\0' + static_cast<char>(size) + std::string(size, 'f');
        return AnyOf({frame, frame, RESPONSE, std::string("$\0\x28\0", 4) + std::string(10240, 'f'),
                      Request("HEARTBEAT", STREAM, cseq, ANNOUNCED_BODY) + body,
                      Request("OPTIONS", STREAM, cseq, USUAL_SPELLING) + body,
                      std::string(3000 + 30 * size, 'x'),  // no head ends in it
                      '\0' + Request("OPTIONS", STREAM, cseq)});
    }

    // The next request of a successful dialogue; some are repeated, and some have another word.
    std::string NextRequest() {
        const std::pair<std::string, std::string> order[] = {
            {"DESCRIBE", STREAM}, {"SETUP", VIDEO},      {"SETUP", AUDIO},     {"PLAY", STREAM},
            {"PAUSE", STREAM},    {"HEARTBEAT", STREAM}, {"TEARDOWN", STREAM}, {"PAUSE", STREAM}};
        auto [method, url] = order[m_step % std::size(order)];
        m_step += OneIn(8) ? 0U : 1U;
        method = OneIn(6) ? AnyOf(METHODS) : method;
        url = OneIn(8) ? AnyOf(URLS) : url;
        const std::string cseq = Cseq();
        return Request(method, url, cseq, OneIn(16) ? "" : TRANSPORT);
    }

    std::mt19937 m_random;
    size_t m_step = 0;
    int m_cseq = 0;
};

// The size of the frame at the beginning of the bytes; 0 when there is none.
size_t FrameSize(const std::string& bytes) {
    const auto at = [&](size_t i) { return static_cast<uint8_t>(bytes[i]); };
    if (bytes.empty() || bytes[0] != '$' || (bytes.size() > 1 && at(1) > 7)) {
        return 0;
    }
    return bytes.size() < 4 ? 4 : 4U + at(2) * 256U + at(3);
}

// 0 when no head ends in the bytes. Those after a NUL are not searched.
size_t HeadSize(const std::string& bytes) {
    const size_t end = bytes.substr(0, bytes.find('\0')).find("\r\n\r\n");
    return end == std::string::npos ? 0 : end + 4;
}

// A model of a session, as docs/protocol.md and docs/kept.md describe it.
struct CModel {
    enum EState { CONNECTED, DESCRIBED, SET_UP, PLAYING, TORN_DOWN, MEDIA_CLOSED };

    // Receives a piece as one segment. Returns the replies to it.
    std::string Take(std::string segment) {
        m_replies.clear();
        while (!segment.empty() && end == RTSPS_CLOSE_NONE) {
            if (m_held == ROOM) {
                End(RTSPS_CLOSE_REFUSED);  // a frame beyond the room
                break;
            }
            const std::string held = Receive(m_bytes.substr(0, m_held) + segment);
            segment.erase(0, held.size() - m_held);
            m_held = held.size();
            m_bytes.replace(0, m_held, held);
            Consume(held);
        }
        return m_replies;
    }
    void End(uint32_t reason) {
        end = m_state < TORN_DOWN ? reason : uint32_t{RTSPS_CLOSE_TEARDOWN};
    }

    static constexpr size_t ROOM = 8192;
    static constexpr size_t LONGEST_HEAD = 4096;
    static constexpr uint32_t MIXED_MESSAGES = 99;  // an end: the model predicts nothing more
    static constexpr char OK[] = "200 OK";
    static constexpr char NOT_ALLOWED[] = "405 Method Not Allowed";
    static constexpr char NOT_NOW[] = "455 Method Not Valid In This State";
    static constexpr char SERVER_ERROR[] = "500 Internal Server Error";

    // A receive takes all that has arrived, but it never crosses an end of a frame.
    std::string Receive(const std::string& arrived) const {
        const std::string all = arrived.substr(0, ROOM);
        const size_t frame = FrameSize(all);
        const size_t head = HeadSize(all);
        if (frame > m_held) {
            return all.substr(0, frame);
        }
        return head > m_held && FrameSize(all.substr(head)) > 0 ? all.substr(0, head) : all;
    }

    // Each receive handles one message or frame. Only the count of the bytes after it is stored;
    // the bytes are not moved to the front.
    void Consume(const std::string& held) {
        const size_t frame = FrameSize(held);
        const size_t head = HeadSize(held);
        if (held.size() < 4 || frame > held.size()) {
            return;
        }
        if (frame > 0) {
            m_held -= frame;
        } else if (head > 0) {
            m_held -= head;
            Handle(held.substr(0, head));
        } else if (m_held > LONGEST_HEAD) {
            m_held = 0;
        }
    }

    void Handle(const std::string& message) {
        std::istringstream words(message);
        std::string method, url, version, name, cseq, header;
        words >> method >> url >> version >> name >> cseq >> std::ws;
        std::getline(words, header, '\r');
        const bool isRequest = message == Request(method, url, cseq, header) &&
                               Has(METHODS, method) && Has(URLS, url) && Has(HEADERS, header);
        if (isRequest && header == ANNOUNCED_BODY) {
            End(RTSPS_CLOSE_REFUSED);
        } else if (isRequest) {
            m_cseq = "CSeq: " + cseq + "\r\n";
            Answer(method, url, header == TRANSPORT);
        } else if (message != RESPONSE) {
            end = MIXED_MESSAGES;
        }
    }

    void Answer(const std::string& method, const std::string& url, bool hasTransport) {
        if (m_state == MEDIA_CLOSED) {  // replies take the path of the media
            method == "PAUSE" ? void() : End(RTSPS_CLOSE_REFUSED);
        } else if (method == "OPTIONS") {
            Reply(OK, "", "Public: OPTIONS, DESCRIBE, SETUP, TEARDOWN, PLAY, PAUSE HEARTBEAT\r\n");
        } else if (method == "HEARTBEAT") {
            Reply(OK);
        } else if (method == "TEARDOWN") {
            Reply(OK, "", session + "Connection: close\r\n");
            m_state = m_state == SET_UP || m_state == PLAYING ? MEDIA_CLOSED : TORN_DOWN;
        } else if (method == "PAUSE") {
            Reply(m_state == PLAYING ? NOT_ALLOWED : NOT_NOW);
        } else if (method == "DESCRIBE" && m_state == CONNECTED && url != UNDECLARED) {
            Reply(OK, "", description);
            m_state = DESCRIBED;
        } else if (method == "DESCRIBE") {
            Refuse(m_state == CONNECTED ? "404 Not Found" : NOT_NOW);
        } else if (method == "SETUP" && (m_state == DESCRIBED || m_state == SET_UP)) {
            SetUp(url == AUDIO, url != STREAM && hasTransport);
        } else if (method == "SETUP") {
            Refuse(NOT_NOW);
        } else if (method == "PLAY" && m_state == SET_UP) {
            Reply(OK, session);
            m_state = PLAYING;
        } else if (method == "PLAY") {
            Refuse(m_state == PLAYING ? NOT_NOW : SERVER_ERROR);
        } else {
            Reply(NOT_ALLOWED);
        }
    }

    void SetUp(bool isAudio, bool isValid) {
        constexpr int MOST_PER_STREAM = 17;
        if (!isValid) {
            Refuse("400 Bad Request");
        } else if (isAudio && m_state == DESCRIBED) {
            End(RTSPS_CLOSE_REFUSED);  // replies take the path of video
        } else if (++m_setUps[isAudio] > MOST_PER_STREAM) {
            Refuse(SERVER_ERROR);
        } else {
            const std::string ssrc = isAudio ? ";ssrc=55667788\r\n" : ";ssrc=11223344\r\n";
            Reply(OK, session + TRANSPORT + ssrc);
            m_state = SET_UP;
        }
    }

    // With headers before and after CSeq.
    void Reply(const std::string& status, const std::string& before = "",
               const std::string& after = "") {
        m_replies += "RTSP/1.0 " + status + "\r\n" + before + m_cseq + after + "\r\n";
    }
    void Refuse(const std::string& status) {
        Reply(status);
        End(RTSPS_CLOSE_REFUSED);
    }

    const std::string session;      // the header of its replies
    const std::string description;  // the reply to DESCRIBE without the first lines
    uint32_t end = RTSPS_CLOSE_NONE;
    EState m_state = CONNECTED;
    std::string m_bytes = std::string(ROOM, '\0');  // of the buffer, whether they count or not
    size_t m_held = 0;                              // the bytes that count
    std::string m_cseq = {};
    std::string m_replies = {};
    int m_setUps[2] = {};  // of video and audio
};

class CDialogueModelTest : public CLoggedServerTest {
  protected:
    ~CDialogueModelTest() override { RTSPServer_SetEventCallBack(nullptr, nullptr); }
    void SetUp() override {
        CLoggedServerTest::SetUp();
        StartServer();
        TRtspServerStreamInfo info = MakeStreamInfo();
        RTSPServer_SetStreamInfo(0, 0, &info);  // the stream of a session before its DESCRIBE
        m_description = CTestClient(m_port).Describe();
        m_description.erase(0, m_description.find("Content-Type"));
        m_description.resize(m_description.size() - 2);  // the model ends each reply with CR LF
        RTSPServer_SetEventCallBack(Hear, this);
    }

    static void Hear(int32_t /*event*/, int32_t id, void* data, int32_t /*size*/, void* user) {
        auto* self = static_cast<CDialogueModelTest*>(user);
        self->m_end = static_cast<TRtspServerEventInfo*>(data)->dwReason;
        self->m_id = id;
    }

    // Whether the server has received all that the client has sent.
    static bool HasTaken(const CTestSocket& client, int serverEnd) {
        const int on = 1;
        int unacknowledged = 1;
        int unread = 1;
        setsockopt(serverEnd, IPPROTO_TCP, TCP_QUICKACK, &on, sizeof(on));
        ioctl(client.Fd(), SIOCOUTQ, &unacknowledged);
        return unacknowledged == 0 && ioctl(serverEnd, FIONREAD, &unread) == 0 && unread == 0;
    }

    void Compare(const Texts& pieces, bool resets) {
        ASSERT_TRUE(WaitUntil([] {
            CRtspSessionManager::Instance()->DelExceptionSession();
            return CRtspSessionManager::Instance()->GetCurrSessionNums() == 0;
        }));
        m_id = -1;
        m_end = RTSPS_CLOSE_NONE;
        CTestSocket client(socket(AF_INET, SOCK_STREAM, 0));
        const int serverEnd = CTestSocket(dup(0)).Fd();  // the server takes the lowest free number
        ASSERT_TRUE(client.Connect(m_port) && WaitUntil([&] { return m_id != -1; }));
        CModel model{"Session: " + std::to_string(m_id) + "\r\n", m_description};
        for (size_t i = 0; i < pieces.size() && model.end == RTSPS_CLOSE_NONE; ++i) {
            const std::string expected = model.Take(pieces[i]);
            ASSERT_TRUE(client.Send(pieces[i]));
            ASSERT_EQ(client.ReceiveExactly(expected.size()), expected) << "after " << pieces[i];
            ASSERT_TRUE(WaitUntil([&] { return m_end != 0 || HasTaken(client, serverEnd); }));
        }
        if (model.end == RTSPS_CLOSE_NONE) {
            model.End(resets ? RTSPS_CLOSE_CONNECTION_ERROR : RTSPS_CLOSE_CLIENT_LEFT);
            resets ? client.ResetHard() : void(shutdown(client.Fd(), SHUT_WR));
        }
        if (model.end != CModel::MIXED_MESSAGES) {
            ++m_predicted;
            ASSERT_TRUE(WaitUntil([&] { return m_end != RTSPS_CLOSE_NONE; }));
            EXPECT_EQ(m_end, model.end);
            EXPECT_EQ(client.Fd() == -1 ? "" : client.Receive(65536, 0), "") << "a reply too many";
        }
    }

    std::string m_description;
    std::atomic<int64_t> m_id{-1};
    std::atomic<uint32_t> m_end{RTSPS_CLOSE_NONE};
    unsigned m_predicted = 0;
};

TEST_F(CDialogueModelTest, EveryMethodInEveryState) {
    const Texts order = {"DESCRIBE", "SETUP", "PLAY"};
    for (size_t steps = 0; steps <= order.size(); ++steps) {
        for (const std::string& first : METHODS) {
            for (const std::string& second : METHODS) {
                Texts requests = order;
                requests.resize(steps);
                requests.insert(requests.end(), {first, second, "HEARTBEAT"});
                for (std::string& request : requests) {
                    request = Request(request, VIDEO, "7");
                }
                Compare(requests, false);
                ASSERT_FALSE(HasFailure());
            }
        }
    }
    EXPECT_TRUE(m_log.HasLines(
        "E  bad m_rtspstat : 0|W ERROR!!! RTSP_STATUS_500, FD[#]|E m_pTransCtrl == NULL|"
        "W pause timing sequence is illegal|E describe timing sequence is illegal|"
        "E  bad m_rtspstat : 3|E rtsp status invalid|W RTSP_STATUS_405, FD[#]|"
        "W preview mode no support pause!|E  bad m_rtspstat : 2|E m_pVideoSession is NULL|"
        "E send_response failed, , fd[#],errno[#]|E send_response failed"));
    EXPECT_FALSE(m_log.Has("[RTSPS INFO]"));
}

unsigned FromEnvironment(const char* name, unsigned otherwise) {
    const char* value = getenv(name);
    return value == nullptr ? otherwise : static_cast<unsigned>(strtoul(value, nullptr, 10));
}

TEST_F(CDialogueModelTest, RandomDialoguesGoAsPredicted) {
    const unsigned seed = FromEnvironment("RTSPS_SEED", 1);
    const unsigned dialogues = FromEnvironment("RTSPS_DIALOGUES", 200);
    for (unsigned i = 0; i < dialogues; ++i) {
        SCOPED_TRACE("replay: RTSPS_SEED=" + std::to_string(seed + i) +
                     " RTSPS_DIALOGUES=1 build/dev/tests/rtspserver_tests "
                     "--gtest_filter=CDialogueModelTest.R*");
        CGenerator generator(seed + i);
        const Texts pieces = generator.Pieces();
        Compare(pieces, generator.OneIn(4));
        ASSERT_FALSE(HasFailure());
    }
    if (seed == 1 && dialogues >= 200) {
        EXPECT_TRUE(
            m_log.HasLines("E parse pMsg Error!!!, fd[#],client[127.0.0.1]|"
                           "E Recvn ,nRecvlen [0]! left [0]! fd[#],errno[#]|"
                           "E Recvn ,nRecvlen [-1]! left [8192]! fd[#],errno[#]"));
    }
    EXPECT_TRUE(dialogues < 200 || m_predicted > dialogues * 2 / 3) << m_predicted;
}

}  // namespace
