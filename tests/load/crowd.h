// SPDX-License-Identifier: MIT
#ifndef CROWD_H
#define CROWD_H

#include <atomic>
#include <chrono>
#include <deque>
#include <optional>
#include <thread>
#include <vector>

#include "support/test_net.h"

// Bad clients, each on its own thread. Each is replaced by a new one every second or two.
class CTroublemakers {
  public:
    enum EKind { NEVER_READS, RESETS, NOISE, TEARS_DOWN, STOPS_HALFWAY, KINDS };
    // The number of clients of each kind, in the order of EKind.
    CTroublemakers(uint16_t port, const std::vector<int>& numbers);
    ~CTroublemakers();
    CTroublemakers(const CTroublemakers&) = delete;
    CTroublemakers& operator=(const CTroublemakers&) = delete;

  private:
    void MakeTrouble(uint16_t port, EKind kind, unsigned seed);

    std::atomic<bool> m_done{false};
    std::vector<std::thread> m_threads;
};

// Pushes a run of video to channel 1 main. Returns the time that the push took, or nothing if a
// player does not receive all of it.
std::optional<std::chrono::nanoseconds> PushTo(std::deque<CPlayer>& players, size_t units);

#endif
