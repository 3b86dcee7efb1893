// SPDX-License-Identifier: MIT
#include "rtsps_session_mgr.h"

#include <sys/time.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

#include "rtsps_debug.h"
#include "rtsps_never_destroyed.h"
#include "rtsps_session.h"

CRtspSessionManager* CRtspSessionManager::Instance() {
    static CNeverDestroyed<CRtspSessionManager> manager;
    return manager.Get();
}

int CRtspSessionManager::Init() {
    const CLockGuard guard(m_Mutex);
    ++m_nInitRef;
    return 0;
}

int CRtspSessionManager::Release() {
    const CLockGuard guard(m_Mutex);
    --m_nInitRef;
    return 0;
}

uint32_t CRtspSessionManager::GenerateSessionId() {
    constexpr uint32_t LOW_BITS = 0xF;
    const CLockGuard guard(m_Mutex);
    for (;;) {
        timeval now{};
        gettimeofday(&now, nullptr);
        // Kept (hosts): [srandom-per-id] the process-wide generator is seeded again for every id.
        // rtp_random.h warns hosts about it.
        srandom(static_cast<unsigned int>(now.tv_usec));
        const auto r1 = static_cast<uint32_t>(random());
        srandom(static_cast<unsigned int>(now.tv_usec) + 1);
        const auto r2 = static_cast<uint32_t>(random());
        const uint32_t dwId = (r1 & ~LOW_BITS) | (r2 & LOW_BITS);
        if (m_mapSession.find(dwId) != m_mapSession.end()) {
            RTSPS_LOG(ERROR, "Dup,SRC[0x%x]!!!!!!!!!!!!!", dwId);
            continue;
        }
        // Kept (operators): [new-id-line] every new id is printed, at level CRIT.
        RTSPS_LOG(CRIT, "New sessionID [0x%x]", dwId);
        return dwId;
    }
}

bool CRtspSessionManager::CanTakeSession() {
    {
        const CLockGuard guard(m_Mutex);
        if (has_room()) {
            return true;
        }
    }
    make_room();
    const CLockGuard guard(m_Mutex);
    return has_room();
}

int CRtspSessionManager::AddSession(CRtspSession* pSession) {
    bool bFull = false;
    {
        const CLockGuard guard(m_Mutex);
        m_bStopped = false;
        bFull = is_full();
    }
    if (bFull) {
        make_room();  // ended sessions must not keep new clients out
    }
    {
        const CLockGuard guard(m_Mutex);
        if (register_session(pSession)) {
            // Kept (operators): [registration-line] every registration is printed, at level CRIT
            // like the new id.
            RTSPS_LOG(CRIT, "m_maxSessions=%u, now has %u", m_maxSessions,
                      static_cast<uint32_t>(m_mapSession.size()));
            return 0;
        }
    }
    RTSPS_LOG(WARN, "ERROR! add_session,OverSize!!!");
    keep_refused(pSession);
    return -1;
}

bool CRtspSessionManager::register_session(CRtspSession* pSession) {
    const uint32_t dwId = pSession->GetSessionId();
    if (is_full()) {
        return false;
    }
    try {
        m_mapRef[dwId] = {};
        m_mapSession[dwId] = pSession;
    } catch (const std::bad_alloc&) {
        m_mapRef.erase(dwId);
        return false;
    }
    pSession->ReportRegistration(true);
    return true;
}

// Kept (clients): [refused-clients] a refused session continues without media, and Stop does not
// close it.
void CRtspSessionManager::keep_refused(CRtspSession* pSession) {
    pSession->ReportRegistration(false);
    {
        const CLockGuard guard(m_Mutex);
        if (m_refused.nCount < RTSPS_MAX_SESSIONS) {
            m_refused.pSessions[m_refused.nCount++] = pSession;
            return;
        }
    }
    pSession->Close();
    delete pSession;
}

void CRtspSessionManager::sweep_refused() {
    CRefusedSessions ended;
    {
        const CLockGuard guard(m_Mutex);
        size_t nKept = 0;
        for (size_t i = 0; i < m_refused.nCount; ++i) {
            CRtspSession* pSession = m_refused.pSessions[i];
            if (pSession->IsRunning()) {
                m_refused.pSessions[nKept++] = pSession;
            } else {
                ended.pSessions[ended.nCount++] = pSession;
            }
        }
        m_refused.nCount = nKept;
    }
    for (size_t i = 0; i < ended.nCount; ++i) {
        const std::unique_ptr<CRtspSession> pSession(ended.pSessions[i]);
        pSession->Close();
    }
}

bool CRtspSessionManager::IsLeftToItsThread(const CRtspSession* pSession) {
    const CLockGuard guard(m_Mutex);
    CRtspSession** const pEnd = m_refused.pSessions + m_refused.nCount;
    CRtspSession** const pFound = std::find(m_refused.pSessions, pEnd, pSession);
    if (!m_bStopped || pFound == pEnd) {
        return false;
    }
    *pFound = *(pEnd - 1);
    --m_refused.nCount;
    return true;
}

CRtspSession* CRtspSessionManager::getSession(uint32_t dwSessionId) {
    const CLockGuard guard(m_Mutex);
    const auto it = m_mapSession.find(dwSessionId);
    if (it == m_mapSession.end()) {
        return nullptr;
    }
    ++m_mapRef.find(dwSessionId)->second.nCount;
    return it->second;
}

CSessionList CRtspSessionManager::getSession() {
    CSessionList sessions;
    const CLockGuard guard(m_Mutex);
    auto itRef = m_mapRef.begin();  // both maps hold the same ids in the same order
    for (const auto& [dwId, pSession] : m_mapSession) {
        ++itRef->second.nCount;
        ++itRef;
        sessions.entries[sessions.nCount++] = {dwId, pSession};
    }
    return sessions;
}

void CRtspSessionManager::releaseSession(uint32_t dwSessionId) {
    const CLockGuard guard(m_Mutex);
    drop_reference(dwSessionId);
}

void CRtspSessionManager::releaseSession(const CRtspSession* pSession) {
    releaseSession(pSession->GetSessionId());
}

void CRtspSessionManager::releaseSession(const CSessionList& sessions) {
    const CLockGuard guard(m_Mutex);
    for (const tagSessionRef& entry : sessions) {
        drop_reference(entry.dwSessionId);
    }
}

void CRtspSessionManager::closeSession(int nSessionId) {
    const CLockGuard guard(m_Mutex);
    drop_registry_reference(static_cast<uint32_t>(nSessionId));
}

void CRtspSessionManager::closeSession(const CSessionList& sessions) {
    const CLockGuard guard(m_Mutex);
    for (const tagSessionRef& entry : sessions) {
        drop_registry_reference(entry.dwSessionId);
    }
}

void CRtspSessionManager::drop_reference(uint32_t dwSessionId) {
    const auto itRef = m_mapRef.find(dwSessionId);
    if (itRef == m_mapRef.end() || --itRef->second.nCount >= 1) {
        return;
    }
    const auto itSession = m_mapSession.find(dwSessionId);
    delete itSession->second;
    m_mapSession.erase(itSession);
    m_mapRef.erase(itRef);
}

void CRtspSessionManager::drop_registry_reference(uint32_t dwSessionId) {
    const auto it = m_mapRef.find(dwSessionId);
    if (it != m_mapRef.end() && it->second.bRegistry) {
        it->second.bRegistry = false;
        drop_reference(dwSessionId);
    }
}

int CRtspSessionManager::Close() {
    {
        const CLockGuard guard(m_Mutex);
        // Set before the sweep below: refused sessions that end after it free themselves.
        m_bStopped = true;
    }
    const CSessionList sessions = getSession();
    // The end of all sessions is requested first, so that they end in parallel.
    for (const tagSessionRef& entry : sessions) {
        entry.pSession->RequestQuit();
    }
    for (const tagSessionRef& entry : sessions) {
        entry.pSession->Close();
    }
    releaseSession(sessions);
    closeSession(sessions);
    sweep_refused();
    return 0;
}

int CRtspSessionManager::Close(unsigned int dwSessionId) {
    CRtspSession* pSession = getSession(dwSessionId);
    if (pSession == nullptr) {
        return -1;
    }
    const int nResult = pSession->Close();
    releaseSession(dwSessionId);
    closeSession(static_cast<int>(dwSessionId));
    return nResult;
}

void CRtspSessionManager::DelExceptionSession() {
    sweep_registered();
    sweep_refused();
}

void CRtspSessionManager::SweepEnded() {
    const CSessionList sessions = getSession();
    for (const tagSessionRef& entry : sessions) {
        // Only ended sessions are joined. A session whose end was only requested may be the
        // caller's own. It may also be in this loop and wait for the caller, or be inside the
        // host's event function.
        if (entry.pSession->HasEnded()) {
            entry.pSession->Close();
            closeSession(static_cast<int>(entry.dwSessionId));
        }
    }
    releaseSession(sessions);
    sweep_refused();  // the end of a refused session is never requested by another thread
}

// Returns whether sessions remain whose end was requested and that have not ended yet.
bool CRtspSessionManager::sweep_registered() {
    bool bLeftOver = false;
    const CSessionList sessions = getSession();
    for (const tagSessionRef& entry : sessions) {
        if (entry.pSession->IsRunning()) {
            continue;
        }
        if (entry.pSession->TryReap()) {
            closeSession(static_cast<int>(entry.dwSessionId));
        } else {
            bLeftOver = true;
        }
    }
    releaseSession(sessions);
    return bLeftOver;
}

// Sweeps a full registry, and waits a moment for sessions that are about to end.
void CRtspSessionManager::make_room() {
    for (int i = 0; sweep_registered() && i < ROOM_PAUSES; ++i) {
        CBB_Sleep(ROOM_PAUSE_MS);
    }
    sweep_refused();
}

// Kept (hosts): [push-result] the result is always 0, also when no client takes the push.
int CRtspSessionManager::SendRealStream(int nChan, int nStreamType, void* pData, int nLen) {
    const CSessionList sessions = getSession();
    for (size_t i = 0; i < sessions.nCount; ++i) {
        if (i + 1 < sessions.nCount) {
            // The send to one client evicts the other sessions from the cache.
            __builtin_prefetch(sessions.entries[i + 1].pSession);
        }
        sessions.entries[i].pSession->SendRealStream(nChan, nStreamType, pData, nLen);
    }
    releaseSession(sessions);
    return 0;
}

int CRtspSessionManager::SendFileStream(int nSessionId, void* pData, int nLen) {
    CRtspSession* pSession = getSession(static_cast<uint32_t>(nSessionId));
    if (pSession == nullptr) {
        return -1;
    }
    const int nResult = pSession->SendFileStream(pData, nLen);
    // Kept (hosts): [file-data-place] the reference of the first lookup is never released, so this
    // session is never destroyed. Those of later lookups are released, so that the count cannot
    // overflow.
    const CLockGuard guard(m_Mutex);
    CReferences& references = m_mapRef.find(static_cast<uint32_t>(nSessionId))->second;
    if (references.bFileData) {
        drop_reference(static_cast<uint32_t>(nSessionId));
    } else {
        references.bFileData = true;
    }
    return nResult;
}

int CRtspSessionManager::SetEventCallBack(pRtspServerEventCallBack pCallBack, void* pUserData) {
    const CLockGuard guard(m_Mutex);
    m_pEventCallBack = pCallBack;
    m_pEventUserData = pUserData;
    return 0;
}

bool CRtspSessionManager::HasEventCallBack() {
    const CLockGuard guard(m_Mutex);
    return m_pEventCallBack != nullptr;
}

bool CRtspSessionManager::RaiseEvent(int nEvent, uint32_t dwSessionId, void* pData, int nLen) {
    pRtspServerEventCallBack pCallBack = nullptr;
    void* pUserData = nullptr;
    {
        const CLockGuard guard(m_Mutex);
        pCallBack = m_pEventCallBack;
        pUserData = m_pEventUserData;
    }
    if (pCallBack == nullptr) {
        return false;
    }
    pCallBack(nEvent, static_cast<int32_t>(dwSessionId), pData, nLen, pUserData);
    return true;
}

uint32_t CRtspSessionManager::GetCurrSessionNums() {
    const CLockGuard guard(m_Mutex);
    return static_cast<uint32_t>(m_mapSession.size());
}

uint32_t CRtspSessionManager::GetMaxsessionNums() {
    const CLockGuard guard(m_Mutex);
    return m_maxSessions;
}
