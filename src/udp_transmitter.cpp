// SPDX-License-Identifier: MIT
#include "udp_transmitter.h"

#include <netinet/udp.h>

#include <cerrno>
#include <cstring>

#include "rtp_packet.h"
#include "rtsps_debug.h"

#ifndef UDP_SEGMENT
#define UDP_SEGMENT 103  // headers older than the kernels that know it
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

// Asked of the socket before the first burst: a kernel that does not know the option would take no
// notice of it in a send either, and send all units as one datagram.
void CUdpTransmitter::probe_segmentation() {
    const int nOff = 0;
    m_bSegmentation = setsockopt(m_Sockfd, IPPROTO_UDP, UDP_SEGMENT, &nOff, sizeof(nOff)) == 0;
}

int CUdpTransmitter::SendBurst(const CRtpBurst& burst) {
    pollfd writable = {m_Sockfd, POLLWRNORM, 0};
    if (CBB_Poll(&writable, 1, 0) <= 0 || (writable.revents & POLLWRNORM) == 0) {
        return -1;
    }
    if ((writable.revents & POLLERR) != 0) {  // an error that waits is SendPacket's to meet
        m_bRefused = true;
        m_bSentAlone = false;
        return 0;
    }
    if (burst.UnitSize(0) > m_nMaxUnit) {
        return 0;
    }
    iovec packets[CRtpBurst::MAX_DATAGRAMS];
    int nOffset = 0;
    for (int i = 0; i < burst.Units(); ++i) {
        const int nUnit = burst.UnitSize(nOffset);
        packets[i].iov_base = burst.Data() + nOffset + RTP_PREFIX_SIZE;
        packets[i].iov_len = static_cast<size_t>(nUnit - RTP_PREFIX_SIZE);
        nOffset += nUnit;
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
    m_bSentAlone = false;
    if (sendmsg(m_Sockfd, &message, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0) {
        return take_refusal() ? burst.UnitSize(0) : burst.Bytes();
    }
    switch (errno) {
        case EMSGSIZE:  // larger than the path takes in one piece: alone it is fragmented
            m_nMaxUnit = burst.UnitSize(0) - 1;
            return 0;
        case EAGAIN:  // one packet may find the room that all together do not
        case ENOBUFS:
        case ENOMEM:
            return 0;
        case EINVAL:
        case EIO:
        case EOPNOTSUPP:
            m_bSegmentation = false;  // this interface or path does not segment
            return 0;
        default:
            m_bRefused = true;
            return -1;
    }
}

// A client on this machine that is gone refuses while the burst is still on its way. Packet by
// packet the second one would have met that refusal: the next SendPacket does so now, and from now
// on a packet goes ahead of every burst.
bool CUdpTransmitter::take_refusal() {
    int nError = 0;
    socklen_t nLength = sizeof(nError);
    if (getsockopt(m_Sockfd, SOL_SOCKET, SO_ERROR, &nError, &nLength) == 0 && nError != 0) {
        m_bRefused = true;
        m_bOwedRefusal = true;
    }
    return m_bOwedRefusal;
}

CRtpBurst::EKind CUdpTransmitter::burst_kind() const {
    return m_bSegmentation && (!m_bRefused || m_bSentAlone) ? CRtpBurst::DATAGRAMS
                                                            : CRtpBurst::NONE;
}

int CUdpTransmitter::SendPacket(void* buf, int len, int timeout) {
    if (m_bOwedRefusal) {
        m_bOwedRefusal = false;
        return 0;
    }
    const int nResult = send_datagram(m_Sockfd, buf, len, timeout);
    m_bSentAlone = nResult == len;
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
