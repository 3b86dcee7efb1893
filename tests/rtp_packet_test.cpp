// SPDX-License-Identifier: MIT
#include "rtp_packet.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

// The fuzz target of packets covers unpacking.
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
    EXPECT_EQ(CRtpPacket(&buf[1], -1).pack(&param), nullptr);
    EXPECT_EQ(CRtpPacket(&buf[1], 0).pack(nullptr), nullptr);
}

}  // namespace
