// SPDX-License-Identifier: MIT
#include "rtp_session.h"

#include <new>

#include "rtcp_session.h"
#include "rtsps_debug.h"
#include "rtsps_text.h"

namespace {

// The shortest units that hold a sequence number and a whole RTP header.
constexpr int UNIT_SIZE_WITH_SEQUENCE = RTP_PREFIX_SIZE + RTP_OFFSET_TIMESTAMP;
constexpr int UNIT_SIZE_WITH_HEADER = RTP_PREFIX_SIZE + RTP_HEADER_SIZE;

// RTCP uses the port above that of RTP (RFC 3550, section 11).
void ToRtcpPort(CBB_ADDR_T* pAddr) {
    CBB_SetAddrPort(pAddr, static_cast<uint16_t>(CBB_GetAddrPort(pAddr) + 1));
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
    if (GetTransMode() != UDP_MODE && GetTransMode() != RTPOVERRTSP_MODE) {
        return 0;
    }
    m_pRtcpSession.reset(new (std::nothrow) CRtcpSession(GetTransMode()));
    if (m_pRtcpSession == nullptr) {
        RTSPS_LOG(ERROR, "new m_rtcpSession error!;");
        return 0;
    }
    RTSPS_LOG(INFO, "rtcp create_new OK == [%d]", GetTransMode());
    // Kept (clients): [rtcp-udp-only] RTCP is never opened in interleaved mode, so no report is
    // sent there.
    if (GetTransMode() == UDP_MODE && open_rtcp(*pInfo) != 0) {
        RTSPS_LOG(ERROR, "Open m_pRtcpSession error!;");
    }
    return 0;
}

int CRtpSession::open_rtcp(const TRANS_INFO& info) {
    TRANS_INFO rtcpInfo = info;
    ToRtcpPort(&rtcpInfo.clientAddr);
    ToRtcpPort(&rtcpInfo.serverAddr);
    return m_pRtcpSession->open(&rtcpInfo);
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
    if (GetTransMode() != RTPOVERRTSP_MODE || !IsReplyText(buf, len)) {
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
    StampUnit(pUnit, len, stamp());
    const uint16_t nExpected = m_seq;
    if (!account_unit(pUnit, len)) {
        RTSPS_LOG(ERROR, "rtp seq error, cur[%d],except[%d]",
                  ReadBe16(pUnit + RTP_PREFIX_SIZE + RTP_OFFSET_SEQUENCE), nExpected);
    }
    return 0;
}

CUnitStamp CRtpSession::stamp() const {
    CUnitStamp stamp = {get_trans_info()->dwRtpSSRC, CUnitStamp::LEFT_ALONE,
                        get_trans_info()->byTcpFlag};
    if (GetTransMode() == RTPOVERRTSP_MODE) {
        stamp.prefix = CUnitStamp::INTERLEAVED;
    } else if (GetTransMode() == TCP_MODE) {
        // Kept (clients): [tcp-empty-prefix] the prefix is sent too, with channel 0 and length 0.
        stamp.prefix = CUnitStamp::EMPTY;
    }
    return stamp;
}

CSendResult CRtpSession::send_units(uint8_t* pUnits, int len, int timeout) {
    if (timeout == 0) {
        const CSendResult result = send_burst(pUnits, len);
        if (result.outcome != CSendResult::SEND_ALONE) {
            return result;
        }
    }
    const int nUnit = UnitSize(pUnits);
    if (nUnit > len) {
        return {CSendResult::NOT_TAKEN};  // the push ends inside the unit: no part of it is sent
    }
    return send_alone(pUnits, nUnit, timeout);
}

CSendResult CRtpSession::send_burst(uint8_t* pUnits, int len) {
    CTransmitter* pTransmitter = GetTransmitter();
    if (pTransmitter == nullptr || pTransmitter->get_status() != STAUTS_OK) {
        return {CSendResult::SEND_ALONE};
    }
    const CRtpBurst burst(pUnits, len, pTransmitter->burst_kind(), stamp(), m_seq);
    if (burst.Units() < 2 || (m_pRtcpSession != nullptr && m_pRtcpSession->is_due())) {
        return {CSendResult::SEND_ALONE};  // a report that is due is sent after the next unit
    }
    const CSendResult result = pTransmitter->SendBurst(burst);
    account_burst(burst, result);
    return result;
}

CSendResult CRtpSession::send_alone(uint8_t* pUnit, int len, int timeout) {
    const int nResult = send(pUnit, len, timeout);
    // Separate TCP has overwritten the length, which the send to the next client reads.
    WriteBe16(pUnit + RTP_PREFIX_OFFSET_LENGTH, static_cast<uint16_t>(len - RTP_PREFIX_SIZE));
    if (nResult < 0) {
        return {CSendResult::FAILED};
    }
    return nResult == len ? CSendResult{CSendResult::SENT, len, 1}
                          : CSendResult{CSendResult::NOT_TAKEN, nResult};
}

// Does the work of account_unit for each unit whose send was tried.
void CRtpSession::account_burst(const CRtpBurst& burst, const CSendResult& result) {
    if (result.nUnits == burst.Units()) {  // all units at once: a burst has no sequence gap
        m_seq = burst.NextSequence();
        if (m_pRtcpSession != nullptr) {
            m_pRtcpSession->count_packets(burst.LastUnit() + RTP_PREFIX_SIZE, 0,
                                          static_cast<uint32_t>(burst.Units()));
        }
        return;
    }
    const int nTried = result.outcome == CSendResult::NOT_TAKEN ? burst.FirstSize() : result.nBytes;
    for (int nOffset = 0; nOffset < nTried;) {
        const uint8_t* pUnit = burst.Data() + nOffset;
        account_unit(pUnit, UnitSize(pUnit));
        nOffset += UnitSize(pUnit);
    }
}

// Returns false for a video unit with an unexpected sequence number.
bool CRtpSession::account_unit(const uint8_t* pUnit, int len) {
    const uint8_t* pHeader = pUnit + RTP_PREFIX_SIZE;
    const bool bAsExpected = len < UNIT_SIZE_WITH_SEQUENCE || CheckVideoSequence(pHeader, &m_seq);
    if (len >= UNIT_SIZE_WITH_HEADER && m_pRtcpSession != nullptr) {
        m_pRtcpSession->parse_rtp_packet(pHeader, 0);
    }
    return bAsExpected;
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
