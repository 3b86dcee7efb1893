// SPDX-License-Identifier: MIT
#include "fuzz_support.h"

#include <fcntl.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "rtsps_debug.h"

static const int g_nReportFd = [] {
    signal(SIGPIPE, SIG_IGN);
    setenv("TZ", "UTC", 1);
    CDebugInfo::Instance()->SetDebugSwitch(true);  // log lines are tested too
    // libFuzzer closes standard error for the library's output; this copy stays open.
    return fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
}();

void FuzzFail(const char* szFile, int nLine, const char* szWhat) {
    dprintf(g_nReportFd, "%s:%d: does not hold: %s\n", szFile, nLine, szWhat);
    abort();
}

int CountDescriptors() {
    const std::filesystem::directory_iterator first("/proc/self/fd");
    return static_cast<int>(std::distance(first, std::filesystem::directory_iterator()));
}

#ifdef FUZZ_REPLAY
// Replays the stored inputs of a folder.
int main(int argc, char** argv) {
    if (argc != 2 || freopen("/dev/null", "w", stdout) == nullptr) {
        return 2;
    }
    int nResult = 1;  // nothing to replay
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        fprintf(stderr, "%s\n", entry.path().c_str());
        std::ifstream file(entry.path(), std::ios::binary);
        Fuzz(CFuzzInput({std::istreambuf_iterator<char>(file), {}}));
        nResult = 0;
    }
    return nResult;
}
#else
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    Fuzz(CFuzzInput({pData, pData + nSize}));
    return 0;
}
#endif
