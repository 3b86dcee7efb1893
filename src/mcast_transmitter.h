// SPDX-License-Identifier: MIT
#ifndef MCAST_TRANSMITTER_H
#define MCAST_TRANSMITTER_H

#include "transmitter.h"

// UDP multicast. SETUP refuses multicast, so the server never creates one. Only code that uses this
// class directly does, such as the tests.
class CMcastTransmitter final : public CTransmitter {
  public:
    explicit CMcastTransmitter(ETRANS_MODE mode);
    ~CMcastTransmitter() override;

    int open_extra(TRANS_INFO* pInfo) override;
    int SendPacket(void* buf, int len, int timeout) override;
    int RecvPacket(void* /*buf*/, int /*len*/, int /*timeout*/) override { return 0; }
    int GetHandle() override { return m_mcastsock; }
    int SetHandle(int fd) override;
    using CTransmitter::Connect;
    int Accept() override { return 0; }
    virtual int Connect(CBB_ADDR_T* pAddr);

    int Close();

  private:
    const char* match_families();
    void set_multicast_options();
    void close_socket();

    CBB_SOCK_T m_mcastsock = -1;
    CBB_ADDR_T LocalAddr{};
    CBB_ADDR_T RemoteAddr{};
};

#endif
