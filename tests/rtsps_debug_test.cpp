// SPDX-License-Identifier: MIT
#include "rtsps_debug.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "support/log_capture.h"

namespace {

TEST(DebugInfo, LevelAndSwitchDecideWhatIsPrinted) {
    const struct {
        int level;
        bool debug;
        std::string label;  // empty: nothing is printed
    } rows[] = {{1, false, "[RTSPS ERROR]"},
                {2, false, "[RTSPS CRIT]"},
                {3, false, "[RTSPS WARN]"},
                {4, true, "[RTSPS INFO]"},
                {4, false, ""},
                {0, true, ""},
                {5, true, ""}};
    for (const auto& row : rows) {
        CDebugInfo::Instance()->SetDebugSwitch(row.debug);
        for (const size_t length : {1U, 1009U, 1010U}) {
            const CLogCapture out;
            const std::string text = std::string(length, 'x') + "\n";
            CDebugInfo::Instance()->OutputDebugInfo(row.level, "%s", text.c_str());
            EXPECT_EQ(out.Text(), row.label.empty() ? "" : (row.label + text).substr(0, 1022));
        }
    }
}

// Hosts read the error number of a failed Start after its log lines.
TEST(DebugInfo, AFullDiskDoesNotChangeTheErrorNumber) {
    const int saved = dup(STDOUT_FILENO);
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    fflush(stdout);
    dup2(full, STDOUT_FILENO);
    setvbuf(stdout, nullptr, _IONBF, 0);
    errno = EADDRINUSE;
    RTSPS_LOG(ERROR, "bind %d failed", 1);
    const int after = errno;
    dup2(saved, STDOUT_FILENO);
    close(saved);
    close(full);
    EXPECT_EQ(after, EADDRINUSE);
}

}  // namespace
