// SPDX-License-Identifier: MIT
#include "rtsps_trans_ctrl.h"

#include <new>
#include <utility>

#include "rtp_session.h"
#include "rtsps_debug.h"
#include "rtsps_server.h"
#include "rtsps_server_api.h"
#include "rtsps_text.h"

CTransCtrl::CTransCtrl(CRtspSession* pRtspSession) : m_pRtspSession(pRtspSession) {}

CTransCtrl::~CTransCtrl() = default;

int CTransCtrl::SetVideoTransInfo(const TRANS_INFO* pInfo) {
    const CLockGuard guard(m_mutexMedia);
    m_stuVideoTransInfo = *pInfo;
    return 0;
}

int CTransCtrl::SetAudioTransInfo(const TRANS_INFO* pInfo) {
    const CLockGuard guard(m_mutexMedia);
    m_stuAudioTransInfo = *pInfo;
    return 0;
}

int CTransCtrl::Open(const tagRtspRequestCfg* /*pCfg*/, ETransStreamId id) {
    const CLockGuard guard(m_mutexMedia);
    switch (id) {
        case TRANS_STREAM_VIDEO:
            return open_video();
        case TRANS_STREAM_AUDIO:
            return open_audio();
    }
    RTSPS_LOG(ERROR, "Setup failed,unkown streamid[%d];", id);
    return -1;
}

int CTransCtrl::open_video() {
    if (!replace_session(m_stuVideoTransInfo, &m_pVideoSession, &m_supersededVideo)) {
        RTSPS_LOG(ERROR, "new m_pVideoSession error!;");
        if (m_pVideoSession != nullptr) {  // the record and the session in place stay a pair
            m_stuVideoTransInfo = *m_pVideoSession->get_trans_info();
        }
        return -1;
    }
    if (m_pVideoSession->open(&m_stuVideoTransInfo) != 0) {
        RTSPS_LOG(ERROR, "Open m_pVideoSession error!;");
        return -1;
    }
    m_pVideoSession->gen_initial_params(static_cast<int>(m_stuVideoTransInfo.dwRtpPT),
                                        m_stuVideoTransInfo.dwRtpSSRC, 0, 0);
    return 0;
}

int CTransCtrl::open_audio() {
    if (!replace_session(m_stuAudioTransInfo, &m_pAudioSession, &m_supersededAudio)) {
        RTSPS_LOG(ERROR, "new m_pAudioSession error!;");
        if (m_pAudioSession != nullptr) {
            m_stuAudioTransInfo = *m_pAudioSession->get_trans_info();
        }
        return -1;
    }
    RTSPS_LOG(INFO, "Initialize Audio mode == [%d]", m_stuAudioTransInfo.mode);
    if (m_pAudioSession->open(&m_stuAudioTransInfo) != 0) {
        RTSPS_LOG(ERROR, "Open m_pAudioSession error!;");
        return -1;
    }
    m_pAudioSession->gen_initial_params(static_cast<int>(m_stuAudioTransInfo.dwRtpPT),
                                        m_stuAudioTransInfo.dwRtpSSRC, 0, 0);
    return 0;
}

// Puts a new, unopened media session in place. False when none can be made or when too many were
// replaced already; the one in place then stays, since replies may go through it.
bool CTransCtrl::replace_session(const TRANS_INFO& info, std::unique_ptr<CRtpSession>* ppSession,
                                 CSupersededSessions* pSuperseded) {
    if (*ppSession != nullptr && pSuperseded->nCount == CSupersededSessions::MAX_KEPT) {
        return false;
    }
    std::unique_ptr<CRtpSession> pNew(new (std::nothrow) CRtpSession(info.mode));
    if (pNew == nullptr) {
        return false;
    }
    if (*ppSession != nullptr) {
        pSuperseded->pSessions[pSuperseded->nCount++] = std::move(*ppSession);
    }
    *ppSession = std::move(pNew);
    return true;
}

int CTransCtrl::Close() {
    std::unique_ptr<CRtpSession> pVideoSession;
    std::unique_ptr<CRtpSession> pAudioSession;
    CSupersededSessions supersededVideo;
    CSupersededSessions supersededAudio;
    TRANS_INFO videoInfo{};
    TRANS_INFO audioInfo{};
    {
        const CLockGuard guard(m_mutexMedia);
        m_pRtspSession = nullptr;
        pVideoSession = std::move(m_pVideoSession);
        pAudioSession = std::move(m_pAudioSession);
        std::swap(supersededVideo, m_supersededVideo);
        std::swap(supersededAudio, m_supersededAudio);
        videoInfo = m_stuVideoTransInfo;
        audioInfo = m_stuAudioTransInfo;
    }
    // Closing may join a transmitter's accept thread: no lock is held from here on.
    close_session(std::move(pVideoSession));
    close_session(std::move(pAudioSession));
    // Kept: the records are not cleared, so a second Close gives the same ports back again.
    give_back_port(videoInfo);
    give_back_port(audioInfo);
    close_superseded(&supersededVideo);
    close_superseded(&supersededAudio);
    return 0;
}

void CTransCtrl::close_session(std::unique_ptr<CRtpSession> pSession) {
    if (pSession != nullptr) {
        pSession->close();
    }
}

void CTransCtrl::close_superseded(CSupersededSessions* pSuperseded) {
    for (size_t i = 0; i < pSuperseded->nCount; ++i) {
        const TRANS_INFO info = *pSuperseded->pSessions[i]->get_trans_info();
        close_session(std::move(pSuperseded->pSessions[i]));
        give_back_port(info);
    }
}

void CTransCtrl::give_back_port(const TRANS_INFO& info) {
    const int nPort = CBB_GetAddrPort(&info.serverAddr);
    if (nPort != 0) {
        CRtspServer::Instance()->GivebackDataPort(nPort);
    }
}

int CTransCtrl::SendStream(void* data, int len, ETransStreamId id, int flag) {
    const CLockGuard guard(m_mutexMedia);
    auto* pUnits = static_cast<uint8_t*>(data);
    switch (id) {
        case TRANS_STREAM_VIDEO:
            return send_units(m_pVideoSession.get(), pUnits, len, flag, &m_videoTotals);
        case TRANS_STREAM_AUDIO:
            return send_units(m_pAudioSession.get(), pUnits, len, flag, &m_audioTotals);
    }
    return send_units(nullptr, pUnits, len, flag, &m_videoTotals);
}

int CTransCtrl::send_units(CRtpSession* pSession, uint8_t* pUnits, int len, int flag,
                           CStreamTotals* pTotals) {
    int nTotal = 0;
    while (pSession != nullptr && len - nTotal >= RTP_PREFIX_SIZE) {
        uint8_t* pUnit = pUnits + nTotal;
        int nUnits = 1;
        int nTaken = flag == 0 ? pSession->send_burst(pUnit, len - nTotal, &nUnits) : 0;
        if (nTaken < 0) {
            return nTotal;
        }
        if (nTaken == 0) {
            const int nUnit = ReadBe16(pUnit + RTP_PREFIX_OFFSET_LENGTH) + RTP_PREFIX_SIZE;
            if (nUnit > len - nTotal) {
                return nTotal;  // cut off by the host: never clamped and sent
            }
            nTaken = send_unit(pSession, pUnit, nUnit, flag);
            if (nTaken != nUnit) {
                return nTaken < 0 ? -1 : nTotal + nTaken;
            }
        }
        nTotal += nTaken;
        pTotals->nPackets += static_cast<uint64_t>(nUnits);
        pTotals->nBytes += static_cast<uint64_t>(nTaken - nUnits * RTP_PREFIX_SIZE);
    }
    return nTotal;
}

int CTransCtrl::send_unit(CRtpSession* pSession, uint8_t* pUnit, int nUnit, int flag) {
    const int nResult = pSession->send(pUnit, nUnit, flag);
    // The next client's walk needs the length, which separate TCP has overwritten.
    WriteBe16(pUnit + RTP_PREFIX_OFFSET_LENGTH, static_cast<uint16_t>(nUnit - RTP_PREFIX_SIZE));
    return nResult;
}

void CTransCtrl::GetTotals(tagRtspServerTotals* pTotals) {
    const CLockGuard guard(m_mutexMedia);
    pTotals->qwVideoPackets = m_videoTotals.nPackets;
    pTotals->qwVideoBytes = m_videoTotals.nBytes;
    pTotals->qwAudioPackets = m_audioTotals.nPackets;
    pTotals->qwAudioBytes = m_audioTotals.nBytes;
}

int CTransCtrl::SendMsg(void* buf, int len, int flag) {
    const CLockGuard guard(m_mutexMedia);
    // Kept: a client that has audio alone, or has torn down, gets no replies.
    if (m_pVideoSession == nullptr) {
        RTSPS_LOG(ERROR, "m_pVideoSession is NULL");
        return -1;
    }
    if (m_stuVideoTransInfo.mode == RTPOVERRTSP_MODE) {
        return m_pVideoSession->send(buf, len, flag);
    }
    return CBB_Sendn(m_stuVideoTransInfo.sockFd, buf, len, static_cast<uint32_t>(flag));
}
