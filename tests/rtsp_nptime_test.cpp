// SPDX-License-Identifier: MIT
#include "rtsp_nptime.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

std::string Written(const char* text) {
    return NPTime(text, static_cast<int>(strlen(text))).to_string();
}

TEST(NptTime, ReadsUpToFourFields) {
    EXPECT_EQ(Written("90.5"), "90.500000");
    EXPECT_STREQ(NPTime(0, 1).to_string(), "0.000001");
    EXPECT_EQ(Written("1:00:00"), "3600");
    EXPECT_EQ(Written("1:2:3:4.25"), "93784.250000");
    EXPECT_EQ(Written("1:2:3:4:5"), "0") << "five fields are none";
    EXPECT_EQ(Written("1::7"), "67") << "empty fields do not count";
    EXPECT_EQ(Written("0.9999:0"), "59") << "kept: each product is cut to whole seconds";
    EXPECT_EQ(Written("-1.5"), "-2.500000") << "a negative time borrows a second";
    EXPECT_EQ(Written("nan"), "0");
    EXPECT_EQ(Written("inf"), "2147483647");
    EXPECT_EQ(Written("-1e300:-0.5"), "-2147483648.500000") << "below the range";
    EXPECT_EQ(Written("0000000000000000000000000000001234"), "1") << "31 bytes are read";
}

TEST(NptTime, ReadsTheGivenLength) {
    EXPECT_EQ(NPTime("1234", 2).to_sec(), 12);
    bool valid = false;
    EXPECT_EQ(NPTime("1.5", 3, true, valid).usec(), 0) << "whole seconds only";
    EXPECT_TRUE(valid);
    EXPECT_EQ(NPTime("", 0, false, valid).to_sec(), 0);
    EXPECT_FALSE(valid);
    NPTime time(1, 1);
    EXPECT_FALSE(time.FromString(""));
    EXPECT_STREQ(time.to_string(), "0");
}

TEST(NptTime, CountsWithinTheRange) {
    const NPTime a(1, 700000);
    const NPTime b(2, 600000);
    EXPECT_EQ((a + b).to_msec(), 4300);
    EXPECT_EQ((a - b).to_msec(), -900);
    EXPECT_EQ((NPTime(INT_MAX, 999999) + NPTime(1, 1)).to_sec(), INT_MAX);
    EXPECT_EQ(NPTime(0, -1000000).to_sec(), -1) << "a whole second is borrowed once";
    NPTime time;
    time.from_msec(2345);
    EXPECT_EQ(time.to_msec(), 2345);
    EXPECT_LT(time.compare(NPTime(2, 345001)), 0);
    EXPECT_GT(time.compare(NPTime(1, 999999)), 0);
}

}  // namespace
