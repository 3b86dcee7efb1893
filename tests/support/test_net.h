// SPDX-License-Identifier: MIT
// Shared by the tests over real sockets: a started server, clients that use the protocol, and the
// units that a host pushes.
#ifndef TEST_NET_H
#define TEST_NET_H

#include <cstdint>
#include <cstdlib>
#include <utility>
#include <vector>

#include "rtsps_server_api.h"
#include "support/log_capture.h"

// Limits in milliseconds hold in the plain build only; sanitizers and emulation are slow.
bool IsPlainBuild();
// A cross-built program; the toolchain file's emulator sets the variable.
inline bool IsEmulated() {
    return getenv("RTSPS_EMULATED") != nullptr;
}

using Bytes = std::vector<uint8_t>;

// A connected or bound socket that closes itself.
class CTestSocket {
  public:
    CTestSocket() = default;
    explicit CTestSocket(int fd) : m_fd(fd) {}
    ~CTestSocket() { Reset(); }
    CTestSocket(CTestSocket&& other) noexcept : m_fd(other.Take()) {}
    CTestSocket& operator=(CTestSocket&& other) noexcept;

    static CTestSocket ConnectTcp(uint16_t port, int nRecvBuffer = 0);  // no socket if it fails
    static CTestSocket BindUdp(uint16_t port = 0);                      // of 127.0.0.1, 0 for any
    static CTestSocket ListenTcp(uint16_t port);

    int Fd() const { return m_fd; }
    bool Connect(uint16_t port) const;  // of 127.0.0.1
    uint16_t Port() const;              // local
    int Take() { return std::exchange(m_fd, -1); }
    void Reset();
    void ResetHard();  // closes with RST
    bool Send(const std::string& text) const;
    // The next data that arrives; "" at the end of the stream or after the time-out.
    std::string Receive(size_t most = 65536, int timeoutMs = 5000) const;
    // Exactly that many bytes; fewer at the end of the stream or after the time-out.
    std::string ReceiveExactly(size_t bytes, int timeoutMs = 5000) const;
    bool AtEnd(int timeoutMs = 5000) const;  // whether the peer has closed

  private:
    int m_fd = -1;
};

// A client that sends requests, with a rising CSeq.
class CTestClient {
  public:
    explicit CTestClient(uint16_t port) : CTestClient(port, CTestSocket::ConnectTcp(port)) {
        EXPECT_NE(m_socket.Fd(), -1) << "port " << port << " refuses the connection";
    }
    CTestClient(uint16_t port, CTestSocket connected)
        : m_port(port), m_socket(std::move(connected)) {}

    CTestSocket& Socket() { return m_socket; }
    // Sends "METHOD url RTSP/1.0", CSeq and the headers (each with CR LF at its end). Returns the
    // reply.
    std::string Ask(const std::string& method, const std::string& url,
                    const std::string& headers = "");
    // Sends unchanged text. Returns the reply with the body that its Content-Length announces.
    std::string AskRaw(const std::string& text) { return m_socket.Send(text) ? ReadReply() : ""; }
    std::string ReadReply(int timeoutMs = 5000);

    std::string Url(const std::string& tail = "") const;  // of channel 1, main
    std::string Describe(const std::string& stream = "main");
    std::string Setup(int streamId, const std::string& transport);
    std::string Play() { return Ask("PLAY", Url()); }
    int Cseq() const { return m_cseq; }

    // Sends DESCRIBE, SETUP of the streams, and PLAY. Returns whether all replies were 200.
    bool PlayInterleaved(bool audio = true);

    std::string m_stream = "main";

  private:
    uint16_t m_port;
    CTestSocket m_socket;
    int m_cseq = 0;
};

bool Ok(const std::string& reply);  // whether its status is 200

// The units that a host pushes.
struct CTestUnit {
    uint8_t payloadType = 96;
    uint16_t sequence = 1;
    uint32_t timestamp = 0;
    size_t payload = 100;
    uint8_t fill = 0xA5;
};
Bytes MakeUnit(const CTestUnit& unit);
// With neighbouring sequence numbers.
std::vector<Bytes> MakeUnits(CTestUnit first, size_t count);
Bytes Join(const std::vector<Bytes>& units);
inline Bytes MakeRun(CTestUnit first, size_t count) {
    return Join(MakeUnits(first, count));
}
// The RTP packet of a unit as a client receives it: without prefix, with the stream's SSRC.
std::string PacketOf(const Bytes& unit, uint32_t ssrc);
// The frame as an interleaved client receives it.
std::string FrameOf(const Bytes& unit, uint32_t ssrc, uint8_t channel);

// A client that plays video and audio of channel 1 main over one transport.
class CPlayer : public CTestClient {
  public:
    enum ETransport { UDP, TCP, INTERLEAVED, TRANSPORTS };
    enum EState { CONNECTED, IN_A_REQUEST, DESCRIBED, SET_UP, PLAYING, TORN_DOWN };

    // Sends the requests up to a state, as long as the replies are 200.
    CPlayer(uint16_t port, int transport, EState state = PLAYING, int nRecvBuffer = 0);
    // Whether the next packets that arrive are these, byte for byte.
    bool Gets(const std::vector<Bytes>& units, int timeoutMs = 5000);
    bool GetsNothing();

    std::string reply;     // the last one
    CTestSocket media[2];  // video and audio, unless they are interleaved

  private:
    void SetUp(int id, int nRecvBuffer);

    const int m_transport;
};

// A server on free ports, with channel 1 main (H.264 96, A-law 8) and sub declared. Stops the
// server at the end, and checks that no thread or descriptor remains.
class CServerTest : public ::testing::Test {
  protected:
    static constexpr uint32_t VIDEO_SSRC = 0x11223344;
    static constexpr uint32_t AUDIO_SSRC = 0x55667788;

    void SetUp() override;
    void TearDown() override;
    void Init(bool debug = false);
    void StartServer();
    static void Push(Bytes units, int chan = 1, int stream = 0);

    TRtspServerPara m_para{};
    uint16_t m_port = 0;
    int m_threadsBefore = 0;
    int m_descriptorsBefore = 0;
};

// The same, with the diagnostic lines captured.
class CLoggedServerTest : public CServerTest {
  protected:
    CLogCapture m_log;
};

TRtspServerStreamInfo MakeStreamInfo();
inline uint16_t FreeTcpPort() {
    return CTestSocket::ListenTcp(0).Port();
}
uint16_t FreeDataPortRange();        // the first of 640 ports that no other test process uses
int CountEntries(const char* path);  // of a folder
inline int CountThreads() {
    return CountEntries("/proc/self/task");
}
int OwnThreads();  // the threads of the process without those of the library
inline int CountDescriptors() {
    return CountEntries("/proc/self/fd");
}

#endif
