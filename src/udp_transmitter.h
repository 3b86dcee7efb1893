// SPDX-License-Identifier: MIT
#ifndef UDP_TRANSMITTER_H
#define UDP_TRANSMITTER_H

#include <climits>

#include "transmitter.h"

// Unicast UDP: one socket, bound to the borrowed port and connected to the client's.
class CUdpTransmitter final : public CTransmitter {
  public:
    explicit CUdpTransmitter(ETRANS_MODE mode);
    ~CUdpTransmitter() override;

    int open_extra(TRANS_INFO* pInfo) override;
    int SendPacket(void* buf, int len, int timeout) override;
    int RecvPacket(void* buf, int len, int timeout) override;
    CRtpBurst::EKind burst_kind() const override;
    CSendResult SendBurst(const CRtpBurst& burst) override;
    int GetHandle() override { return m_Sockfd; }
    int SetHandle(int fd) override;
    using CTransmitter::Connect;
    int Accept() override { return -1; }

    int Close();
    int Connect(CBB_ADDR_T* pAddr);
    int SetBufferSize(int nSend, int nRecv);

  private:
    // When the client's port is closed, the client's machine answers each datagram with an ICMP
    // error, called a refusal here. A later send on this socket fails with it. With one call per
    // unit, the unit after the refused one fails. With bursts, the call after the burst would fail.
    // So after the first refusal, each burst needs a single packet before it that was sent without
    // an error.
    //
    //   from                 on                                             to
    //   NEVER_REFUSED,       an error of a refusal before or in the send    SINGLE_FIRST
    //     SINGLE_LEFT          of a burst
    //   NEVER_REFUSED,       a refusal right after the send of a burst      REFUSAL_OWED
    //     SINGLE_LEFT
    //   SINGLE_LEFT          the send of a burst, taken or not              SINGLE_FIRST
    //   REFUSAL_OWED         the next packet, which is not taken            SINGLE_FIRST
    //   SINGLE_FIRST,        a single packet is sent                        SINGLE_LEFT
    //     SINGLE_LEFT
    //   SINGLE_FIRST,        a single packet is not taken                   SINGLE_FIRST
    //     SINGLE_LEFT
    //
    // NEVER_REFUSED does not change when single packets are sent or fail.
    enum ERefusal {
        NEVER_REFUSED,  // bursts are allowed
        REFUSAL_OWED,   // a refusal was read from the socket; the next packet has to report it
        SINGLE_FIRST,   // no burst until a single packet was sent
        SINGLE_LEFT,    // a single packet was sent last: a burst may follow
    };

    void probe_segmentation();
    bool meets_refusal();
    ssize_t send_segmented(const CRtpBurst& burst) const;
    CSendResult burst_failed(const CRtpBurst& burst, int nError);

    CBB_SOCK_T m_Sockfd = -1;
    bool m_bSegmentation = false;  // the kernel cuts one send into datagrams
    int m_nMaxUnit = INT_MAX;      // larger units exceed the path MTU
    ERefusal m_refusal = NEVER_REFUSED;
    CBB_ADDR_T LocalAddr{};
    CBB_ADDR_T RemoteAddr{};
};

#endif
