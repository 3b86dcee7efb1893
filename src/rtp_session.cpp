// SPDX-License-Identifier: MIT
#include "rtp_session.h"

#include <strings.h>

#include <new>

#include "rtcp_session.h"
#include "rtsps_debug.h"
#include "rtsps_text.h"

namespace {

// Shortest units in which a sequence number, and in which a whole RTP header, is held.
constexpr int UNIT_SIZE_WITH_SEQUENCE = RTP_PREFIX_SIZE + RTP_OFFSET_TIMESTAMP;
constexpr int UNIT_SIZE_WITH_HEADER = RTP_PREFIX_SIZE + RTP_HEADER_SIZE;

void RaisePort(CBB_ADDR_T* pAddr) {
    CBB_SetAddrPort(pAddr, static_cast<uint16_t>(CBB_GetAddrPort(pAddr) + 1));
}

bool IsRtspText(const void* buf, int len) {
    return len >= RTP_PREFIX_SIZE && strncasecmp(static_cast<const char*>(buf), "RTSP", 4) == 0;
}

}  // namespace

CRtpSession::CRtpSession(ETRANS_MODE mode) : CSession(mode) {}

CRtpSession::~CRtpSession() {
    RTSPS_LOG(INFO, "Call CRtpSession Destructor!");
    close();
}

int CRtpSession::open(TRANS_INFO* pInfo) {
    if (inittransmitter(pInfo) == 0) {
        RTSPS_LOG(WARN, "error inittransmitter !");
        return -1;
    }
    if (GetTransMode() == UDP_MODE || GetTransMode() == RTPOVERRTSP_MODE) {
        open_rtcp(*pInfo);
    }
    return 0;
}

void CRtpSession::open_rtcp(const TRANS_INFO& info) {
    m_pRtcpSession.reset(new (std::nothrow) CRtcpSession(GetTransMode()));
    if (m_pRtcpSession == nullptr) {
        RTSPS_LOG(ERROR, "new m_rtcpSession error!;");
        return;
    }
    RTSPS_LOG(INFO, "rtcp create_new OK == [%d]", GetTransMode());
    if (GetTransMode() != UDP_MODE) {
        return;  // kept: never opened when interleaved, so no report leaves there
    }
    TRANS_INFO rtcpInfo = info;
    RaisePort(&rtcpInfo.clientAddr);
    RaisePort(&rtcpInfo.serverAddr);
    if (m_pRtcpSession->open(&rtcpInfo) != 0) {
        RTSPS_LOG(ERROR, "Open m_pRtcpSession error!;");
    }
}

void CRtpSession::gen_initial_params(int payload, unsigned int ssrc, int marker, int extension) {
    m_param = {};
    m_param.payload = payload;
    m_param.ssrc = ssrc;
    m_param.marker = marker;
    m_param.extension = extension;
}

int CRtpSession::send(void* buf, int len, int timeout) {
    CTransmitter* pTransmitter = GetTransmitter();
    if (pTransmitter == nullptr) {
        RTSPS_LOG(ERROR, "m_pTransmitter is NULL!!! ");
        return 0;
    }
    if (pTransmitter->get_status() != STAUTS_OK) {
        RTSPS_LOG(ERROR, "m_pTransmitter status mode [%d]!!", pTransmitter->mode());
        return 0;
    }
    // A reply takes the media's way so that both share the connection's pending buffer.
    if (GetTransMode() != RTPOVERRTSP_MODE || !IsRtspText(buf, len)) {
        buff_process(buf, len);
    }
    const int nResult = pTransmitter->SendPacket(buf, len, timeout);
    if (nResult < 0) {
        const int nError = GetSystemLastError();
        RTSPS_LOG(ERROR, "sendn packet failed,errno %d", nError);
    } else if (m_pRtcpSession != nullptr && m_pRtcpSession->is_time() != 0) {
        m_pRtcpSession->send_sr(timeout);
    }
    return nResult;
}

int CRtpSession::buff_process(void* buf, int len) {
    auto* pUnit = static_cast<uint8_t*>(buf);
    stamp_unit(pUnit, len);
    account_unit(pUnit, len);
    return 0;
}

int CRtpSession::send_burst(void* buf, int len, int* pnUnits) {
    CTransmitter* pTransmitter = GetTransmitter();
    if (pTransmitter == nullptr || pTransmitter->get_status() != STAUTS_OK) {
        return 0;
    }
    const CRtpBurst::CStamp stamp = {get_trans_info()->dwRtpSSRC, get_trans_info()->byTcpFlag};
    const CRtpBurst burst(static_cast<uint8_t*>(buf), len, pTransmitter->burst_kind(), stamp,
                          m_seq);
    if (burst.Units() < 2 || (m_pRtcpSession != nullptr && m_pRtcpSession->is_due())) {
        return 0;  // a report that is due leaves right behind the next unit
    }
    const int nTaken = pTransmitter->SendBurst(burst);
    if (nTaken == burst.Bytes()) {
        account_burst(burst);
        *pnUnits = burst.Units();
        return nTaken;
    }
    const int nTried = nTaken < 0 ? burst.UnitSize(0) : nTaken;
    int nUnits = 0;
    for (int nOffset = 0; nOffset < nTried; nOffset += burst.UnitSize(nOffset)) {
        account_unit(burst.Data() + nOffset, burst.UnitSize(nOffset));
        ++nUnits;
    }
    if (nTaken > 0) {
        *pnUnits = nUnits;
    }
    return nTaken;
}

void CRtpSession::stamp_unit(uint8_t* pUnit, int len) const {
    if (len >= UNIT_SIZE_WITH_HEADER) {
        WriteBe32(pUnit + RTP_PREFIX_SIZE + RTP_OFFSET_SSRC, get_trans_info()->dwRtpSSRC);
    }
    if (len >= RTP_PREFIX_SIZE && GetTransMode() == TCP_MODE) {
        // Kept: these four bytes are sent, with channel 0 and length 0.
        WriteRtpPrefix(pUnit, 0, 0);
    } else if (len >= RTP_PREFIX_SIZE && GetTransMode() == RTPOVERRTSP_MODE) {
        WriteRtpPrefix(pUnit, get_trans_info()->byTcpFlag, len - RTP_PREFIX_SIZE);
    }
}

// What account_unit does with each unit of a burst in turn: no sequence number in it is amiss.
void CRtpSession::account_burst(const CRtpBurst& burst) {
    m_seq = burst.NextSequence();
    if (m_pRtcpSession != nullptr) {
        m_pRtcpSession->count_packets(burst.LastUnit() + RTP_PREFIX_SIZE, 0,
                                      static_cast<uint32_t>(burst.Units()));
    }
}

void CRtpSession::account_unit(const uint8_t* pUnit, int len) {
    const uint8_t* pHeader = pUnit + RTP_PREFIX_SIZE;
    if (len >= UNIT_SIZE_WITH_SEQUENCE) {
        check_sequence(pHeader);
    }
    if (len >= UNIT_SIZE_WITH_HEADER && m_pRtcpSession != nullptr) {
        m_pRtcpSession->parse_rtp_packet(pHeader, 0);
    }
}

void CRtpSession::check_sequence(const uint8_t* pHeader) {
    if ((pHeader[RTP_OFFSET_PAYLOAD] & RTP_PAYLOAD_MASK) != RTP_PAYLOAD_VIDEO) {
        return;
    }
    const uint16_t nSequence = ReadBe16(pHeader + RTP_OFFSET_SEQUENCE);
    if (m_seq != 0 && m_seq != nSequence) {
        RTSPS_LOG(ERROR, "rtp seq error, cur[%d],except[%d]", nSequence, m_seq);
    }
    // Kept: after the wrap to 0 the next packet is not checked.
    m_seq = static_cast<uint16_t>(nSequence + 1);
}

int CRtpSession::get_rtcp_handle() const {
    if (m_pRtcpSession == nullptr || m_pRtcpSession->GetTransmitter() == nullptr) {
        return -1;
    }
    return m_pRtcpSession->get_handle();
}

int CRtpSession::close() {
    ReleaseTransmitter();
    if (m_pRtcpSession != nullptr) {
        m_pRtcpSession->close();
        m_pRtcpSession.reset();
    }
    return 0;
}
