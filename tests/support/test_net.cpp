// SPDX-License-Identifier: MIT
#include "support/test_net.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>

bool IsPlainBuild() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(RTSPS_SLOW_BUILD)
    return false;
#else
    return !IsEmulated();
#endif
}

namespace {

sockaddr_in Loopback(uint16_t port) {
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return addr;
}

bool WaitReadable(int fd, int timeoutMs) {
    pollfd entry{fd, POLLIN, 0};
    return poll(&entry, 1, timeoutMs) > 0;
}

// Binds a new socket to a port of 127.0.0.1, 0 for any.
CTestSocket Bound(int type, uint16_t port) {
    CTestSocket result(socket(AF_INET, type | SOCK_CLOEXEC, 0));
    const int reuse = port == 0 ? 0 : 1;
    setsockopt(result.Fd(), SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof(reuse));
    const sockaddr_in addr = Loopback(port);
    EXPECT_EQ(bind(result.Fd(), reinterpret_cast<const sockaddr*>(&addr), sizeof(addr)), 0);
    return result;
}

}  // namespace

CTestSocket& CTestSocket::operator=(CTestSocket&& other) noexcept {
    Reset();
    m_fd = other.Take();
    return *this;
}

CTestSocket CTestSocket::ConnectTcp(uint16_t port, int nRecvBuffer) {
    CTestSocket result(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (nRecvBuffer > 0) {
        setsockopt(result.Fd(), SOL_SOCKET, SO_RCVBUF, &nRecvBuffer, sizeof(nRecvBuffer));
    }
    return result.Connect(port) ? std::move(result) : CTestSocket();
}

CTestSocket CTestSocket::ListenTcp(uint16_t port) {
    CTestSocket result = Bound(SOCK_STREAM, port);
    EXPECT_EQ(listen(result.Fd(), 1), 0);
    return result;
}

bool CTestSocket::Connect(uint16_t port) const {
    const sockaddr_in addr = Loopback(port);
    return connect(m_fd, reinterpret_cast<const sockaddr*>(&addr), sizeof(addr)) == 0;
}

CTestSocket CTestSocket::BindUdp(uint16_t port) {
    CTestSocket result = Bound(SOCK_DGRAM, port);
    const int size = 4 << 20;
    setsockopt(result.Fd(), SOL_SOCKET, SO_RCVBUF, &size, sizeof(size));
    return result;
}

uint16_t CTestSocket::Port() const {
    sockaddr_in addr{};
    socklen_t size = sizeof(addr);
    getsockname(m_fd, reinterpret_cast<sockaddr*>(&addr), &size);
    return ntohs(addr.sin_port);
}

void CTestSocket::Reset() {
    if (m_fd != -1) {
        close(Take());
    }
}

void CTestSocket::ResetHard() {
    const linger now{1, 0};
    setsockopt(m_fd, SOL_SOCKET, SO_LINGER, &now, sizeof(now));
    Reset();
}

bool CTestSocket::Send(const std::string& text) const {
    return send(m_fd, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
}

std::string CTestSocket::Receive(size_t most, int timeoutMs) const {
    std::string text(most, '\0');
    const ssize_t n = WaitReadable(m_fd, timeoutMs) ? recv(m_fd, text.data(), most, 0) : 0;
    text.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return text;
}

std::string CTestSocket::ReceiveExactly(size_t bytes, int timeoutMs) const {
    std::string text;
    for (std::string more = "x"; text.size() < bytes && !more.empty(); text += more) {
        more = Receive(bytes - text.size(), timeoutMs);
    }
    return text;
}

bool CTestSocket::AtEnd(int timeoutMs) const {
    char byte = 0;
    return WaitReadable(m_fd, timeoutMs) && recv(m_fd, &byte, 1, MSG_PEEK) <= 0;
}

std::string CTestClient::Url(const std::string& tail) const {
    return "rtsp://127.0.0.1:" + std::to_string(m_port) + "/chan1/" + m_stream + "/" + tail;
}

std::string CTestClient::Ask(const std::string& method, const std::string& url,
                             const std::string& headers) {
    const std::string cseq = "CSeq: " + std::to_string(++m_cseq) + "\r\n";
    const std::string answer =
        AskRaw(method + " " + url + " RTSP/1.0\r\n" + cseq + headers + "\r\n");
    EXPECT_TRUE(answer.empty() || answer.find(cseq) != std::string::npos) << answer;
    return answer;
}

std::string CTestClient::ReadReply(int timeoutMs) {
    std::string reply;
    // Megabytes of media may arrive before the reply, so only the end is checked.
    for (std::string more = "x";
         !more.empty() && (reply.size() < 4 || reply.compare(reply.size() - 4, 4, "\r\n\r\n") != 0);
         reply += more) {
        more = m_socket.Receive(1, timeoutMs);
    }
    const size_t at = reply.find("Content-Length: ");
    if (at != std::string::npos) {
        reply += m_socket.ReceiveExactly(std::stoul(reply.substr(at + 16)), timeoutMs);
    }
    return reply;
}

std::string CTestClient::Describe(const std::string& stream) {
    m_stream = stream;
    return Ask("DESCRIBE", Url(), "Accept: application/sdp\r\n");
}

std::string CTestClient::Setup(int streamId, const std::string& transport) {
    return Ask("SETUP", Url("streamid=" + std::to_string(streamId)),
               "Transport:\r\n " + transport + "\r\n");  // a folded header
}

bool CTestClient::PlayInterleaved(bool audio) {
    return Ok(Describe(m_stream)) && Ok(Setup(0, "RTP/AVP/TCP;unicast;interleaved=0-1")) &&
           (!audio || Ok(Setup(1, "RTP/AVP/TCP;unicast;interleaved=2-3"))) && Ok(Play());
}

bool Ok(const std::string& reply) {
    return reply.rfind("RTSP/1.0 200 OK\r\n", 0) == 0;
}

CPlayer::CPlayer(uint16_t port, int transport, EState state, int nRecvBuffer)
    : CTestClient(port, CTestSocket::ConnectTcp(port, nRecvBuffer)),
      reply(Ask("OPTIONS", Url())),
      m_transport(transport) {
    if (state == IN_A_REQUEST) {
        Socket().Send("DESCRIBE rtsp://");
    }
    if (state >= DESCRIBED && Ok(reply)) {
        reply = Describe();
    }
    for (int id = 0; id < 2 && state >= SET_UP && Ok(reply); ++id) {
        SetUp(id, nRecvBuffer);
    }
    if (state >= PLAYING && Ok(reply)) {
        reply = Play();
    }
    if (state >= TORN_DOWN && Ok(reply)) {
        reply = Ask("TEARDOWN", Url());
    }
}

void CPlayer::SetUp(int id, int nRecvBuffer) {
    CTestSocket& socket = media[id];
    socket = m_transport == UDP ? CTestSocket::BindUdp() : CTestSocket();
    const std::string transports[] = {
        "RTP/AVP;unicast;client_port=" + std::to_string(socket.Port()),
        "RTP/AVP/TCP;unicast;client_port=9",
        std::string("RTP/AVP/TCP;unicast;interleaved=") + (id == 0 ? "0-1" : "2-3")};
    reply = Setup(id, transports[m_transport]);
    if (!Ok(reply) || m_transport == INTERLEAVED) {
        return;
    }
    const size_t number = reply.find("server_port=") + 12;
    const auto port = static_cast<uint16_t>(std::stoul(reply.substr(number)));
    if (m_transport == UDP) {
        socket.Connect(port);  // ignores the datagrams of others
        return;
    }
    socket = CTestSocket::ConnectTcp(port, nRecvBuffer);
    // The server accepts one connection. When it refuses another one, it has accepted this one.
    WaitUntil([&] { return CTestSocket::ConnectTcp(port).Fd() == -1; });
}

bool CPlayer::Gets(const std::vector<Bytes>& units, int timeoutMs) {
    const TRtspServerStreamInfo info = MakeStreamInfo();
    return std::all_of(units.begin(), units.end(), [&](const Bytes& unit) {
        const bool isAudio = (unit[5] & 0x7F) == info.byAudioPayload;
        const uint32_t ssrc = isAudio ? info.dwAudioSSrc : info.dwVideoSSrc;
        const std::string packet = PacketOf(unit, ssrc);
        if (m_transport == UDP) {
            return media[isAudio].Receive(packet.size() + 1, timeoutMs) == packet;
        }
        const bool isTcp = m_transport == TCP;
        return (isTcp ? media[isAudio] : Socket()).ReceiveExactly(unit.size(), timeoutMs) ==
               (isTcp ? std::string("$\0\0\0", 4) + packet : FrameOf(unit, ssrc, isAudio ? 2 : 0));
    });
}

bool CPlayer::GetsNothing() {
    return Socket().Receive(1, 0) + media[0].Receive(1, 0) + media[1].Receive(1, 0) == "";
}

Bytes MakeUnit(const CTestUnit& unit) {
    const size_t packet = 12 + unit.payload;
    const uint32_t head[] = {
        0x247F0000U | static_cast<uint16_t>(packet),
        0x80000000U | static_cast<uint32_t>(unit.payloadType) << 16 | unit.sequence, unit.timestamp,
        0xDEADBEEFU};
    Bytes bytes(4 + packet, unit.fill);
    for (size_t i = 0; i < sizeof(head); ++i) {
        bytes[i] = static_cast<uint8_t>(head[i / 4] >> (24 - i % 4 * 8));
    }
    return bytes;
}

std::vector<Bytes> MakeUnits(CTestUnit first, size_t count) {
    std::vector<Bytes> units;
    for (size_t i = 0; i < count; ++i, ++first.sequence, ++first.fill) {
        units.push_back(MakeUnit(first));
    }
    return units;
}

Bytes Join(const std::vector<Bytes>& units) {
    Bytes run;
    for (const Bytes& unit : units) {
        run.insert(run.end(), unit.begin(), unit.end());
    }
    return run;
}

std::string PacketOf(const Bytes& unit, uint32_t ssrc) {
    std::string packet(unit.begin() + 4, unit.end());
    for (size_t i = 0; i < 4; ++i) {
        packet[8 + i] = static_cast<char>(ssrc >> (24 - 8 * i));
    }
    return packet;
}

std::string FrameOf(const Bytes& unit, uint32_t ssrc, uint8_t channel) {
    std::string frame(unit.begin(), unit.begin() + 4);
    frame[1] = static_cast<char>(channel);
    return frame + PacketOf(unit, ssrc);
}

TRtspServerStreamInfo MakeStreamInfo() {
    return {
        96, 8, 0x11223344, 0x55667788, RTSPS_AUDIO_STREAM_TYPE_G711A, RTSPS_VIDEO_STREAM_TYPE_H264,
        {}};
}

uint16_t FreeDataPortRange() {
    // Below the ports of the tests in Python. A socket with the slot's name stays open until this
    // process ends, so that no other test process uses the same slot.
    constexpr int FIRST = 10000;
    constexpr int SLOT = 640;
    constexpr int SLOTS = (26000 - FIRST) / SLOT;
    static const int slot = [] {
        const int holder = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un name{AF_UNIX, {}};
        int candidate = getpid();
        do {
            ++candidate;
            snprintf(name.sun_path + 1, sizeof(name.sun_path) - 1, "rtsps-ports-%d",
                     candidate % SLOTS);
        } while (bind(holder, reinterpret_cast<sockaddr*>(&name), sizeof(name)) != 0);
        return candidate % SLOTS;
    }();
    return static_cast<uint16_t>(FIRST + slot * SLOT);
}

int CountEntries(const char* path) {
    const std::filesystem::directory_iterator entries(path);
    return static_cast<int>(std::distance(begin(entries), end(entries)));
}

int OwnThreads() {
    static const int threads = [] {
        // A sanitizer's own thread appears with the first one.
        std::string folder;
        std::thread([&] { folder = "/proc/self/task/" + std::to_string(gettid()); }).join();
        WaitUntil([&] { return !std::filesystem::exists(folder); });
        return CountThreads();
    }();
    return threads;
}

void CServerTest::SetUp() {
    m_port = FreeTcpPort();
    m_para.nServerPort = m_port;
    m_para.nMinPort = FreeDataPortRange();
    m_para.nMaxPort = m_para.nMinPort + 599;
    m_threadsBefore = OwnThreads();
    m_descriptorsBefore = CountDescriptors();
}

void CServerTest::Init(bool debug) {
    m_para.byDbg = debug ? 1 : 0;
    EXPECT_EQ(RTSPServer_Init(&m_para), 0);
    TRtspServerStreamInfo info = MakeStreamInfo();
    EXPECT_EQ(RTSPServer_SetStreamInfo(1, RTSPS_STREAM_MAIN, &info), 0);
    EXPECT_EQ(RTSPServer_SetStreamInfo(1, RTSPS_STREAM_SUB, &info), 0);
}

void CServerTest::StartServer() {
    Init();
    ASSERT_EQ(RTSPServer_Start(), 0);
}

void CServerTest::Push(Bytes units, int chan, int stream) {
    EXPECT_EQ(RTSPServer_SendRealSteam(chan, stream, units.data(), static_cast<int>(units.size())),
              0);
}

void CServerTest::TearDown() {
    EXPECT_EQ(RTSPServer_Stop(), 0);
    EXPECT_EQ(RTSPServer_Release(), 0);
    EXPECT_TRUE(WaitUntil([&] { return CountThreads() <= m_threadsBefore; }));
    EXPECT_TRUE(WaitUntil([&] { return CountDescriptors() <= m_descriptorsBefore; }))
        << CountDescriptors() << " descriptors, " << m_descriptorsBefore << " before";
}
