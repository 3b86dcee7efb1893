// SPDX-License-Identifier: MIT
#ifndef SESSION_H
#define SESSION_H

#include <cstdint>
#include <memory>

#include "transmitter.h"

// Owns the transmitter of one RTP or RTCP stream. Not thread-safe: all fields are under the owning
// CTransCtrl's m_mutexMedia.
class CSession {
  public:
    explicit CSession(ETRANS_MODE mode) : m_mode(mode) {}
    virtual ~CSession();
    CSession(const CSession&) = delete;
    CSession& operator=(const CSession&) = delete;

    // Creates and opens the transmitter of the session's mode. Returns 1, or 0 when one exists
    // already or could not be opened.
    uint32_t inittransmitter(TRANS_INFO* pInfo);
    void ReleaseTransmitter();

    CTransmitter* GetTransmitter() const { return m_pTransmitter.get(); }
    ETRANS_MODE GetTransMode() const { return m_mode; }
    const TRANS_INFO* get_trans_info() const { return &m_tranInfo; }

  protected:
    // Each returns a new, opened transmitter, or null.
    virtual std::unique_ptr<CTransmitter> inittransmitter_udp(TRANS_INFO* pInfo);
    virtual std::unique_ptr<CTransmitter> inittransmitter_tcp(TRANS_INFO* pInfo);
    virtual std::unique_ptr<CTransmitter> inittransmitter_mcast(TRANS_INFO* pInfo);
    virtual std::unique_ptr<CTransmitter> inittransmitter_over_rtsp(TRANS_INFO* pInfo);

  private:
    const ETRANS_MODE m_mode;
    std::unique_ptr<CTransmitter> m_pTransmitter;
    TRANS_INFO m_tranInfo{};
};

#endif
