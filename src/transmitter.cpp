// SPDX-License-Identifier: MIT
#include "transmitter.h"

#include <cstring>

#include "rtsps_misc.h"

int CTransmitter::open(TRANS_INFO* pInfo) {
    m_bPlayback = pInfo->byPlayBack;
    if (open_extra(pInfo) != 0) {
        return -1;
    }
    set_status(STAUTS_OK);
    return 0;
}

int CTransmitter::send_datagram(CBB_SOCK_T sock, const void* buf, int len, int timeout) {
    const int nPacket = len - RTP_PREFIX_SIZE;
    if (nPacket < 0) {
        return 0;
    }
    const auto* pPacket = static_cast<const uint8_t*>(buf) + RTP_PREFIX_SIZE;
    const int nSent = CBB_Sendn(sock, pPacket, nPacket, static_cast<uint32_t>(timeout));
    if (nSent < 0) {
        return -1;
    }
    return nSent == nPacket ? len : 0;
}

// Kept (operators): [setup-dump] the dump goes to standard error, independent of the debug switch.
void dump_addr(const CBB_ADDR_T& addr) {
    unsigned char bytes[sizeof(addr)];
    memcpy(bytes, &addr, sizeof(addr));
    RtspsDebugHex(bytes, static_cast<int>(sizeof(bytes)));
}
