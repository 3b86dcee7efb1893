// SPDX-License-Identifier: MIT
#include "peers.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "rtsps_server_api.h"
#include "wire.h"

namespace {

constexpr int FIRST_DATA_PORT = 12000;
constexpr int LAST_DATA_PORT = 13998;
constexpr int RECEIVE_BUFFER = 4 << 20;
constexpr size_t RTP_HEADER_SIZE = 12;

[[noreturn]] void Die(const std::string& what) {
    std::fprintf(stderr, "bench: %s\n", what.c_str());
    std::exit(1);
}

int FreePort() {
    const int fd = ListenTcp(0, 1);
    const int port = LocalPort(fd);
    close(fd);
    return port;
}

}  // namespace

CServer::CServer() : m_nPort(FreePort()), m_bRunning(true) {
    TRtspServerPara para = {};
    para.nServerPort = static_cast<uint32_t>(m_nPort);
    para.nMinPort = FIRST_DATA_PORT;
    para.nMaxPort = LAST_DATA_PORT;
    RTSPServer_Init(&para);
    for (const int stream : {RTSPS_STREAM_MAIN, RTSPS_STREAM_SUB}) {
        TRtspServerStreamInfo info = {};
        info.byVideoPayload = 96;
        info.byAudioPayload = 8;
        info.dwVideoSSrc = 0x1234;
        info.dwVideoFormat = RTSPS_VIDEO_STREAM_TYPE_H264;
        info.dwAudioFormat = RTSPS_AUDIO_STREAM_TYPE_UNDEF;
        RTSPServer_SetStreamInfo(1, stream, &info);
    }
    if (RTSPServer_Start() != 0)
        Die("the server does not start");
}

CServer::~CServer() {
    Stop();
}

void CServer::Stop() {
    if (!m_bRunning)
        return;
    m_bRunning = false;
    RTSPServer_Stop();
    RTSPServer_Release();
}

CPeer::CPeer(int nPort, int nReceiveBuffer)
    : m_nPort(nPort), m_fd(ConnectTcp(nPort, nReceiveBuffer)) {
    if (m_fd < 0)
        Die("cannot connect");
}

CPeer::CPeer(CPeer&& other) noexcept
    : m_nPort(other.m_nPort),
      m_fd(std::exchange(other.m_fd, -1)),
      m_nRtp(std::exchange(other.m_nRtp, -1)),
      m_nRtcp(std::exchange(other.m_nRtcp, -1)),
      m_nCseq(other.m_nCseq),
      m_stream(std::move(other.m_stream)) {}

CPeer::~CPeer() {
    for (const int fd : {m_fd, m_nRtp, m_nRtcp}) {
        if (fd >= 0)
            close(fd);
    }
}

std::string CPeer::Ask(const std::string& method, const std::string& tail,
                       const std::string& headers) {
    const std::string text =
        method + " rtsp://127.0.0.1:" + std::to_string(m_nPort) + "/chan1/" + m_stream + "/" +
        tail + " RTSP/1.0\r\nCSeq: " + std::to_string(++m_nCseq) + "\r\n" + headers + "\r\n";
    char reply[4096];
    if (send(m_fd, text.data(), text.size(), MSG_NOSIGNAL) < 0)
        Die("cannot send");
    const ssize_t n = recv(m_fd, reply, sizeof(reply), 0);
    std::string result(reply, n > 0 ? static_cast<size_t>(n) : 0);
    if (result.compare(0, 12, "RTSP/1.0 200") != 0)
        Die(method + ": " + result);
    return result;
}

void CPeer::Play(ETransport emTransport, const std::string& stream) {
    m_stream = stream;
    std::string transport = "RTP/AVP/TCP;unicast;interleaved=0-1";
    if (emTransport == ETransport::eUdp) {
        for (int tries = 0; m_nRtcp < 0 && tries < 1000; ++tries) {
            close(m_nRtp);
            m_nRtp = BindUdp(0, RECEIVE_BUFFER);
            m_nRtcp = LocalPort(m_nRtp) % 2 != 0 ? -1 : BindUdp(LocalPort(m_nRtp) + 1, 0);
        }
        const int port = LocalPort(m_nRtp);
        transport =
            "RTP/AVP;unicast;client_port=" + std::to_string(port) + "-" + std::to_string(port + 1);
    }
    Ask("DESCRIBE", "", "Accept: application/sdp\r\n");
    Ask("SETUP", "streamid=0", "Transport: " + transport + "\r\n");
    Ask("PLAY", "", "");
}

std::vector<CPeer> MakePeers(const CServer& server, size_t n, ETransport emTransport,
                             const std::string& stream) {
    std::vector<CPeer> peers;
    peers.reserve(n);
    for (size_t i = 0; i < n; ++i) {
        peers.emplace_back(server.Port());
        peers.back().Play(emTransport, stream);
    }
    return peers;
}

std::vector<uint8_t> MakePicture(size_t nPackets, size_t nPacket) {
    std::vector<uint8_t> picture;
    for (size_t i = 0; i < nPackets; ++i) {
        const bool last = i + 1 == nPackets;
        const size_t nSize = last ? nPacket / 2 : nPacket;
        const uint8_t head[WIRE_PREFIX_SIZE + RTP_HEADER_SIZE] = {
            '$',
            0,
            static_cast<uint8_t>(nSize >> 8),
            static_cast<uint8_t>(nSize & 0xFF),
            0x80,
            static_cast<uint8_t>(last ? 0x80 | 96 : 96)};
        picture.insert(picture.end(), std::begin(head), std::end(head));
        picture.insert(picture.end(), nSize - RTP_HEADER_SIZE, uint8_t{0x5A});
    }
    return picture;
}

void StampFrom(std::vector<uint8_t>& picture, uint16_t& wNext) {
    for (size_t pos = 0; pos < picture.size(); pos += SizeOfUnit(picture.data() + pos)) {
        picture[pos + 6] = static_cast<uint8_t>(wNext >> 8);
        picture[pos + 7] = static_cast<uint8_t>(wNext & 0xFF);
        ++wNext;
    }
}

void StampNext(std::vector<uint8_t>& picture) {
    static uint16_t wNext = 1;
    StampFrom(picture, wNext);
}

void Push(std::vector<uint8_t>& picture, int nStream, int nChannel) {
    RTSPServer_SendRealSteam(nChannel, nStream, picture.data(),
                             static_cast<int32_t>(picture.size()));
}
