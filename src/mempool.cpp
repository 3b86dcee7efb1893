// SPDX-License-Identifier: MIT
#include "mempool.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>

namespace {

constexpr uint32_t RECORD_MARKER = 0xAABBCCDD;
constexpr uint64_t MAX_RECORD_LEN = std::numeric_limits<uint32_t>::max();

// After a single-piece append the write position may be up to 7 bytes past the end of the ring. A
// commit then writes its 8-byte record header there.
constexpr uint64_t BLOCK_SLACK = 16;

}  // namespace

bool CMemPool::Init(uint32_t dwRingLen, uint32_t dwTailLen) {
    // A record starts at most 7 bytes past the end of the ring and is shorter than ring and tail
    // together (see Room). Init keeps the positions, which may come from an earlier, larger ring.
    const TPositions pos = Positions();
    const uint64_t nStart = std::max({dwRingLen, pos.dwRead, pos.dwWrite});
    const uint64_t nBlockLen = nStart + dwRingLen + dwTailLen + BLOCK_SLACK;
    if (nBlockLen > static_cast<uint64_t>(std::numeric_limits<ptrdiff_t>::max())) {
        return false;
    }
    auto* pBuf = new (std::nothrow) uint8_t[static_cast<size_t>(nBlockLen)];
    if (pBuf == nullptr) {
        return false;
    }
    Release();
    // Kept (hosts): [mempool-positions] the positions are not reset. A pool that has been in use
    // needs a Clear.
    m_pBuf = pBuf;
    m_nBlockLen = nBlockLen;
    m_dwRingLen = dwRingLen;
    m_dwTailLen = dwTailLen;
    return true;
}

bool CMemPool::Release() {
    delete[] m_pBuf;
    m_pBuf = nullptr;
    return true;
}

bool CMemPool::InputData(const void* pData, uint32_t dwDataLen) {
    if (pData == nullptr || dwDataLen == 0) {
        // Kept (hosts): [mempool-texts] these texts go to standard output without a log level. Only
        // the text for two empty pieces ends with a line feed.
        printf("invalid input para,dwDataLen = %u", dwDataLen);
        return false;
    }
    const TPositions pos = Positions();
    if (Room(pos) <= uint64_t{dwDataLen} + RECORD_OVERHEAD) {
        printf("there is no space,dwDataLen = %u", dwDataLen);
        return false;
    }
    PutHeader(pos.dwWrite, dwDataLen);
    memcpy(m_pBuf + pos.dwWrite + RECORD_OVERHEAD, pData, dwDataLen);

    // Kept (hosts): [mempool-one-piece] only this append leaves the 8-byte record header out of the
    // comparison with the ring.
    const bool bInRing = uint64_t{pos.dwWrite} + dwDataLen < m_dwRingLen;
    m_dwWidx.store(bInRing ? pos.dwWrite + dwDataLen + RECORD_OVERHEAD : 0,
                   std::memory_order_release);
    return true;
}

bool CMemPool::InputData(const void* pFirst, uint32_t dwFirstLen, const void* pSecond,
                         uint32_t dwSecondLen) {
    const uint64_t nTotal = uint64_t{dwFirstLen} + dwSecondLen;
    if (nTotal == 0) {
        printf("invalid input para\n");
        return false;
    }
    const auto dwTotal = static_cast<uint32_t>(nTotal);
    const TPositions pos = Positions();
    if (nTotal > MAX_RECORD_LEN || Room(pos) <= nTotal + RECORD_OVERHEAD) {
        printf("there is no space,dwDataLen = %u", dwTotal);
        return false;
    }
    PutHeader(pos.dwWrite, dwTotal);
    uint8_t* pTo = m_pBuf + pos.dwWrite + RECORD_OVERHEAD;
    if (pFirst != nullptr) {
        memcpy(pTo, pFirst, dwFirstLen);
    }
    if (pSecond != nullptr) {
        memcpy(pTo + dwFirstLen, pSecond, dwSecondLen);
    }
    AdvanceWrite(pos.dwWrite, dwTotal);
    return true;
}

bool CMemPool::GetBuf(uint8_t** ppBuf, uint32_t* pdwLen) {
    const TPositions pos = Positions();
    const uint64_t nRoom = Room(pos);
    if (nRoom <= RECORD_OVERHEAD) {
        *pdwLen = 0;
        return false;
    }
    *ppBuf = m_pBuf + pos.dwWrite + RECORD_OVERHEAD;
    *pdwLen = static_cast<uint32_t>(std::min(nRoom - RECORD_OVERHEAD - 1, MAX_RECORD_LEN));
    return true;
}

bool CMemPool::UpdateWriteIdx(uint32_t dwLen) {
    if (m_pBuf == nullptr) {
        return false;
    }
    const uint32_t dwWidx = m_dwWidx.load(std::memory_order_relaxed);
    PutHeader(dwWidx, dwLen);
    AdvanceWrite(dwWidx, dwLen);
    return true;
}

bool CMemPool::checkWritable(uint32_t dwNeeded) const {
    return Room(Positions()) > dwNeeded;
}

bool CMemPool::GetData(uint8_t** ppBuf, uint32_t* pdwLen) {
    const TPositions pos = Positions();
    if (m_pBuf == nullptr || (Used(pos) < RECORD_OVERHEAD && pos.dwRead <= pos.dwWrite)) {
        return false;
    }
    // Kept (hosts): [mempool-marker] the marker before the length is not checked.
    uint32_t dwLen = 0;
    memcpy(&dwLen, m_pBuf + pos.dwRead + sizeof(RECORD_MARKER), sizeof(dwLen));
    // The caller may have committed more than GetBuf offered, or consumed another length than
    // GetData reported. The reader must still stay inside the block.
    const uint64_t nHeld = m_nBlockLen - pos.dwRead - RECORD_OVERHEAD;
    *ppBuf = m_pBuf + pos.dwRead + RECORD_OVERHEAD;
    *pdwLen = static_cast<uint32_t>(std::min<uint64_t>(dwLen, nHeld));
    return true;
}

bool CMemPool::UpdateReadIdx(uint32_t dwLen) {
    const uint32_t dwRidx = m_dwRidx.load(std::memory_order_relaxed);
    const uint64_t nNext = uint64_t{dwRidx} + dwLen + RECORD_OVERHEAD;
    m_dwRidx.store(nNext < m_dwRingLen ? static_cast<uint32_t>(nNext) : 0,
                   std::memory_order_release);
    return true;
}

bool CMemPool::Clear() {
    m_dwRidx.store(m_dwWidx.load(std::memory_order_acquire), std::memory_order_release);
    return true;
}

uint32_t CMemPool::GetSpace() const {
    return m_dwRingLen - Used(Positions());
}

CMemPool::TPositions CMemPool::Positions() const {
    return {m_dwRidx.load(std::memory_order_acquire), m_dwWidx.load(std::memory_order_acquire)};
}

uint32_t CMemPool::Used(const TPositions& pos) const {
    return m_dwRingLen == 0 ? 0 : (pos.dwWrite - pos.dwRead + m_dwRingLen) % m_dwRingLen;
}

// The size that a record, header included, must stay below. While the write position is ahead of
// the read position, a record may extend into the tail, because no unread data lies after it. It
// may not while the read position is 0. A record that reaches the end of the ring would then set
// the write position to 0 as well, and the full ring would look empty.
uint64_t CMemPool::Room(const TPositions& pos) const {
    if (m_pBuf == nullptr) {
        return 0;
    }
    const uint64_t nFree = m_dwRingLen - Used(pos);
    return pos.dwWrite > pos.dwRead && pos.dwRead != 0 ? nFree + m_dwTailLen : nFree;
}

void CMemPool::PutHeader(uint32_t dwWidx, uint32_t dwLen) {
    memcpy(m_pBuf + dwWidx, &RECORD_MARKER, sizeof(RECORD_MARKER));
    memcpy(m_pBuf + dwWidx + sizeof(RECORD_MARKER), &dwLen, sizeof(dwLen));
}

// Publishes the record that starts at `dwWidx`.
void CMemPool::AdvanceWrite(uint32_t dwWidx, uint32_t dwLen) {
    const uint64_t nNext = uint64_t{dwWidx} + dwLen + RECORD_OVERHEAD;
    m_dwWidx.store(nNext < m_dwRingLen ? static_cast<uint32_t>(nNext) : 0,
                   std::memory_order_release);
}
