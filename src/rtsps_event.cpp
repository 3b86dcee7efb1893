// SPDX-License-Identifier: MIT
#include "rtsps_event.h"

#include <ctime>

#include "rtsps_session_mgr.h"
#include "rtsps_text.h"

namespace {

constexpr int NOT_DESCRIBED = -1;

thread_local bool t_bInCallBack = false;

// The monotonic clock cannot be set, so times since the connection never jump.
uint64_t MonotonicMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

}  // namespace

CSessionEvents::CSessionEvents() {
    CBB_SemCreate(&m_semDecided, 0);
}

CSessionEvents::~CSessionEvents() {
    CBB_SemDestroy(&m_semDecided);
}

bool CSessionEvents::InCallBack() {
    return t_bInCallBack;
}

void CSessionEvents::ReportRegistration(bool bRegistered) {
    if (!m_bExpected) {
        return;
    }
    m_bRegistered = bRegistered;
    m_bMayRaise.store(bRegistered, std::memory_order_release);
    CBB_SemPost(&m_semDecided);
}

void CSessionEvents::Begin(uint32_t dwSessionId, const CBB_ADDR_T& client) {
    if (!m_bExpected) {
        return;
    }
    CBB_SemWait(&m_semDecided);
    if (!m_bRegistered || !CRtspSessionManager::Instance()->HasEventCallBack()) {
        m_bMayRaise.store(false, std::memory_order_release);
        return;
    }
    m_dwSessionId = dwSessionId;
    m_nConnectedAtMs = MonotonicMs();
    m_info.dwSize = sizeof(m_info);
    m_info.nChan = NOT_DESCRIBED;
    m_info.nStreamType = NOT_DESCRIBED;
    m_info.dwClientPort = CBB_GetAddrPort(&client);
    const char* szAddr = CBB_GetAddrString(&client);
    TextCopy(m_info.szClientAddr, szAddr != nullptr ? szAddr : "");
    if (!raise(RTSPS_EVENT_CONNECTED, RTSPS_MEDIA_NONE)) {
        m_bMayRaise.store(false, std::memory_order_release);  // no function is set any more
    }
}

void CSessionEvents::Describe(int nChan, int nStreamType) {
    m_info.nChan = nChan;
    m_info.nStreamType = nStreamType;
    raise(RTSPS_EVENT_DESCRIBED, RTSPS_MEDIA_NONE);
}

void CSessionEvents::SetUp(uint32_t dwMedia, uint32_t dwTransport) {
    m_info.dwTransport = dwTransport;
    raise(RTSPS_EVENT_SETUP, dwMedia);
}

void CSessionEvents::Playing() {
    raise(RTSPS_EVENT_PLAYING, RTSPS_MEDIA_NONE);
}

void CSessionEvents::TornDown() {
    m_bTornDown = true;
    raise(RTSPS_EVENT_TORN_DOWN, RTSPS_MEDIA_NONE);
}

void CSessionEvents::End(const tagRtspServerTotals& totals) {
    int32_t nReason = m_reason.load(std::memory_order_acquire);
    if (m_bTornDown && nReason != RTSPS_CLOSE_SERVER_STOPPED) {
        nReason = RTSPS_CLOSE_TEARDOWN;  // whatever closed the connection afterwards
    }
    m_info.dwReason = static_cast<uint32_t>(nReason);
    m_info.stuTotals = totals;
    raise(RTSPS_EVENT_CLOSED, RTSPS_MEDIA_NONE);
}

void CSessionEvents::SetReason(RTSP_SERVER_CLOSE_REASON reason) {
    int32_t nNone = RTSPS_CLOSE_NONE;
    m_reason.compare_exchange_strong(nNone, reason, std::memory_order_acq_rel);
}

// Returns whether an event function was called.
bool CSessionEvents::raise(RTSP_SERVER_EVENT event, uint32_t dwMedia) {
    if (!MayRaise()) {
        return false;
    }
    m_info.dwMedia = dwMedia;
    m_info.qwConnectedMs = MonotonicMs() - m_nConnectedAtMs;
    tagRtspServerEventInfo info = m_info;  // a copy, because the host may write to it
    bool bHeard = true;
    t_bInCallBack = true;
    try {
        bHeard =
            CRtspSessionManager::Instance()->RaiseEvent(event, m_dwSessionId, &info, sizeof(info));
    } catch (...) {
        // An exception of the host must not end the session's thread.
    }
    t_bInCallBack = false;
    return bHeard;
}
