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
    // A client that is gone refuses: its port answers each datagram with an ICMP error, and a later
    // send on this socket fails with it. One call per unit meets that error at the unit after the
    // refused one. A burst would meet it one call later, so after the first refusal each burst
    // waits until a single packet has left without meeting one.
    //
    //   from                 on                                             to
    //   NEVER_REFUSED,       the send of a burst, or the look before it,    SINGLE_FIRST
    //     SINGLE_LEFT          meets one
    //   NEVER_REFUSED,       a refusal is there right after a burst         REFUSAL_OWED
    //     SINGLE_LEFT
    //   SINGLE_LEFT          the send of a burst, taken or not              SINGLE_FIRST
    //   REFUSAL_OWED         the next packet, which is not taken            SINGLE_FIRST
    //   SINGLE_FIRST,        a packet leaves alone                          SINGLE_LEFT
    //     SINGLE_LEFT
    //   SINGLE_FIRST,        a packet is not taken                          SINGLE_FIRST
    //     SINGLE_LEFT
    //
    // NEVER_REFUSED stays while single packets leave or fail.
    enum ERefusal {
        NEVER_REFUSED,  // bursts may leave
        REFUSAL_OWED,   // a refusal was read off the socket; the next packet has to report it
        SINGLE_FIRST,   // no burst before a single packet has left
        SINGLE_LEFT,    // the latest packet left alone: a burst may follow
    };

    void probe_segmentation();
    bool meets_refusal();
    ssize_t send_segmented(const CRtpBurst& burst) const;
    CSendResult burst_failed(const CRtpBurst& burst, int nError);

    CBB_SOCK_T m_Sockfd = -1;
    bool m_bSegmentation = false;  // the kernel cuts one send into datagrams
    int m_nMaxUnit = INT_MAX;      // larger units do not fit the path in one piece
    ERefusal m_refusal = NEVER_REFUSED;
    CBB_ADDR_T LocalAddr{};
    CBB_ADDR_T RemoteAddr{};
};

#endif
