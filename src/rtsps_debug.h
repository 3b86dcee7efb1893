// SPDX-License-Identifier: MIT
#ifndef RTSPS_DEBUG_H
#define RTSPS_DEBUG_H

#include <atomic>

// Log levels. A line with any other number is not printed.
enum eLOG_LEVEL : int {
    LOG_LEVEL_ERROR = 1,
    LOG_LEVEL_CRIT = 2,
    LOG_LEVEL_WARN = 3,
    LOG_LEVEL_INFO = 4,
};

// Kept (operators): [log-texts] the texts of the messages do not change, misspellings and trailing
// blanks included: operators' filters match them.
//
// Prints one diagnostic line: RTSPS_LOG(ERROR, "bind %d failed", port). The level is a name of
// eLOG_LEVEL without its prefix, the text a literal. After the level, each line has the source
// file, the line and the function of the call. The empty last argument allows a text without
// arguments.
#define RTSPS_LOG(level, ...) RTSPS_LOG_LINE(level, __VA_ARGS__, "")
#define RTSPS_LOG_LINE(level, text, ...)                                                          \
    CDebugInfo::Instance()->OutputDebugInfo(LOG_LEVEL_##level, "%s:%d %s " text "%s\n", __FILE__, \
                                            __LINE__, __func__, __VA_ARGS__)

// Prints the log lines of the library: a level label and the formatted line, in a single printf to
// standard output. Any thread may log at any time. No memory is allocated.
class CDebugInfo {
  public:
    static CDebugInfo* Instance();

    // Turns INFO lines on or off; the other levels are always printed.
    void SetDebugSwitch(bool bSwitch);

    // Prints one line of at most 1022 characters, the label included; longer text is cut. errno
    // stays as it was.
    void OutputDebugInfo(int nLevel, const char* fmt, ...) __attribute__((format(printf, 3, 4)));

  private:
    std::atomic<bool> m_bSwitch{false};  // atomic: written by Init, read by every thread
};

#endif
