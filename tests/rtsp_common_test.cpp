// SPDX-License-Identifier: MIT
#include "rtsp_common.h"

#include <gtest/gtest.h>

TEST(RtspCommon, MethodOfAWordAndBack) {
    const struct {
        const char* why;
        const char* word;
        eRTSP_METHOD_INDEX method;
        const char* back;
    } rows[] = {
        {"a method", "SETUP", RTSP_SETUP, "SETUP"},
        {"another case", "Setup", RTSP_ERROR, "ERROR"},
        {"longer", "SETUP ", RTSP_ERROR, "ERROR"},
        {"shorter", "SETU", RTSP_ERROR, "ERROR"},
        {"a word of the table that is no method", "UNKNOW", RTSP_UNKNOWN, "UNKNOW"},
        {"null", nullptr, RTSP_UNKNOWN, "UNKNOW"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(get_rtsp_method(row.word), row.method) << row.why;
        EXPECT_STREQ(get_rtsp_method(row.method), row.back) << row.why;
    }
    EXPECT_STREQ(get_rtsp_method(RTSP_RANDOMPLAY), "ERROR") << "a method without a row";
}

// With a row in the wrong place, a reply would have the code of another failure.
TEST(RtspCommon, EveryStatusRowIsFoundByIndexAndByCode) {
    for (int i = RTSP_STATUS_100; i <= RTSP_STATUS_551; ++i) {
        const auto index = static_cast<eRTSP_STATUS_CODE_INDEX>(i);
        const RTSP_STATUS_MAP* pRow = get_rtsp_status_map(index);
        ASSERT_NE(pRow, nullptr) << i;
        EXPECT_EQ(pRow->index, index);
        EXPECT_EQ(get_rtsp_status_index(pRow->code), index) << pRow->code;
    }
    EXPECT_EQ(get_rtsp_status_map(RTSP_STATUS_UNK), nullptr);
    EXPECT_EQ(get_rtsp_status_index("999"), RTSP_STATUS_UNK);
}
