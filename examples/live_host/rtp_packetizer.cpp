// SPDX-License-Identifier: MIT
#include "rtp_packetizer.h"

#include <algorithm>

namespace {

constexpr uint8_t RTP_VERSION_2 = 0x80;
constexpr uint8_t RTP_MARKER = 0x80;
constexpr uint8_t H264_FU_A = 28;
constexpr uint8_t H265_FU = 49;
constexpr uint8_t FU_START = 0x80;
constexpr uint8_t FU_END = 0x40;

uint8_t ByteOf(size_t value, int shift) {
    return static_cast<uint8_t>(value >> shift & 0xFF);
}

// The bytes before those of a fragment: the NAL unit's header with the type of a fragment, and the
// FU header with the original type.
struct CFragmentHead {
    uint8_t bytes[3];
    size_t nSize;
};

// RFC 6184, 5.8, and RFC 7798, 4.4.3.
CFragmentHead MakeFragmentHead(EVideoCodec emCodec, const uint8_t* pNal) {
    if (emCodec == EVideoCodec::eH264) {
        const int flags = pNal[0] & 0xE0;
        return {{static_cast<uint8_t>(flags | H264_FU_A), ByteOf(pNal[0] & 0x1F, 0), 0}, 2};
    }
    const int flagAndLayer = pNal[0] & 0x81;
    const size_t type = pNal[0] >> 1 & 0x3F;
    return {{static_cast<uint8_t>(flagAndLayer | H265_FU << 1), pNal[1], ByteOf(type, 0)}, 3};
}

}  // namespace

void CRtpPacketizer::AppendPicture(EVideoCodec emCodec, const CAccessUnit& picture,
                                   uint32_t dwTimestamp, std::vector<uint8_t>& units) {
    const auto sendable = [&](const CAccessUnit::CNal& nal) {
        return nal.traits.bSendable && nal.nSize >= NalHeaderSize(emCodec);
    };
    const auto& nals = picture.Nals();
    const auto last = std::find_if(nals.rbegin(), nals.rend(), sendable);
    for (const CAccessUnit::CNal& nal : nals) {
        if (sendable(nal))
            AppendNal(emCodec, {picture.Data(nal), nal.nSize}, dwTimestamp, &nal == &*last, units);
    }
}

void CRtpPacketizer::AppendSamples(const uint8_t* pData, size_t size, uint32_t dwTimestamp,
                                   std::vector<uint8_t>& units) {
    AppendPacket({nullptr, 0}, {pData, std::min(size, RTP_MAX_PAYLOAD)}, dwTimestamp, false, units);
}

void CRtpPacketizer::AppendNal(EVideoCodec emCodec, CBytes nal, uint32_t dwTimestamp, bool bLast,
                               std::vector<uint8_t>& units) {
    if (nal.nSize <= RTP_MAX_PAYLOAD) {
        AppendPacket({nullptr, 0}, nal, dwTimestamp, bLast, units);
        return;
    }
    CFragmentHead head = MakeFragmentHead(emCodec, nal.pData);
    uint8_t& fuHeader = head.bytes[head.nSize - 1];
    const size_t room = RTP_MAX_PAYLOAD - head.nSize;
    fuHeader |= FU_START;
    for (size_t pos = NalHeaderSize(emCodec); pos < nal.nSize; pos += room) {
        const size_t size = std::min(room, nal.nSize - pos);
        const bool end = pos + size == nal.nSize;
        if (end)
            fuHeader |= FU_END;
        AppendPacket({head.bytes, head.nSize}, {nal.pData + pos, size}, dwTimestamp, bLast && end,
                     units);
        fuHeader &= static_cast<uint8_t>(~FU_START);
    }
}

void CRtpPacketizer::AppendPacket(CBytes head, CBytes body, uint32_t dwTimestamp, bool bMarker,
                                  std::vector<uint8_t>& units) {
    const size_t length = RTP_HEADER_SIZE + head.nSize + body.nSize;
    const uint8_t marker = bMarker ? RTP_MARKER : 0;
    const uint8_t prefixAndHeader[] = {
        // clang-format off
        '$', 0, ByteOf(length, 8), ByteOf(length, 0),
        RTP_VERSION_2, static_cast<uint8_t>(marker | m_byPayloadType),
        ByteOf(m_wSequence, 8), ByteOf(m_wSequence, 0),
        ByteOf(dwTimestamp, 24), ByteOf(dwTimestamp, 16),
        ByteOf(dwTimestamp, 8), ByteOf(dwTimestamp, 0),
        0, 0, 0, 0,
        // clang-format on
    };
    units.insert(units.end(), std::begin(prefixAndHeader), std::end(prefixAndHeader));
    units.insert(units.end(), head.pData, head.pData + head.nSize);
    units.insert(units.end(), body.pData, body.pData + body.nSize);
    ++m_wSequence;
}
