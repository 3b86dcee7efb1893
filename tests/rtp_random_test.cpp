// SPDX-License-Identifier: MIT
#include "rtp_random.h"

#include <gtest/gtest.h>

#include <cstdlib>

TEST(RtpRandom, ObjectsDrawAllBitsAndDifferWithinOneSecond) {
    RTPRdm a, b;
    EXPECT_NE(a.GetRandomDouble(), b.GetRandomDouble());
    uint32_t nSeen = 0;
    for (int i = 0; i < 10000; ++i) {
        nSeen |= a.GetRandom32();
    }
    EXPECT_EQ(nSeen, 0xFFFFFFFF);
}

// The parts overlap: this is not a concatenation.
TEST(RtpRandom, ProcessWideDrawsComeFromRand) {
    srand(20);
    const auto Scale16 = [] {
        return static_cast<uint32_t>((static_cast<uint64_t>(rand()) * 65536) >> 31);
    };
    const uint32_t nFirst = Scale16(), nSecond = Scale16(), nThird = Scale16();
    srand(20);
    EXPECT_EQ(GetRandom32_Default(), nFirst ^ (nSecond << 8) ^ (nThird << 16));
}
