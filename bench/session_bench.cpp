// SPDX-License-Identifier: MIT
// The cost of a client's dialogue, and of a stop with a hundred clients.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "clocks.h"
#include "peers.h"
#include "rtsp_msg.h"
#include "rtsp_msg_parser.h"
#include "rtsps_server_api.h"

namespace {

constexpr size_t CLIENTS = 100;
constexpr int STOPS = 10;
constexpr int DIALOGUES = 200;

const char* const DESCRIBE_HEADERS = "Accept: application/sdp\r\n";
const char* const SETUP_HEADERS = "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n";

void ParseRequest(benchmark::State& state, const char* pMethod, const char* pHeaders) {
    const std::string text = std::string(pMethod) +
                             " rtsp://192.168.1.64:554/chan1/main/ RTSP/1.0\r\n"
                             "CSeq: 3\r\nUser-Agent: player/1.0\r\n" +
                             pHeaders + "\r\n";
    CRtspMsgParser parser;
    for (auto _ : state) {
        const std::unique_ptr<CRtspMsg> pMsg(
            parser.parse(text.data(), static_cast<int>(text.size())));
        if (pMsg == nullptr)
            state.SkipWithError("the request does not parse");
    }
}

// The server's CPU time: that of all threads but this one, which is the client.
double ServerSeconds() {
    return ReadClock(CLOCK_PROCESS_CPUTIME_ID) - ReadClock(CLOCK_THREAD_CPUTIME_ID);
}

// A request and its reply. The time is the client's wait, "server_us" the server's CPU time.
void AnswerOptions(benchmark::State& state) {
    CServer server;
    CPeer peer(server.Port());
    const double begin = ServerSeconds();
    for (auto _ : state)
        peer.Ask("OPTIONS", "", "");
    state.counters["server_us"] =
        (ServerSeconds() - begin) * 1e6 / static_cast<double>(state.iterations());
}

// Requests that a client may send once. Each is measured with a new client; the requests before it
// are not timed.
void AnswerOnce(benchmark::State& state, bool bSetup) {
    CServer server;
    double fServer = 0;
    for (auto _ : state) {
        CPeer peer(server.Port());
        peer.Ask(bSetup ? "DESCRIBE" : "OPTIONS", "", "");
        const double begin = ServerSeconds();
        state.SetIterationTime(TimeOf(CLOCK_MONOTONIC, [&] {
            if (bSetup)
                peer.Ask("SETUP", "streamid=0", SETUP_HEADERS);
            else
                peer.Ask("DESCRIBE", "", DESCRIBE_HEADERS);
        }));
        fServer += ServerSeconds() - begin;
    }
    state.counters["server_us"] = fServer * 1e6 / static_cast<double>(state.iterations());
}

// From the connection to the reply to PLAY, one client after another.
void Dialogue(benchmark::State& state, ETransport emTransport) {
    CServer server;
    double fServer = 0;
    for (auto _ : state) {
        const double begin = ServerSeconds();
        const double start = ReadClock(CLOCK_MONOTONIC);
        CPeer peer(server.Port());
        peer.Play(emTransport);
        state.SetIterationTime(ReadClock(CLOCK_MONOTONIC) - start);
        fServer += ServerSeconds() - begin;
    }
    state.counters["server_us"] = fServer * 1e6 / static_cast<double>(state.iterations());
}

void StopWhilePlaying(benchmark::State& state, ETransport emTransport) {
    for (auto _ : state) {
        CServer server;
        const std::vector<CPeer> peers = MakePeers(server, CLIENTS, emTransport);
        std::vector<uint8_t> picture = MakePicture();
        StampNext(picture);
        Push(picture);
        state.SetIterationTime(TimeOf(CLOCK_MONOTONIC, [] { RTSPServer_Stop(); }));
    }
}

}  // namespace

BENCHMARK_CAPTURE(ParseRequest, options, "OPTIONS", "");
BENCHMARK_CAPTURE(ParseRequest, describe, "DESCRIBE", DESCRIBE_HEADERS);
BENCHMARK_CAPTURE(ParseRequest, setup, "SETUP", SETUP_HEADERS);
BENCHMARK(AnswerOptions)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(AnswerOnce, describe, false)
    ->Iterations(DIALOGUES)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(AnswerOnce, setup, true)
    ->Iterations(DIALOGUES)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(Dialogue, udp, ETransport::eUdp)
    ->Iterations(DIALOGUES)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(Dialogue, interleaved, ETransport::eInterleaved)
    ->Iterations(DIALOGUES)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(StopWhilePlaying, udp, ETransport::eUdp)
    ->Iterations(1)
    ->Repetitions(STOPS)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(StopWhilePlaying, interleaved, ETransport::eInterleaved)
    ->Iterations(1)
    ->Repetitions(STOPS)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
