// SPDX-License-Identifier: MIT
// The "Range" header and the three time formats behind it.
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <tuple>
#include <utility>

#include "rtsp_clock_time.h"
#include "rtsp_header.h"
#include "rtsp_msg_parser.h"
#include "rtsp_nptime.h"
#include "rtsps_mpte.h"

namespace {

void UseTimeZone(const char* szZone) {
    setenv("TZ", szZone, 1);
    tzset();
}

}  // namespace

// A shortened word selects its unit, an empty one smpte, which is read as seconds and written from
// milliseconds.
TEST(RtspRange, ParsedAndWrittenBack) {
    UseTimeZone("UTC");
    const std::tuple<const char*, RangeType, unsigned long, unsigned long, const char*> cases[] = {
        {"npt=-20", TR_NPT, 0, 20, "npt=-20"},
        {"npt=10-20", TR_NPT, 10, 20, "npt=10-20"},
        {"np=7-", TR_NPT, 7, 0, "npt=7-"},
        {"", TR_SMPTE, 0, 0, "smpte=-"},
        {"clock=20240229T235959Z-20240301T000000Z", TR_CLOCK, 1709251199, 1709251200,
         "clock=20240229T235959Z-20240301T000000Z"},
        {"clock=20240229-", TR_CLOCK, 0, 0, "clock=-"},
        {"smpte=1:00:00-2:00:00", TR_SMPTE, 3600, 7200, "smpte=00:00:03.18-00:00:07.06"},
        {"nptx=0-", TR_NPT, 0, 0, nullptr},
        {"NPT=0-", TR_NPT, 0, 0, nullptr}};
    for (const auto& [szText, type, nBegin, nEnd, szWritten] : cases) {
        CRtspHeader header("Range");
        CRtspMsgParser().ParseRangeValue(szText, static_cast<int>(strlen(szText)), &header);
        const auto* pRange = dynamic_cast<const CRtspRangeValue*>(header.GetHeaderValue());
        ASSERT_EQ(pRange != nullptr, szWritten != nullptr) << szText;
        if (pRange == nullptr) {
            continue;
        }
        EXPECT_EQ(std::tuple(pRange->Type(), pRange->Begin(), pRange->End()),
                  std::tuple(type, nBegin, nEnd))
            << szText;
        char szOut[256] = {};
        pRange->as_string(szOut);
        EXPECT_STREQ(szOut, szWritten);
    }
}

// Kept: each product is cut by itself, too many fields are none, and 31 bytes are read.
TEST(NptTime, FieldsOfText) {
    // clang-format off
    const std::tuple<const char*, int, int, const char*> cases[] = {
        {"90.5", 90, 500000, "90.500000"}, {"1:00:00", 3600, 0, "3600"},
        {"1:2:3:4:5", 0, 0, "0"},          {"0.9999:0", 59, 0, "59"},
        {"::7", 7, 0, "7"},                {"-1.5", -2, 500000, "-2.500000"},
        {"nan", 0, 0, "0"},                {"inf", INT_MAX, 0, "2147483647"},
        {"1:2:3:4.25", 93784, 250000, "93784.250000"},
        {"1e300:1e300:1e300", INT_MAX, 0, "2147483647"},
        {"-1e300:-0.5", INT_MIN, 500000, "-2147483648.500000"},
        {"0000000000000000000000000000001234", 1, 0, "1"}};
    // clang-format on
    for (const auto& [szText, nSec, nUsec, szWritten] : cases) {
        NPTime time(szText, static_cast<int>(strlen(szText)));
        EXPECT_EQ(std::pair(time.to_sec(), time.usec()), std::pair(nSec, nUsec)) << szText;
        EXPECT_STREQ(time.to_string(), szWritten);
    }
    EXPECT_EQ(NPTime("1234", 2).to_sec(), 12);
    EXPECT_EQ(NPTime(nullptr, 4).to_sec(), 0);
    const NPTime a(1, 700000), b(2, 600000);
    EXPECT_EQ((a + b).to_msec(), 4300);
    EXPECT_EQ((a - b).to_msec(), -900);
    EXPECT_LT(a.compare(NPTime(1, 700001)), 0);
    EXPECT_EQ(NPTime(0, INT_MIN).usec(), 516352);
    EXPECT_EQ((NPTime(INT_MAX, 999999) + NPTime(1, 1)).to_sec(), INT_MAX);
}

// Without T or Z nothing is read; missing fields are 0.
TEST(ClockTimeTest, ReadsLocalTimeAndWritesUtc) {
    const std::tuple<const char*, const char*, int, const char*> cases[] = {
        {"UTC", "  20000101T000000.25Z", 946684800, "20000101T000000Z"},
        {"UTC", "19691231T235959Z", -1, "19691231T235959Z"},
        {"UTC", "20000101 000000Z", 0, "19700101T000000Z"},
        {"UTC", "2000T0101Z", 943920000, "19991130T000000Z"},
        {"UTC", "99991231T235959Z", INT_MAX, "20380119T031407Z"},
        {"TST-2", "20000101T000000Z", 946677600, "19991231T220000Z"},
        {"CET-1CEST,M3.5.0,M10.5.0", "20000701T120000Z", 962445600, "20000701T100000Z"}};
    for (const auto& [szZone, szText, nSec, szWritten] : cases) {
        UseTimeZone(szZone);
        ClockTime time(szText, static_cast<int>(strlen(szText)));
        EXPECT_EQ(time.to_sec(), nSec) << szZone << " " << szText;
        EXPECT_STREQ(time.to_string(), szWritten) << szZone << " " << szText;
        // A time before 1970 survives the unsigned long of a range.
        EXPECT_EQ(ClockTime(static_cast<unsigned long>(time)).to_sec(), nSec);
    }
}

TEST(SmpteTime, WrittenAndRead) {
    const std::pair<unsigned long, const char*> written[] = {
        {33, "00:00:00"},      {34, "00:00:00.01"},      {59999, "00:00:59.29"},
        {3725000, "01:02:05"}, {360000000, "100:00:00"}, {ULONG_MAX, "2147483647:25:51.18"}};
    for (const auto& [nMsecs, szText] : written) {
        EXPECT_STREQ(SMPTETimeCode(nMsecs).to_string(), szText) << nMsecs;
    }
    const std::pair<const char*, uint64_t> read[] = {
        {"01:02:03.15", 3723501}, {"01:02", 3720000},  {"5", 18000000}, {"0:0:0.29", 968},
        {"0:0:0.30", 0},          {"0:0:1.7 9", 1234}, {"", 0},         {"a:b:c.d", 0}};
    for (const auto& [szText, nMsecs] : read) {
        EXPECT_EQ(SMPTETimeCode(szText, static_cast<int>(strlen(szText))).msecs(), nMsecs);
    }
    using S = SMPTETimeCode;
    EXPECT_EQ(S(0, 0, 0, 29, S::NON_DROP_FRAME, S::FPS_30).msecs(), 967U);
    EXPECT_EQ(S(0, 0, 0, 24, S::DROP_FRAME, S::FPS_25).msecs(), 960U);
    EXPECT_EQ(S(0, 0, 0, INT_MAX, S::NON_DROP_FRAME, S::FPS_30).msecs(), 0U);
    EXPECT_EQ((S(1500UL) - S(2000UL)).msecs(), 0U);
    EXPECT_STREQ((S(1500UL) + S(2000UL)).to_string(), "00:00:03.15");
}
