// SPDX-License-Identifier: MIT
#include "rtsps_debug.h"

#include "support/log_capture.h"

namespace {

TEST(DebugInfo, LevelAndSwitchDecideWhatIsPrinted) {
    // "": nothing is printed.
    const std::tuple<int, bool, std::string> rows[] = {{1, false, "[RTSPS ERROR]"},
                                                       {2, false, "[RTSPS CRIT]"},
                                                       {3, false, "[RTSPS WARN]"},
                                                       {4, true, "[RTSPS INFO]"},
                                                       {1, true, "[RTSPS ERROR]"},
                                                       {4, false, ""},
                                                       {0, true, ""},
                                                       {5, true, ""},
                                                       {-1, true, ""}};
    for (const auto& [level, debug, label] : rows) {
        CDebugInfo::Instance()->SetDebugSwitch(debug);
        for (const size_t length : {1U, 1008U, 1009U, 1010U, 2000U}) {
            const CLogCapture out;
            const std::string text = std::string(length, 'x') + "\n";
            CDebugInfo::Instance()->OutputDebugInfo(level, "%s", text.c_str());
            EXPECT_EQ(out.Text(), label.empty() ? "" : (label + text).substr(0, 1022));
        }
    }
}

}  // namespace
