// SPDX-License-Identifier: MIT
#include "rtsps_text.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <tuple>

TEST(RtspsText, AppenderCutsAtItsCapacityAndSaysSo) {
    const std::tuple<const char*, const char*, const char*, bool> cases[] = {
        {"", "1234567", "1234567", false}, {"", "12345678", "1234567", true},
        {"123", "4567", "1234567", false}, {"123", "45678", "1234567", true},
        {"1234567", "", "1234567", false}, {"1234567", "8", "1234567", true},
    };
    for (const auto& [szHeld, szAdded, szExpected, bOverflow] : cases) {
        char szText[8] = {}, szFormat[8] = {};
        TextCopy(szText, szHeld);
        TextCopy(szFormat, szHeld);
        CTextAppender text(szText, sizeof(szText)), format(szFormat, sizeof(szFormat));
        text.Append(szAdded);
        format.AppendFormat("%s", szAdded);
        EXPECT_STREQ(szText, szExpected);
        EXPECT_STREQ(szFormat, szExpected);
        EXPECT_EQ(text.Overflowed(), bOverflow) << szHeld << "+" << szAdded;
        EXPECT_EQ(format.Overflowed(), bOverflow) << szHeld << "+" << szAdded;
    }
    char szOpen[4] = {'a', 'b', 'c', 'd'};  // nothing ends it: nothing is written
    CTextAppender open(szOpen, sizeof(szOpen));
    open.AppendFormat("%d", 1);
    EXPECT_TRUE(open.Overflowed());
    EXPECT_EQ(std::string(szOpen, 4), "abcd");
}

TEST(RtspsText, CopyTerminatesAndReportsWhatItCut) {
    char szBuf[4];
    EXPECT_TRUE(TextCopy(szBuf, "abc"));
    EXPECT_FALSE(TextCopy(szBuf, "abcd"));
    EXPECT_STREQ(szBuf, "abc");
    EXPECT_FALSE(TextCopy(szBuf, 0, "x"));
    EXPECT_TRUE(TextCopySlice(szBuf, "abcdef", -1));
    EXPECT_STREQ(szBuf, "");
}

TEST(RtspsText, NumbersAreClampedNotWrapped) {
    const std::tuple<const char*, int, int, int> cases[] = {
        {"0-1", 2, 0, 1},
        {"6-x", 1, 6, -9},
        {"x-1", 0, -9, -9},
        {"", 0, -9, -9},
        {"6 -7", 1, 6, -9},
        {"6- 7", 2, 6, 7},
        {"6--7", 2, 6, -7},
        {"+8.0", 1, 8, -9},
        {"2147483648-1", 2, INT_MAX, 1},
        {"-99999999999999999999", 1, INT_MIN, -9},
    };
    for (const auto& [szText, nRead, nFirst, nSecond] : cases) {
        int n1 = -9, n2 = -9;
        EXPECT_EQ(TextToIntPair(szText, &n1, &n2, '-'), nRead) << szText;
        EXPECT_EQ(n1, nFirst) << szText;
        EXPECT_EQ(n2, nSecond) << szText;
    }
}
