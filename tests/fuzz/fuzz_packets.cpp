// SPDX-License-Identifier: MIT
// The RTP and the RTCP parser, compared with a second implementation of their rules. All packets
// start at odd addresses.
#include "fuzz_support.h"
#include "rtcp_packet.h"

namespace {

// A packet as it was received, and the copy that a parser converts in place.
struct CPacket {
    explicit CPacket(const Bytes& received) : raw(received), block(received) {
        block.insert(block.begin(), 0);
    }
    uint8_t* Data() { return block.data() + 1; }
    int Size() const { return static_cast<int>(raw.size()); }
    int Count() const { return raw.size() < 4 ? 0 : raw[0] & 31; }
    // Kept: one word less than the packet has.
    int Declared() const { return raw.size() < 4 ? 0 : ReadBe16(&raw[2]) * 4; }
    // Whether the packet has this type, holds what it declares, and ends at `nEnd` or later.
    bool Reaches(rtcp_type type, int nEnd) const {
        return raw.size() >= 4 && raw[1] == type && Declared() <= Size() && nEnd <= Size();
    }
    uint32_t Word(rtcp_type type, int nOffset) const {
        return Reaches(type, nOffset + 4) ? ReadBe32(&raw[static_cast<size_t>(nOffset)]) : 0;
    }

    const Bytes raw;
    Bytes block;
};

void CheckReport(const rtcp_report* pReport, const CPacket& packet, rtcp_type type, int nOffset,
                 bool bCounted) {
    FUZZ_CHECK((pReport != nullptr) == (bCounted && packet.Reaches(type, nOffset + 24)));
    if (pReport != nullptr) {
        const uint32_t nLoss = packet.Word(type, nOffset + 4);
        FUZZ_CHECK(pReport->ssrc == packet.Word(type, nOffset));
        FUZZ_CHECK(pReport->fraction == nLoss >> 24);
        FUZZ_CHECK(pReport->lost == static_cast<int32_t>(nLoss << 8) / 256);
        FUZZ_CHECK(pReport->last_seq == packet.Word(type, nOffset + 8));
        FUZZ_CHECK(pReport->dlsr == packet.Word(type, nOffset + 20));
    }
}

void CheckSdes(const CRtcpSdesPacket& sdes, CPacket& packet) {
    const Bytes& raw = packet.raw;
    size_t nOffset = packet.Reaches(RTCP_SDES, 4) ? 4 : raw.size();
    int nChunks = 0;
    for (int i = 0; i < packet.Count() && nOffset + 4 <= raw.size(); ++i) {
        const bool bRecorded = i < RTCP_MAX_CHUNKS;
        nChunks += bRecorded ? 1 : 0;
        FUZZ_CHECK(sdes.chunk_ssrc(i) == (bRecorded ? ReadBe32(&raw[nOffset]) : 0));
        int nItems = 0;
        int nBytes = 0;
        for (nOffset += 4; nOffset + 2 <= raw.size() && raw[nOffset] != RTCP_SDES_END;) {
            const int nSize = raw[nOffset + 1];
            if (nOffset + 2 + static_cast<size_t>(nSize) > raw.size()) {
                break;
            }
            if (bRecorded && nItems < RTCP_MAX_ITEMS) {
                FUZZ_CHECK(reinterpret_cast<const uint8_t*>(sdes.chunk(i)->item[nItems]) ==
                           packet.Data() + nOffset);
                FUZZ_CHECK(sdes.item_type(i, nItems) == raw[nOffset]);
                FUZZ_CHECK(sdes.item_size(i, nItems) == nSize);
                nBytes += 2 + nSize;
                ++nItems;
            }
            nOffset += 2 + static_cast<size_t>(nSize);
        }
        FUZZ_CHECK(sdes.item_count(i) == nItems && sdes.chunk_size(i) == nBytes);
        FUZZ_CHECK(sdes.item_type(i, nItems) == 0 && sdes.item_size(i, -1) == 0);
        const bool bEnded = nOffset < raw.size() && raw[nOffset] == RTCP_SDES_END;
        nOffset = bEnded ? nOffset / 4 * 4 + 4 : raw.size();
    }
    FUZZ_CHECK(sdes.chunk_count() == nChunks);
    FUZZ_CHECK(sdes.chunk(nChunks) == nullptr && sdes.chunk(-1) == nullptr);
}

void CheckApp(const CRtcpAppPacket& app, CPacket& packet) {
    const int nDeclared = packet.Declared();
    const bool bApp = packet.Reaches(RTCP_APP, 4);
    const int nEnd = bApp ? std::min(packet.Size(), 4 + nDeclared) : 0;
    // Kept: the low two bits of the last declared byte.
    const int nPadding = nEnd > 12 && (packet.raw[0] & 0x20) != 0
                             ? packet.raw[static_cast<size_t>(nDeclared) - 1] & 3
                             : 0;
    const int nData = nEnd > 12 ? std::clamp(nDeclared - nPadding - 8, 0, nEnd - 12) : 0;
    FUZZ_CHECK(app.ssrc() == (nEnd >= 8 ? packet.Word(RTCP_APP, 4) : 0));
    FUZZ_CHECK(app.data_len() == nData);
    const void* pName = nEnd >= 12 ? packet.Data() + 8 : nullptr;
    FUZZ_CHECK(app.name() == pName);
    FUZZ_CHECK(app.data() == (nData > 0 ? packet.Data() + 12 : nullptr));
}

void CheckRtcp(CPacket packet) {
    const CRtcpPacket parsed(packet.Data(), packet.Size());
    FUZZ_CHECK(parsed.type() == (packet.Size() < 4 ? 0 : packet.raw[1]));
    FUZZ_CHECK(parsed.count() == packet.Count());
    const CRtcpSRPacket sr(parsed);
    const CRtcpRRPacket rr(parsed);
    const CRtcpByePacket bye(parsed);
    const uint32_t sender[] = {sr.sender_ssrc(), sr.ntp_sec(), sr.ntp_frac(),
                               sr.rtp_ts(),      sr.psent(),   sr.osent()};
    for (int i = 0; i < 6; ++i) {
        FUZZ_CHECK(sender[i] == packet.Word(RTCP_SR, 4 + 4 * i));
    }
    FUZZ_CHECK(rr.sender_ssrc() == packet.Word(RTCP_RR, 4));
    for (int i = -1; i < 34; ++i) {  // beyond any count in a packet
        const bool bCounted = i >= 0 && i < packet.Count();
        CheckReport(sr.report(i), packet, RTCP_SR, 28 + 24 * i, bCounted);
        CheckReport(rr.report(i), packet, RTCP_RR, 8 + 24 * i, bCounted);
        FUZZ_CHECK(bye.ssrc(i) == (bCounted ? packet.Word(RTCP_BYE, 4 + 4 * i) : 0));
    }
    CheckSdes(CRtcpSdesPacket(parsed), packet);
    CheckApp(CRtcpAppPacket(parsed), packet);
}

void CheckRtp(CPacket packet) {
    const Bytes& raw = packet.raw;
    CRtpPacket parsed(packet.Data(), packet.Size());
    const rtp_buf* pPayload = parsed.unpack();
    if (raw.size() < RTP_HEADER_SIZE || raw[0] >> 6 != RTP_VERSION) {
        FUZZ_CHECK(pPayload == nullptr);
        return;
    }
    size_t nHeader = RTP_HEADER_SIZE + 4 * size_t{raw[0] & 15U};
    if ((raw[0] & 0x10) != 0) {  // the extension; without its length it does not fit either
        nHeader += 4;
        nHeader += nHeader <= raw.size() ? 4 * size_t{ReadBe16(&raw[nHeader - 2])} : 0;
    }
    const size_t nPadding = (raw[0] & 0x20) != 0 ? raw.back() : 0;
    FUZZ_CHECK((pPayload != nullptr) == (nHeader + nPadding <= raw.size()));
    if (pPayload != nullptr) {
        FUZZ_CHECK(pPayload->buf == packet.Data() + nHeader);
        FUZZ_CHECK(static_cast<size_t>(pPayload->len) == raw.size() - nHeader - nPadding);
        FUZZ_CHECK(parsed.Header()->sequence == ReadBe16(&raw[2]));
        FUZZ_CHECK(parsed.Header()->timestamp == ReadBe32(&raw[4]));
        FUZZ_CHECK(parsed.Header()->ssrc == ReadBe32(&raw[8]));
    }
}

}  // namespace

void Fuzz(CFuzzInput input) {
    CheckRtcp(CPacket(input.All()));
    CheckRtp(CPacket(input.All()));
}
