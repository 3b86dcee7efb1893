// SPDX-License-Identifier: MIT
// The host's media pushes.
#include <algorithm>

#include "rtp_packet.h"
#include "rtsps_debug.h"
#include "rtsps_session.h"

namespace {

constexpr int OFFSET_PAYLOAD_TYPE = RTP_PREFIX_SIZE + RTP_OFFSET_PAYLOAD;
constexpr int NO_PAYLOAD_TYPE = -2;  // matches no stream

// Kept (hosts): [push-first-payload] the first unit decides for the whole push; the payload types
// of the others are not read.
int FirstPayloadType(const void* data, int len) {
    if (len <= OFFSET_PAYLOAD_TYPE) {
        return NO_PAYLOAD_TYPE;
    }
    return static_cast<const uint8_t*>(data)[OFFSET_PAYLOAD_TYPE] & RTP_PAYLOAD_MASK;
}

}  // namespace

bool CRtspSession::takes_push(int chan, int streamtype) const {
    return m_emRtspStat.load(std::memory_order_acquire) == RTSP_PLAY &&
           !m_bQuit.load(std::memory_order_acquire) && m_stuReqCfg.nReqType == 0 &&
           chan == m_stuReqCfg.nChan && streamtype == m_stuReqCfg.nStreamtype;
}

int CRtspSession::SendRealStream(int chan, int streamtype, void* data, int len) {
    if (!takes_push(chan, streamtype)) {
        return 0;
    }
    if (data == nullptr || len <= RTP_PREFIX_SIZE) {
        RTSPS_LOG(ERROR, "datalen[%d] is invalid", len);
        return 0;
    }
    const CLockGuard guard(m_mutexSend);
    // A TEARDOWN or a Close may have come first: the push is dropped as a whole.
    if (!takes_push(chan, streamtype)) {
        return 0;
    }
    if (m_pTransCtrl == nullptr) {
        RTSPS_LOG(ERROR, "m_pTransCtrl is NULL");
        return -1;
    }
    const int nPayloadType = FirstPayloadType(data, len);
    // Kept (hosts): [equal-payload-types] video first, so equal payload types always go to video.
    const bool bVideo = nPayloadType == m_nVideoPT;
    if (!bVideo && nPayloadType != m_nAudioPT) {
        // Kept (hosts): [unknown-payload] not counted as a short push, so a client is never ended
        // by it.
        RTSPS_LOG(ERROR, "unkown payload type");
        return -1;
    }
    const int nSent =
        m_pTransCtrl->SendStream(data, len, bVideo ? TRANS_STREAM_VIDEO : TRANS_STREAM_AUDIO, 0);
    if (nSent < 0) {
        RTSPS_LOG(ERROR, "send error and exit");
        end_from_push(RTSPS_CLOSE_CONNECTION_ERROR);
    }
    if (nSent == len) {
        m_nSndErrCounter = 0;
        return nSent;
    }
    // Kept (hosts): [push-not-set-up] a push of a stream that the client has not set up is a short
    // one too.
    RTSPS_LOG(ERROR, "send failed,nLen=%d,nSendLen=%d,chan=%d, stream=%d,client=%s", len, nSent,
              chan, streamtype, client_text());
    if (count_short_send() > RTSPS_MAX_SHORT_PUSHES) {
        RTSPS_LOG(ERROR, "send failed over thresold and exit");
        end_from_push(RTSPS_CLOSE_TOO_SLOW);
    }
    return nSent;
}

// The length of the run of short pushes.
int CRtspSession::count_short_send() {
    ++m_nSndErrCounter;
    ++m_nShortSends;
    m_nLongestShortRun = std::max(m_nLongestShortRun, static_cast<uint32_t>(m_nSndErrCounter));
    return m_nSndErrCounter;
}

// Ends the session on a host's thread. The session's own thread may wait for the client just then:
// it is woken in a way that puts nothing on the wire. The socket stays open until the sweep.
void CRtspSession::end_from_push(RTSP_SERVER_CLOSE_REASON reason) {
    m_events.SetReason(reason);
    m_bQuit = true;
    CBB_ShutDown(m_sockfd, SHUT_RD);
}

tagRtspServerTotals CRtspSession::media_totals() {
    const CLockGuard guard(m_mutexSend);  // waits for a push that is on its way
    tagRtspServerTotals totals{};
    if (m_pTransCtrl != nullptr) {
        m_pTransCtrl->GetTotals(&totals);
    }
    totals.dwShortSends = m_nShortSends;
    totals.dwLongestShortRun = m_nLongestShortRun;
    return totals;
}

// Kept (hosts): [file-data-unsent] sends nothing and reports success.
int CRtspSession::SendFileStream(void* /*data*/, int /*len*/) {
    const CLockGuard guard(m_mutexSend);
    return 0;
}
