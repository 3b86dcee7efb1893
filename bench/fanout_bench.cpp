// SPDX-License-Identifier: MIT
// The cost of a push to N clients of a server in this process, compared with the bare system calls
// on the same kind of sockets. Also its cost for sessions that do not take it. Times are CPU time
// of the pushing thread; the clients' data is read between the pushes.
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <utility>

#include "clocks.h"
#include "peers.h"
#include "rtp_session.h"
#include "rtsps_server_api.h"

namespace {

constexpr clockid_t THREAD = CLOCK_THREAD_CPUTIME_ID;
constexpr int RTSP_SEND_BUFFER = 1048576;  // the server's own setting
constexpr int UDP_SEND_BUFFER = 524288;
constexpr int RECEIVE_BUFFER = 4 << 20;
constexpr int WARM_UPS = 5;
constexpr int LATE_MS = 200;

// Two connected sockets, without a server.
class CPair {
  public:
    explicit CPair(ETransport emTransport) {
        if (emTransport == ETransport::eUdp) {
            m_receiver = BindUdp(0, RECEIVE_BUFFER);
            m_sender = ConnectUdp(LocalPort(m_receiver), UDP_SEND_BUFFER);
            return;
        }
        const int listener = ListenTcp(0, 1);
        m_receiver = ConnectTcp(LocalPort(listener));
        m_sender = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        close(listener);
        const int on = 1;
        setsockopt(m_sender, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
        setsockopt(m_sender, SOL_SOCKET, SO_SNDBUF, &RTSP_SEND_BUFFER, sizeof(RTSP_SEND_BUFFER));
        Talk();
    }
    CPair(CPair&& other) noexcept
        : m_sender(std::exchange(other.m_sender, -1)),
          m_receiver(std::exchange(other.m_receiver, -1)) {}
    CPair& operator=(CPair&&) = delete;
    ~CPair() {
        close(m_sender);
        close(m_receiver);
    }

    int Sender() const { return m_sender; }
    int MediaFd() const { return m_receiver; }

  private:
    // Exchanges a few small messages, like a client's requests. They set the kernel's rate of
    // acknowledgements, which are half of the cost of a send.
    void Talk() const {
        const char message[300] = {};
        char received[sizeof(message)];
        for (int i = 0; i < 4; ++i) {
            for (const auto& [from, to] :
                 {std::pair(m_receiver, m_sender), {m_sender, m_receiver}}) {
                pollfd arrival = {to, POLLIN, 0};
                if (send(from, message, sizeof(message), MSG_NOSIGNAL) < 0 ||
                    poll(&arrival, 1, LATE_MS) != 1 || recv(to, received, sizeof(received), 0) < 0)
                    std::perror("bench: a pair of sockets");
            }
        }
    }

    int m_sender = -1;
    int m_receiver = -1;
};

template <typename TEnds>
size_t DrainAll(const TEnds& ends) {
    size_t nBytes = 0;
    for (const auto& end : ends)
        nBytes += DrainSocket(end.MediaFd());
    return nBytes;
}

// Waits for data that is still on its way. Returns whether all data has arrived.
template <typename TEnds>
bool Arrived(const TEnds& ends, size_t nBytes, size_t nExpected) {
    for (int late = 0; nBytes < nExpected && late < LATE_MS; ++late) {
        poll(nullptr, 0, 1);
        nBytes += DrainAll(ends);
    }
    return nBytes == nExpected;
}

// CPU time of one way to send, over all rounds.
struct CWay {
    double fSeconds = 0;
    size_t nBytes = 0;

    template <typename TEnds, typename TSend>
    double Round(const TEnds& ends, const TSend& send) {
        const double seconds = TimeOf(THREAD, send);
        nBytes += DrainAll(ends);
        fSeconds += seconds;
        return seconds;
    }
};

// The counters are microseconds of CPU per packet and client. "ratio" compares with the bare loop
// that sends a whole picture per call.
void PushToAll(benchmark::State& state, ETransport emTransport) {
    const bool bUdp = emTransport == ETransport::eUdp;
    CServer server;
    const auto nPeers = static_cast<size_t>(state.range(0));
    const std::vector<CPeer> peers = MakePeers(server, nPeers, emTransport);
    // Each way has separate sockets, because a later send processes the acknowledgements of an
    // earlier one.
    std::vector<CPair> wholePairs;
    std::vector<CPair> eachPairs;
    for (size_t i = 0; i < nPeers; ++i) {
        wholePairs.emplace_back(emTransport);
        eachPairs.emplace_back(emTransport);
    }
    std::vector<uint8_t> picture = MakePicture();
    const auto push = [&] { Push(picture); };
    const auto sendWhole = [&] {
        for (const CPair& pair : wholePairs) {
            if (bUdp)
                SendDatagrams(pair.Sender(), picture.data(), picture.size());
            else
                SendStream(pair.Sender(), picture.data(), picture.size());
        }
    };
    const auto sendEach = [&] {
        for (const CPair& pair : eachPairs)
            SendEach(pair.Sender(), picture.data(), picture.size(), bUdp ? WIRE_PREFIX_SIZE : 0);
    };
    for (int i = 0; i < WARM_UPS; ++i) {
        StampNext(picture);
        push();
        sendWhole();
        sendEach();
        DrainAll(peers);
        DrainAll(wholePairs);
        DrainAll(eachPairs);
    }

    CWay pushed;
    CWay whole;
    CWay each;
    for (auto _ : state) {
        StampNext(picture);
        state.SetIterationTime(pushed.Round(peers, push));
        whole.Round(wholePairs, sendWhole);
        each.Round(eachPairs, sendEach);
    }

    const auto nRounds = static_cast<size_t>(state.iterations());
    const size_t nPicture = picture.size() - (bUdp ? PICTURE_PACKETS * WIRE_PREFIX_SIZE : 0);
    const size_t nExpected = nRounds * nPeers * nPicture;
    if (!Arrived(peers, pushed.nBytes, nExpected) ||
        !Arrived(wholePairs, whole.nBytes, nExpected) ||
        !Arrived(eachPairs, each.nBytes, nExpected))
        state.SkipWithError("data is missing");
    const double fPerPacket = 1e6 / static_cast<double>(nRounds * nPeers * PICTURE_PACKETS);
    state.counters["us_per_packet"] = pushed.fSeconds * fPerPacket;
    state.counters["floor_us_per_packet"] = whole.fSeconds * fPerPacket;
    state.counters["each_us_per_packet"] = each.fSeconds * fPerPacket;
    state.counters["ratio"] = pushed.fSeconds / whole.fSeconds;
}

enum class EUnconcerned { eOtherStream, eOtherChannel, eNotPlaying };

void PushToNone(benchmark::State& state, EUnconcerned emWhy) {
    CServer server;
    const auto nPeers = static_cast<size_t>(state.range(0));
    std::vector<CPeer> peers;
    for (size_t i = 0; i < nPeers; ++i) {
        peers.emplace_back(server.Port());
        if (emWhy == EUnconcerned::eNotPlaying)
            peers.back().Ask("DESCRIBE", "", "");
        else
            peers.back().Play(ETransport::eInterleaved);
    }
    std::vector<uint8_t> picture = MakePicture();
    const int nStream = emWhy == EUnconcerned::eOtherStream ? RTSPS_STREAM_SUB : RTSPS_STREAM_MAIN;
    const int nChannel = emWhy == EUnconcerned::eOtherChannel ? 2 : 1;
    const double begin = ReadClock(THREAD);
    for (auto _ : state)
        Push(picture, nStream, nChannel);
    const double seconds = ReadClock(THREAD) - begin;
    if (DrainAll(peers) != 0)
        state.SkipWithError("a client has received the push");
    state.counters["ns_per_session"] =
        seconds * 1e9 / static_cast<double>(static_cast<size_t>(state.iterations()) * nPeers);
}

void StampPush(benchmark::State& state, ETRANS_MODE emMode) {
    CRtpSession session(emMode);
    std::vector<uint8_t> picture = MakePicture();
    // The sequence numbers end at 65535. The library does not check the number after that, so the
    // same picture can be sent again.
    auto wNext = static_cast<uint16_t>(0x10000 - PICTURE_PACKETS);
    StampFrom(picture, wNext);
    const double begin = ReadClock(THREAD);
    for (auto _ : state) {
        for (size_t pos = 0; pos < picture.size();) {
            const size_t nUnit = SizeOfUnit(picture.data() + pos);
            session.buff_process(picture.data() + pos, static_cast<int>(nUnit));
            pos += nUnit;
        }
    }
    const double seconds = ReadClock(THREAD) - begin;
    state.counters["ns_per_packet"] =
        seconds * 1e9 /
        static_cast<double>(static_cast<size_t>(state.iterations()) * PICTURE_PACKETS);
}

void ManyClients(benchmark::internal::Benchmark* pBenchmark) {
    for (const int n : {1, 16, 32, 100, 128})
        pBenchmark->Arg(n);
    pBenchmark->Iterations(100)->UseManualTime()->Unit(benchmark::kMicrosecond);
}

}  // namespace

BENCHMARK_CAPTURE(StampPush, udp, UDP_MODE);
BENCHMARK_CAPTURE(StampPush, interleaved, RTPOVERRTSP_MODE);
BENCHMARK_CAPTURE(PushToNone, other_stream, EUnconcerned::eOtherStream)->Arg(1)->Arg(16)->Arg(128);
BENCHMARK_CAPTURE(PushToNone, other_channel, EUnconcerned::eOtherChannel)->Arg(128);
BENCHMARK_CAPTURE(PushToNone, not_playing, EUnconcerned::eNotPlaying)->Arg(128);
BENCHMARK_CAPTURE(PushToAll, udp, ETransport::eUdp)->Apply(ManyClients);
BENCHMARK_CAPTURE(PushToAll, interleaved, ETransport::eInterleaved)->Apply(ManyClients);
