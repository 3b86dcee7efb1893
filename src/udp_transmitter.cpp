// SPDX-License-Identifier: MIT
#include "udp_transmitter.h"

#include "rtsps_debug.h"

CUdpTransmitter::CUdpTransmitter(ETRANS_MODE mode) : CTransmitter(mode) {}

CUdpTransmitter::~CUdpTransmitter() {
    CDebugInfo::Instance()->OutputDebugInfo(LOG_LEVEL_INFO,
                                            RTSPS_AT("Call Derive CTransmitter_Udp Destructor!"));
    Close();
}

int CUdpTransmitter::open_extra(TRANS_INFO* pInfo) {
    LocalAddr = pInfo->serverAddr;
    RemoteAddr = pInfo->clientAddr;
    m_Sockfd = CBB_CreateSocket(CBB_GetAddrType(&RemoteAddr), SOCK_DGRAM, 0);
    if (m_Sockfd == -1) {
        CDebugInfo::Instance()->OutputDebugInfo(LOG_LEVEL_ERROR, RTSPS_AT("CreateSocket failed "));
        return -1;
    }
    CBB_SetReuseAddr(m_Sockfd, 1);
    CBB_SetBuffSize(m_Sockfd, DATA_SEND_BUFFER_SIZE, DATA_RECV_BUFFER_SIZE);
    if (CBB_Bind(m_Sockfd, &LocalAddr) != 0) {
        Close();
        CDebugInfo::Instance()->OutputDebugInfo(LOG_LEVEL_ERROR, RTSPS_AT("Bind failed "));
        return -1;
    }
    if (Connect(&RemoteAddr) != 0) {
        Close();
        CDebugInfo::Instance()->OutputDebugInfo(LOG_LEVEL_ERROR, RTSPS_AT("Connect failed "));
        return -1;
    }
    CDebugInfo::Instance()->OutputDebugInfo(LOG_LEVEL_INFO, RTSPS_AT("UDP connect !!! fd [%d]"),
                                            m_Sockfd);
    dump_addr(LocalAddr);
    dump_addr(RemoteAddr);
    CDebugInfo::Instance()->OutputDebugInfo(LOG_LEVEL_INFO, RTSPS_AT("open UDP OK! fd [%d]"),
                                            m_Sockfd);
    set_status(STAUTS_OK);
    return 0;
}

int CUdpTransmitter::SendPacket(void* buf, int len, int timeout) {
    return send_datagram(m_Sockfd, buf, len, timeout);
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
