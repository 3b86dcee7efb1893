// SPDX-License-Identifier: MIT
#ifndef RTCP_SESSION_H
#define RTCP_SESSION_H

#include <sys/time.h>

#include <cstdint>

#include "session.h"

// The RTCP side of one media stream (RFC 3550, 6.4.1): counts the packets sent and, while media is
// sent, sends a sender report about every 5 seconds. Incoming RTCP is never read.
// Not thread-safe: all fields are under the owning CTransCtrl's m_mutexMedia.
class CRtcpSession final : public CSession {
  public:
    explicit CRtcpSession(ETRANS_MODE mode) : CSession(mode) {}
    ~CRtcpSession() override;

    // Opens the transmitter on the RTCP ports in `pInfo`. Returns 0 or -1. A session that was never
    // opened counts packets but sends no report.
    [[nodiscard]] int open(TRANS_INFO* pInfo);
    int close();
    int get_handle() const { return GetTransmitter()->GetHandle(); }

    // Counts one RTP packet, of which `pHeader` holds at least 12 bytes. Returns 0.
    int parse_rtp_packet(const uint8_t* pHeader, int len);
    // Counts `nPackets` packets in a row; `pLastHeader` is the header of the last one.
    void count_packets(const uint8_t* pLastHeader, int len, uint32_t nPackets);

    // Whether the next is_time() returns 1 or schedules the first report.
    bool is_due() const;
    // Returns 1 when a report is due, and then schedules the next one 5 seconds later. The first
    // call only schedules the first report, and returns 0.
    uint32_t is_time();
    void calc_next_time();

    // Sends one report. Always returns 0.
    int send_sr(int timeout);

  private:
    bool is_reached(const timeval& now) const;

    uint32_t m_ssrc = 0;  // of the last packet, like the time stamp
    uint32_t m_pSend = 0;
    uint32_t m_oSend = 0;
    uint32_t m_lastTimeStamp = 0;
    uint32_t m_bFirst = 1;
    timeval m_preTime{};
    timeval m_nextTime{};
};

#endif
