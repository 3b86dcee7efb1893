// SPDX-License-Identifier: MIT
#include "rtcp_packet.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

// Text after a common header with a correct length field. The packet starts at an odd address.
Bytes Text(uint8_t byHead, uint8_t byType, const std::string& text) {
    Bytes block = {0, byHead, byType, 0, static_cast<uint8_t>(text.size() / 4)};
    block.insert(block.end(), text.begin(), text.end());
    return block;
}

// The bytes 1, 2, 3 and so on.
std::string Counting(char last) {
    std::string text;
    for (char c = 1; c <= last; ++c) {
        text += c;
    }
    return text;
}

// Three chunks, with two items, one and one.
const std::string SDES_TEXT(
    "\0\0\0\x11\x01\x03\x61\x62\x63\x06\x01z\0\0\0\0"
    "\0\0\0\x12\x02\0\0\0\0\0\0\x13\x08\x02pq\0\0\0\0",
    36);

// A parsed packet. The fuzz target covers all ways in which a packet can be cut.
template <class TView>
struct CParsed {
    explicit CParsed(Bytes bytes) : block(std::move(bytes)) {}
    TView* operator->() { return &view; }

    Bytes block;
    TView view{block.data() + 1, static_cast<int>(block.size()) - 1};
};

TEST(RtcpPacket, ReadsReports) {
    std::string body = Counting(72);
    body.replace(29, 3, "\xFF\xFF\xFE");  // 2 packets ahead
    CParsed<CRtcpSRPacket> sr(Text(0x82, RTCP_SR, body));
    const std::vector<uint32_t> sender = {sr->sender_ssrc(), sr->ntp_sec(), sr->ntp_frac(),
                                          sr->rtp_ts(),      sr->psent(),   sr->osent()};
    EXPECT_EQ(sender, (std::vector<uint32_t>{0x01020304, 0x05060708, 0x090A0B0C, 0x0D0E0F10,
                                             0x11121314, 0x15161718}));
    ASSERT_NE(sr->report(1), nullptr);
    const rtcp_report first = *sr->report(0);
    EXPECT_EQ(std::tuple(+first.ssrc, +first.fraction, +first.lost, +first.last_seq, +first.jitter),
              std::tuple(0x191A1B1CU, 0x1DU, -2, 0x21222324U, 0x25262728U));
    EXPECT_EQ(+sr->report(1)->dlsr, 0x45464748U);
    EXPECT_TRUE(sr->report(2) == nullptr && sr->report(-1) == nullptr);

    CParsed<CRtcpRRPacket> rr(Text(0x81, RTCP_RR, Counting(28)));
    EXPECT_EQ(rr->sender_ssrc(), 0x01020304U);
    EXPECT_EQ(+rr->report(0)->lost, 0x0A0B0C);
}

// Kept: the size is the length field in words, so one word may be missing.
TEST(RtcpPacket, ReadsPacketsThatLackAWord) {
    Bytes sr = Text(0x82, RTCP_SR, Counting(72));
    sr.resize(1 + 72);
    EXPECT_EQ(CParsed<CRtcpSRPacket>(sr)->sender_ssrc(), 0x01020304U);
    sr.pop_back();
    EXPECT_EQ(CParsed<CRtcpSRPacket>(sr)->sender_ssrc(), 0U) << "longer than the buffer";
    EXPECT_EQ(CRtcpByePacket(CRtcpPacket(Bytes{0x80, RTCP_BYE, 0, 0}.data(), 4)).type(), RTCP_BYE);
}

TEST(RtcpPacket, RecordsItemsThatEndWithTheBuffer) {
    Bytes sdes = Text(0x81, RTCP_SDES, std::string("\0\0\0\x11\x01\x02xy", 8));
    EXPECT_EQ(CParsed<CRtcpSdesPacket>(sdes)->item_size(0, 0), 2);
    sdes[4] = 1;  // the packet declares no more than the bytes that remain
    sdes.resize(1 + 4 + 4);
    EXPECT_EQ(CParsed<CRtcpSdesPacket>(sdes)->chunk_ssrc(0), 0x11U);
}

TEST(RtcpPacket, ReadsSourceDescriptions) {
    CParsed<CRtcpSdesPacket> sdes(Text(0x83, RTCP_SDES, SDES_TEXT));
    std::string found;
    for (int i = 0; i < sdes->chunk_count(); ++i) {
        found += std::to_string(sdes->chunk_ssrc(i)) + ":" + std::to_string(sdes->chunk_size(i));
        for (int j = 0; j < sdes->item_count(i); ++j) {
            const auto* pItem = reinterpret_cast<const char*>(sdes->chunk(i)->item[j]);
            found += " " + std::to_string(sdes->item_type(i, j)) + "=";
            found.append(pItem + 2, static_cast<size_t>(sdes->item_size(i, j)));
        }
        found += "|";
    }
    EXPECT_EQ(found, "17:8 1=abc 6=z|18:2 2=|19:4 8=pq|");
    EXPECT_TRUE(sdes->chunk(3) == nullptr && sdes->chunk(-1) == nullptr);
}

TEST(RtcpPacket, RecordsSixteenChunksAndItemsAtMost) {
    std::string chunks;
    std::string items("\0\0\0\x11", 4);
    for (char c = 1; c <= 20; ++c) {
        chunks += std::string("\0\0\0", 3) + c + std::string("\x01\x01x\0", 4);
        items += "\x01\x01x";
    }
    CParsed<CRtcpSdesPacket> many(Text(0x80 | 20, RTCP_SDES, chunks));
    EXPECT_EQ(many->chunk_count(), RTCP_MAX_CHUNKS);
    EXPECT_EQ(many->chunk_ssrc(15), 16U);
    CParsed<CRtcpSdesPacket> full(
        Text(0x82, RTCP_SDES, items + std::string("\0\0\0\0\0\0\0\x22\x02\0\0\0", 12)));
    EXPECT_EQ(full->item_count(0), RTCP_MAX_ITEMS);
    EXPECT_EQ(full->chunk_size(0), 48);
    EXPECT_EQ(full->item_type(0, 16), 0);
    EXPECT_EQ(full->chunk_ssrc(1), 0x22U) << "the items above 16 are skipped, not recorded";
}

TEST(RtcpPacket, ReadsByeAndApp) {
    CParsed<CRtcpByePacket> bye(Text(0x82, RTCP_BYE, Counting(12)));
    EXPECT_EQ(bye->ssrc(1), 0x05060708U);
    EXPECT_EQ(bye->ssrc(2) + bye->ssrc(-1), 0U);
    // The padding is the low two bits of the last byte within the declared 16 bytes: 2.
    CParsed<CRtcpAppPacket> app(
        Text(0xA0, RTCP_APP, std::string("\0\0\0\x07NAMEda\x06\x02////", 16)));
    EXPECT_EQ(app->ssrc(), 7U);
    EXPECT_EQ(std::string(app->name(), 4), "NAME");
    EXPECT_EQ(app->data_len(), 6);
}

}  // namespace
