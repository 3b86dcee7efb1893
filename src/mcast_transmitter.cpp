// SPDX-License-Identifier: MIT
#include "mcast_transmitter.h"

#include <cstring>

#include "rtsps_debug.h"

namespace {

constexpr int MULTICAST_TTL = 127;
constexpr size_t MAPPED_ADDR4_OFFSET = 12;

bool IsMappedAddr4(const CBB_ADDR_T& addr) {
    static constexpr uint8_t PREFIX[MAPPED_ADDR4_OFFSET] = {0, 0, 0, 0, 0,    0,
                                                            0, 0, 0, 0, 0xFF, 0xFF};
    return memcmp(addr.SA.sin6.sin6_addr.s6_addr, PREFIX, sizeof(PREFIX)) == 0;
}

CBB_ADDR_T UnmapAddr4(const CBB_ADDR_T& addr) {
    uint32_t nAddr4 = 0;
    memcpy(&nAddr4, addr.SA.sin6.sin6_addr.s6_addr + MAPPED_ADDR4_OFFSET, sizeof(nAddr4));
    CBB_ADDR_T unmapped{};
    CBB_MakeAddr4ByInt(nAddr4, CBB_GetAddrPort(&addr), &unmapped);
    return unmapped;
}

}  // namespace

CMcastTransmitter::CMcastTransmitter(ETRANS_MODE mode) : CTransmitter(mode) {}

CMcastTransmitter::~CMcastTransmitter() {
    RTSPS_LOG(INFO, "Call Derive CMcastTransmitter Destructor!");
    Close();
}

int CMcastTransmitter::open_extra(TRANS_INFO* pInfo) {
    LocalAddr = pInfo->serverAddr;
    RemoteAddr = pInfo->clientAddr;
    const char* szMismatch = match_families();
    if (szMismatch != nullptr) {
        RTSPS_LOG(ERROR, "%s", szMismatch);
        return -1;
    }
    m_mcastsock = CBB_CreateSocket(CBB_GetAddrType(&RemoteAddr), SOCK_DGRAM, 0);
    if (m_mcastsock == -1) {
        RTSPS_LOG(ERROR, "CreateSocket failed ");
        return -1;
    }
    set_multicast_options();
    if (CBB_Bind(m_mcastsock, &LocalAddr) != 0) {
        // Kept (clients): [mcast-bind-socket] after this failure the socket stays open until Close.
        // The other failures close it at once.
        RTSPS_LOG(ERROR, "ERROR !! Bind");
        return -1;
    }
    RTSPS_LOG(INFO, "mcast Join group!!!! fd [%d]", m_mcastsock);
    dump_addr(LocalAddr);
    dump_addr(RemoteAddr);
    if (CBB_JoinMultiCastGroup(m_mcastsock, &LocalAddr, &RemoteAddr) != 0) {
        close_socket();
        RTSPS_LOG(ERROR, "ERROR !! JoinMultiCastGroup");
        return -1;
    }
    if (Connect(&RemoteAddr) != 0) {
        close_socket();
        RTSPS_LOG(ERROR, "Connect failed ");
        return -1;
    }
    RTSPS_LOG(INFO, "open mcast OK! fd [%d]", m_mcastsock);
    set_status(STAUTS_OK);
    return 0;
}

// Returns the text to print when the families differ, else null.
const char* CMcastTransmitter::match_families() {
    const bool bLocal6 = CBB_GetAddrType(&LocalAddr) == AF_INET6;
    const bool bGroup6 = CBB_GetAddrType(&RemoteAddr) == AF_INET6;
    if (bLocal6 && IsMappedAddr4(LocalAddr)) {
        // Kept (clients): [mcast-mapped-family] the families below are not compared for an
        // IPv4-mapped local address, not even when the group is IPv6.
        LocalAddr = UnmapAddr4(LocalAddr);
        return nullptr;
    }
    if (bLocal6 && CBB_GetAddrType(&RemoteAddr) == AF_INET) {
        return "src v6, dst v4,error!!! failed ";
    }
    if (CBB_GetAddrType(&LocalAddr) == AF_INET && bGroup6) {
        return "src v4, dst v6,error!!! failed ";
    }
    return nullptr;
}

void CMcastTransmitter::set_multicast_options() {
    if (CBB_GetAddrType(&RemoteAddr) == AF_INET6) {
        const int nLoop = 0;
        const int nHops = MULTICAST_TTL;
        // Kept (clients): [mcast-loopback] loopback is switched off for IPv6 only.
        setsockopt(m_mcastsock, IPPROTO_IPV6, IPV6_MULTICAST_LOOP, &nLoop, sizeof(nLoop));
        setsockopt(m_mcastsock, IPPROTO_IPV6, IPV6_MULTICAST_HOPS, &nHops, sizeof(nHops));
    } else {
        CBB_SetMultiCastTTL(m_mcastsock, MULTICAST_TTL);
    }
    CBB_SetReuseAddr(m_mcastsock, 1);
}

int CMcastTransmitter::SendPacket(void* buf, int len, int timeout) {
    return send_datagram(m_mcastsock, buf, len, timeout);
}

int CMcastTransmitter::SetHandle(int fd) {
    m_mcastsock = fd;
    return fd;
}

int CMcastTransmitter::Connect(CBB_ADDR_T* pAddr) {
    return CBB_ConnectWithTimeOut(m_mcastsock, pAddr, DATA_CONNECT_TIMEOUT_MS);
}

int CMcastTransmitter::Close() {
    RTSPS_LOG(INFO, "close mcast Now! fd [%d]", m_mcastsock);
    close_socket();
    return 0;
}

void CMcastTransmitter::close_socket() {
    if (m_mcastsock != -1) {
        CBB_CloseSocket(m_mcastsock, 0);
        m_mcastsock = -1;
    }
}
