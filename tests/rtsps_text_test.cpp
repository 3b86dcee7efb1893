// SPDX-License-Identifier: MIT
#include "rtsps_text.h"

#include <gtest/gtest.h>

#include <climits>
#include <tuple>

TEST(RtspsText, AppendersAndCopiesCutAtTheirCapacityAndSaySo) {
    const std::tuple<const char*, const char*, bool> cases[] = {{"", "1234567", false},
                                                                {"", "12345678", true},
                                                                {"1234567", "8", true},
                                                                {"123", "4567", false}};
    for (const auto& [szHeld, szAdded, bOverflow] : cases) {
        for (const bool bFormat : {false, true}) {
            char szText[8] = {};
            TextCopy(szText, szHeld);
            CTextAppender text(szText, sizeof(szText));
            bFormat ? text.AppendFormat("%s", szAdded) : text.Append(szAdded);
            EXPECT_STREQ(szText, "1234567");
            EXPECT_EQ(text.Overflowed(), bOverflow) << szHeld << "+" << szAdded << bFormat;
        }
    }
    char szOpen[4] = {'a', 'b', 'c', 'd'};  // nothing ends it: nothing is written
    CTextAppender open(szOpen, sizeof(szOpen));
    open.AppendFormat("%d", 1);
    EXPECT_TRUE(open.Overflowed());
    EXPECT_EQ(std::string(szOpen, 4), "abcd");
    EXPECT_TRUE(TextCopy(szOpen, "abc"));
    EXPECT_FALSE(TextCopy(szOpen, "abcd") || TextCopy(szOpen, 0, "x"));
    EXPECT_STREQ(szOpen, "abc");
    EXPECT_TRUE(TextCopySlice(szOpen, "abcdef", -1));
    EXPECT_STREQ(szOpen, "");
}

TEST(RtspsText, NumbersAreClampedNotWrapped) {
    const std::tuple<const char*, int, int, int> cases[] = {
        {"x-1", 0, -9, -9},
        {"", 0, -9, -9},
        {"+6 -7", 1, 6, -9},
        {"6- 7", 2, 6, 7},
        {"6--7", 2, 6, -7},
        {"2147483648-1", 2, INT_MAX, 1},
        {"-99999999999999999999", 1, INT_MIN, -9}};
    for (const auto& [szText, nRead, nFirst, nSecond] : cases) {
        int n1 = -9, n2 = -9;
        EXPECT_EQ(TextToIntPair(szText, &n1, &n2, '-'), nRead) << szText;
        EXPECT_TRUE(n1 == nFirst && n2 == nSecond) << szText << ": " << n1 << ", " << n2;
    }
}
