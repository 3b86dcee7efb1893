// SPDX-License-Identifier: MIT
// Compares random dialogues with a model of the framing and the states. A seed determines each
// dialogue. RTSPS_SEED is the first seed (1), RTSPS_DIALOGUES the number of dialogues (200).
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <set>

#include "rtsps_session_mgr.h"
#include "support/test_net.h"

namespace {

constexpr int64_t RUNS_ON = -1;
constexpr char OK[] = "200 OK";
constexpr char BAD[] = "400 Bad Request";
constexpr char NOT_FOUND[] = "404 Not Found";
constexpr char NOT_ALLOWED[] = "405 Method Not Allowed";
constexpr char NOT_NOW[] = "455 Method Not Valid In This State";
constexpr char SERVER_ERROR[] = "500 Internal Server Error";
constexpr char NOT_IMPLEMENTED[] = "501 Not Implemented";
const std::string RESPONSE = "RTSP/1.0 200 OK\r\n\r\n";

enum EUrl { STREAM, VIDEO, AUDIO, UNDECLARED, INVALID };
const char* const URLS[] = {
    "rtsp://127.0.0.1/chan1/main/", "rtsp://127.0.0.1/chan1/main/streamid=0",
    "rtsp://127.0.0.1/chan1/main/streamid=1", "rtsp://127.0.0.1/chan1/third/streamid=0", "*"};

enum ETransport { NONE, INTERLEAVED, MULTICAST, NO_PORT };
const char* const TRANSPORTS[] = {"", "RTP/AVP/TCP;unicast;interleaved=2-3", "RTP/AVP;multicast",
                                  "RTP/AVP;unicast;client_port=0"};

// The request in a message of the client.
struct CRequest {
    std::string method;
    EUrl url;
    ETransport transport;
    std::string cseq;
};

// The bytes that the client sends, and the messages in them.
struct CDialogue {
    std::vector<std::string> pieces;  // each is sent after the server has received the one before
    std::map<std::string, CRequest> messages;
    bool resets = false;  // the client's way to leave
};

class CGenerator {
  public:
    explicit CGenerator(unsigned seed) : m_random(seed) {}

    CDialogue Make() {
        std::string piece;
        for (unsigned left = 1 + Below(16); left > 0; --left) {
            const std::string item = Item();
            const size_t cut = OneIn(4) ? Below(static_cast<unsigned>(item.size())) : 0;
            Send(piece + item.substr(0, cut));
            piece = item.substr(cut);
            if (!OneIn(4)) {  // otherwise the next item is sent together with it
                Send(std::exchange(piece, ""));
            }
        }
        Send(piece);
        m_dialogue.resets = OneIn(4);
        return m_dialogue;
    }

  private:
    unsigned Below(unsigned limit) { return static_cast<unsigned>(m_random()) % limit; }
    bool OneIn(unsigned cases) { return Below(cases) == 0; }
    void Send(const std::string& piece) {
        if (!piece.empty()) {
            m_dialogue.pieces.push_back(piece);
        }
    }

    std::string Item() {
        std::string frame = "$";
        frame += static_cast<char>(Below(10));
        frame += '\0';
        frame += static_cast<char>(Below(100));
        switch (Below(24)) {
            case 0:
                return RESPONSE;
            case 1:
                return Request("HEARTBEAT", STREAM, NONE, "Content-length: 3\r\n") + "abc";
            case 2:
                return Request("OPTIONS", STREAM, NONE, "Content-Length: 20\r\n") +
                       std::string(20, 'b');
            case 3:
                return std::string(3000 + Below(3000), 'x');  // no head ends in it
            case 4:
                return std::string(1, '\0') + Request("OPTIONS", STREAM, NONE);
            case 5:
                return std::string("$\0\x28\0", 4) + std::string(10240, 'f');
            case 6:
            case 7:
            case 8:
            case 9:
                return frame + std::string(static_cast<size_t>(frame[3]), 'f');
            default:
                return OneIn(4) ? AnyRequest() : NextRequest();
        }
    }

    // The next request of a successful dialogue.
    std::string NextRequest() {
        static constexpr struct {
            const char* method;
            EUrl url;
            ETransport transport;
        } ORDER[] = {{"DESCRIBE", STREAM, NONE},    {"SETUP", VIDEO, INTERLEAVED},
                     {"SETUP", AUDIO, INTERLEAVED}, {"PLAY", STREAM, NONE},
                     {"PAUSE", STREAM, NONE},       {"HEARTBEAT", STREAM, NONE},
                     {"TEARDOWN", STREAM, NONE},    {"PAUSE", STREAM, NONE}};
        const auto& next = ORDER[m_step % std::size(ORDER)];
        m_step += OneIn(8) ? 0U : 1U;  // some requests are sent twice
        const bool mayBeRefused = next.transport != NONE && OneIn(8);
        return Request(next.method, next.url == VIDEO && m_isAudioAlone ? AUDIO : next.url,
                       mayBeRefused ? AnyTransport() : next.transport);
    }

    std::string AnyRequest() {
        static constexpr const char* METHODS[] = {"OPTIONS", "DESCRIBE", "SETUP",     "SETUP",
                                                  "PLAY",    "PAUSE",    "HEARTBEAT", "TEARDOWN",
                                                  "RECORD",  "play"};
        // One draw per statement: compilers differ in the order in which they evaluate arguments,
        // and a seed determines the same dialogue everywhere.
        const char* method = METHODS[Below(std::size(METHODS))];
        const auto url = static_cast<EUrl>(Below(std::size(URLS)));
        return Request(method, url, AnyTransport());
    }

    ETransport AnyTransport() { return static_cast<ETransport>(Below(std::size(TRANSPORTS))); }

    std::string Request(const std::string& method, EUrl url, ETransport transport,
                        const std::string& headers = "") {
        const std::string cseq = std::to_string(++m_cseq * (OneIn(4) ? 100000 : 1));
        std::string text =
            method + " " + URLS[url] + " RTSP/1.0\r\nCSeq: " + cseq + "\r\n" + headers;
        text +=
            transport == NONE ? "" : std::string("Transport: ") + TRANSPORTS[transport] + "\r\n";
        m_dialogue.messages[text + "\r\n"] = {method, url, transport, cseq};
        return text + "\r\n";
    }

    std::mt19937 m_random;
    CDialogue m_dialogue;
    size_t m_step = 0;
    bool m_isAudioAlone = OneIn(8);
    int m_cseq = 0;
};

// A model of the server, as docs/protocol.md and docs/kept.md describe it.
class CModel {
  public:
    CModel(const CDialogue& dialogue, std::string session, std::string description)
        : m_dialogue(dialogue),
          m_session(std::move(session)),
          m_description(std::move(description)) {}

    // Receives a piece as one segment. Returns the replies to it.
    std::string Take(std::string segment) {
        m_replies.clear();
        while (!segment.empty() && m_end == RUNS_ON && m_isCertain) {
            if (m_held.size() == ROOM) {
                End(RTSPS_CLOSE_REFUSED);  // a frame beyond the room
                break;
            }
            const size_t taken = ReceiveSize(segment.substr(0, ROOM - m_held.size()));
            m_held += segment.substr(0, taken);
            m_bytes.replace(0, m_held.size(), m_held);
            segment.erase(0, taken);
            Consume();
        }
        return m_replies;
    }

    // Handles the end of the client's connection.
    void Leave() {
        End(m_dialogue.resets ? RTSPS_CLOSE_CONNECTION_ERROR : RTSPS_CLOSE_CLIENT_LEFT);
    }

    bool HasEnded() const { return m_end != RUNS_ON; }
    int64_t End() const { return m_end == RUNS_ON ? RUNS_ON : m_reason; }
    bool IsCertain() const { return m_isCertain; }

  private:
    static constexpr size_t ROOM = 8192;
    static constexpr size_t LONGEST_HEAD = 4096;

    static std::optional<size_t> FrameSize(const std::string& bytes) {
        if (bytes.empty() || bytes[0] != '$' || (bytes.size() > 1 && (bytes[1] & 0xF8) != 0)) {
            return std::nullopt;
        }
        const auto at = [&](size_t i) {
            return static_cast<size_t>(static_cast<uint8_t>(bytes[i]));
        };
        return bytes.size() < 4 ? 4 : 4 + at(2) * 256 + at(3);
    }

    // The head at the beginning of the bytes. Bytes after a NUL are not searched.
    static std::optional<size_t> HeadSize(const std::string& bytes) {
        const size_t end = bytes.substr(0, bytes.find('\0')).find("\r\n\r\n");
        return end == std::string::npos ? std::nullopt : std::optional(end + 4);
    }

    // A receive takes all that has arrived, but it never crosses an end of a frame.
    size_t ReceiveSize(const std::string& arrived) const {
        const std::string all = m_held + arrived;
        if (const auto frame = FrameSize(all); frame > m_held.size()) {
            return std::min(*frame, ROOM) - m_held.size();
        }
        const auto head = HeadSize(all);
        return head > m_held.size() && FrameSize(all.substr(*head)) ? *head - m_held.size()
                                                                    : arrived.size();
    }

    // Each receive handles one message or frame. Only the count of the bytes after it is stored;
    // the bytes are not moved to the front.
    void Consume() {
        const auto frame = FrameSize(m_held);
        const auto head = HeadSize(m_held);
        if (m_held.size() < 4 || frame > m_held.size()) {
            return;
        }
        if (frame || head) {
            const std::string message = m_held.substr(0, frame ? 0 : *head);
            m_held = m_bytes.substr(0, m_held.size() - (frame ? *frame : *head));
            frame ? void() : Handle(message);
        } else if (m_held.size() > LONGEST_HEAD) {
            m_held.clear();
        }
    }

    void Handle(const std::string& message) {
        const auto found = m_dialogue.messages.find(message);
        if (found != m_dialogue.messages.end()) {
            message.find("Content-length") == std::string::npos ? Answer(found->second)
                                                                : End(RTSPS_CLOSE_REFUSED);
        } else if (message != RESPONSE) {
            m_isCertain = false;  // a mixture of several messages
        }
    }

    void Answer(const CRequest& request) {
        const std::string& method = request.method;
        const std::string cseq = "CSeq: " + request.cseq + "\r\n";
        const std::string session = "Session: " + m_session + "\r\n";
        if (method == "OPTIONS") {
            Reply(OK,
                  cseq + "Public: OPTIONS, DESCRIBE, SETUP, TEARDOWN, PLAY, PAUSE HEARTBEAT\r\n");
        } else if (method == "HEARTBEAT") {
            Reply(OK, cseq);
        } else if (method == "DESCRIBE") {
            Describe(request, cseq);
        } else if (method == "SETUP") {
            SetUp(request, session, cseq);
        } else if (method == "PLAY") {
            m_state == SET_UP ? Reply(OK, session + cseq)
            : m_hasPath       ? Refuse(NOT_NOW, cseq)
                              : Refuse(SERVER_ERROR, cseq);
            m_state = PLAYING;
        } else if (method == "PAUSE") {
            const bool canReply = !m_hasPath || m_hasVideo;
            canReply&& m_state == PLAYING ? Reply(NOT_ALLOWED, cseq)
            : canReply                    ? Reply(NOT_NOW, cseq)
                                          : void();
        } else if (method == "TEARDOWN") {
            Reply(OK, cseq + session + "Connection: close\r\n");
            m_hasVideo = false;
            m_state = TORN_DOWN;
            m_reason = m_reason == RUNS_ON ? int64_t{RTSPS_CLOSE_TEARDOWN} : m_reason;
        } else {
            Reply(NOT_ALLOWED, cseq);
        }
    }

    void Describe(const CRequest& request, const std::string& cseq) {
        if (m_state != CONNECTED) {
            Refuse(NOT_NOW, cseq);
        } else if (request.url == UNDECLARED || request.url == INVALID) {
            Refuse(NOT_FOUND, cseq);
        } else {
            const std::string length = std::to_string(m_description.size());
            Reply(OK, cseq + "Content-Type: application/sdp\r\nContent-Length: " + length + "\r\n",
                  m_description);
            m_state = DESCRIBED;
            m_isDescribed = true;
        }
    }

    void SetUp(const CRequest& request, const std::string& session, const std::string& cseq) {
        constexpr int MOST_PER_STREAM = 17;
        const bool isAudio = request.url == AUDIO;
        if (!m_isDescribed) {
            Refuse(NOT_FOUND, cseq);
        } else if (m_state != DESCRIBED && m_state != SET_UP) {
            Refuse(NOT_NOW, cseq);
        } else if (request.url == INVALID || request.url == STREAM || request.transport == NONE ||
                   request.transport == NO_PORT) {
            Refuse(BAD, cseq);
        } else if (request.transport == MULTICAST) {
            Refuse(NOT_IMPLEMENTED, cseq);
        } else {
            m_hasPath = true;
            m_hasVideo = m_hasVideo || !isAudio;
            m_state = SET_UP;
            const std::string ssrc = isAudio ? ";ssrc=55667788\r\n" : ";ssrc=11223344\r\n";
            ++m_setUps[isAudio] > MOST_PER_STREAM
                ? Refuse(SERVER_ERROR, cseq)
                : Reply(OK, session + "Transport: " + TRANSPORTS[INTERLEAVED] + ssrc + cseq);
        }
    }

    // From the first SETUP on a reply needs a media session for video; without one the session
    // ends.
    void Reply(const std::string& status, const std::string& headers,
               const std::string& body = "") {
        if (m_hasPath && !m_hasVideo) {
            End(RTSPS_CLOSE_REFUSED);
        } else {
            m_replies += "RTSP/1.0 " + status + "\r\n" + headers + "\r\n" + body;
        }
    }
    void Refuse(const std::string& status, const std::string& headers) {
        Reply(status, headers);
        End(RTSPS_CLOSE_REFUSED);
    }
    void End(int64_t reason) {
        m_end = reason;
        m_reason = m_reason == RUNS_ON ? reason : m_reason;  // the first one counts
    }

    enum EState { CONNECTED, DESCRIBED, SET_UP, PLAYING, TORN_DOWN };

    const CDialogue& m_dialogue;
    const std::string m_session;
    const std::string m_description;
    std::string m_bytes = std::string(ROOM, '\0');  // of the buffer, whether they count or not
    std::string m_held;                             // the ones that count
    std::string m_replies;
    EState m_state = CONNECTED;
    bool m_isDescribed = false;
    int m_setUps[2] = {};    // of video and audio
    bool m_hasPath = false;  // for media: replies take it, too
    bool m_hasVideo = false;
    bool m_isCertain = true;
    int64_t m_end = RUNS_ON;
    int64_t m_reason = RUNS_ON;
};

// The session of the one client that is connected, from the host's events.
struct CSession {
    static void Hear(int32_t event, int32_t id, void* data, int32_t /*size*/, void* user) {
        auto* session = static_cast<CSession*>(user);
        if (event == RTSPS_EVENT_CONNECTED) {
            session->id = id;
        } else if (event == RTSPS_EVENT_CLOSED) {
            session->end = static_cast<TRtspServerEventInfo*>(data)->dwReason;
        }
    }
    std::atomic<int64_t> id{RUNS_ON};
    std::atomic<int64_t> end{RUNS_ON};
};

class CDialogueModelTest : public CLoggedServerTest {
  protected:
    // The server's socket of a connection: both sockets are in this process.
    int ServerEnd(const CTestSocket& client) const {
        for (int fd = 3; fd < 1024; ++fd) {
            sockaddr_in peer{};
            socklen_t size = sizeof(peer);
            if (getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
                ntohs(peer.sin_port) == client.Port()) {
                return fd;
            }
        }
        return -1;
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

    void Compare(const CDialogue& dialogue, const std::string& description) {
        m_session.id = m_session.end = RUNS_ON;
        CTestSocket client = CTestSocket::ConnectTcp(m_port);
        ASSERT_TRUE(WaitUntil([&] { return m_session.id != RUNS_ON; }));
        const int serverEnd = ServerEnd(client);
        CModel model(dialogue, std::to_string(m_session.id), description);
        for (const std::string& piece : dialogue.pieces) {
            const std::string expected = model.Take(piece);
            ASSERT_TRUE(client.Send(piece));
            if (!model.IsCertain()) {
                break;
            }
            ASSERT_EQ(client.ReceiveExactly(expected.size()), expected) << "after " << piece;
            ASSERT_TRUE(
                WaitUntil([&] { return m_session.end != RUNS_ON || HasTaken(client, serverEnd); }));
            m_statuses.insert(expected.substr(0, 12));
            if (model.HasEnded()) {
                break;
            }
        }
        const bool hasEnded = model.HasEnded();
        if (!hasEnded) {
            model.Leave();
            dialogue.resets ? client.ResetHard() : void(shutdown(client.Fd(), SHUT_WR));
        }
        ASSERT_TRUE(WaitUntil([&] { return m_session.end != RUNS_ON; }));
        if (model.IsCertain()) {
            ++m_predicted;
            EXPECT_EQ(m_session.end, model.End());
            EXPECT_EQ(client.Fd() == -1 ? "" : client.Receive(65536, 0), "") << "a reply too many";
        }
    }

    CSession m_session;
    std::set<std::string> m_statuses;
    unsigned m_predicted = 0;
};

unsigned FromEnvironment(const char* name, unsigned otherwise) {
    const char* value = getenv(name);
    return value == nullptr ? otherwise : static_cast<unsigned>(strtoul(value, nullptr, 10));
}

TEST_F(CDialogueModelTest, RandomDialoguesGoAsPredicted) {
    const unsigned seed = FromEnvironment("RTSPS_SEED", 1);
    const unsigned dialogues = FromEnvironment("RTSPS_DIALOGUES", 200);
    StartServer();
    std::string description;
    {
        CTestClient client(m_port);
        description = client.Describe();
        description.erase(0, description.find("v=0"));
    }
    RTSPServer_SetEventCallBack(CSession::Hear, &m_session);
    for (unsigned i = 0; i < dialogues && !HasFailure(); ++i) {
        SCOPED_TRACE("replay: RTSPS_SEED=" + std::to_string(seed + i) +
                     " RTSPS_DIALOGUES=1 build/dev/tests/rtspserver_tests "
                     "--gtest_filter=CDialogueModelTest.*");
        Compare(CGenerator(seed + i).Make(), description);
        CRtspSessionManager::Instance()->DelExceptionSession();
    }
    RTSPServer_SetEventCallBack(nullptr, nullptr);
    if (seed == 1 && dialogues >= 200) {
        EXPECT_GT(m_predicted, dialogues * 2 / 3) << "to their ends";
        for (const char* status : {"200", "400", "404", "405", "455", "500", "501"}) {
            EXPECT_EQ(m_statuses.count(std::string("RTSP/1.0 ") + status), 1U) << status;
        }
    }
}

}  // namespace
