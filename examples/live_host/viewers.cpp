// SPDX-License-Identifier: MIT
#include "viewers.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace {

const char* StreamName(int32_t nStreamType) {
    static const char* const NAMES[] = {"main", "sub", "third"};
    return nStreamType >= 0 && nStreamType <= RTSPS_STREAM_THIRD ? NAMES[nStreamType] : "?";
}

const char* TransportName(uint32_t dwTransport) {
    switch (dwTransport) {
        case RTSPS_TRANSPORT_UDP:
            return "UDP";
        case RTSPS_TRANSPORT_TCP:
            return "separate TCP connections";
        case RTSPS_TRANSPORT_INTERLEAVED:
            return "the RTSP connection";
        default:
            return "no transport";
    }
}

const char* ReasonText(uint32_t dwReason) {
    switch (dwReason) {
        case RTSPS_CLOSE_CLIENT_LEFT:
            return "client closed the connection";
        case RTSPS_CLOSE_TEARDOWN:
            return "client sent TEARDOWN";
        case RTSPS_CLOSE_REFUSED:
            return "request refused";
        case RTSPS_CLOSE_TOO_SLOW:
            return "client too slow";
        case RTSPS_CLOSE_CONNECTION_ERROR:
            return "connection error";
        case RTSPS_CLOSE_SERVER_STOPPED:
            return "server stopped";
        default:
            return "unknown reason";
    }
}

void PrintClosed(const TRtspServerEventInfo& info) {
    const TRtspServerTotals& totals = info.stuTotals;
    std::printf("%s:%u ended after %.1f s: %s (%llu video and %llu audio packets, %.1f MB)\n",
                info.szClientAddr, info.dwClientPort,
                static_cast<double>(info.qwConnectedMs) / 1000.0, ReasonText(info.dwReason),
                static_cast<unsigned long long>(totals.qwVideoPackets),
                static_cast<unsigned long long>(totals.qwAudioPackets),
                static_cast<double>(totals.qwVideoBytes + totals.qwAudioBytes) / 1e6);
}

}  // namespace

CViewers::CViewers() : m_cueFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

CViewers::~CViewers() {
    if (m_cueFd >= 0)
        close(m_cueFd);
}

void CViewers::OnEvent(int32_t nEvent, int32_t nSessionId, void* pData, int32_t nLen,
                       void* pUserData) {
    auto* pSelf = static_cast<CViewers*>(pUserData);
    TRtspServerEventInfo info = {};
    if (nLen < static_cast<int32_t>(sizeof(info)))
        return;
    std::memcpy(&info, pData, sizeof(info));
    switch (nEvent) {
        case RTSPS_EVENT_PLAYING:
            std::printf("%s:%u watches chan%d/%s over %s\n", info.szClientAddr, info.dwClientPort,
                        info.nChan, StreamName(info.nStreamType), TransportName(info.dwTransport));
            pSelf->Plays(nSessionId);
            break;
        case RTSPS_EVENT_TORN_DOWN:
            pSelf->Gone(nSessionId);
            break;
        case RTSPS_EVENT_CLOSED:
            pSelf->Gone(nSessionId);
            PrintClosed(info);
            break;
        default:
            break;
    }
}

// In this example "main" and "sub" carry the same pictures, so viewers of both count.
void CViewers::Plays(int32_t nSessionId) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_playing.insert(nSessionId);
    const uint64_t wish = 1;
    if (m_playing.size() == 1 && write(m_cueFd, &wish, sizeof(wish)) < 0)
        std::perror("live_host: eventfd");
}

void CViewers::Gone(int32_t nSessionId) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_playing.erase(nSessionId);
}

void CViewers::TakeCue() const {
    uint64_t wishes = 0;
    if (read(m_cueFd, &wishes, sizeof(wishes)) < 0)
        std::perror("live_host: eventfd");
}
