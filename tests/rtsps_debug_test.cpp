// SPDX-License-Identifier: MIT
#include "rtsps_debug.h"

#include <gtest/gtest.h>

#include "rtsps_misc.h"
#include "support/log_capture.h"

namespace {

TEST(DebugInfo, LevelAndSwitchDecideWhatIsPrinted) {
    const struct {
        int level;
        bool debug;
        const char* label;  // null: nothing is printed
    } rows[] = {{1, false, "[RTSPS ERROR]"}, {2, false, "[RTSPS CRIT]"}, {3, false, "[RTSPS WARN]"},
                {4, true, "[RTSPS INFO]"},   {1, true, "[RTSPS ERROR]"}, {4, false, nullptr},
                {0, true, nullptr},          {5, true, nullptr},         {-1, true, nullptr}};
    for (const auto& row : rows) {
        CDebugInfo::Instance()->SetDebugSwitch(row.debug);
        for (const size_t length : {1U, 1008U, 1009U, 1010U, 2000U}) {
            const CLogCapture out;
            const std::string text = std::string(length, 'x') + "\n";
            CDebugInfo::Instance()->OutputDebugInfo(row.level, "%s", text.c_str());
            EXPECT_EQ(out.Text(), row.label == nullptr ? "" : (row.label + text).substr(0, 1022));
        }
    }
}

TEST(DebugHex, RowsOfSixteenNumberedFromOne) {
    const std::pair<int, std::string> rows[] = {
        {-1, ""},
        {0, ""},
        {17, "\n 0001 |f0 f1 f2 f3 f4 f5 f6 f7 f8 f9 fa fb fc fd fe ff \n 0017 |00 "}};
    unsigned char data[17];
    for (size_t i = 0; i < sizeof(data); ++i) {
        data[i] = static_cast<unsigned char>(0xF0 + i);
    }
    for (const auto& [len, dump] : rows) {
        const CLogCapture err(2);
        RtspsDebugHex(data, len);
        const std::string rule = "\n-----------------------\n";
        EXPECT_EQ(err.Text(), rule + dump + rule) << len;
    }
}

}  // namespace
