// SPDX-License-Identifier: MIT
// Clients that stall, disconnect or send invalid data, next to others that play.

#include <algorithm>

#include "crowd.h"

namespace {

using std::chrono::milliseconds;
using Durations = std::vector<int64_t>;

int64_t Median(Durations durations) {
    const auto median = durations.begin() + static_cast<ptrdiff_t>(durations.size() / 2);
    std::nth_element(durations.begin(), median, durations.end());
    return *median;
}

// Bad clients may cost as much as good ones, but not much more.
bool TooSlow(const Durations& alone, const Durations& among) {
    return IsPlainBuild() && Median(among) > 2 * Median(alone);
}

using CIsolationTest = CServerTest;

TEST_F(CIsolationTest, BadClientsHarmNoGoodOne) {
    Durations alone;
    Durations among;
    {
        const CLogCapture log;
        const CLogCapture dumps(2);
        StartServer();
        std::deque<CPlayer> players;
        for (int i = 0; i < 40; ++i) {
            ASSERT_TRUE(Ok(players.emplace_back(m_port, i % CPlayer::TRANSPORTS).reply)) << i;
        }
        // Pushes at a steady rate, and checks that every player receives all units.
        const auto pushFor = [&](milliseconds time, Durations* durations) {
            const auto end = std::chrono::steady_clock::now() + time;
            while (std::chrono::steady_clock::now() < end && !HasFailure()) {
                const auto took = PushTo(players, 16);
                ASSERT_TRUE(took) << "a player lost a packet";
                durations->push_back(took->count());
                std::this_thread::sleep_for(milliseconds(5));  // the interval of the media
            }
        };
        // In turns, so that other work on the machine affects both. More rounds when in doubt.
        for (int round = 0; round < 2 || (round < 8 && TooSlow(alone, among)); ++round) {
            pushFor(milliseconds(1000), &alone);
            const CTroublemakers bad(m_port, {8, 8, 8});  // never read, reset, send noise
            pushFor(milliseconds(2500), &among);
            ASSERT_FALSE(HasFailure());
        }
        players.clear();
        // An instrumented build pushes so slowly that possibly no client lags.
        EXPECT_TRUE(!IsPlainBuild() || log.Has("send failed,nLen=")) << "no client stalled";
    }
    EXPECT_FALSE(TooSlow(alone, among)) << Median(alone) << " ns, now " << Median(among);
}

}  // namespace
