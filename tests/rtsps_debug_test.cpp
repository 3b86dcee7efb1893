// SPDX-License-Identifier: MIT
#include "rtsps_debug.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "support/log_capture.h"

namespace {

std::string Printed(int level, bool debug, size_t length = 4) {
    const CLogCapture out;
    const std::string text = std::string(length, 'x') + "\n";
    CDebugInfo::Instance()->SetDebugSwitch(debug);
    CDebugInfo::Instance()->OutputDebugInfo(level, "%s", text.c_str());
    return out.Text();
}

TEST(DebugInfo, LevelAndSwitchDecideWhatIsPrinted) {
    EXPECT_EQ(Printed(1, false), "[RTSPS ERROR]xxxx\n");
    EXPECT_EQ(Printed(2, false), "[RTSPS CRIT]xxxx\n");
    EXPECT_EQ(Printed(3, false), "[RTSPS WARN]xxxx\n");
    EXPECT_EQ(Printed(4, true), "[RTSPS INFO]xxxx\n");
    for (const int silent : {0, 4, 5}) {
        EXPECT_EQ(Printed(silent, silent != 4), "") << silent;
    }
    EXPECT_EQ(Printed(1, false, 1008).size(), 1022U) << "the longest line";
    EXPECT_EQ(Printed(1, false, 1009), "[RTSPS ERROR]" + std::string(1009, 'x')) << "is cut";
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
