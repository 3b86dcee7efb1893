// SPDX-License-Identifier: MIT
// The floor of the whole-process benchmark: the least work that the kernel requires. A loop sends
// each access unit of the same stream to the same clients, over the same kind of sockets and at the
// same rate, with one call per access unit. It does nothing else; its reply to every request is
// 200.
#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <netinet/udp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "rtp_packetizer.h"
#include "video_source.h"
#include "wire.h"

namespace {

constexpr int FRAME_NANOSECONDS = 40000000;
constexpr int RTSP_SEND_BUFFER = 1048576;
constexpr int UDP_SEND_BUFFER = 524288;

struct CPeer {
    int fd = -1;
    int nMedia = -1;
    bool bUdp = false;
    bool bPlaying = false;
};

std::vector<std::vector<uint8_t>> ReadPictures(const char* pPath) {
    std::vector<std::vector<uint8_t>> pictures;
    CVideoSource video(EVideoCodec::eH264, false);
    CRtpPacketizer packetizer(96, 1);
    if (!video.Open(pPath))
        return pictures;
    for (;;) {
        const auto state = video.Fetch();
        if (state == CVideoSource::EState::eEnded || state == CVideoSource::EState::eFailed)
            return pictures;
        if (state != CVideoSource::EState::eReady)
            continue;
        pictures.emplace_back();
        packetizer.AppendPicture(EVideoCodec::eH264, video.Unit(),
                                 static_cast<uint32_t>(pictures.size() * 3600), pictures.back());
    }
}

void Answer(CPeer& peer) {
    char text[2048] = {};
    const ssize_t n = recv(peer.fd, text, sizeof(text) - 1, 0);
    if (n <= 0) {
        if (n == 0 || errno != EAGAIN) {
            close(peer.fd);
            close(peer.nMedia);
            peer = {};
        }
        return;
    }
    const char* pPort = std::strstr(text, "client_port=");
    if (std::strncmp(text, "SETUP", 5) == 0) {
        peer.bUdp = pPort != nullptr;
        peer.nMedia = peer.bUdp ? ConnectUdp(std::atoi(pPort + 12), UDP_SEND_BUFFER) : dup(peer.fd);
    }
    const char* pCseq = std::strstr(text, "CSeq: ");
    const std::string reply =
        "RTSP/1.0 200 OK\r\nCSeq: " + std::to_string(pCseq != nullptr ? std::atoi(pCseq + 6) : 0) +
        "\r\n\r\n";
    peer.bPlaying = std::strncmp(text, "PLAY", 4) == 0;
    if (send(peer.fd, reply.data(), reply.size(), MSG_NOSIGNAL) < 0)
        std::perror("bench_floor: send");
}

void Accept(int listener, std::vector<CPeer>& peers) {
    CPeer peer;
    while ((peer.fd = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC)) >= 0) {
        const int on = 1;
        setsockopt(peer.fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
        setsockopt(peer.fd, SOL_SOCKET, SO_SNDBUF, &RTSP_SEND_BUFFER, sizeof(RTSP_SEND_BUFFER));
        peers.push_back(peer);
    }
}

void StampSequence(std::vector<uint8_t>& units, uint16_t& wNext) {
    for (size_t pos = 0; pos < units.size(); pos += SizeOfUnit(units.data() + pos)) {
        units[pos + 6] = static_cast<uint8_t>(wNext >> 8);
        units[pos + 7] = static_cast<uint8_t>(wNext);
        ++wNext;
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("Usage: bench_floor PORT FILE\n", stderr);
        return 2;
    }
    auto pictures = ReadPictures(argv[2]);
    const int listener = ListenTcp(std::atoi(argv[1]), 256);
    const int timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    if (pictures.empty() || listener < 0 || timer < 0) {
        std::perror("bench_floor");
        return 1;
    }
    const itimerspec every = {{0, FRAME_NANOSECONDS}, {0, FRAME_NANOSECONDS}};
    timerfd_settime(timer, 0, &every, nullptr);
    std::puts("ready");
    std::fflush(stdout);

    std::vector<CPeer> peers;
    std::vector<pollfd> events;
    uint16_t wNext = 1;
    for (size_t nPicture = 0;;) {
        events.assign({{timer, POLLIN, 0}, {listener, POLLIN, 0}});
        // Clients send nothing while they play. In the server, one thread per client waits for
        // them.
        for (const CPeer& peer : peers)
            events.push_back({peer.bPlaying ? -1 : peer.fd, POLLIN, 0});
        poll(events.data(), events.size(), -1);
        for (size_t i = 2; i < events.size(); ++i) {
            if ((events[i].revents & (POLLIN | POLLHUP)) != 0)
                Answer(peers[i - 2]);
        }
        Accept(listener, peers);
        uint64_t nTicks = 0;
        if ((events[0].revents & POLLIN) == 0 || read(timer, &nTicks, sizeof(nTicks)) < 0)
            continue;
        auto& units = pictures[nPicture++ % pictures.size()];
        StampSequence(units, wNext);
        for (const CPeer& peer : peers) {
            if (!peer.bPlaying)
                continue;
            if (peer.bUdp)
                SendDatagrams(peer.nMedia, units.data(), units.size());
            else
                SendStream(peer.nMedia, units.data(), units.size());
        }
    }
}
