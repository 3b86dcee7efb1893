// SPDX-License-Identifier: MIT
#include "rtsp_clock_time.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

namespace {

std::string Written(const char* zone, const char* text) {
    setenv("TZ", zone, 1);
    tzset();
    ClockTime time(text, static_cast<int>(strlen(text)));
    EXPECT_EQ(ClockTime(static_cast<unsigned long>(time)).to_sec(), time.to_sec())
        << "a range stores times as unsigned long";
    return time.to_string();
}

TEST(ClockTimeTest, ReadsLocalTimeAndWritesUtc) {
    EXPECT_EQ(Written("UTC", "  20000101T000000.25Z"), "20000101T000000Z");
    EXPECT_EQ(Written("UTC", "19691231T235959Z"), "19691231T235959Z") << "before 1970";
    EXPECT_EQ(Written("UTC", "20000101 000000Z"), "19700101T000000Z") << "no T";
    EXPECT_EQ(Written("UTC", "20000101T000000"), "19700101T000000Z") << "no Z";
    const std::string lateZ = "20000101T000000" + std::string(240, ' ') + "Z";
    EXPECT_EQ(Written("UTC", lateZ.c_str()), "19700101T000000Z") << "255 bytes are read";
    EXPECT_EQ(Written("UTC", "2000T0101Z"), "19991130T000000Z") << "kept: missing fields are 0";
    EXPECT_EQ(Written("UTC", "99991231T235959Z"), "20380119T031407Z") << "clamped";
    EXPECT_EQ(Written("TST-2", "20000101T000000Z"), "19991231T220000Z") << "kept: the local zone";
    EXPECT_EQ(Written("CET-1CEST,M3.5.0,M10.5.0", "20000701T120000Z"), "20000701T100000Z")
        << "kept: summer time";
    ClockTime time(1, 1);
    time.FromString("no time");
    EXPECT_EQ(time.to_sec() + time.usec(), 0);
}

}  // namespace
