// SPDX-License-Identifier: MIT
#include "rtsps_debug.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

constexpr int LINE_SIZE = 1024;

// The label of a level, or null when the level prints nothing.
const char* LevelLabel(int nLevel, bool bInfoOn) {
    switch (nLevel) {
        case LOG_LEVEL_INFO:
            return bInfoOn ? "[RTSPS INFO]" : nullptr;
        case LOG_LEVEL_ERROR:
            return "[RTSPS ERROR]";
        case LOG_LEVEL_WARN:
            return "[RTSPS WARN]";
        case LOG_LEVEL_CRIT:
            return "[RTSPS CRIT]";
        default:
            return nullptr;
    }
}

}  // namespace

CDebugInfo* CDebugInfo::Instance() {
    // Trivially destructible, so threads that outlive main may continue to log.
    static CDebugInfo debugInfo;
    return &debugInfo;
}

void CDebugInfo::SetDebugSwitch(bool bSwitch) {
    m_bSwitch.store(bSwitch, std::memory_order_relaxed);
}

void CDebugInfo::OutputDebugInfo(int nLevel, const char* fmt, ...) {
    const char* szLabel = LevelLabel(nLevel, m_bSwitch.load(std::memory_order_relaxed));
    if (szLabel == nullptr) {
        return;
    }
    const int nError = errno;
    char szLine[LINE_SIZE] = {};
    const int nLabel = snprintf(szLine, sizeof(szLine), "%s", szLabel);

    // Kept (operators): [log-line-length] the last byte of the array is not used, so the longest
    // line has 1022 characters.
    va_list args;
    va_start(args, fmt);
    vsnprintf(szLine + nLabel, static_cast<size_t>(LINE_SIZE - 1 - nLabel), fmt, args);
    va_end(args);

    // One print call per line and no flush: the host decides how its standard output is buffered.
    printf("%s", szLine);
    errno = nError;  // hosts read the error number of a failed Start after its log lines
}
