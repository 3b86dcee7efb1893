// SPDX-License-Identifier: MIT
#include "rtsps_server.h"

#include <new>
#include <utility>

#include "cbb.h"
#include "net_port_pool.h"
#include "rtsps_debug.h"
#include "rtsps_listener.h"
#include "rtsps_never_destroyed.h"

namespace {

// Kept (hosts): [stream-key] both halves are sign-extended. A negative stream number sets all bits
// of the channel's half, so all channels share one record for it.
uint64_t StreamInfoKey(int nChan, int nStreamType) {
    const auto nHigh = static_cast<uint64_t>(static_cast<int64_t>(nChan)) << 32;
    return nHigh | static_cast<uint64_t>(static_cast<int64_t>(nStreamType));
}

}  // namespace

CRtspServer* CRtspServer::Instance() {
    static CNeverDestroyed<CRtspServer> server;
    return server.Get();
}

CRtspServer::CRtspServer() = default;

CRtspServer::~CRtspServer() = default;

int CRtspServer::Init(const TRtspServerPara* pPara) {
    const CLockGuard guard(m_Mutex);
    ++m_nInitRef;
    // Kept (hosts): [init-first-counts] later calls change neither the configuration nor the debug
    // switch.
    if (m_nInitRef >= 2) {
        return 0;
    }
    if (CBB_InitNetwork_Inter() < 0) {
        RTSPS_LOG(ERROR, "init failed");
        // Kept (hosts): [failed-init-counts] an initialisation that fails stays counted.
        return -1;
    }
    // Kept (hosts): [config-unused] szMultiAddr, szUserName and szPasswd are stored, but no code
    // reads them.
    m_stuPara = pPara != nullptr ? *pPara : TRtspServerPara{};
    CDebugInfo::Instance()->SetDebugSwitch(m_stuPara.byDbg != 0);
    return 0;
}

int CRtspServer::Release() {
    const CLockGuard guard(m_Mutex);
    // Kept (hosts): [release-no-floor] the count may become negative. After one Release too many,
    // Start fails until Init is called twice.
    --m_nInitRef;
    if (m_nInitRef < 1) {
        CBB_FiniNetwork_Inter();
    }
    return 0;
}

int CRtspServer::Start() {
    const CLockGuard startStop(m_mutexStartStop);
    const CLockGuard guard(m_Mutex);
    if (m_bStarted) {
        RTSPS_LOG(WARN, "already started....");
        return 0;
    }
    const char* szFault = create_parts();
    if (szFault != nullptr) {
        RTSPS_LOG(ERROR, "%s", szFault);
        m_pListener.reset();
        m_pPortQueue.reset();
        return -1;
    }
    m_bStarted = true;
    return 0;
}

// Returns the text to print when a part fails, else null. The pool is created before the listener
// opens, because the first client may need a port at once.
const char* CRtspServer::create_parts() {
    if (m_nInitRef <= 0) {
        return "Start failed,not init";
    }
    m_pListener.reset(new (std::nothrow) CRtspListener);
    if (m_pListener == nullptr) {
        return "new(std::nothrow) CRtspListener failed ";
    }
    // Kept (hosts): [port-range-16-bits] only the low 16 bits of the range count: 70000 is port
    // 4464.
    m_pPortQueue.reset(CNet_PortPool::create_new(static_cast<uint16_t>(m_stuPara.nMinPort),
                                                 static_cast<uint16_t>(m_stuPara.nMaxPort)));
    if (m_pPortQueue == nullptr) {
        return "CNet_PortPool::create_new ";
    }
    if (m_pListener->Open(static_cast<int>(m_stuPara.nServerPort)) == -1) {
        return "m_pListener open error";
    }
    return nullptr;
}

int CRtspServer::Stop() {
    const CLockGuard startStop(m_mutexStartStop);
    std::unique_ptr<CRtspListener> pListener;
    {
        const CLockGuard guard(m_Mutex);
        pListener = std::move(m_pListener);
    }
    if (pListener != nullptr) {
        pListener->Close();  // joins the accept thread, which gives ports back in its sweep
    }
    const CLockGuard guard(m_Mutex);
    m_pPortQueue.reset();
    m_bStarted = false;
    return 0;
}

int CRtspServer::SetStreamInfo(int nChan, int nStreamType, const TRtspServerStreamInfo* pPara) {
    if (pPara == nullptr) {
        return 0;
    }
    const CLockGuard guard(m_Mutex);
    try {
        m_mapStreamInfo[StreamInfoKey(nChan, nStreamType)] = *pPara;
    } catch (const std::bad_alloc&) {
        return -1;
    }
    return 0;
}

int CRtspServer::GetStreamInfo(int nChan, int nStreamType, TRtspServerStreamInfo* pPara) {
    const CLockGuard guard(m_Mutex);
    const auto it = m_mapStreamInfo.find(StreamInfoKey(nChan, nStreamType));
    if (it == m_mapStreamInfo.end()) {
        return -1;
    }
    *pPara = it->second;
    return 0;
}

int CRtspServer::GetPara(TRtspServerPara* pPara) {
    const CLockGuard guard(m_Mutex);
    *pPara = m_stuPara;
    return 0;
}

int CRtspServer::BorrowDataPort() {
    const CLockGuard guard(m_Mutex);
    return m_pPortQueue == nullptr ? 0 : m_pPortQueue->get_port_pair();
}

int CRtspServer::GivebackDataPort(int port) {
    const CLockGuard guard(m_Mutex);
    if (port != 0 && m_pPortQueue != nullptr) {
        m_pPortQueue->reuse_port_pair(static_cast<uint16_t>(port));
    }
    return 0;
}

uint32_t CRtspServer::FreeDataPorts() const {
    const CLockGuard guard(m_Mutex);
    return m_pPortQueue != nullptr ? m_pPortQueue->get_curr_size() : 0;
}
