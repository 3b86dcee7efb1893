// SPDX-License-Identifier: MIT
#include "rtp_packet.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

TEST(RtpPacket, PacksAHeader) {
    Bytes buf(15, 0xEE);
    rtp_param param{0xA1B2C3D4, 0xFFFF, 0x01020304, 3, 8, 1};
    ASSERT_NE(CRtpPacket(&buf[1], 0).pack(&param), nullptr) << "a header alone";
    // The payload type is always 96, there is no extension, and only the marker's low bit counts.
    const Bytes expected = {0xEE, 0x80, 0xE0, 0xFF, 0xFF, 1,    2,   3,
                            4,    0xA1, 0xB2, 0xC3, 0xD4, 0xEE, 0xEE};
    EXPECT_EQ(buf, expected);
    EXPECT_EQ(param.sequence, 0);
    EXPECT_EQ(CRtpPacket(&buf[1], 0x7FFFFFFF).pack(&param), nullptr);
}

// Packets at an odd address. The fuzz target finds reads beyond a packet that is cut.
TEST(RtpPacket, UnpacksWhatIsHeld) {
    // The first byte, the bytes after the fixed header, the payload's offset (-1: refused) and
    // length.
    const std::tuple<const char*, uint8_t, Bytes, int, int> rows[] = {
        {"CSRC list", 0x82, {0, 0, 0, 1, 0, 0, 0, 2, 9}, 20, 1},
        {"CSRC list cut", 0x82, {0, 0, 0, 1, 0, 0, 0}, -1, 0},
        {"extension", 0x91, {0, 0, 0, 7, 0xBE, 0xDE, 0, 1, 1, 2, 3, 4, 9}, 24, 1},
        {"empty extension", 0x90, {0xBE, 0xDE, 0, 0}, 16, 0},
        {"extension header cut", 0x90, {0xBE, 0xDE, 0}, -1, 0},
        {"extension data cut", 0x90, {0xBE, 0xDE, 0xFF, 0xFF, 7}, -1, 0},
        {"padding", 0xA0, {9, 9, 0, 2}, 12, 2},
        {"padding reaches into the header", 0xA0, {9, 3}, -1, 0},
    };
    for (const auto& [szWhat, byHead, rest, nPayload, nLen] : rows) {
        SCOPED_TRACE(szWhat);
        Bytes buf = {0, byHead, 0x88, 0x12, 0x34, 1, 2, 3, 4, 5, 6, 7, 8};
        buf.insert(buf.end(), rest.begin(), rest.end());
        CRtpPacket packet(&buf[1], static_cast<int>(buf.size()) - 1);
        const rtp_buf* pResult = packet.unpack();
        ASSERT_EQ(pResult != nullptr, nPayload >= 0);
        if (pResult == nullptr) {
            continue;
        }
        EXPECT_EQ(pResult->buf, &buf[1] + nPayload);
        EXPECT_EQ(pResult->len, nLen);
        const rtp_hdr hdr = *packet.Header();  // converted in place, extension data are not
        EXPECT_EQ(std::tuple(+hdr.payload, +hdr.sequence, +hdr.timestamp, +hdr.ssrc),
                  std::tuple(8, 0x1234, 0x01020304U, 0x05060708U));
        EXPECT_TRUE(byHead != 0x91 || buf[21] == 1);
    }
    Bytes shortest(11, 0x80);
    EXPECT_EQ(CRtpPacket(shortest.data(), 11).unpack(), nullptr);
}

}  // namespace
