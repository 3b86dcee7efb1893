// SPDX-License-Identifier: MIT
// The socket of one media stream. One class per transport mode derives from CTransmitter.
#ifndef TRANSMITTER_H
#define TRANSMITTER_H

#include <atomic>
#include <cstdint>

#include "cbb.h"
#include "rtp_burst.h"
#include "rtp_packet.h"

enum ETRANS_MODE : int {
    NON_MODE = 0,
    UDP_MODE = 1,
    TCP_MODE = 2,  // a separate TCP connection per stream, opened by the client
    MCAST_MODE = 3,
    RTPOVERRTSP_MODE = 4,  // interleaved on the RTSP connection (RFC 2326, 10.12)
};

// The misspelling of the values is kept.
enum CTRANS_STATUS_TAG : int {
    STAUTS_ERROR = 0,
    STAUTS_OK = 1,
};

// What SETUP negotiated for one stream.
struct TRANS_INFO {
    CBB_ADDR_T serverAddr;  // local address and borrowed port; port 0 when nothing was borrowed
    CBB_ADDR_T clientAddr;  // remote address and port; for multicast the group
    uint8_t byTcpFlag;      // interleaved channel of RTP
    uint8_t byTcpRtcpFlag;  // interleaved channel of RTCP
    uint8_t byPlayBack;     // non-zero for a recording rather than a live stream
    uint8_t res1;
    uint32_t dwRtpSSRC;
    uint32_t dwRtpPT;
    ETRANS_MODE mode;
    CBB_SOCK_T sockFd;  // the RTSP connection, not owned
};

// Kernel buffers of UDP and separate TCP data sockets, in bytes.
constexpr int DATA_SEND_BUFFER_SIZE = 524288;
constexpr int DATA_RECV_BUFFER_SIZE = 262144;
constexpr uint32_t DATA_CONNECT_TIMEOUT_MS = 5000;

// Unless their comments say otherwise, all fields, also those of the derived classes, are under the
// owning CTransCtrl's m_mutexMedia. This holds from open until CTransCtrl::Close has removed the
// media session.
class CTransmitter {
  public:
    explicit CTransmitter(ETRANS_MODE mode) : m_Mode(mode) {}
    virtual ~CTransmitter() = default;
    CTransmitter(const CTransmitter&) = delete;
    CTransmitter& operator=(const CTransmitter&) = delete;

    // Opens the network path of one mode; 0 or -1.
    virtual int open_extra(TRANS_INFO* pInfo) = 0;

    // Sends one buffer of `len` bytes, which begins with a prefix of RTP_PREFIX_SIZE bytes. Waits
    // at most `timeout` ms for the socket. Returns `len` for a buffer that was taken, or 0 for one
    // that was not. Over TCP, a packet that waits in the pending buffer counts as taken; in
    // playback mode, which has no pending buffer, the result is the number of bytes sent. After a
    // socket error UDP returns 0, and TCP keeps packets until the pending buffer is full. Callers
    // handle a negative result, but no transmitter returns one.
    virtual int SendPacket(void* buf, int len, int timeout) = 0;
    virtual int RecvPacket(void* buf, int len, int timeout) = 0;

    virtual int GetHandle() { return -1; }
    virtual int SetHandle(int /*fd*/) { return -1; }
    virtual int Connect() { return -1; }
    virtual int Accept() { return -1; }

    // burst_kind returns the kind of burst that the transmitter accepts now. SendBurst sends one
    // without waiting; it takes exactly the units that SendPacket would have taken.
    virtual CRtpBurst::EKind burst_kind() const { return CRtpBurst::NONE; }
    virtual CSendResult SendBurst(const CRtpBurst& /*burst*/) { return {CSendResult::SEND_ALONE}; }

    // Opens the transmitter and marks it usable; 0 or -1.
    [[nodiscard]] int open(TRANS_INFO* pInfo);

    void set_status(int nStatus) { m_Status.store(nStatus, std::memory_order_release); }
    int get_status() const { return m_Status.load(std::memory_order_acquire); }
    ETRANS_MODE mode() const { return m_Mode; }
    int is_playback_mode() const { return m_bPlayback; }

  protected:
    // The send of both datagram modes: one datagram with the packet, without its prefix.
    static int send_datagram(CBB_SOCK_T sock, const void* buf, int len, int timeout);

  private:
    std::atomic<int> m_Status{STAUTS_ERROR};  // atomic: also written by the TCP accept thread
    const ETRANS_MODE m_Mode;
    int m_bPlayback = 0;
};

// Writes an address record to standard error in hexadecimal, independent of the debug switch.
void dump_addr(const CBB_ADDR_T& addr);

#endif
