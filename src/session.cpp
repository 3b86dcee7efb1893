// SPDX-License-Identifier: MIT
#include "session.h"

#include <new>

#include "mcast_transmitter.h"
#include "rtsps_debug.h"
#include "tcp_transmitter.h"
#include "udp_transmitter.h"

namespace {

template <class TTransmitter>
std::unique_ptr<CTransmitter> MakeOpened(ETRANS_MODE mode, TRANS_INFO* pInfo) {
    std::unique_ptr<CTransmitter> pTransmitter(new (std::nothrow) TTransmitter(mode));
    if (pTransmitter != nullptr && pTransmitter->open(pInfo) != 0) {
        pTransmitter.reset();
    }
    return pTransmitter;
}

}  // namespace

CSession::~CSession() {
    RTSPS_LOG(INFO, "Call Base CSession Destructor!");
    ReleaseTransmitter();
}

uint32_t CSession::inittransmitter(TRANS_INFO* pInfo) {
    const TRANS_INFO info = *pInfo;  // the caller may pass this session's own record
    // Kept (clients): [second-open] the record is cleared first, so after a refused second open the
    // open transmitter sends with SSRC 0 on channel 0.
    m_tranInfo = {};
    if (m_pTransmitter != nullptr) {
        RTSPS_LOG(ERROR, "m_pTransmitter != NULL, mode [%d]", m_mode);
        return 0;
    }
    m_tranInfo = info;
    switch (m_mode) {
        case UDP_MODE:
            m_pTransmitter = inittransmitter_udp(&m_tranInfo);
            break;
        case TCP_MODE:
            m_pTransmitter = inittransmitter_tcp(&m_tranInfo);
            break;
        case MCAST_MODE:
            m_pTransmitter = inittransmitter_mcast(&m_tranInfo);
            break;
        case RTPOVERRTSP_MODE:
            m_pTransmitter = inittransmitter_over_rtsp(&m_tranInfo);
            break;
        default:
            RTSPS_LOG(ERROR, "Unsupported! mode! [%d]", m_mode);
            break;
    }
    if (m_pTransmitter == nullptr) {
        RTSPS_LOG(ERROR, "Error m_pTransmitter == NULL! mode! [%d]", m_mode);
        return 0;
    }
    RTSPS_LOG(INFO, "inittransmitter OK, mode [%d]", m_mode);
    return 1;
}

void CSession::ReleaseTransmitter() {
    m_pTransmitter.reset();
}

std::unique_ptr<CTransmitter> CSession::inittransmitter_udp(TRANS_INFO* pInfo) {
    return MakeOpened<CUdpTransmitter>(m_mode, pInfo);
}

std::unique_ptr<CTransmitter> CSession::inittransmitter_tcp(TRANS_INFO* pInfo) {
    return MakeOpened<CTcpTransmitter>(m_mode, pInfo);
}

std::unique_ptr<CTransmitter> CSession::inittransmitter_mcast(TRANS_INFO* pInfo) {
    return MakeOpened<CMcastTransmitter>(m_mode, pInfo);
}

std::unique_ptr<CTransmitter> CSession::inittransmitter_over_rtsp(TRANS_INFO* pInfo) {
    return MakeOpened<CRtpOverRtspTransmitter>(m_mode, pInfo);
}
