// SPDX-License-Identifier: MIT
#include "rtp_packet.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <tuple>
#include <vector>

namespace {

using ::testing::ElementsAreArray;
using Bytes = std::vector<uint8_t>;

// A heap block that ends with the packet, which starts at an odd address.
class CUnaligned {
  public:
    explicit CUnaligned(const Bytes& bytes) : m_block(bytes.size() + 1) {
        std::copy(bytes.begin(), bytes.end(), m_block.begin() + 1);
        m_block.shrink_to_fit();
    }
    uint8_t* Start() { return m_block.data() + 1; }
    Bytes Content() const { return {m_block.begin() + 1, m_block.end()}; }

  private:
    Bytes m_block;
};

TEST(RtpPacket, PacksAHeader) {
    CUnaligned buf(Bytes(14, 0xEE));
    rtp_param param{0xA1B2C3D4, 0xFFFF, 0x01020304, 3, 8, 1};
    CRtpPacket packet(buf.Start(), 2);
    ASSERT_NE(packet.pack(&param), nullptr);
    // Payload type 96 whatever the parameters say, no extension, the marker's low bit.
    EXPECT_THAT(buf.Content(), ElementsAreArray({0x80, 0xE0, 0xFF, 0xFF, 1, 2, 3, 4, 0xA1, 0xB2,
                                                 0xC3, 0xD4, 0xEE, 0xEE}));
    EXPECT_EQ(param.sequence, 0);

    EXPECT_EQ(CRtpPacket(buf.Start(), 0x7FFFFFFF).pack(&param), nullptr);
}

// A packet whose fixed header differs in its first byte only.
Bytes Packet(uint8_t byHead, const Bytes& rest) {
    Bytes bytes = {byHead, 0x88, 0x12, 0x34, 1, 2, 3, 4, 5, 6, 7, 8};
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    return bytes;
}

TEST(RtpPacket, UnpacksWhatIsHeld) {
    // The payload's offset, -1: refused; its length.
    const std::tuple<const char*, Bytes, int, int> rows[] = {
        {"plain", Packet(0x80, {9, 9, 9}), 12, 3},
        {"short by a byte", {0x80, 0x88, 0, 0, 0, 0, 0, 0, 0, 0, 0}, -1, 0},
        {"CSRC list", Packet(0x82, {0, 0, 0, 1, 0, 0, 0, 2, 9}), 20, 1},
        {"CSRC list cut", Packet(0x82, {0, 0, 0, 1, 0, 0, 0}), -1, 0},
        {"extension", Packet(0x90, {0xBE, 0xDE, 0, 1, 7, 7, 7, 7, 9}), 20, 1},
        {"empty extension", Packet(0x90, {0xBE, 0xDE, 0, 0}), 16, 0},
        {"extension header cut", Packet(0x90, {0xBE, 0xDE, 0}), -1, 0},
        {"extension data cut", Packet(0x90, {0xBE, 0xDE, 0xFF, 0xFF, 7}), -1, 0},
        {"padding", Packet(0xA0, {9, 9, 0, 2}), 12, 2},
        {"padding reaches into the header", Packet(0xA0, {9, 3}), -1, 0},
        {"padding in the header itself", Packet(0xA0, {}), -1, 0},
    };
    for (const auto& [szWhat, bytes, nPayload, nLen] : rows) {
        CUnaligned buf(bytes);
        CRtpPacket packet(buf.Start(), static_cast<int>(bytes.size()));
        const rtp_buf* pResult = packet.unpack();
        ASSERT_EQ(pResult != nullptr, nPayload >= 0) << szWhat;
        if (pResult == nullptr) {
            EXPECT_EQ(buf.Content(), bytes) << szWhat;
            continue;
        }
        EXPECT_EQ(pResult->buf, buf.Start() + nPayload) << szWhat;
        EXPECT_EQ(pResult->len, nLen) << szWhat;
    }
}

TEST(RtpPacket, ConvertsTheHeaderInPlace) {
    CUnaligned buf(Packet(0x91, {0, 0, 0, 7, 0xBE, 0xDE, 0, 1, 1, 2, 3, 4}));
    CRtpPacket packet(buf.Start(), 24);
    ASSERT_NE(packet.unpack(), nullptr);
    const rtp_hdr hdr = *packet.Header();
    EXPECT_EQ(+hdr.payload, 8);
    EXPECT_EQ(+hdr.sequence, 0x1234);
    EXPECT_EQ(+hdr.timestamp, 0x01020304U);
    EXPECT_EQ(+hdr.ssrc, 0x05060708U);
    EXPECT_EQ(buf.Start()[20], 1) << "extension data is not converted";
}

}  // namespace
