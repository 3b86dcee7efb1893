// SPDX-License-Identifier: MIT
#include "rtp_random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace {

TEST(RtpRandom, ObjectsDifferAndCopiesContinueAlike) {
    RTPRdm one;
    RTPRdm copy = one;
    RTPRdm other;
    EXPECT_NE(one.GetRandom32(), other.GetRandom32());
    copy.GetRandom32();
    EXPECT_EQ(one.GetRandom8(), copy.GetRandom8());
    EXPECT_EQ(one.GetRandom16(), copy.GetRandom16());
}

TEST(RtpRandom, EveryWidthIsFilledEvenly) {
    RTPRdm random;
    std::set<unsigned> bytes, defaultBytes;
    std::set<uint32_t> words;
    uint16_t largest16 = 0;
    for (int i = 0; i < 4096; ++i) {
        bytes.insert(random.GetRandom8());
        defaultBytes.insert(GetRandom8_Default());
        words.insert({random.GetRandom32(), GetRandom32_Default()});
        largest16 = std::max({largest16, random.GetRandom16(), GetRandom16_Default()});
        for (const double d : {random.GetRandomDouble(), GetRandomDouble_Default()}) {
            EXPECT_TRUE(d >= 0 && d < 1) << d;
        }
    }
    EXPECT_EQ(bytes.size(), 256U);
    EXPECT_EQ(defaultBytes.size(), 256U);
    EXPECT_GT(words.size(), 8100U) << "32-bit values hardly ever repeat";
    EXPECT_GT(*words.rbegin(), 0xFF000000U);
    EXPECT_GT(largest16, 0xFF00);
}

TEST(RtpRandom, TheHostsSeedCounts) {
    srand(7);
    const unsigned first = GetRandom8_Default();
    srand(7);
    EXPECT_EQ(GetRandom8_Default(), first);
}

}  // namespace
