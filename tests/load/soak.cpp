// SPDX-License-Identifier: MIT
// Clients connect, play, leave, disconnect and send invalid data while the host pushes, starts and
// stops. Usage: soak [MINUTES]. Uses the loopback interface only.
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <numeric>

#include "crowd.h"
#include "rtsps_server.h"
#include "rtsps_session_mgr.h"
#include "support/log_capture.h"

using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

namespace {

constexpr size_t PLAYERS = 60;
constexpr int TROUBLEMAKERS_OF_EACH_KIND = 4;
constexpr int TROUBLEMAKER_GROUPS = 3;
constexpr int PORT_PAIRS = 300;
constexpr int VISITORS = RTSPS_MAX_SESSIONS + 20;
constexpr milliseconds PUSH_INTERVAL{40};
constexpr seconds BUSY{4};  // twice per cycle
constexpr seconds FIGURES_INTERVAL{10};
constexpr int64_t STOP_LIMIT_MS = 300;
constexpr double RESIDENT_GROWTH_LIMIT = 1.01;

std::atomic<bool> g_interrupted{false};
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
    long pages = 0;
    FILE* file = fopen("/proc/self/statm", "re");
    const int fields = fscanf(file, "%*d %ld", &pages);
    fclose(file);
    return fields == 1 ? pages * (sysconf(_SC_PAGESIZE) / 1024) : 0;
}

class CSoak {
  public:
    CSoak(FILE* out, seconds time) : m_out(out), m_end(m_start + time) {}
    // Returns whether all checks passed.
    bool Run();

  private:
    void Init();
    void BeBusy();
    void ReplaceOnePlayer();
    void PushAndCheck();
    void ConnectBeyondTheRegistry();
    void StopAmidEverything();
    void ExhaustDataPorts();
    void StopWhenQuiet();
    void Stop();
    void PrintFigures();
    void JudgeMemory();
    void Require(bool holds, const char* what, int64_t value);
    bool GoesOn() const { return !g_interrupted && !m_failed && Clock::now() < m_end; }

    FILE* m_out;
    const Clock::time_point m_start = Clock::now();
    const Clock::time_point m_end;
    Clock::time_point m_nextFigures = m_start + FIGURES_INTERVAL;
    uint16_t m_port = FreeTcpPort();
    int m_firstDataPort = FreeDataPortRange(PORT_PAIRS + 10);
    // Above the range of the pool, and not used by other processes.
    const uint16_t m_foreignPort = static_cast<uint16_t>(m_firstDataPort + 2 * (PORT_PAIRS + 1));
    int m_descriptors = 0;
    int m_threads = 0;
    CMediaSource m_source{8, 1200};
    std::deque<std::unique_ptr<CPlayer>> m_players;
    std::vector<std::unique_ptr<CTroublemakers>> m_bad;
    std::deque<CTestClient> m_visitors;  // connected, without media
    int m_portsExhausted = 0;
    int m_playersServed = 0;
    int m_playersRefused = 0;
    size_t m_packetsTaken = 0;
    int64_t m_longestPushUs = 0;
    int64_t m_longestStopMs = 0;
    std::vector<long> m_residentKb;  // of every quiet moment
    bool m_failed = false;
};

void CSoak::Require(bool holds, const char* what, int64_t value) {
    if (!holds) {
        m_failed = true;
        fprintf(m_out, "FAILED: %s: %" PRId64 "\n", what, value);
    }
}

void CSoak::Init() {
    TRtspServerPara para{};
    para.nServerPort = m_port;
    para.nMinPort = m_firstDataPort;
    para.nMaxPort = m_firstDataPort + 2 * PORT_PAIRS - 1;
    RTSPServer_Init(&para);
    TRtspServerStreamInfo info = MakeStreamInfo();
    RTSPServer_SetStreamInfo(1, RTSPS_STREAM_MAIN, &info);
    RTSPServer_SetEventCallBack(OnEvent, nullptr);
    m_descriptors = CountDescriptors();
    m_threads = OwnThreads();
}

bool CSoak::Run() {
    Init();
    while (GoesOn()) {
        Require(RTSPServer_Start() == 0, "no start", 0);
        BeBusy();
        StopAmidEverything();
        Require(RTSPServer_Start() == 0, "no second start", 0);
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

void CSoak::BeBusy() {
    std::vector<CTroublemakers::EKind> kinds;
    for (int i = 0; i < TROUBLEMAKERS_OF_EACH_KIND * CTroublemakers::KINDS; ++i) {
        kinds.push_back(static_cast<CTroublemakers::EKind>(i % CTroublemakers::KINDS));
    }
    for (int i = 0; i < TROUBLEMAKER_GROUPS; ++i) {
        m_bad.push_back(std::make_unique<CTroublemakers>(m_port, kinds, m_foreignPort));
    }
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
}

void CSoak::ReplaceOnePlayer() {
    if (m_players.size() == PLAYERS) {
        Require(m_players.front()->Leaves(), "no answer to TEARDOWN", 0);
        m_players.pop_front();
    }
    auto player = std::make_unique<CPlayer>(m_port, m_playersServed % CPlayer::TRANSPORTS);
    if (player->IsPlaying() && player->IsRegistered()) {
        ++m_playersServed;
        m_players.push_back(std::move(player));
    } else {
        ++m_playersRefused;  // registry full, no free data port, or a port that is in use twice
    }
}

void CSoak::PushAndCheck() {
    m_source.Next();
    m_longestPushUs = std::max(m_longestPushUs, m_source.Push());
    for (const auto& player : m_players) {
        Require(player->Takes(m_source.Units()), "a player lost a packet", 0);
    }
    m_packetsTaken += m_players.size() * m_source.Units().size();
}

void CSoak::Stop() {
    const auto start = Clock::now();
    RTSPServer_Stop();
    const int64_t ms = std::chrono::duration_cast<milliseconds>(Clock::now() - start).count();
    m_longestStopMs = std::max(m_longestStopMs, ms);
    Require(!IsPlainBuild() || ms <= STOP_LIMIT_MS, "milliseconds of a stop", ms);
}

// The full registry refuses the last ones: they get replies, but no media.
void CSoak::ConnectBeyondTheRegistry() {
    for (int i = 0; i < VISITORS && GoesOn(); ++i) {
        m_visitors.emplace_back(m_port);
        m_visitors.back().Ask("OPTIONS", "*");
    }
}

// Refused clients leave shortly before and shortly after the stop.
void CSoak::StopAmidEverything() {
    ConnectBeyondTheRegistry();
    while (m_visitors.size() > VISITORS - 10) {
        m_visitors.pop_back();
    }
    std::atomic<bool> stopped{false};
    std::thread pusher([&] {
        while (!stopped) {
            m_source.Push();
            std::this_thread::sleep_for(milliseconds(2));
        }
    });
    Stop();
    stopped = true;
    pusher.join();
    m_players.clear();
    m_bad.clear();
    m_visitors.clear();
    WaitUntil([&] { return CountThreads() == m_threads && CountDescriptors() == m_descriptors; });
    Require(CountThreads() == m_threads, "threads after a stop", CountThreads());
    Require(CountDescriptors() == m_descriptors, "descriptors after a stop", CountDescriptors());
}

// Clients set up streams until the pool is empty, and disconnect without TEARDOWN. The next
// player's SETUP gets their ports.
void CSoak::ExhaustDataPorts() {
    bool refused = false;
    for (int i = 0; i < VISITORS && !refused && GoesOn(); ++i) {
        CTestClient& client = m_visitors.emplace_back(m_port);
        client.Describe();
        for (int n = 0; n < 16 && !refused; ++n) {
            const std::string reply =
                client.Setup(0, "RTP/AVP;unicast;client_port=" + std::to_string(m_foreignPort));
            refused = reply.find(" 500 ") != std::string::npos;
        }
    }
    m_visitors.clear();
    Require(refused || !GoesOn(), "the data ports did not run out", FreePorts());
    m_portsExhausted += refused ? 1 : 0;
    const bool plays = WaitUntil([&] { return CPlayer(m_port, CPlayer::UDP).IsPlaying(); });
    Require(plays || !GoesOn(), "no data port after those who held them had left", FreePorts());
}

// All clients disconnect. The sweep after five idle seconds removes their sessions.
void CSoak::StopWhenQuiet() {
    m_players.clear();
    m_bad.clear();
    ExhaustDataPorts();
    const int running = m_descriptors + 1;  // the listening socket
    WaitUntil([&] { return Sessions() == 0 && CountDescriptors() == running; }, seconds(30));
    Require(Sessions() == 0, "sessions left", Sessions());
    Require(CountDescriptors() == running, "descriptors, running", CountDescriptors());
    Require(FreePorts() >= static_cast<uint32_t>(PORT_PAIRS), "free data ports", FreePorts());
    Require(g_came == g_went, "clients that came and did not go", g_came - g_went);
    Stop();
    WaitUntil([&] { return CountThreads() == m_threads; });
    Require(CountThreads() == m_threads, "threads", CountThreads());
    Require(CountDescriptors() == m_descriptors, "descriptors", CountDescriptors());
    malloc_trim(0);
    m_residentKb.push_back(ResidentKb());
}

void CSoak::PrintFigures() {
    fprintf(m_out,
            "%5" PRId64
            " s: %3u sessions, %d clients came, %zu packets taken, %d players refused, "
            "data ports exhausted %d times, "
            "%d descriptors, %d threads, %ld KB, %u free data ports, longest push %" PRId64 " us\n",
            int64_t{std::chrono::duration_cast<seconds>(Clock::now() - m_start).count()},
            Sessions(), g_came.load(), m_packetsTaken, m_playersRefused, m_portsExhausted,
            CountDescriptors(), CountThreads(), ResidentKb(), FreePorts(), m_longestPushUs);
    fflush(m_out);
}

// Does not count the first cycle, which is the warm-up.
void CSoak::JudgeMemory() {
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

}  // namespace

int main(int argc, char** argv) {
    const double minutes = argc > 1 ? strtod(argv[1], nullptr) : 1;
    for (const int signal : {SIGINT, SIGTERM}) {
        std::signal(signal, [](int) { g_interrupted = true; });
    }
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
