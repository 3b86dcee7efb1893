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
    int SendBurst(const CRtpBurst& burst) override;
    int GetHandle() override { return m_Sockfd; }
    int SetHandle(int fd) override;
    using CTransmitter::Connect;
    int Accept() override { return -1; }

    int Close();
    int Connect(CBB_ADDR_T* pAddr);
    int SetBufferSize(int nSend, int nRecv);

  private:
    void probe_segmentation();
    bool take_refusal();

    CBB_SOCK_T m_Sockfd = -1;
    bool m_bSegmentation = false;  // the kernel cuts one send into datagrams
    int m_nMaxUnit = INT_MAX;      // larger units do not fit the path in one piece
    bool m_bRefused = false;       // the client's port has once answered that nobody listens
    bool m_bOwedRefusal = false;   // such an answer was read and not told yet
    bool m_bSentAlone = false;     // the latest send was a single packet, and it left
    CBB_ADDR_T LocalAddr{};
    CBB_ADDR_T RemoteAddr{};
};

#endif
