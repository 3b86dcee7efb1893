// SPDX-License-Identifier: MIT
#include "fuzz_support.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "rtsps_debug.h"

// Taken before libFuzzer silences what the library prints.
static const int g_nReportFd = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);

int LLVMFuzzerInitialize(int* /*pArgc*/, char*** /*pArgv*/) {
    signal(SIGPIPE, SIG_IGN);
    setenv("TZ", "UTC", 1);
    CDebugInfo::Instance()->SetDebugSwitch(true);  // log lines are part of what is tried
    return 0;
}

void FuzzFail(const char* szFile, int nLine, const char* szWhat) {
    dprintf(g_nReportFd, "%s:%d: does not hold: %s\n", szFile, nLine, szWhat);
    abort();
}

int CountDescriptors() {
    const std::filesystem::directory_iterator first("/proc/self/fd");
    return static_cast<int>(std::distance(first, std::filesystem::directory_iterator()));
}

bool WaitBriefly(const std::function<bool()>& condition) {
    for (int i = 0; i < 100000 && !condition(); ++i) {
        // Most waits end within a few microseconds.
        i < 100 ? std::this_thread::yield()
                : std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    return condition();
}
