// SPDX-License-Identifier: MIT
#include "rtcp_packet.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "rtsps_text.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Text behind a common header with a correct length field.
Bytes Text(uint8_t byHead, uint8_t byType, const std::string& text) {
    const std::string head = {static_cast<char>(byHead), static_cast<char>(byType), 0,
                              static_cast<char>(text.size() / 4)};
    const std::string packet = head + text;
    return {packet.begin(), packet.end()};
}

// The same with big-endian words.
Bytes Words(uint8_t byHead, uint8_t byType, const std::vector<uint32_t>& words) {
    Bytes bytes = Text(byHead, byType, std::string(words.size() * 4, ' '));
    for (size_t i = 0; i < words.size(); ++i) {
        WriteBe32(&bytes[4 + i * 4], words[i]);
    }
    return bytes;
}

const std::vector<uint32_t> SR_WORDS = {
    0xA1A2A3A4, 0xE0000001, 500000,     0x01020304, 3, 4294967260,  // sender
    0xB1B2B3B4, 0x40FFFFFE, 0x00010002, 5,          6, 7,           // 2 packets ahead
    0xC1C2C3C4, 0x80000003, 0x00020003, 8,          9, 10};         // 3 lost
const std::vector<uint32_t> RR_WORDS = {0xA1A2A3A4, 0xC1C2C3C4, 0xFF7FFFFF, 0x00020003, 8, 9, 10};
// Three chunks, with two items, one and one.
const std::string SDES_TEXT(
    "\0\0\0\x11\x01\x03\x61\x62\x63\x06\x01z\0\0\0\0"
    "\0\0\0\x12\x02\0\0\0\0\0\0\x13\x08\x02pq\0\0\0\0",
    36);

// The packet in a heap block that ends with it, at an odd address.
template <class TView>
class CParsed {
  public:
    explicit CParsed(const Bytes& bytes) : CParsed(bytes, bytes.size()) {}
    CParsed(const Bytes& bytes, size_t nHeld)
        : m_block(bytes.begin(), bytes.begin() + static_cast<int>(nHeld)) {
        m_block.insert(m_block.begin(), 0);
        m_block.shrink_to_fit();
        m_view = std::make_unique<TView>(m_block.data() + 1, static_cast<int>(nHeld));
    }
    TView* operator->() { return m_view.get(); }
    Bytes Content() const { return {m_block.begin() + 1, m_block.end()}; }

  private:
    Bytes m_block;
    std::unique_ptr<TView> m_view;
};

TEST(RtcpPacket, ReadsReports) {
    CParsed<CRtcpSRPacket> sr(Words(0x82, RTCP_SR, SR_WORDS));
    const std::vector<uint32_t> sender = {sr->sender_ssrc(), sr->ntp_sec(), sr->ntp_frac(),
                                          sr->rtp_ts(),      sr->psent(),   sr->osent()};
    EXPECT_EQ(sender, std::vector<uint32_t>(SR_WORDS.begin(), SR_WORDS.begin() + 6));
    ASSERT_NE(sr->report(1), nullptr);
    const rtcp_report first = *sr->report(0);
    EXPECT_EQ(+first.ssrc, 0xB1B2B3B4);
    EXPECT_EQ(+first.fraction, 0x40U);
    EXPECT_EQ(+first.lost, -2);
    EXPECT_EQ(+first.last_seq, 0x00010002U);
    EXPECT_EQ(+first.jitter, 5U);
    EXPECT_EQ(+sr->report(1)->dlsr, 10U);
    EXPECT_EQ(sr->report(2), nullptr);
    EXPECT_EQ(sr->report(-1), nullptr);
    CParsed<CRtcpRRPacket> rr(Words(0x81, RTCP_RR, RR_WORDS));
    EXPECT_EQ(rr->sender_ssrc(), 0xA1A2A3A4);
    EXPECT_EQ(+rr->report(0)->lost, 0x7FFFFF);
    EXPECT_EQ(rr->report(1), nullptr);
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
    for (const int i : {3, 16, -1}) {
        EXPECT_EQ(sdes->chunk(i), nullptr);
    }
}

TEST(RtcpPacket, RecordsSixteenChunksAndItemsAtMost) {
    std::string text;
    for (char c = 1; c <= 20; ++c) {
        text += std::string("\0\0\0", 3) + c + std::string("\x01\x01x\0", 4);
    }
    CParsed<CRtcpSdesPacket> chunks(Text(0x80 | 20, RTCP_SDES, text));
    EXPECT_EQ(chunks->chunk_count(), RTCP_MAX_CHUNKS);
    EXPECT_EQ(chunks->chunk_ssrc(15), 16U);

    text = std::string("\0\0\0\x11", 4);
    for (int i = 0; i < 20; ++i) {
        text += "\x01\x01x";
    }
    text += std::string("\0\0\0\0\0\0\0\x22\x02\0\0\0", 12);
    CParsed<CRtcpSdesPacket> items(Text(0x82, RTCP_SDES, text));
    EXPECT_EQ(items->item_count(0), RTCP_MAX_ITEMS);
    EXPECT_EQ(items->chunk_size(0), 48);
    EXPECT_EQ(items->item_type(0, 16), 0);
    EXPECT_EQ(items->chunk_ssrc(1), 0x22U) << "the walk goes on behind the unrecorded items";
}

TEST(RtcpPacket, ReadsByeAndApp) {
    CParsed<CRtcpByePacket> bye(Words(0x82, RTCP_BYE, {0xB1B2B3B4, 0xC1C2C3C4, 5}));
    EXPECT_EQ(bye->ssrc(1), 0xC1C2C3C4);
    EXPECT_EQ(bye->ssrc(2) + bye->ssrc(-1), 0U);
    // With padding, which shortens by the low bits of the last byte within the size of 16: the 2.
    CParsed<CRtcpAppPacket> app(
        Text(0xA0, RTCP_APP, std::string("\0\0\0\x07NAMEda\x06\x02....", 16)));
    EXPECT_EQ(app->ssrc(), 7U);
    EXPECT_EQ(std::string(app->name(), 4), "NAME");
    EXPECT_EQ(app->data_len(), 6);
}

// Under the address sanitizer; the fuzz targets go through every cut.
TEST(RtcpPacket, CutPacketsAreReadAsFarAsTheyAreHeld) {
    CParsed<CRtcpSRPacket> sr(Words(0x82, RTCP_SR, SR_WORDS), 76 - 4);
    EXPECT_NE(sr->report(0), nullptr);
    EXPECT_EQ(sr->report(1), nullptr) << "its last word is not held";
    CParsed<CRtcpSdesPacket> sdes(Text(0x83, RTCP_SDES, SDES_TEXT), 40 - 3);
    EXPECT_EQ(sdes->chunk_count(), 3);
    EXPECT_EQ(sdes->item_count(2), 1);
    const Bytes bye = Words(0x9F, RTCP_BYE, {1, 2, 3});
    CParsed<CRtcpByePacket> none(bye, 8);
    EXPECT_EQ(none->ssrc(0), 0U);
    EXPECT_EQ(none.Content()[7], 1) << "not converted either";
}

}  // namespace
