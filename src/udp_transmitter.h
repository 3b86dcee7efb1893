// SPDX-License-Identifier: MIT
#ifndef UDP_TRANSMITTER_H
#define UDP_TRANSMITTER_H

#include "transmitter.h"

// Unicast UDP: one socket, bound to the borrowed port and connected to the client's.
class CUdpTransmitter final : public CTransmitter {
  public:
    explicit CUdpTransmitter(ETRANS_MODE mode);
    ~CUdpTransmitter() override;

    int open_extra(TRANS_INFO* pInfo) override;
    int SendPacket(void* buf, int len, int timeout) override;
    int RecvPacket(void* buf, int len, int timeout) override;
    int GetHandle() override { return m_Sockfd; }
    int SetHandle(int fd) override;
    using CTransmitter::Connect;
    int Accept() override { return -1; }

    int Close();
    int Connect(CBB_ADDR_T* pAddr);
    int SetBufferSize(int nSend, int nRecv);

  private:
    CBB_SOCK_T m_Sockfd = -1;
    CBB_ADDR_T LocalAddr{};
    CBB_ADDR_T RemoteAddr{};
};

#endif
