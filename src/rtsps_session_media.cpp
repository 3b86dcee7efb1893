// SPDX-License-Identifier: MIT
// The host's media pushes.
#include <algorithm>

#include "rtp_packet.h"
#include "rtsps_debug.h"
#include "rtsps_session.h"

namespace {

constexpr int OFFSET_PAYLOAD_TYPE = RTP_PREFIX_SIZE + RTP_OFFSET_PAYLOAD;
constexpr int NO_PAYLOAD_TYPE = -2;  // matches no stream

// Kept (hosts): [push-first-payload] the payload type of the first unit selects the stream for the
// whole push. Those of the other units are not read.
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
    // A TEARDOWN or a Close may have come first. The push is then dropped as a whole.
    if (!takes_push(chan, streamtype)) {
        return 0;
    }
    if (m_pTransCtrl == nullptr) {
        RTSPS_LOG(ERROR, "m_pTransCtrl is NULL");
        return -1;
    }
    const int nPayloadType = FirstPayloadType(data, len);
    // Kept (hosts): [equal-payload-types] video is compared first, so when both streams have the
    // same payload type, every push goes to video.
    const bool bVideo = nPayloadType == m_nVideoPT;
    if (!bVideo && nPayloadType != m_nAudioPT) {
        // Kept (hosts): [unknown-payload] this does not count as a short push, so it never ends a
        // client's session.
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
    // Kept (hosts): [push-not-set-up] a push of a stream that the client has not set up counts as a
    // short push.
    RTSPS_LOG(ERROR, "send failed,nLen=%d,nSendLen=%d,chan=%d, stream=%d,client=%s", len, nSent,
              chan, streamtype, client_text());
    if (count_short_send() > RTSPS_MAX_SHORT_PUSHES) {
        RTSPS_LOG(ERROR, "send failed over thresold and exit");
        end_from_push(RTSPS_CLOSE_TOO_SLOW);
    }
    return nSent;
}

// Counts a short push. Returns the number of short pushes in a row.
int CRtspSession::count_short_send() {
    ++m_nSndErrCounter;
    ++m_nShortSends;
    m_nLongestShortRun = std::max(m_nLongestShortRun, static_cast<uint32_t>(m_nSndErrCounter));
    return m_nSndErrCounter;
}

// Ends the session from a host's thread. SHUT_RD wakes the session's own thread, which may be
// waiting for the client, and sends nothing to the client. The socket stays open until the sweep.
void CRtspSession::end_from_push(RTSP_SERVER_CLOSE_REASON reason) {
    m_events.SetReason(reason);
    m_bQuit = true;
    CBB_ShutDown(m_sockfd, SHUT_RD);
}

tagRtspServerTotals CRtspSession::media_totals() {
    const CLockGuard guard(m_mutexSend);  // waits for a push in progress
    tagRtspServerTotals totals{};
    if (m_pTransCtrl != nullptr) {
        m_pTransCtrl->GetTotals(&totals);
    }
    totals.dwShortSends = m_nShortSends;
    totals.dwLongestShortRun = m_nLongestShortRun;
    return totals;
}

// Kept (hosts): [file-data-unsent] this sends nothing and returns success.
int CRtspSession::SendFileStream(void* /*data*/, int /*len*/) {
    const CLockGuard guard(m_mutexSend);
    return 0;
}
