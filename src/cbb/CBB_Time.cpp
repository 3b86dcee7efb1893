// SPDX-License-Identifier: MIT
// The wall clock and sleeping.
#include <ctime>

#include "cbb.h"

void CBB_Sleep(int iMilliSec) {
    // Kept (hosts): [sleep-wraps] the product wraps at 32 bits, so 5000000 ms sleep about 705 s.
    const uint32_t nMicroSec = static_cast<uint32_t>(iMilliSec) * 1000U;
    CBB_USleep(nMicroSec);
}

void CBB_USleep(int64_t lMicroSec) {
    if (lMicroSec <= 0) {
        return;
    }
    timespec duration = {};
    duration.tv_sec = static_cast<time_t>(lMicroSec / 1000000);
    duration.tv_nsec = static_cast<long>(lMicroSec % 1000000 * 1000);
    (void)nanosleep(&duration, nullptr);
}

// Kept (hosts): [wall-clock-ticks] ticks come from the wall clock, so they jump when the time of
// the machine is set.
uint64_t CBB_GetTimeTick(void) {
    timeval now = {};
    gettimeofday(&now, nullptr);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_usec) / 1000;
}

uint64_t CBB_TimeNow(void) {
    timeval now = {};
    gettimeofday(&now, nullptr);
    return static_cast<uint64_t>(now.tv_sec) * 1000000 + static_cast<uint64_t>(now.tv_usec);
}
