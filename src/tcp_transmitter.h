// SPDX-License-Identifier: MIT
// RTP over TCP: on a separate connection per stream, or interleaved on the RTSP connection.
#ifndef TCP_TRANSMITTER_H
#define TCP_TRANSMITTER_H

#include "rtsps_server_api.h"
#include "rtsps_thread_safety.h"
#include "transmitter.h"

// The base of both TCP modes. Live packets that the socket does not take wait in a pending buffer;
// a packet that does not fit there is dropped.
class CPendingTransmitter : public CTransmitter {
  public:
    static constexpr int PENDING_SIZE = RTSPS_PENDING_BUFFER_SIZE;

    int RecvPacket(void* buf, int len, int timeout) override;

  protected:
    // The buffer is not cleared, so that its pages stay unused for a client that keeps up.
    // cppcheck-suppress uninitMemberVar
    explicit CPendingTransmitter(ETRANS_MODE mode) : CTransmitter(mode) {}

    // The socket that carries the media, or -1.
    virtual CBB_SOCK_T data_socket() const = 0;

    int send_pending(const void* buf, int len, int timeout);
    bool can_burst() const { return m_nBufDataSize == 0 && is_playback_mode() == 0; }
    CSendResult send_burst(const CRtpBurst& burst);
    int pending_size() const { return m_nBufDataSize; }

    // The interleaved connection. It is a member of this class, before the buffer, and not of the
    // derived class, after the buffer. So a push to a client that keeps up touches one page instead
    // of two. In 12 pairs of runs of PushToAll/interleaved the median saving was 5 % with 100
    // clients, and not measurable with 128.
    CBB_SOCK_T m_Sockfd = -1;

  private:
    int send_fresh(const void* buf, int len, int timeout);
    bool queue_rest(const unsigned char* pRest, int nRest);

    int m_nBufDataSize = 0;
    unsigned char m_buf[PENDING_SIZE];
};

// A TCP connection that the client opens to the borrowed port, within one second after SETUP.
class CTcpTransmitter final : public CPendingTransmitter {
  public:
    explicit CTcpTransmitter(ETRANS_MODE mode);
    ~CTcpTransmitter() override;

    int open_extra(TRANS_INFO* pInfo) override;
    int SendPacket(void* buf, int len, int timeout) override;
    int GetHandle() override;  // the listening socket, not the accepted one
    int SetHandle(int fd) override;
    int Connect() override { return 0; }
    int Accept() override;
    virtual int Close();
    virtual int Connect(CBB_SOCK_T sock, CBB_ADDR_T* pAddr);

    int SetBufferSize(int nSend, int nRecv);

  private:
    static void* accept_connect_svc(void* pTransmitter);

    CBB_SOCK_T data_socket() const override { return m_Connectfd.load(std::memory_order_acquire); }
    void take_peer(CBB_SOCK_T sock);
    void close_listener();

    CMutex
        m_mutexListen;  // taken to read, shut down or close the listening socket; no wait under it
    CBB_SOCK_T m_ListenSockfd GUARDED_BY(m_mutexListen) = -1;
    // atomic: published by the accept thread once its options are set, read by the sender
    std::atomic<CBB_SOCK_T> m_Connectfd{-1};
    CBB_ADDR_T m_LocalAddr{};
    CBB_ADDR_T m_HopedRemoteAddr{};  // informational: any peer that connects is accepted
    CBB_HANDLE m_ThreadAccept = CBB_INVALID_HANDLE;  // not used by that thread itself
};

// Interleaved on the RTSP connection, which belongs to the client session and is never closed here.
//
// Kept (clients): [interleaved-buffers] video and audio have one pending buffer each, but share the
// connection. While one buffer holds the rest of a unit, the other stream continues to send. So the
// framing may break for a client that cannot keep up.
class CRtpOverRtspTransmitter final : public CPendingTransmitter {
  public:
    explicit CRtpOverRtspTransmitter(ETRANS_MODE mode);
    ~CRtpOverRtspTransmitter() override;

    int open_extra(TRANS_INFO* pInfo) override;
    int SendPacket(void* buf, int len, int timeout) override;
    CRtpBurst::EKind burst_kind() const override {
        return can_burst() ? CRtpBurst::STREAM : CRtpBurst::NONE;
    }
    CSendResult SendBurst(const CRtpBurst& burst) override;
    int GetHandle() override { return m_Sockfd; }
    int SetHandle(int fd) override;
    int Connect() override { return -2; }
    int Accept() override { return -2; }
    virtual int Close() { return 0; }
    virtual int Connect(CBB_SOCK_T sock, CBB_ADDR_T* pAddr);
    // Sends directly, without the pending buffer.
    virtual int SendnPacket(void* buf, int len, int timeout);

    int SetBufferSize(int nSend, int nRecv);

  private:
    CBB_SOCK_T data_socket() const override { return m_Sockfd; }
    void warn_of_pending() const;

    CBB_ADDR_T m_LocalAddr{};
    CBB_ADDR_T m_RemoteAddr{};
    int m_rtpFlag = 255;
    int m_rtcpFlag = 255;
};

#endif
