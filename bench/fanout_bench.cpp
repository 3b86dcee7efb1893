// SPDX-License-Identifier: MIT
// A push to N clients of one server in this process, and the bare calls on the same kind of
// sockets. Times are CPU time of the pushing thread; what arrived is read between the pushes.
#include <benchmark/benchmark.h>
#include <time.h>

#include "peers.h"
#include "rtsps_server_api.h"

namespace {

double ThreadSeconds() {
    timespec now = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

void Push(int stream, std::vector<uint8_t>& picture) {
    RTSPServer_SendRealSteam(1, stream, picture.data(), static_cast<int32_t>(picture.size()));
}

void PushToAll(benchmark::State& state, ETransport emTransport) {
    CServer server;
    const auto nPeers = static_cast<size_t>(state.range(0));
    const std::vector<CPeer> peers = MakePeers(server, nPeers, emTransport);
    std::vector<uint8_t> picture = MakePicture();
    for (auto _ : state) {
        StampNext(picture);
        const double begin = ThreadSeconds();
        Push(RTSPS_STREAM_MAIN, picture);
        state.SetIterationTime(ThreadSeconds() - begin);
        for (const CPeer& peer : peers)
            peer.Drain();
    }
    state.counters["per_packet"] = benchmark::Counter(
        static_cast<double>(nPeers * 16),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void PushToNone(benchmark::State& state) {
    CServer server;
    const auto nPeers = static_cast<size_t>(state.range(0));
    const std::vector<CPeer> peers = MakePeers(server, nPeers, ETransport::eInterleaved);
    std::vector<uint8_t> picture = MakePicture();
    for (auto _ : state)
        Push(RTSPS_STREAM_SUB, picture);
    state.counters["per_session"] = benchmark::Counter(
        static_cast<double>(nPeers),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

}  // namespace

BENCHMARK_CAPTURE(PushToAll, udp, ETransport::eUdp)->Arg(16)->Arg(100)->UseManualTime();
BENCHMARK_CAPTURE(PushToAll, interleaved, ETransport::eInterleaved)
    ->Arg(16)
    ->Arg(100)
    ->UseManualTime();
BENCHMARK(PushToNone)->Arg(1)->Arg(16)->Arg(128);

BENCHMARK_MAIN();
