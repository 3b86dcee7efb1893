// SPDX-License-Identifier: MIT
#include "rtsp_common.h"

#include <gtest/gtest.h>

TEST(RtspCommon, MethodOfAWordAndBack) {
    EXPECT_EQ(get_rtsp_method("SETUP"), RTSP_SETUP);
    EXPECT_EQ(get_rtsp_method("Setup"), RTSP_ERROR);
    EXPECT_EQ(get_rtsp_method("SETUP "), RTSP_ERROR);
    EXPECT_EQ(get_rtsp_method("SETU"), RTSP_ERROR);
    EXPECT_EQ(get_rtsp_method("UNKNOW"), RTSP_UNKNOWN) << "kept: a word of the table, no method";
    EXPECT_EQ(get_rtsp_method(nullptr), RTSP_UNKNOWN);
    EXPECT_STREQ(get_rtsp_method(RTSP_SETUP), "SETUP");
    EXPECT_STREQ(get_rtsp_method(RTSP_UNKNOWN), "UNKNOW");
    EXPECT_STREQ(get_rtsp_method(RTSP_RANDOMPLAY), "ERROR") << "kept: a method without a row";
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
