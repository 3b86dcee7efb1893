// SPDX-License-Identifier: MIT
#include "rtsp_nptime.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

TEST(NptTime, ReadsUpToFourFields) {
    const struct {
        const char* why;
        const char* text;
        int sec, usec;
        const char* written;
    } rows[] = {
        {"seconds", "90.5", 90, 500000, "90.500000"},
        {"three fields", "1:00:00", 3600, 0, "3600"},
        {"four fields", "1:2:3:4.25", 93784, 250000, "93784.250000"},
        {"five fields are none", "1:2:3:4:5", 0, 0, "0"},
        {"empty fields do not count", "1::7", 67, 0, "67"},
        {"kept: each product is cut to whole seconds", "0.9999:0", 59, 0, "59"},
        {"a negative time borrows a second", "-1.5", -2, 500000, "-2.500000"},
        {"no number", "nan", 0, 0, "0"},
        {"infinity is clamped", "inf", INT_MAX, 0, "2147483647"},
        {"below the range", "-1e300:-0.5", INT_MIN, 500000, "-2147483648.500000"},
        {"31 bytes are read", "0000000000000000000000000000001234", 1, 0, "1"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        NPTime time(row.text, static_cast<int>(strlen(row.text)));
        EXPECT_EQ(time.to_sec(), row.sec);
        EXPECT_EQ(time.usec(), row.usec);
        EXPECT_STREQ(time.to_string(), row.written);
    }
}

TEST(NptTime, ReadsTheGivenLength) {
    EXPECT_EQ(NPTime("1234", 2).to_sec(), 12);
    bool valid = false;
    EXPECT_EQ(NPTime("1.5", 3, true, valid).usec(), 0) << "whole seconds only";
    EXPECT_TRUE(valid);
    EXPECT_EQ(NPTime("", 0, false, valid).to_sec(), 0);
    EXPECT_FALSE(valid);
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
