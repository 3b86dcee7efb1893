// SPDX-License-Identifier: MIT
#include "rtsps_mpte.h"

#include <gtest/gtest.h>

#include <cstring>
#include <utility>

namespace {

using Time = SMPTETimeCode;

TEST(SmpteTime, WritesFramesThatHaveBegun) {
    const std::pair<uint64_t, const char*> written[] = {
        {33, "00:00:00"},      {34, "00:00:00.01"},      {59999, "00:00:59.29"},
        {3725000, "01:02:05"}, {360000000, "100:00:00"}, {UINT64_MAX, "2147483647:25:51.18"}};
    for (const auto& [msecs, text] : written) {
        EXPECT_STREQ(Time(msecs).to_string(), text) << msecs;
    }
}

uint64_t Msecs(const char* text) {
    return Time(text, static_cast<int>(strlen(text))).msecs();
}

TEST(SmpteTime, ReadsFields) {
    EXPECT_EQ(Msecs("01:02:03.15"), 3723501U);
    EXPECT_EQ(Msecs("5"), 18000000U) << "hours";
    EXPECT_EQ(Msecs("1::3"), 3780000U) << "empty fields do not count";
    EXPECT_EQ(Msecs("0:0:0.29"), 968U) << "the last frame";
    EXPECT_EQ(Msecs("0:0:1.7 9"), 1234U) << "the frame ends at a blank";
    Time time(3725033UL);
    time.FromString("");
    EXPECT_EQ(time.msecs(), 0U);
}

TEST(SmpteTime, FramesLastAsLongAsTheirRateSays) {
    EXPECT_EQ(Time(0, 0, 0, 29, Time::DROP_FRAME, Time::FPS_30).msecs(), 968U);
    EXPECT_EQ(Time(0, 0, 0, 29, Time::NON_DROP_FRAME, Time::FPS_30).msecs(), 967U);
    EXPECT_EQ(Time(0, 0, 0, 24, Time::DROP_FRAME, Time::FPS_25).msecs(), 960U);
    EXPECT_STREQ(Time(0, 0, 1, 30, Time::DROP_FRAME, Time::FPS_30).to_string(), "00:00:01")
        << "kept: a frame too many is dropped";
}

TEST(SmpteTime, AddsSubtractsAndCompares) {
    EXPECT_EQ((Time(2500UL) - Time(2000UL)).msecs(), 500U);
    EXPECT_EQ((Time(1500UL) - Time(2000UL)).msecs(), 0U) << "never below 0";
    EXPECT_STREQ((Time(1500UL) + Time(2000UL)).to_string(), "00:00:03.15");
    EXPECT_EQ(static_cast<unsigned long>(Time(3999UL)), 3UL);
    EXPECT_EQ(Time(1UL).compare(Time(2UL)), -1);
    EXPECT_EQ(Time(2UL).compare(Time(2UL)), 0);
    EXPECT_EQ(Time(3UL).compare(Time(2UL)), 1);
}

}  // namespace
