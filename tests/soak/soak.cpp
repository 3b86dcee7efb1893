// SPDX-License-Identifier: MIT
// Hours of bad days: clients come, play, leave, break off and send noise while the host pushes,
// starts and stops. soak [minutes]; loopback only.
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <deque>

#include "net_port_pool.h"
#include "rtsps_server.h"
#include "rtsps_session_mgr.h"
#include "support/crowd.h"
#include "support/log_capture.h"

using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

// The server's pool of data ports, which no interface shows: naming a private member is allowed in
// an explicit instantiation.
std::unique_ptr<CNet_PortPool>& PoolOf(CRtspServer* server);
template <std::unique_ptr<CNet_PortPool> CRtspServer::*Member>
struct CPoolOpener {
    friend std::unique_ptr<CNet_PortPool>& PoolOf(CRtspServer* server) { return server->*Member; }
};
template struct CPoolOpener<&CRtspServer::m_pPortQueue>;

namespace {

constexpr size_t PLAYERS = 60;
constexpr int GROUPS_OF_TROUBLEMAKERS = 3;
constexpr int OF_EACH_KIND = 4;  // and six kinds
constexpr uint32_t PORT_PAIRS = 300;
constexpr milliseconds PUSH_INTERVAL{40};
constexpr seconds BUSY{8};  // twice a cycle
constexpr seconds FIGURES_INTERVAL{10};
constexpr int STOP_LIMIT_MS = 300;
constexpr double RSS_GROWTH_LIMIT = 1.01;

std::atomic<bool> g_interrupted{false};
std::atomic<int> g_connected{0};
std::atomic<int> g_closed{0};

void OnEvent(int32_t event, int32_t, void*, int32_t, void*) {
    g_connected += event == RTSPS_EVENT_CONNECTED ? 1 : 0;
    g_closed += event == RTSPS_EVENT_CLOSED ? 1 : 0;
}

long ResidentKb() {
    long pages = 0;
    FILE* file = fopen("/proc/self/statm", "re");
    const int fields = fscanf(file, "%*d %ld", &pages);
    fclose(file);
    return fields == 1 ? pages * (sysconf(_SC_PAGESIZE) / 1024) : 0;
}

class CSoak {
  public:
    explicit CSoak(FILE* out) : m_out(out) {}
    // Returns the exit status.
    int Run(seconds time);

  private:
    void Init();
    void Cycle();
    void Start();
    void BeBusy();
    void PushAndCheck();
    void ReplaceOnePlayer();
    void StopAmidEverything();
    void StopWhenQuiet();
    void Stop();
    void PrintFigures();
    void JudgeMemory();
    void Fail(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    bool Goes() const { return !g_interrupted && Clock::now() < m_end; }

    FILE* m_out;
    uint16_t m_port = 0;
    uint16_t m_firstDataPort = 0;
    Clock::time_point m_start = Clock::now();
    Clock::time_point m_end;
    Clock::time_point m_nextFigures;
    int m_descriptors = 0;
    int m_threads = 0;
    std::vector<long> m_residentKb;  // every push while busy
    CMediaSource m_source{8, 1200};
    std::deque<std::unique_ptr<CPlayer>> m_players;
    std::vector<std::unique_ptr<CTroublemakers>> m_bad;
    int64_t m_packetsTaken = 0;
    int m_playersServed = 0;
    int m_playersRefused = 0;
    int m_stops = 0;
    int64_t m_longestStopMs = 0;
    int64_t m_longestPushUs = 0;
    bool m_failed = false;
};

void CSoak::Fail(const char* fmt, ...) {
    m_failed = true;
    va_list args;
    va_start(args, fmt);
    fprintf(m_out, "FAILED: ");
    vfprintf(m_out, fmt, args);
    fprintf(m_out, "\n");
    va_end(args);
}

void CSoak::Init() {
    m_port = FreeTcpPort();
    m_firstDataPort = FreeDataPortRange(static_cast<int>(PORT_PAIRS) + 10);
    TRtspServerPara para{};
    para.nServerPort = m_port;
    para.nMinPort = m_firstDataPort;
    para.nMaxPort = m_firstDataPort + 2 * static_cast<int>(PORT_PAIRS) - 1;
    RTSPServer_Init(&para);
    TRtspServerStreamInfo info = MakeStreamInfo();
    RTSPServer_SetStreamInfo(1, RTSPS_STREAM_MAIN, &info);
    RTSPServer_SetEventCallBack(OnEvent, nullptr);
    m_descriptors = CountDescriptors();
    m_threads = OwnThreads();
}

int CSoak::Run(seconds time) {
    m_end = m_start + time;
    m_nextFigures = m_start + FIGURES_INTERVAL;
    Init();
    while (Goes() && !m_failed) {
        Cycle();
    }
    PrintFigures();
    RTSPServer_Release();
    JudgeMemory();
    fprintf(m_out, "%s after %d players, %d stops, longest stop %ld ms, longest push %ld us\n",
            m_failed ? "FAILED" : "passed", m_playersServed, m_stops, m_longestStopMs,
            m_longestPushUs);
    return m_failed ? 1 : 0;
}

void CSoak::Cycle() {
    Start();
    BeBusy();
    StopAmidEverything();
    Start();
    BeBusy();
    StopWhenQuiet();
}

void CSoak::Start() {
    if (RTSPServer_Start() != 0) {
        Fail("no start");
        g_interrupted = true;
    }
}

void CSoak::BeBusy() {
    using Kind = CTroublemakers::EKind;
    std::vector<Kind> kinds;
    for (int i = 0; i < OF_EACH_KIND; ++i) {
        for (int kind = CTroublemakers::NEVER_READS; kind <= CTroublemakers::SETS_UP_TOO_OFTEN;
             ++kind) {
            kinds.push_back(static_cast<Kind>(kind));
        }
    }
    for (int i = 0; i < GROUPS_OF_TROUBLEMAKERS; ++i) {
        // Behind the range that the pool was given, and apart from other processes'.
        const auto foreign = static_cast<uint16_t>(m_firstDataPort + 2 * (PORT_PAIRS + 1));
        m_bad.push_back(std::make_unique<CTroublemakers>(m_port, kinds, foreign));
    }
    auto next = Clock::now();
    for (const auto end = next + BUSY; Goes() && Clock::now() < end && !m_failed;) {
        ReplaceOnePlayer();
        PushAndCheck();
        if (Clock::now() >= m_nextFigures) {
            PrintFigures();
            m_nextFigures += FIGURES_INTERVAL;
        }
        next += PUSH_INTERVAL;
        std::this_thread::sleep_until(next);
    }
}

void CSoak::ReplaceOnePlayer() {
    if (m_players.size() == PLAYERS) {
        if (!m_players.front()->Leaves()) {
            Fail("no answer to TEARDOWN");
        }
        m_players.pop_front();
    }
    auto player = std::make_unique<CPlayer>(m_port, m_playersServed % CPlayer::TRANSPORTS);
    // No free port, or one that was given back twice and is in use: it will come again.
    if (!player->IsPlaying() || !player->IsRegistered()) {
        ++m_playersRefused;
        return;
    }
    ++m_playersServed;
    m_players.push_back(std::move(player));
}

void CSoak::PushAndCheck() {
    m_source.Next();
    m_longestPushUs = std::max(m_longestPushUs, m_source.Push());
    for (const auto& player : m_players) {
        if (!player->Takes(m_source.Units())) {
            Fail("a player lost a packet");
        }
    }
    m_packetsTaken += static_cast<int64_t>(m_players.size() * m_source.Units().size());
    m_residentKb.push_back(ResidentKb());
}

void CSoak::Stop() {
    const auto start = Clock::now();
    RTSPServer_Stop();
    const int64_t ms = std::chrono::duration_cast<milliseconds>(Clock::now() - start).count();
    ++m_stops;
    m_longestStopMs = std::max(m_longestStopMs, ms);
fprintf(m_out,"stop %ld\n",ms);
    if (IsPlainBuild() && ms > STOP_LIMIT_MS) {
        Fail("a stop took %ld ms", ms);
    }
}

void CSoak::StopAmidEverything() {
    std::atomic<bool> stopped{false};
    std::thread pusher([&] {
        while (!stopped) {
            m_source.Push();
            std::this_thread::sleep_for(milliseconds(2));
        }
    });
    std::this_thread::sleep_for(milliseconds(50));
    Stop();
    stopped = true;
    pusher.join();
    m_players.clear();
    m_bad.clear();
}

// Everybody leaves, and the sweep that follows after five idle seconds reaps what is left.
void CSoak::StopWhenQuiet() {
    m_players.clear();
    m_bad.clear();
    CRtspSessionManager* manager = CRtspSessionManager::Instance();
    const int own = m_descriptors + 1;  // and the listening socket
    if (!WaitUntil([&] { return manager->GetCurrSessionNums() == 0 && CountDescriptors() == own; },
                   seconds(30))) {
        Fail("%u sessions and %d descriptors are left", manager->GetCurrSessionNums(),
             CountDescriptors() - own);
    }
    const uint32_t ports = PoolOf(CRtspServer::Instance())->get_curr_size();
    if (ports < PORT_PAIRS) {
        Fail("%u free data ports of %u", ports, PORT_PAIRS);
    }
    Stop();
    if (!WaitUntil([&] { return CountThreads() == m_threads; }, seconds(5)) ||
        CountDescriptors() != m_descriptors) {
        Fail("%d threads and %d descriptors instead of %d and %d", CountThreads(),
             CountDescriptors(), m_threads, m_descriptors);
    }
    { auto mi = mallinfo2(); fprintf(m_out, "quiet: used %zu arena %zu fordblks %zu rss %ld\n", mi.uordblks, mi.arena, mi.fordblks, ResidentKb()); malloc_trim(0); fprintf(m_out, "   trimmed rss %ld\n",ResidentKb()); }
    if (g_connected != g_closed) {
        Fail("%d clients came and %d went", g_connected.load(), g_closed.load());
    }
}

void CSoak::PrintFigures() {
    const auto& pool = PoolOf(CRtspServer::Instance());
    fprintf(m_out,
            "%5ld s: %3u sessions (%d came, %d players refused), %ld packets taken, "
            "%d descriptors, %d threads, %ld KB, %u free data ports, longest push %ld us\n",
            std::chrono::duration_cast<seconds>(Clock::now() - m_start).count(),
            CRtspSessionManager::Instance()->GetCurrSessionNums(), g_connected.load(),
            m_playersRefused, m_packetsTaken, CountDescriptors(), CountThreads(), ResidentKb(),
            pool != nullptr ? pool->get_curr_size() : 0, m_longestPushUs);
    fflush(m_out);
}

void CSoak::JudgeMemory() {
    const size_t warm = m_residentKb.size() / 4;
    const size_t third = (m_residentKb.size() - warm) / 3;
    if (third == 0) {
        return;
    }
    const auto mean = [&](size_t from) {
        long sum = 0;
        for (size_t i = from; i < from + third; ++i) {
            sum += m_residentKb[i];
        }
        return static_cast<double>(sum) / static_cast<double>(third);
    };
    const double first = mean(warm);
    const double last = mean(m_residentKb.size() - third);
    fprintf(m_out, "resident: %.0f KB in the first third, %.0f KB in the last\n", first, last);
    if (IsPlainBuild() && last > first * RSS_GROWTH_LIMIT) {
        Fail("memory grows");
    }
}

}  // namespace

int main(int argc, char** argv) {
    const double minutes = argc > 1 ? strtod(argv[1], nullptr) : 1;
    if (minutes <= 0) {
        fprintf(stderr, "usage: %s [minutes]\n", argv[0]);
        return 2;
    }
    for (const int signal : {SIGINT, SIGTERM}) {
        std::signal(signal, [](int) { g_interrupted = true; });
    }
    // One heap that gives large blocks back at once, so that what is resident is what is in use.
    mallopt(M_ARENA_MAX, 1);
    mallopt(M_MMAP_THRESHOLD, 65536);
    mallopt(M_TRIM_THRESHOLD, 65536);
    // The figures go to standard output, the library's lines nowhere.
    FILE* out = fdopen(dup(STDOUT_FILENO), "w");
    freopen("/dev/null", "w", stdout);
    if (IsPlainBuild()) {
        freopen("/dev/null", "w", stderr);  // addresses in hexadecimal; elsewhere a report as well
    }
    CSoak soak(out);
    return soak.Run(seconds(static_cast<long>(minutes * 60)));
}
