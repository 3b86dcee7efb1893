// SPDX-License-Identifier: MIT
#include "rtcp_session.h"

#include "rtcp_packet.h"
#include "rtp_packet.h"
#include "rtsps_debug.h"
#include "rtsps_text.h"

namespace {

constexpr time_t REPORT_INTERVAL_SEC = 5;
// When the next report is further away than this, the clock was set back.
constexpr time_t CLOCK_STEP_SEC = 11;
constexpr uint32_t NTP_EPOCH_OFFSET = 2208988800U;  // seconds from 1900 to 1970
constexpr int SENDER_REPORT_SIZE = 28;
constexpr uint16_t SENDER_REPORT_WORDS = SENDER_REPORT_SIZE / 4 - 1;

}  // namespace

CRtcpSession::~CRtcpSession() {
    close();
}

int CRtcpSession::open(TRANS_INFO* pInfo) {
    if (inittransmitter(pInfo) == 0) {
        RTSPS_LOG(ERROR, "Err , CRtcpSession inittransmitter!");
        return -1;
    }
    return 0;
}

int CRtcpSession::close() {
    ReleaseTransmitter();
    return 0;
}

int CRtcpSession::parse_rtp_packet(const uint8_t* pHeader, int len) {
    count_packets(pHeader, len, 1);
    return 0;
}

void CRtcpSession::count_packets(const uint8_t* pLastHeader, int len, uint32_t nPackets) {
    m_ssrc = ReadBe32(pLastHeader + RTP_OFFSET_SSRC);
    m_lastTimeStamp = ReadBe32(pLastHeader + RTP_OFFSET_TIMESTAMP);
    m_pSend += nPackets;
    // Kept (clients): [report-octets] the callers pass a length of 0, so every packet reduces the
    // octet count by 12, modulo 2^32.
    m_oSend += nPackets * static_cast<uint32_t>(len - RTP_HEADER_SIZE);
}

void CRtcpSession::calc_next_time() {
    gettimeofday(&m_nextTime, nullptr);
    // Kept (clients): [report-interval] only whole seconds are compared, so a report may be sent
    // little more than 4 s after the start or after the last report.
    m_nextTime.tv_sec += REPORT_INTERVAL_SEC;
}

bool CRtcpSession::is_due() const {
    timeval now{};
    gettimeofday(&now, nullptr);
    return m_bFirst != 0 || is_reached(now);
}

bool CRtcpSession::is_reached(const timeval& now) const {
    return m_nextTime.tv_sec <= now.tv_sec || m_nextTime.tv_sec - now.tv_sec >= CLOCK_STEP_SEC;
}

uint32_t CRtcpSession::is_time() {
    if (m_bFirst != 0) {
        m_bFirst = 0;
        gettimeofday(&m_preTime, nullptr);
        calc_next_time();
        return 0;
    }
    timeval now{};
    gettimeofday(&now, nullptr);
    if (!is_reached(now)) {
        return 0;
    }
    calc_next_time();
    return 1;
}

int CRtcpSession::send_sr(int timeout) {
    CTransmitter* pTransmitter = GetTransmitter();
    if (pTransmitter == nullptr) {
        return 0;
    }
    timeval now{};
    gettimeofday(&now, nullptr);
    // Kept (clients): [report-alone] the sender report has no report blocks and is sent without the
    // SDES packet that RFC 3550 requires.
    uint8_t packet[RTP_PREFIX_SIZE + SENDER_REPORT_SIZE] = {};
    uint8_t* pReport = packet + RTP_PREFIX_SIZE;
    pReport[0] = RTP_VERSION << 6;
    pReport[1] = RTCP_SR;
    WriteBe16(pReport + 2, SENDER_REPORT_WORDS);
    WriteBe32(pReport + 4, m_ssrc);
    WriteBe32(pReport + 8, static_cast<uint32_t>(now.tv_sec) + NTP_EPOCH_OFFSET);
    // Kept (clients): [report-fraction] the fraction is in microseconds, not in units of 2^-32 s.
    WriteBe32(pReport + 12, static_cast<uint32_t>(now.tv_usec));
    WriteBe32(pReport + 16, m_lastTimeStamp);
    WriteBe32(pReport + 20, m_pSend);
    WriteBe32(pReport + 24, m_oSend);
    if (GetTransMode() == RTPOVERRTSP_MODE) {
        packet[0] = '$';
        packet[1] = get_trans_info()->byTcpRtcpFlag;
        WriteBe16(packet + 2, SENDER_REPORT_SIZE);
        pTransmitter->SendPacket(packet, sizeof(packet), timeout);
    } else {
        // Kept (clients): [report-without-header] the report is passed without a 4-byte prefix, so
        // the UDP transmitter removes the common header instead. The datagram holds the 24 bytes
        // that begin with the SSRC.
        pTransmitter->SendPacket(pReport, SENDER_REPORT_SIZE, timeout);
    }
    return 0;
}
