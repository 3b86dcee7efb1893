// SPDX-License-Identifier: MIT
#include "rtcp_packet.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace {

constexpr int REPORT_SIZE = static_cast<int>(sizeof(rtcp_report));
constexpr int SDES_ITEM_HEADER_SIZE = 2;
constexpr int APP_NAME_OFFSET = 8;
constexpr int APP_DATA_OFFSET = 12;

// Kept (clients): [rtcp-absent-block] a packet without report blocks is converted as if it had one,
// so the bytes after it are converted too.
int ReportWords(int nCount, size_t nSizeWithOne) {
    return (std::max(nCount - 1, 0) * REPORT_SIZE + static_cast<int>(nSizeWithOne)) / 4;
}

}  // namespace

CRtcpPacket::CRtcpPacket(void* buf, int len)
    : m_rtcp(nullptr), m_length(0), m_nReadable(0), m_chunk{}, m_stuChunk{} {
    if (buf == nullptr || len < RTCP_COMMON_SIZE) {
        return;
    }
    m_rtcp = static_cast<rtcp_packet*>(buf);
    m_rtcp->common.length = ntohs(m_rtcp->common.length);
    // Kept (clients): [rtcp-length-word] the size is the length field in words. In RFC 3550 the
    // field is the size minus one word, so one word is missing here.
    const int nSize = m_rtcp->common.length * 4;
    if (nSize > len) {
        return;
    }
    m_length = nSize;
    if (m_rtcp->common.padding != 0 && nSize > 0) {
        // Kept (clients): [rtcp-padding-bits] only the low two bits of the padding count are used.
        m_length -= Bytes()[nSize - 1] & 3;
    }
    switch (m_rtcp->common.type) {
        case RTCP_SR:
            ConvertWords(ReportWords(count(), sizeof(rtcp_sr)), len);
            break;
        case RTCP_RR:
            ConvertWords(ReportWords(count(), sizeof(rtcp_rr)), len);
            break;
        case RTCP_SDES:
            ParseSdes(len);
            break;
        case RTCP_BYE:
            ConvertWords(count(), len);
            break;
        case RTCP_APP:
            ConvertWords(1, len);
            m_nReadable = std::min(len, RTCP_COMMON_SIZE + nSize);
            break;
        default:
            break;
    }
}

CRtcpPacket::CRtcpPacket(const CRtcpPacket& other)
    : m_rtcp(other.m_rtcp), m_length(other.m_length), m_nReadable(other.m_nReadable), m_chunk{} {
    for (int i = 0; i < RTCP_MAX_CHUNKS; ++i) {
        m_stuChunk[i] = other.m_stuChunk[i];
        m_chunk[i] = other.m_chunk[i] != nullptr ? &m_stuChunk[i] : nullptr;
    }
}

// Converts the words after the common header, as far as the buffer holds them.
void CRtcpPacket::ConvertWords(int nWords, int len) {
    const int nHeld = std::min(nWords, (len - RTCP_COMMON_SIZE) / 4);
    ConvertFromNetwork(m_rtcp, 1, nHeld);
    m_nReadable = RTCP_COMMON_SIZE + nHeld * 4;
}

void CRtcpPacket::ParseSdes(int len) {
    uint8_t* pStart = reinterpret_cast<uint8_t*>(m_rtcp);
    int nOffset = RTCP_COMMON_SIZE;
    for (int i = 0; i < count() && nOffset + 4 <= len; ++i) {
        ConvertFromNetwork(pStart + nOffset, 0, 1);
        sdes_chunk* pChunk = nullptr;
        if (i < RTCP_MAX_CHUNKS) {
            pChunk = m_chunk[i] = &m_stuChunk[i];
            pChunk->header = reinterpret_cast<const rtcp_sdes*>(pStart + nOffset);
        }
        nOffset = ParseSdesItems(pChunk, nOffset + 4, len);
    }
}

// Records the items of a chunk; skips them when `pChunk` is null. Returns the offset of the next
// chunk, or `len` or more when no chunk can follow.
int CRtcpPacket::ParseSdesItems(sdes_chunk* pChunk, int nOffset, int len) {
    const uint8_t* pStart = Bytes();
    while (nOffset < len) {
        if (pStart[nOffset] == RTCP_SDES_END) {
            return (nOffset + 1 + 3) / 4 * 4;
        }
        if (nOffset + SDES_ITEM_HEADER_SIZE > len) {
            break;
        }
        const int nItemSize = SDES_ITEM_HEADER_SIZE + pStart[nOffset + 1];
        if (nOffset + nItemSize > len) {
            break;
        }
        if (pChunk != nullptr && pChunk->count < RTCP_MAX_ITEMS) {
            pChunk->item[pChunk->count] = reinterpret_cast<const rtcp_sdes_item*>(pStart + nOffset);
            ++pChunk->count;
            pChunk->size += nItemSize;
        }
        nOffset += nItemSize;
    }
    return len;
}

bool CRtcpPacket::Holds(rtcp_type nType, int nOffset, int nSize) const {
    return type() == nType && nOffset + nSize <= m_nReadable;
}

uint32_t CRtcpPacket::Word(rtcp_type nType, int nOffset) const {
    if (!Holds(nType, nOffset, 4)) {
        return 0;
    }
    uint32_t nWord = 0;
    memcpy(&nWord, Bytes() + nOffset, sizeof(nWord));
    return nWord;
}

const rtcp_report* CRtcpPacket::Report(rtcp_type nType, int nFirst, int i) const {
    if (i < 0 || i >= count() || !Holds(nType, nFirst + i * REPORT_SIZE, REPORT_SIZE)) {
        return nullptr;
    }
    return reinterpret_cast<const rtcp_report*>(Bytes() + nFirst + i * REPORT_SIZE);
}

int CRtcpSdesPacket::chunk_count() const {
    int n = 0;
    while (n < RTCP_MAX_CHUNKS && m_chunk[n] != nullptr) {
        ++n;
    }
    return n;
}

const sdes_chunk* CRtcpSdesPacket::chunk(int i) const {
    return i >= 0 && i < RTCP_MAX_CHUNKS ? m_chunk[i] : nullptr;
}

uint32_t CRtcpSdesPacket::chunk_ssrc(int i) const {
    const sdes_chunk* pChunk = chunk(i);
    return pChunk != nullptr ? pChunk->header->ssrc : 0;
}

int CRtcpSdesPacket::chunk_size(int i) const {
    const sdes_chunk* pChunk = chunk(i);
    return pChunk != nullptr ? pChunk->size : 0;
}

int CRtcpSdesPacket::item_count(int i) const {
    const sdes_chunk* pChunk = chunk(i);
    return pChunk != nullptr ? pChunk->count : 0;
}

const rtcp_sdes_item* CRtcpSdesPacket::Item(int i, int j) const {
    const sdes_chunk* pChunk = chunk(i);
    return pChunk != nullptr && j >= 0 && j < pChunk->count ? pChunk->item[j] : nullptr;
}

int CRtcpSdesPacket::item_type(int i, int j) const {
    const rtcp_sdes_item* pItem = Item(i, j);
    return pItem != nullptr ? pItem->type : 0;
}

int CRtcpSdesPacket::item_size(int i, int j) const {
    const rtcp_sdes_item* pItem = Item(i, j);
    return pItem != nullptr ? pItem->length : 0;
}

uint32_t CRtcpByePacket::ssrc(int i) const {
    return i >= 0 && i < count() ? Word(RTCP_BYE, RTCP_COMMON_SIZE + i * 4) : 0;
}

const char* CRtcpAppPacket::name() const {
    if (!Holds(RTCP_APP, APP_NAME_OFFSET, APP_DATA_OFFSET - APP_NAME_OFFSET)) {
        return nullptr;
    }
    return reinterpret_cast<const char*>(Bytes() + APP_NAME_OFFSET);
}

const uint8_t* CRtcpAppPacket::data() const {
    return data_len() > 0 ? Bytes() + APP_DATA_OFFSET : nullptr;
}

// `m_length` leaves the common header out, so it is the size of SSRC, name and data.
int CRtcpAppPacket::data_len() const {
    if (!Holds(RTCP_APP, APP_DATA_OFFSET, 0)) {
        return 0;
    }
    const int nDeclared = m_length - (APP_DATA_OFFSET - RTCP_COMMON_SIZE);
    return std::clamp(nDeclared, 0, m_nReadable - APP_DATA_OFFSET);
}
