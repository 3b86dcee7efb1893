// SPDX-License-Identifier: MIT
#include "rtp_random.h"

#include <gtest/gtest.h>

#include <set>

namespace {

TEST(RtpRandom, ObjectsDiffer) {
    EXPECT_NE(RTPRdm().GetRandom32(), RTPRdm().GetRandom32());
}

TEST(RtpRandom, EveryWidthIsFilledEvenly) {
    RTPRdm random;
    std::set<unsigned> bytes, defaultBytes;
    uint32_t bits32 = 0, bits16 = 0, defaultBits16 = 0;
    for (int i = 0; i < 4096; ++i) {
        bytes.insert(random.GetRandom8());
        defaultBytes.insert(GetRandom8_Default());
        bits32 |= random.GetRandom32();
        bits16 |= random.GetRandom16();
        defaultBits16 |= GetRandom16_Default();
        for (const double d : {random.GetRandomDouble(), GetRandomDouble_Default()}) {
            EXPECT_TRUE(d >= 0 && d < 1) << d;
        }
    }
    EXPECT_EQ(bytes.size(), 256U);
    EXPECT_EQ(defaultBytes.size(), 256U);
    EXPECT_EQ(bits32, 0xFFFFFFFFU);
    EXPECT_EQ(bits16 & defaultBits16, 0xFFFFU);
}

// Kept: the parts of a value of 32 bits overlap.
TEST(RtpRandom, TheHostsSeedDecidesTheDefaultValues) {
    srand(7);
    const uint32_t first = GetRandom16_Default();
    const uint32_t second = GetRandom16_Default();
    const uint32_t third = GetRandom16_Default();
    srand(7);
    EXPECT_EQ(GetRandom32_Default(), first ^ (second << 8) ^ (third << 16));
}

}  // namespace
