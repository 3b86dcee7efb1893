// SPDX-License-Identifier: MIT
#include "tcp_transmitter.h"

#include <sched.h>

#include <cstring>

#include "cbb/CBB_Thread.h"
#include "rtsps_debug.h"

namespace {

constexpr int LISTEN_BACKLOG = 24;
constexpr int ACCEPT_BACKLOG = 1000;
constexpr uint32_t PEER_TIMEOUT_MS = 1000;
// Kept (operators): [one-accept] there is one attempt to accept. This number is only printed.
constexpr int RETRIES_LEFT = 9;
constexpr uint32_t ACCEPT_STACK_SIZE = 131072;
// The priority is valid under this policy. Neither has an effect: the thread inherits the
// scheduling of its creator.
constexpr int ACCEPT_POLICY = SCHED_RR;
constexpr int ACCEPT_PRIORITY = 50;

}  // namespace

int CPendingTransmitter::RecvPacket(void* buf, int len, int timeout) {
    return CBB_Recvn(data_socket(), buf, len, static_cast<uint32_t>(timeout));
}

int CPendingTransmitter::send_pending(const void* buf, int len, int timeout) {
    if (is_playback_mode() != 0) {
        return CBB_Sendn(data_socket(), buf, len, static_cast<uint32_t>(timeout));
    }
    if (m_nBufDataSize > 0) {
        const int nSent =
            CBB_Sendn(data_socket(), m_buf, m_nBufDataSize, static_cast<uint32_t>(timeout));
        if (nSent < 0) {
            set_status(STAUTS_ERROR);
            return nSent;
        }
        // Kept (clients): [pending-not-moved] the remaining bytes are not moved to the front, but
        // the next drain starts at the front again.
        m_nBufDataSize -= nSent;
    }
    if (m_nBufDataSize == 0) {
        return send_fresh(buf, len, timeout);
    }
    if (len < 0 || len > PENDING_SIZE - m_nBufDataSize) {
        return 0;
    }
    memcpy(m_buf + m_nBufDataSize, buf, static_cast<size_t>(len));
    m_nBufDataSize += len;
    return len;
}

int CPendingTransmitter::send_fresh(const void* buf, int len, int timeout) {
    const int nSent = CBB_Sendn(data_socket(), buf, len, static_cast<uint32_t>(timeout));
    if (nSent < 0) {
        set_status(STAUTS_ERROR);
        return nSent;
    }
    return queue_rest(static_cast<const unsigned char*>(buf) + nSent, len - nSent) ? len : nSent;
}

// Stores the bytes that the socket did not take in the empty pending buffer. Returns false when
// they do not fit; a unit always fits.
bool CPendingTransmitter::queue_rest(const unsigned char* pRest, int nRest) {
    if (nRest > PENDING_SIZE) {
        return false;
    }
    if (nRest > 0) {
        memcpy(m_buf, pRest, static_cast<size_t>(nRest));
        m_nBufDataSize = nRest;
    }
    return true;
}

// Sends all units in one call. The first unit that the socket does not take whole waits in the
// pending buffer.
CSendResult CPendingTransmitter::send_burst(const CRtpBurst& burst) {
    const int nSent = CBB_Sendn(data_socket(), burst.Data(), burst.Bytes(), 0);
    if (nSent >= burst.Bytes()) {
        return burst.AllSent();
    }
    const CSendResult result = burst.SentUpTo(nSent);
    queue_rest(burst.Data() + nSent, result.nBytes - nSent);
    return result;
}

CTcpTransmitter::CTcpTransmitter(ETRANS_MODE mode) : CPendingTransmitter(mode) {}

CTcpTransmitter::~CTcpTransmitter() {
    CTcpTransmitter::Close();
}

int CTcpTransmitter::open_extra(TRANS_INFO* pInfo) {
    m_LocalAddr = pInfo->serverAddr;
    m_HopedRemoteAddr = pInfo->clientAddr;
    const CBB_SOCK_T sock = CBB_CreateSocket(CBB_GetAddrType(&m_HopedRemoteAddr), SOCK_STREAM, 0);
    if (sock == -1) {
        RTSPS_LOG(ERROR, "CreateSocket failed ");
        return -1;
    }
    SetHandle(sock);
    CBB_SetReuseAddr(sock, 1);
    CBB_SetBuffSize(sock, DATA_SEND_BUFFER_SIZE, DATA_RECV_BUFFER_SIZE);
    if (CBB_Bind(sock, &m_LocalAddr) != 0) {
        close_listener();
        RTSPS_LOG(ERROR, "Bind failed ");
        return -1;
    }
    if (CBB_Listen(sock, LISTEN_BACKLOG) != 0) {
        close_listener();
        RTSPS_LOG(ERROR, "Listen failed ");
        return -1;
    }
    // A peer that disconnects between poll and accept must not block the accept thread.
    CBB_SetNonBlock(sock, 1);
    {
        const CBlockSignals block;
        m_ThreadAccept = CBB_Thread_Create(accept_connect_svc, this, ACCEPT_STACK_SIZE, 0,
                                           ACCEPT_PRIORITY, ACCEPT_POLICY);
    }
    if (m_ThreadAccept == CBB_INVALID_HANDLE) {
        RTSPS_LOG(ERROR, "create accept_connect_svc thread failed ");
        close_listener();
        return -1;
    }
    RTSPS_LOG(INFO, "Open OK, Need Recv 4 Byte!");
    // Kept (clients): [tcp-counted-as-taken] the status becomes OK now. Until a peer connects, and
    // also when none ever does, packets wait in the pending buffer and count as taken.
    return 0;
}

void* CTcpTransmitter::accept_connect_svc(void* pTransmitter) {
    auto* pSelf = static_cast<CTcpTransmitter*>(pTransmitter);
    try {
        // Kept (operators): [tcp-any-peer] the address of the peer is not compared with that of the
        // client: the first peer that connects receives the media.
        const CBB_SOCK_T sock = CBB_Accept(pSelf->GetHandle(), nullptr, PEER_TIMEOUT_MS);
        if (sock == -1) {
            RTSPS_LOG(ERROR, "Wait Remote Connect iRetry [%d]!!!!", RETRIES_LEFT);
        } else {
            RTSPS_LOG(INFO, "Found Needed Addr cominggggg!!!!");
            pSelf->take_peer(sock);
        }
        pSelf->close_listener();
    } catch (...) {
        // No exception may leave the thread. The stream then has no connection.
    }
    return nullptr;
}

void CTcpTransmitter::take_peer(CBB_SOCK_T sock) {
    CBB_SetNoDelay(sock, 1);
    CBB_SetNonBlock(sock, 1);
    CBB_SetBuffSize(sock, DATA_SEND_BUFFER_SIZE, DATA_RECV_BUFFER_SIZE);
    m_Connectfd.store(sock, std::memory_order_release);
    set_status(STAUTS_OK);
}

int CTcpTransmitter::SendPacket(void* buf, int len, int timeout) {
    return send_pending(buf, len, timeout);
}

int CTcpTransmitter::GetHandle() {
    const CLockGuard guard(m_mutexListen);
    return m_ListenSockfd;
}

int CTcpTransmitter::SetHandle(int fd) {
    const CLockGuard guard(m_mutexListen);
    m_ListenSockfd = fd;
    return fd;
}

int CTcpTransmitter::Accept() {
    const CBB_SOCK_T sock = GetHandle();
    if (CBB_Listen(sock, ACCEPT_BACKLOG) != 0) {
        close_listener();
        RTSPS_LOG(ERROR, "Listen failed ");
        return -1;
    }
    pollfd arrival = {sock, POLLRDNORM, 0};
    CBB_PollEx(&arrival, 1, nullptr);  // the socket is non-blocking, so wait here
    const CBB_SOCK_T peer = CBB_Accept(sock, nullptr, CBB_INFINITE);
    m_Connectfd.store(peer, std::memory_order_release);
    return peer;
}

int CTcpTransmitter::Connect(CBB_SOCK_T sock, CBB_ADDR_T* pAddr) {
    return CBB_ConnectWithTimeOut(sock, pAddr, DATA_CONNECT_TIMEOUT_MS);
}

int CTcpTransmitter::SetBufferSize(int nSend, int nRecv) {
    return CBB_SetBuffSize(data_socket(), nSend, nRecv);
}

void CTcpTransmitter::close_listener() {
    const CLockGuard guard(m_mutexListen);
    if (m_ListenSockfd != -1) {
        CBB_CloseSocket(m_ListenSockfd, 0);
        m_ListenSockfd = -1;
    }
}

int CTcpTransmitter::Close() {
    {
        const CLockGuard guard(m_mutexListen);
        if (m_ListenSockfd != -1) {
            CBB_ShutDown(m_ListenSockfd, SHUT_RDWR);  // wakes the accept thread; close would not
        }
    }
    if (m_ThreadAccept != CBB_INVALID_HANDLE) {
        CBB_Thread_Wait(m_ThreadAccept);
        m_ThreadAccept = CBB_INVALID_HANDLE;
    }
    close_listener();
    const CBB_SOCK_T sock = m_Connectfd.exchange(-1, std::memory_order_acq_rel);
    if (sock != -1) {
        CBB_CloseSocket(sock, 0);
    }
    return 0;
}

CRtpOverRtspTransmitter::CRtpOverRtspTransmitter(ETRANS_MODE mode) : CPendingTransmitter(mode) {}

CRtpOverRtspTransmitter::~CRtpOverRtspTransmitter() {
    RTSPS_LOG(INFO, "Call Derive CRtpOverRtspTransmitter Destructor!");
    CRtpOverRtspTransmitter::Close();
}

int CRtpOverRtspTransmitter::open_extra(TRANS_INFO* pInfo) {
    m_LocalAddr = pInfo->serverAddr;
    m_RemoteAddr = pInfo->clientAddr;
    m_Sockfd = pInfo->sockFd;
    m_rtpFlag = pInfo->byTcpFlag;
    m_rtcpFlag = pInfo->byTcpRtcpFlag;
    RTSPS_LOG(INFO, "OK, This is OverRtsp Mode! m_Sockfd [%d], m_rtpFlag [%d] m_rtcpFlag [%d]",
              m_Sockfd, m_rtpFlag, m_rtcpFlag);
    set_status(STAUTS_OK);
    RTSPS_LOG(INFO, "OK, This is OverRtsp Mode! m_Sockfd [%d]", m_Sockfd);
    return 0;
}

int CRtpOverRtspTransmitter::SendPacket(void* buf, int len, int timeout) {
    const int nResult = send_pending(buf, len, timeout);
    warn_of_pending();
    return nResult;
}

CSendResult CRtpOverRtspTransmitter::SendBurst(const CRtpBurst& burst) {
    const CSendResult result = send_burst(burst);
    warn_of_pending();
    return result;
}

void CRtpOverRtspTransmitter::warn_of_pending() const {
    if (pending_size() > 0) {
        // The line names SendPacket also for a burst, which sends the same as single packets do.
        CDebugInfo::Instance()->OutputDebugInfo(LOG_LEVEL_WARN,
                                                "%s:%d SendPacket remain bufsize=%d\n", __FILE__,
                                                __LINE__, pending_size());
    }
}

int CRtpOverRtspTransmitter::SendnPacket(void* buf, int len, int timeout) {
    return CBB_Sendn(m_Sockfd, buf, len, static_cast<uint32_t>(timeout));
}

int CRtpOverRtspTransmitter::SetHandle(int fd) {
    m_Sockfd = fd;
    return fd;
}

int CRtpOverRtspTransmitter::Connect(CBB_SOCK_T /*sock*/, CBB_ADDR_T* /*pAddr*/) {
    return -2;
}

int CRtpOverRtspTransmitter::SetBufferSize(int nSend, int nRecv) {
    return CBB_SetBuffSize(m_Sockfd, nSend, nRecv);
}
