// SPDX-License-Identifier: MIT
#ifndef RTP_SESSION_H
#define RTP_SESSION_H

#include <cstdint>
#include <memory>

#include "rtp_packet.h"
#include "session.h"

class CRtcpSession;

// One media stream of one client: writes the stream's SSRC and the prefix of the transport into
// each unit, and passes the unit to the transmitter. Not thread-safe: all fields are under the
// owning CTransCtrl's m_mutexMedia.
class CRtpSession final : public CSession {
  public:
    explicit CRtpSession(ETRANS_MODE mode);
    ~CRtpSession() override;

    // Creates and opens the transmitter and, over UDP, the RTCP session on the next higher ports.
    // Returns 0 or -1. When only RTCP cannot be opened, the result is 0, and no reports are sent.
    [[nodiscard]] int open(TRANS_INFO* pInfo);
    void gen_initial_params(int payload, unsigned int ssrc, int marker, int extension);

    // Sends one unit of `len` bytes: a 4-byte prefix and an RTP packet, or in interleaved mode the
    // text of an RTSP reply. Writes into `buf`. Returns the result of CTransmitter::SendPacket, or
    // 0 when there is no usable transmitter.
    int send(void* buf, int len, int timeout);

    // Sends the first unit of a run of `len` bytes, which holds at least a prefix. With a time-out
    // of 0 it also sends the units after it that fit the same system call. The lengths in the
    // prefixes are unchanged afterwards. The result is never SEND_ALONE.
    CSendResult send_units(uint8_t* pUnits, int len, int timeout);

    // Stamps one unit in place (see StampUnit) and counts it. Returns 0.
    int buff_process(void* buf, int len);

    int get_rtcp_handle() const;
    int close();

  private:
    int open_rtcp(const TRANS_INFO& info);
    CUnitStamp stamp() const;
    CSendResult send_burst(uint8_t* pUnits, int len);
    CSendResult send_alone(uint8_t* pUnit, int len, int timeout);
    void account_burst(const CRtpBurst& burst, const CSendResult& result);
    bool account_unit(const uint8_t* pUnit, int len);

    std::unique_ptr<CRtcpSession> m_pRtcpSession;
    rtp_param m_param{};  // informational: sending does not read it
    uint16_t m_seq = 0;   // next expected sequence number, payload type 96 only; 0: none expected
};

#endif
