// SPDX-License-Identifier: MIT
#ifndef RTP_SESSION_H
#define RTP_SESSION_H

#include <cstdint>
#include <memory>

#include "rtp_packet.h"
#include "session.h"

class CRtcpSession;

// One media stream of one client: stamps each unit with the stream's SSRC and the prefix that suits
// the transport, and hands it to the transmitter. Not thread-safe: CTransCtrl serialises.
class CRtpSession final : public CSession {
  public:
    explicit CRtpSession(ETRANS_MODE mode);
    ~CRtpSession() override;

    // Makes the transmitter, and over UDP the RTCP path on the ports above; 0 or -1.
    [[nodiscard]] int open(TRANS_INFO* pInfo);
    void gen_initial_params(int payload, unsigned int ssrc, int marker, int extension);

    // Sends one unit of `len` bytes: a 4-byte prefix and an RTP packet, or in interleaved mode the
    // text of an RTSP reply. Writes into `buf`. Returns the transmitter's result: `len` when it was
    // taken, 0 when not or when there is no usable transmitter, negative on a socket error.
    int send(void* buf, int len, int timeout);

    // Sends several units of a run in one system call, without waiting, where nobody outside can
    // tell that from send(). Returns the bytes of the units taken, and stores their number; 0 when
    // the next unit has to go through send(), -1 when it was not taken (where send() returns 0).
    int send_burst(void* buf, int len, int* pnUnits);

    // Stamps one unit in place, touching only what it holds; 0.
    int buff_process(void* buf, int len);

    int get_rtcp_handle() const;
    int close();

  private:
    void open_rtcp(const TRANS_INFO& info);
    void stamp_unit(uint8_t* pUnit, int len) const;
    void account_burst(const CRtpBurst& burst);
    void account_unit(const uint8_t* pUnit, int len);
    void check_sequence(const uint8_t* pHeader);

    std::unique_ptr<CRtcpSession> m_pRtcpSession;
    rtp_param m_param{};  // informational: nothing in sending reads it
    uint16_t m_seq = 0;   // next expected sequence number of video; 0: none expected
};

#endif
