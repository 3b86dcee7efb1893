// SPDX-License-Identifier: MIT
// Clients connect, play, leave, disconnect and send invalid data while the host pushes, starts and
// stops. Usage: soak [MINUTES]. Uses the loopback interface only.
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <numeric>
#include <optional>

#include "crowd.h"
#include "rtsps_server.h"
#include "rtsps_session_mgr.h"
#include "support/log_capture.h"

using std::chrono::duration_cast;
using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

namespace {

constexpr size_t PLAYERS = 60;
constexpr size_t UNITS_IN_A_PUSH = 8;
constexpr int TROUBLEMAKERS_OF_EACH_KIND = 10;
constexpr int PORT_PAIRS = 200;
constexpr int VISITORS = RTSPS_MAX_SESSIONS + 20;
constexpr milliseconds PUSH_INTERVAL{40};
constexpr seconds BUSY{4};  // in each cycle
constexpr seconds FIGURES_INTERVAL{10};
constexpr int64_t STOP_LIMIT_MS = 900;
constexpr double RESIDENT_GROWTH_LIMIT = 1.01;

std::atomic<int> g_came{0};
std::atomic<int> g_went{0};

void OnEvent(int32_t event, int32_t, void*, int32_t, void*) {
    g_came += event == RTSPS_EVENT_CONNECTED ? 1 : 0;
    g_went += event == RTSPS_EVENT_CLOSED ? 1 : 0;
}

uint32_t Sessions() {
    return CRtspSessionManager::Instance()->GetCurrSessionNums();
}

uint32_t FreePorts() {
    return CRtspServer::Instance()->FreeDataPorts();
}

long ResidentKb() {
    long all = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> all >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

class CSoak {
  public:
    CSoak(FILE* out, seconds time) : m_out(out), m_end(m_start + time) {}

    // Returns whether all checks passed.
    bool Run() {
        TRtspServerPara para{};
        para.nServerPort = m_port;
        para.nMinPort = FreeDataPortRange();
        para.nMaxPort = para.nMinPort + 2 * PORT_PAIRS - 1;
        RTSPServer_Init(&para);
        TRtspServerStreamInfo info = MakeStreamInfo();
        RTSPServer_SetStreamInfo(1, RTSPS_STREAM_MAIN, &info);
        RTSPServer_SetEventCallBack(OnEvent, nullptr);
        m_threads = OwnThreads();
        m_descriptors = CountDescriptors();
        while (GoesOn()) {
            BeBusy();
            StopAmidEverything();
            BeBusy();
            StopWhenQuiet();
        }
        PrintFigures();
        JudgeMemory();
        RTSPServer_Release();
        fprintf(m_out, "%s: %d players served, longest stop %" PRId64 " ms\n",
                m_failed ? "FAILED" : "passed", m_playersServed, m_longestStopMs);
        return !m_failed;
    }

  private:
    bool GoesOn() const { return !m_failed && Clock::now() < m_end; }

    void Require(bool holds, const char* what, int64_t value) {
        if (!holds) {
            m_failed = true;
            fprintf(m_out, "FAILED: %s: %" PRId64 "\n", what, value);
        }
    }

    // Starts the server. At the end more clients come than the registry and the data ports allow.
    void BeBusy() {
        Require(RTSPServer_Start() == 0, "no start", 0);
        const std::vector<int> numbers(CTroublemakers::KINDS, TROUBLEMAKERS_OF_EACH_KIND);
        m_bad.emplace(m_port, numbers);
        auto next = Clock::now();
        for (const auto end = next + BUSY; GoesOn() && next < end; next += PUSH_INTERVAL) {
            std::this_thread::sleep_until(next);
            ReplaceOnePlayer();
            PushAndCheck();
            if (Clock::now() >= m_nextFigures) {
                PrintFigures();
                m_nextFigures += FIGURES_INTERVAL;
            }
        }
        bool isExhausted = false;
        for (int i = 0; i < VISITORS && GoesOn(); ++i) {
            const CPlayer& visitor = m_visitors.emplace_back(m_port, CPlayer::UDP, CPlayer::SET_UP);
            isExhausted = isExhausted || !Ok(visitor.reply);
        }
        Require(isExhausted || !GoesOn(), "the data ports did not run out", FreePorts());
    }

    void ReplaceOnePlayer() {
        if (m_players.size() == PLAYERS) {
            CPlayer& first = m_players.front();
            Require(Ok(first.Ask("TEARDOWN", first.Url())), "no answer to TEARDOWN", 0);
            m_players.pop_front();
        }
        const CPlayer& player =
            m_players.emplace_back(m_port, m_playersServed % CPlayer::TRANSPORTS);
        if (Ok(player.reply)) {
            ++m_playersServed;
        } else {
            m_players.pop_back();  // no free data port, or a port that is in use twice
        }
    }

    void PushAndCheck() {
        const auto time = PushTo(m_players, UNITS_IN_A_PUSH);
        Require(time.has_value(), "a player lost a packet", 0);
        m_longestPush = std::max(m_longestPush, time.value_or(m_longestPush));
        m_packetsTaken += m_players.size() * UNITS_IN_A_PUSH;
    }

    // Refused clients leave shortly before and shortly after the stop.
    void StopAmidEverything() {
        while (m_visitors.size() > VISITORS - 10) {
            m_visitors.pop_back();
        }
        std::atomic<bool> stopped{false};
        std::thread pusher([&] {
            std::deque<CPlayer> none;
            while (!stopped) {
                PushTo(none, UNITS_IN_A_PUSH);
                std::this_thread::sleep_for(milliseconds(2));
            }
        });
        Stop();
        stopped = true;
        pusher.join();
        LeaveAll();
        RequireNothingLeft();
    }

    // All clients disconnect. The sweep after five idle seconds removes their sessions.
    void StopWhenQuiet() {
        LeaveAll();
        const int running = m_descriptors + 1;  // the listening socket
        WaitUntil([&] { return Sessions() == 0 && CountDescriptors() == running; }, seconds(30));
        Require(Sessions() == 0, "sessions left", Sessions());
        Require(CountDescriptors() == running, "descriptors, running", CountDescriptors());
        Require(FreePorts() >= static_cast<uint32_t>(PORT_PAIRS), "free data ports", FreePorts());
        Require(g_came == g_went, "clients that came and did not go", g_came - g_went);
        Stop();
        RequireNothingLeft();
        malloc_trim(0);
        m_residentKb.push_back(ResidentKb());
    }

    void LeaveAll() {
        m_players.clear();
        m_bad.reset();
        m_visitors.clear();
    }

    void Stop() {
        const auto start = Clock::now();
        RTSPServer_Stop();
        const int64_t ms = duration_cast<milliseconds>(Clock::now() - start).count();
        m_longestStopMs = std::max(m_longestStopMs, ms);
        Require(!IsPlainBuild() || ms <= STOP_LIMIT_MS, "milliseconds of a stop", ms);
    }

    void RequireNothingLeft() {
        WaitUntil(
            [&] { return CountThreads() == m_threads && CountDescriptors() == m_descriptors; });
        Require(CountThreads() == m_threads, "threads after a stop", CountThreads());
        Require(CountDescriptors() == m_descriptors, "descriptors after a stop",
                CountDescriptors());
    }

    void PrintFigures() {
        fprintf(
            m_out,
            "%5" PRId64
            " s: %3u sessions, %d clients came, %zu packets taken, "
            "%d descriptors, %d threads, %ld KB, %u free data ports, longest push %" PRId64 " us\n",
            int64_t{duration_cast<seconds>(Clock::now() - m_start).count()}, Sessions(),
            g_came.load(), m_packetsTaken, CountDescriptors(), CountThreads(), ResidentKb(),
            FreePorts(), int64_t{duration_cast<std::chrono::microseconds>(m_longestPush).count()});
        fflush(m_out);
    }

    // Does not count the first cycle, which is the warm-up.
    void JudgeMemory() {
        const auto third = static_cast<ptrdiff_t>((m_residentKb.size() + 1) / 3);
        if (m_residentKb.size() < 3) {
            return;
        }
        const auto begin = m_residentKb.begin() + 1;
        const long first = std::accumulate(begin, begin + third, 0L);
        const long last = std::accumulate(m_residentKb.end() - third, m_residentKb.end(), 0L);
        fprintf(m_out, "resident when quiet: %ld KB in the first third, %ld KB in the last\n",
                first / third, last / third);
        Require(!IsPlainBuild() ||
                    static_cast<double>(last) <= static_cast<double>(first) * RESIDENT_GROWTH_LIMIT,
                "KB more", (last - first) / third);
    }

    FILE* m_out;
    const Clock::time_point m_start = Clock::now();
    const Clock::time_point m_end;
    Clock::time_point m_nextFigures = m_start + FIGURES_INTERVAL;
    const uint16_t m_port = FreeTcpPort();
    int m_descriptors = 0;
    int m_threads = 0;
    std::deque<CPlayer> m_players;
    std::optional<CTroublemakers> m_bad;
    std::deque<CPlayer> m_visitors;  // without media
    int m_playersServed = 0;
    size_t m_packetsTaken = 0;
    std::chrono::nanoseconds m_longestPush{0};
    int64_t m_longestStopMs = 0;
    std::vector<long> m_residentKb;  // of every quiet moment
    bool m_failed = false;
};

}  // namespace

int main(int argc, char** argv) {
    const double minutes = argc > 1 ? strtod(argv[1], nullptr) : 1;
    // One heap that returns freed memory at once: the resident memory is the memory in use.
    mallopt(M_ARENA_MAX, 1);
    mallopt(M_MMAP_THRESHOLD, 65536);
    // The figures go to standard output, and the library's lines are discarded. Standard error
    // stays open for a sanitizer.
    FILE* out = fdopen(dup(STDOUT_FILENO), "w");
    if (out == nullptr || freopen("/dev/null", "w", stdout) == nullptr ||
        (IsPlainBuild() && freopen("/dev/null", "w", stderr) == nullptr)) {
        return 2;
    }
    return CSoak(out, seconds(static_cast<long>(minutes * 60))).Run() ? 0 : 1;
}
