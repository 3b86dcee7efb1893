// SPDX-License-Identifier: MIT
#include "rtsps_trans_ctrl.h"

#include <new>
#include <utility>

#include "rtp_session.h"
#include "rtsps_debug.h"
#include "rtsps_server.h"
#include "rtsps_server_api.h"

CTransCtrl::CTransCtrl(CRtspSession* pRtspSession) : m_pRtspSession(pRtspSession) {}

CTransCtrl::~CTransCtrl() = default;

CTransCtrl::CMediaStream CTransCtrl::video() {
    return {m_pVideoSession, m_stuVideoTransInfo, m_supersededVideo, m_videoTotals,
            "m_pVideoSession"};
}

CTransCtrl::CMediaStream CTransCtrl::audio() {
    return {m_pAudioSession, m_stuAudioTransInfo, m_supersededAudio, m_audioTotals,
            "m_pAudioSession"};
}

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
    if (id != TRANS_STREAM_VIDEO && id != TRANS_STREAM_AUDIO) {
        RTSPS_LOG(ERROR, "Setup failed,unkown streamid[%d];", id);
        return -1;
    }
    const CMediaStream stream = id == TRANS_STREAM_VIDEO ? video() : audio();
    if (!replace_session(stream)) {
        RTSPS_LOG(ERROR, "new %s error!;", stream.szSession);
        if (stream.pSession != nullptr) {  // the record must match the session that stays
            stream.stuTransInfo = *stream.pSession->get_trans_info();
        }
        return -1;
    }
    if (id == TRANS_STREAM_AUDIO) {
        RTSPS_LOG(INFO, "Initialize Audio mode == [%d]", stream.stuTransInfo.mode);
    }
    if (stream.pSession->open(&stream.stuTransInfo) != 0) {
        RTSPS_LOG(ERROR, "Open %s error!;", stream.szSession);
        return -1;
    }
    stream.pSession->gen_initial_params(static_cast<int>(stream.stuTransInfo.dwRtpPT),
                                        stream.stuTransInfo.dwRtpSSRC, 0, 0);
    return 0;
}

// Replaces the media session with a new, unopened one. Returns false when memory runs out or too
// many were replaced already. The old one then stays, because replies may go through it.
//
// Kept (clients): [repeated-setup] a repeated SETUP leaves the earlier media session open, with its
// port and socket, until the transport closes.
bool CTransCtrl::replace_session(const CMediaStream& stream) {
    CSupersededSessions& superseded = stream.superseded;
    if (stream.pSession != nullptr && superseded.nCount == CSupersededSessions::MAX_KEPT) {
        return false;
    }
    std::unique_ptr<CRtpSession> pNew(new (std::nothrow) CRtpSession(stream.stuTransInfo.mode));
    if (pNew == nullptr) {
        return false;
    }
    if (stream.pSession != nullptr) {
        superseded.pSessions[superseded.nCount++] = std::move(stream.pSession);
    }
    stream.pSession = std::move(pNew);
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
    // Closing may join a transmitter's accept thread. That thread takes no lock that the callers
    // may hold here (m_mutexClose).
    close_session(std::move(pVideoSession));
    close_session(std::move(pAudioSession));
    // Kept (operators): [ports-returned-twice] the records are not cleared, so a second Close gives
    // the same ports back a second time.
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

int CTransCtrl::SendStream(void* data, int len, ETransStreamId id, int timeout) {
    const CLockGuard guard(m_mutexMedia);
    auto* pUnits = static_cast<uint8_t*>(data);
    if (id != TRANS_STREAM_VIDEO && id != TRANS_STREAM_AUDIO) {
        return 0;
    }
    return send_units(id == TRANS_STREAM_VIDEO ? video() : audio(), pUnits, len, timeout);
}

int CTransCtrl::send_units(const CMediaStream& stream, uint8_t* pUnits, int len, int timeout) {
    CRtpSession* pSession = stream.pSession.get();
    int nTotal = 0;
    while (pSession != nullptr && len - nTotal >= RTP_PREFIX_SIZE) {
        const CSendResult result = pSession->send_units(pUnits + nTotal, len - nTotal, timeout);
        if (result.outcome == CSendResult::FAILED) {
            return -1;
        }
        nTotal += result.nBytes;
        if (result.outcome != CSendResult::SENT) {
            return nTotal;
        }
        stream.totals.nPackets += static_cast<uint64_t>(result.nUnits);
        stream.totals.nBytes +=
            static_cast<uint64_t>(result.nBytes - result.nUnits * RTP_PREFIX_SIZE);
    }
    return nTotal;
}

void CTransCtrl::GetTotals(tagRtspServerTotals* pTotals) {
    const CLockGuard guard(m_mutexMedia);
    pTotals->qwVideoPackets = m_videoTotals.nPackets;
    pTotals->qwVideoBytes = m_videoTotals.nBytes;
    pTotals->qwAudioPackets = m_audioTotals.nPackets;
    pTotals->qwAudioBytes = m_audioTotals.nBytes;
}

int CTransCtrl::SendMsg(void* buf, int len, int timeout) {
    const CLockGuard guard(m_mutexMedia);
    // Kept (clients): [replies-need-video] a client gets no replies when it has set up audio only,
    // and after its TEARDOWN.
    if (m_pVideoSession == nullptr) {
        RTSPS_LOG(ERROR, "m_pVideoSession is NULL");
        return -1;
    }
    if (m_stuVideoTransInfo.mode == RTPOVERRTSP_MODE) {
        return m_pVideoSession->send(buf, len, timeout);
    }
    return CBB_Sendn(m_stuVideoTransInfo.sockFd, buf, len, static_cast<uint32_t>(timeout));
}
