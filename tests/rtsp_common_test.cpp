// SPDX-License-Identifier: MIT
#include "rtsp_common.h"

#include <gtest/gtest.h>

#include <utility>

TEST(RtspCommon, MethodOfAWord) {
    const std::pair<const char*, eRTSP_METHOD_INDEX> cases[] = {
        {"SETUP", RTSP_SETUP},    {"SET_PARAMETER", RTSP_SET_PARAM},
        {"Setup", RTSP_ERROR},    {"SETUP ", RTSP_ERROR},
        {"SETU", RTSP_ERROR},     {"", RTSP_ERROR},
        {"UNKNOW", RTSP_UNKNOWN}, {"UNKNOWN", RTSP_ERROR},
        {nullptr, RTSP_UNKNOWN},
    };
    for (const auto& [szWord, expected] : cases) {
        EXPECT_EQ(get_rtsp_method(szWord), expected) << (szWord ? szWord : "(null)");
    }
}

TEST(RtspCommon, WordOfAMethod) {
    const std::pair<int, const char*> cases[] = {
        {RTSP_TEARDOWN, "TEARDOWN"}, {RTSP_UNKNOWN, "UNKNOW"},   {RTSP_GET_PARAM, "GET_PARAMETER"},
        {RTSP_RESPONSE, "ERROR"},    {RTSP_RANDOMPLAY, "ERROR"}, {99, "ERROR"},
    };
    for (const auto& [nMethod, szExpected] : cases) {
        EXPECT_STREQ(get_rtsp_method(static_cast<eRTSP_METHOD_INDEX>(nMethod)), szExpected);
    }
}

// A row in the wrong place would answer one failure with the code of another.
TEST(RtspCommon, EveryStatusRowIsFoundByIndexAndByCode) {
    for (int i = RTSP_STATUS_100; i <= RTSP_STATUS_551; ++i) {
        const auto index = static_cast<eRTSP_STATUS_CODE_INDEX>(i);
        const RTSP_STATUS_MAP* pRow = get_rtsp_status_map(index);
        ASSERT_NE(pRow, nullptr) << i;
        EXPECT_EQ(pRow->index, index);
        EXPECT_EQ(get_rtsp_status_index(pRow->code), index) << pRow->code;
    }
    EXPECT_EQ(get_rtsp_status_map(RTSP_STATUS_UNK), nullptr);
    EXPECT_EQ(get_rtsp_status_map(static_cast<eRTSP_STATUS_CODE_INDEX>(45)), nullptr);
    EXPECT_EQ(get_rtsp_status_index("999"), RTSP_STATUS_UNK);
    EXPECT_EQ(get_rtsp_status_index("20"), RTSP_STATUS_UNK);
    EXPECT_STREQ(get_rtsp_status_map(get_rtsp_status_index("454"))->msg, "Session Not Found");
}
