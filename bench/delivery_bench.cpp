// SPDX-License-Identifier: MIT
// A push as clients see it: when its last byte is in their sockets, and how a client that does not
// read affects the others.
#include <benchmark/benchmark.h>
#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>

#include "clocks.h"
#include "peers.h"
#include "rtsps_server_api.h"

namespace {

constexpr size_t CLIENTS = 100;
constexpr size_t CLIENTS_WITH_STALLED = 64;
constexpr int WARM_UPS = 10;
constexpr int SMALL_RECEIVE_BUFFER = 65536;

void StampArrivals(const CPeer& peer) {
    const int on = 1;
    setsockopt(peer.MediaFd(), SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof(on));
}

// Reads all data. Returns when the kernel put the last piece into the socket, or 0 when there was
// no data. The kernel's stamps are on CLOCK_REALTIME.
double LastArrival(const CPeer& peer) {
    static char data[1 << 20];
    alignas(cmsghdr) char control[256];
    double last = 0;
    for (;;) {
        iovec part = {data, sizeof(data)};
        msghdr message = {};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof(control);
        if (recvmsg(peer.MediaFd(), &message, MSG_DONTWAIT) <= 0)
            return last;
        for (cmsghdr* p = CMSG_FIRSTHDR(&message); p != nullptr; p = CMSG_NXTHDR(&message, p)) {
            timespec arrival = {};
            if (p->cmsg_level != SOL_SOCKET || p->cmsg_type != SO_TIMESTAMPNS)
                continue;
            std::memcpy(&arrival, CMSG_DATA(p), sizeof(arrival));
            last = std::max(last, Seconds(arrival));
        }
    }
}

// The time from the call of the push to the last byte in a client's socket. "p50_us" and "p99_us"
// are over all clients and pushes; the benchmark's own time is that of the last client.
void Delivery(benchmark::State& state, ETransport emTransport) {
    CServer server;
    const std::vector<CPeer> peers = MakePeers(server, CLIENTS, emTransport);
    std::vector<uint8_t> picture = MakePicture();
    for (const CPeer& peer : peers)
        StampArrivals(peer);
    // The kernel starts to stamp packets a moment after the socket option is set.
    for (int i = 0; i < WARM_UPS; ++i) {
        StampNext(picture);
        Push(picture);
        poll(nullptr, 0, 10);
        for (const CPeer& peer : peers)
            peer.Drain();
    }
    std::vector<double> waits;
    for (auto _ : state) {
        StampNext(picture);
        const double begin = ReadClock(CLOCK_REALTIME);
        Push(picture);
        double longest = 0;
        for (const CPeer& peer : peers) {
            const double wait = LastArrival(peer) - begin;
            if (wait < 0) {
                state.SkipWithError("a client has received nothing");
                return;
            }
            waits.push_back(wait);
            longest = std::max(longest, wait);
        }
        state.SetIterationTime(longest);
    }
    state.counters["p50_us"] = Quantile(waits, 0.5) * 1e6;
    state.counters["p99_us"] = Quantile(waits, 0.99) * 1e6;
    state.counters["max_us"] = Quantile(waits, 1) * 1e6;
}

// Waits for the end of the stalled client, and stores its totals.
class CLastWords {
  public:
    CLastWords() { RTSPServer_SetEventCallBack(OnEvent, this); }
    ~CLastWords() { RTSPServer_SetEventCallBack(nullptr, nullptr); }
    CLastWords(const CLastWords&) = delete;
    CLastWords& operator=(const CLastWords&) = delete;

    // Returns zeros when no client ends in time.
    TRtspServerTotals Await() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_said.wait_for(lock, std::chrono::seconds(5), [this] { return m_bSaid; });
        const TRtspServerTotals totals = m_bSaid ? m_totals : TRtspServerTotals();
        m_bSaid = false;
        return totals;
    }

  private:
    static void OnEvent(int32_t nEvent, int32_t /*nSessionId*/, void* pData, int32_t /*nLen*/,
                        void* pUserData) {
        if (nEvent != RTSPS_EVENT_CLOSED)
            return;
        auto* pSelf = static_cast<CLastWords*>(pUserData);
        const std::lock_guard<std::mutex> guard(pSelf->m_mutex);
        pSelf->m_totals = static_cast<const TRtspServerEventInfo*>(pData)->stuTotals;
        pSelf->m_bSaid = true;
        pSelf->m_said.notify_all();
    }

    std::mutex m_mutex;
    std::condition_variable m_said;
    TRtspServerTotals m_totals = {};
    bool m_bSaid = false;
};

// Pushes to many clients, of which one stops reading after a while, and measures each push.
class CStall {
  public:
    static constexpr size_t READING = 30;
    static constexpr size_t STALLED = 300;  // more than fit the kernel's buffers

    explicit CStall(const CServer& server)
        : m_server(server),
          m_peers(MakePeers(server, CLIENTS_WITH_STALLED - 1, ETransport::eInterleaved)),
          m_picture(MakePicture()) {}

    // Appends times of pushes in seconds: to reading while all clients read, and to stalled once
    // the connection of the stalled client is full. Returns false when it was never full.
    bool Episode(std::vector<double>& reading, std::vector<double>& stalled) {
        std::vector<double> times;
        {
            CPeer peer(m_server.Port(), SMALL_RECEIVE_BUFFER);
            peer.Play(ETransport::eInterleaved);
            for (size_t i = 0; i < READING + STALLED; ++i) {
                times.push_back(PushOnce());
                if (i < READING)
                    peer.Drain();
            }
        }
        const TRtspServerTotals totals = m_lastWords.Await();
        const auto nFull = static_cast<size_t>(totals.qwVideoPackets / PICTURE_PACKETS);
        if (totals.dwShortSends == 0 || nFull < READING ||
            nFull + totals.dwShortSends > times.size())
            return false;
        AppendPairs(times, 2, READING, reading);
        AppendPairs(times, nFull, nFull + totals.dwShortSends, stalled);
        return true;
    }

  private:
    // Every second push also processes acknowledgements, so the times alternate. Only the means of
    // pairs can be compared.
    static void AppendPairs(const std::vector<double>& times, size_t nBegin, size_t nEnd,
                            std::vector<double>& pairs) {
        for (size_t i = nBegin; i + 1 < nEnd; i += 2)
            pairs.push_back((times[i] + times[i + 1]) / 2);
    }

    double PushOnce() {
        StampNext(m_picture);
        const double seconds = TimeOf(CLOCK_MONOTONIC, [this] { Push(m_picture); });
        for (const CPeer& peer : m_peers)
            peer.Drain();
        return seconds;
    }

    const CServer& m_server;
    const std::vector<CPeer> m_peers;
    std::vector<uint8_t> m_picture;
    CLastWords m_lastWords;
};

void OneStalled(benchmark::State& state) {
    CServer server;
    CStall stall(server);
    std::vector<double> reading;
    std::vector<double> stalled;
    for (auto _ : state) {
        if (!stall.Episode(reading, stalled)) {
            state.SkipWithError("the connection of the stalled client was never full");
            return;
        }
        state.SetIterationTime(Quantile(stalled, 0.5));
    }
    const double before = Quantile(reading, 0.5);
    const double during = Quantile(stalled, 0.5);
    state.counters["reading_us"] = before * 1e6;
    state.counters["stalled_us"] = during * 1e6;
    state.counters["worst_stalled_us"] = Quantile(stalled, 1) * 1e6;
    state.counters["change_percent"] = (during / before - 1) * 100;
}

}  // namespace

BENCHMARK_CAPTURE(Delivery, udp, ETransport::eUdp)
    ->Iterations(300)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(Delivery, interleaved, ETransport::eInterleaved)
    ->Iterations(300)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(OneStalled)->Iterations(10)->UseManualTime()->Unit(benchmark::kMicrosecond);
