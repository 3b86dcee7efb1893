// SPDX-License-Identifier: MIT
#ifndef RTCP_SESSION_H
#define RTCP_SESSION_H

#include <sys/time.h>

#include <cstdint>

#include "session.h"

// The RTCP side of one media stream (RFC 3550, 6.4.1): counts what is sent and emits a sender
// report every 5 seconds at most, while media is being sent. Incoming RTCP is never read.
// Not thread-safe: all fields are under the owning CTransCtrl's m_mutexMedia.
class CRtcpSession final : public CSession {
  public:
    explicit CRtcpSession(ETRANS_MODE mode) : CSession(mode) {}
    ~CRtcpSession() override;

    // Opens the path on the RTCP ports in `pInfo`; 0 or -1. A session that was never opened
    // counts, and sends nothing.
    [[nodiscard]] int open(TRANS_INFO* pInfo);
    int close();
    int get_handle() const { return GetTransmitter()->GetHandle(); }

    // Accounts one RTP packet, given its header of at least 12 bytes; 0.
    int parse_rtp_packet(const uint8_t* pHeader, int len);
    // The same for `nPackets` in a row, given the header of the last one.
    void count_packets(const uint8_t* pLastHeader, int len, uint32_t nPackets);

    // Whether the next is_time() does anything but say 0.
    bool is_due() const;
    // 1 when a report is due; the next one is then 5 seconds off.
    uint32_t is_time();
    void calc_next_time();

    // Sends one report; 0, whatever happens.
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
