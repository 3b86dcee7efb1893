// SPDX-License-Identifier: MIT
#include "udp_transmitter.h"

#include <netinet/udp.h>

#include <cerrno>
#include <cstring>

#include "rtp_packet.h"
#include "rtsps_debug.h"

#ifndef UDP_SEGMENT
#define UDP_SEGMENT 103  // the system headers may be older than the kernel
#endif

CUdpTransmitter::CUdpTransmitter(ETRANS_MODE mode) : CTransmitter(mode) {}

CUdpTransmitter::~CUdpTransmitter() {
    RTSPS_LOG(INFO, "Call Derive CTransmitter_Udp Destructor!");
    Close();
}

int CUdpTransmitter::open_extra(TRANS_INFO* pInfo) {
    LocalAddr = pInfo->serverAddr;
    RemoteAddr = pInfo->clientAddr;
    m_Sockfd = CBB_CreateSocket(CBB_GetAddrType(&RemoteAddr), SOCK_DGRAM, 0);
    if (m_Sockfd == -1) {
        RTSPS_LOG(ERROR, "CreateSocket failed ");
        return -1;
    }
    CBB_SetReuseAddr(m_Sockfd, 1);
    CBB_SetBuffSize(m_Sockfd, DATA_SEND_BUFFER_SIZE, DATA_RECV_BUFFER_SIZE);
    if (CBB_Bind(m_Sockfd, &LocalAddr) != 0) {
        Close();
        RTSPS_LOG(ERROR, "Bind failed ");
        return -1;
    }
    if (Connect(&RemoteAddr) != 0) {
        Close();
        RTSPS_LOG(ERROR, "Connect failed ");
        return -1;
    }
    RTSPS_LOG(INFO, "UDP connect !!! fd [%d]", m_Sockfd);
    dump_addr(LocalAddr);
    dump_addr(RemoteAddr);
    RTSPS_LOG(INFO, "open UDP OK! fd [%d]", m_Sockfd);
    probe_segmentation();
    set_status(STAUTS_OK);
    return 0;
}

// Tests whether the kernel has the option, before the first burst. A kernel without it would ignore
// it in sendmsg too, and send all units as one datagram.
void CUdpTransmitter::probe_segmentation() {
    const int nOff = 0;
    m_bSegmentation = setsockopt(m_Sockfd, IPPROTO_UDP, UDP_SEGMENT, &nOff, sizeof(nOff)) == 0;
}

CSendResult CUdpTransmitter::SendBurst(const CRtpBurst& burst) {
    pollfd writable = {m_Sockfd, POLLWRNORM, 0};
    if (CBB_Poll(&writable, 1, 0) <= 0 || (writable.revents & POLLWRNORM) == 0) {
        return {CSendResult::NOT_TAKEN};
    }
    if ((writable.revents & POLLERR) != 0) {  // SendPacket has to report the pending error
        m_refusal = SINGLE_FIRST;
        return {CSendResult::SEND_ALONE};
    }
    if (burst.FirstSize() > m_nMaxUnit) {
        return {CSendResult::SEND_ALONE};
    }
    if (m_refusal == SINGLE_LEFT) {
        m_refusal = SINGLE_FIRST;
    }
    if (send_segmented(burst) < 0) {
        return burst_failed(burst, errno);
    }
    if (meets_refusal()) {
        m_refusal = REFUSAL_OWED;
        return burst.FirstSent();
    }
    return burst.AllSent();
}

// One call for all datagrams (UDP_SEGMENT): the kernel cuts the bytes into pieces of the first
// unit's size.
ssize_t CUdpTransmitter::send_segmented(const CRtpBurst& burst) const {
    iovec packets[CRtpBurst::MAX_DATAGRAMS];
    uint8_t* pUnit = burst.Data();
    for (int i = 0; i < burst.Units(); ++i) {
        const int nUnit = UnitSize(pUnit);
        packets[i].iov_base = pUnit + RTP_PREFIX_SIZE;
        packets[i].iov_len = static_cast<size_t>(nUnit - RTP_PREFIX_SIZE);
        pUnit += nUnit;
    }
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(uint16_t))] = {};
    msghdr message = {};
    message.msg_iov = packets;
    message.msg_iovlen = static_cast<size_t>(burst.Units());
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    cmsghdr* pSegment = CMSG_FIRSTHDR(&message);
    pSegment->cmsg_level = IPPROTO_UDP;
    pSegment->cmsg_type = UDP_SEGMENT;
    pSegment->cmsg_len = CMSG_LEN(sizeof(uint16_t));
    const auto nSegment = static_cast<uint16_t>(packets[0].iov_len);
    memcpy(CMSG_DATA(pSegment), &nSegment, sizeof(nSegment));
    return sendmsg(m_Sockfd, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
}

CSendResult CUdpTransmitter::burst_failed(const CRtpBurst& burst, int nError) {
    switch (nError) {
        case EMSGSIZE:  // larger than the path MTU: a datagram that is sent alone is fragmented
            m_nMaxUnit = burst.FirstSize() - 1;
            return {CSendResult::SEND_ALONE};
        case EAGAIN:  // there may be room for one packet, but not for all
        case ENOBUFS:
        case ENOMEM:
            return {CSendResult::SEND_ALONE};
        case EINVAL:
        case EIO:
        case EOPNOTSUPP:
            m_bSegmentation = false;  // this interface or path does not support segmentation
            return {CSendResult::SEND_ALONE};
        default:
            m_refusal = SINGLE_FIRST;
            return {CSendResult::NOT_TAKEN};
    }
}

// Whether a refusal has arrived; reading it clears the error of the socket. When a client on this
// machine is gone, the refusal of the first datagram arrives during the send of the burst. Sent one
// by one, the second packet would have failed with it.
bool CUdpTransmitter::meets_refusal() {
    int nError = 0;
    socklen_t nLength = sizeof(nError);
    return getsockopt(m_Sockfd, SOL_SOCKET, SO_ERROR, &nError, &nLength) == 0 && nError != 0;
}

CRtpBurst::EKind CUdpTransmitter::burst_kind() const {
    const bool bMayFollow = m_refusal == NEVER_REFUSED || m_refusal == SINGLE_LEFT;
    return m_bSegmentation && bMayFollow ? CRtpBurst::DATAGRAMS : CRtpBurst::NONE;
}

int CUdpTransmitter::SendPacket(void* buf, int len, int timeout) {
    if (m_refusal == REFUSAL_OWED) {
        m_refusal = SINGLE_FIRST;
        return 0;
    }
    const int nResult = send_datagram(m_Sockfd, buf, len, timeout);
    if (m_refusal != NEVER_REFUSED) {
        m_refusal = nResult == len ? SINGLE_LEFT : SINGLE_FIRST;
    }
    return nResult;
}

int CUdpTransmitter::RecvPacket(void* buf, int len, int timeout) {
    return CBB_Recvn(m_Sockfd, buf, len, static_cast<uint32_t>(timeout));
}

int CUdpTransmitter::SetHandle(int fd) {
    m_Sockfd = fd;
    return fd;
}

int CUdpTransmitter::Connect(CBB_ADDR_T* pAddr) {
    return CBB_ConnectWithTimeOut(m_Sockfd, pAddr, DATA_CONNECT_TIMEOUT_MS);
}

int CUdpTransmitter::SetBufferSize(int nSend, int nRecv) {
    return CBB_SetBuffSize(m_Sockfd, nSend, nRecv);
}

int CUdpTransmitter::Close() {
    if (m_Sockfd != -1) {
        CBB_CloseSocket(m_Sockfd, 0);
        m_Sockfd = -1;
    }
    return 0;
}
