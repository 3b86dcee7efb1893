// SPDX-License-Identifier: MIT
// Replaces the wall clock that the library reads. Include it in one test file or in many.
#ifndef FAKE_CLOCK_H
#define FAKE_CLOCK_H

#include <sys/time.h>

#include <atomic>
#include <cstdint>
#include <ctime>

inline std::atomic<int64_t> g_fakeMicroseconds{-1};  // since 1970; -1: the real time

// Stops the clock at the time that was set last, while it exists.
class CFakeClock {
  public:
    explicit CFakeClock(int64_t sec, int64_t usec = 0) { Set(sec, usec); }
    ~CFakeClock() { g_fakeMicroseconds = -1; }
    CFakeClock(const CFakeClock&) = delete;
    CFakeClock& operator=(const CFakeClock&) = delete;

    void Set(int64_t sec, int64_t usec = 0) { g_fakeMicroseconds = sec * 1000000 + usec; }
};

// This definition takes precedence over that of the system library. It is weak, so that several
// files may include it.
extern "C" __attribute__((weak, used)) int gettimeofday(timeval* tv, void* /*zone*/) noexcept {
    const int64_t fake = g_fakeMicroseconds;
    timespec now{};
    now.tv_sec = static_cast<time_t>(fake / 1000000);
    now.tv_nsec = static_cast<long>(fake % 1000000 * 1000);
    if (fake < 0) {
        clock_gettime(CLOCK_REALTIME, &now);
    }
    *tv = {now.tv_sec, now.tv_nsec / 1000};
    return 0;
}

#endif
