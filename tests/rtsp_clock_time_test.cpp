// SPDX-License-Identifier: MIT
#include "rtsp_clock_time.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

TEST(ClockTimeTest, ReadsLocalTimeAndWritesUtc) {
    const struct {
        const char* why;
        const char* zone;
        const char* text;
        int sec;
        const char* written;
    } rows[] = {
        {"a fraction is not read", "UTC", "  20000101T000000.25Z", 946684800, "20000101T000000Z"},
        {"before 1970", "UTC", "19691231T235959Z", -1, "19691231T235959Z"},
        {"no T", "UTC", "20000101 000000Z", 0, "19700101T000000Z"},
        {"no Z", "UTC", "20000101T000000", 0, "19700101T000000Z"},
        {"kept: missing fields are 0", "UTC", "2000T0101Z", 943920000, "19991130T000000Z"},
        {"clamped", "UTC", "99991231T235959Z", INT_MAX, "20380119T031407Z"},
        {"kept: the local zone", "TST-2", "20000101T000000Z", 946677600, "19991231T220000Z"},
        {"kept: summer time", "CET-1CEST,M3.5.0,M10.5.0", "20000701T120000Z", 962445600,
         "20000701T100000Z"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        setenv("TZ", row.zone, 1);
        tzset();
        ClockTime time(row.text, static_cast<int>(strlen(row.text)));
        EXPECT_EQ(time.to_sec(), row.sec);
        EXPECT_STREQ(time.to_string(), row.written);
        EXPECT_EQ(ClockTime(static_cast<unsigned long>(time)).to_sec(), row.sec)
            << "a range stores times as unsigned long";
    }
}

}  // namespace
