// SPDX-License-Identifier: MIT
// Clocks in seconds, and the statistics of many readings.
#ifndef BENCH_CLOCKS_H
#define BENCH_CLOCKS_H

#include <time.h>

#include <algorithm>
#include <cstddef>
#include <vector>

inline double Seconds(const timespec& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

inline double ReadClock(clockid_t clock) {
    timespec now = {};
    clock_gettime(clock, &now);
    return Seconds(now);
}

// The time that a call takes on a clock.
template <typename TCall>
double TimeOf(clockid_t clock, const TCall& call) {
    const double begin = ReadClock(clock);
    call();
    return ReadClock(clock) - begin;
}

// The value that this part (0 to 1) of all values does not exceed; 0 without values.
inline double Quantile(std::vector<double>& values, double part) {
    if (values.empty())
        return 0;
    const auto nAt = static_cast<size_t>(part * static_cast<double>(values.size() - 1) + 0.5);
    const auto at = values.begin() + static_cast<std::ptrdiff_t>(nAt);
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

#endif
