// SPDX-License-Identifier: MIT
// Many light clients of one server on this machine, on one thread. They request the stream, count
// the packets and check the sequence numbers. Prints one line of JSON: the counts, and the
// resources that the server's process used during the measurement.
#include <arpa/inet.h>
#include <getopt.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr int64_t MS = 1000000;
constexpr int64_t SECOND = 1000 * MS;
constexpr int64_t LOST_SYN = 900 * MS;  // a lost SYN is sent again after a second
constexpr int64_t DIALOGUE_LIMIT = 20 * SECOND;
constexpr int QUIET_MS = 8;       // without packets for this time: between two access units
constexpr size_t GENTLE = 4;      // dialogues at a time, without --at-once
constexpr size_t HEAD_SIZE = 20;  // prefix, RTP header, and the codec's first bytes
constexpr size_t PREFIX_SIZE = 4;

int64_t Now(clockid_t clock = CLOCK_MONOTONIC) {
    timespec now = {};
    clock_gettime(clock, &now);
    return int64_t{now.tv_sec} * SECOND + now.tv_nsec;
}

[[noreturn]] void Die(const char* pWhat) {
    std::fprintf(stderr, "bench_clients: %s: %s\n", pWhat, std::strerror(errno));
    std::exit(1);
}

sockaddr_in Loopback(int port) {
    sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return addr;
}

int BindUdp(int port) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const int size = 4 << 20;
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof(size));
    const sockaddr_in addr = Loopback(port);
    if (fd >= 0 && bind(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof(addr)) == 0)
        return fd;
    close(fd);
    return -1;
}

struct COptions {
    int nPort = 8554;
    size_t nClients = 100;
    bool bUdp = false;
    bool bAtOnce = false;
    bool bIdle = false;
    bool bUntilPicture = false;
    int64_t nWarmUp = SECOND;
    int64_t nWindow = 4 * SECOND;
    int nServer = 0;  // process id
};

// What one client has received.
struct CMedia {
    uint64_t nPackets = 0;
    uint64_t nLost = 0;
    uint64_t nOutOfOrder = 0;
    uint16_t wNext = 0;
    bool bSequenceSet = false;
    bool bPictureSet = false;
    bool bKey = false;          // a key picture has begun, and its parameter sets have arrived
    int64_t nFirstPicture = 0;  // the time at which it was complete

    // pPacket: the RTP header and at least two bytes after it.
    void Take(const uint8_t* pPacket) {
        const auto wSequence = static_cast<uint16_t>(pPacket[2] << 8 | pPacket[3]);
        const auto nGap = static_cast<uint16_t>(wSequence - wNext);
        if (nPackets++ > 0 && nGap != 0) {
            nLost += nGap < 0x8000 ? nGap : 0;
            nOutOfOrder += nGap < 0x8000 ? 0 : 1;
        }
        wNext = static_cast<uint16_t>(wSequence + 1);
        if (nFirstPicture == 0)
            LookForPicture(pPacket);
    }

    // H.264: a key picture consists of slices of type 5, whole or in fragments (type 28). Parameter
    // sets have separate packets (types 7 and 8).
    void LookForPicture(const uint8_t* pPacket) {
        const int type = pPacket[12] & 0x1F;
        const bool bBegins = type == 5 || (type == 28 && (pPacket[13] & 0x9F) == 0x85);
        bSequenceSet = bSequenceSet || type == 7;
        bPictureSet = bPictureSet || type == 8;
        bKey = bKey || (bBegins && bSequenceSet && bPictureSet);
        if (bKey && (pPacket[1] & 0x80) != 0)
            nFirstPicture = Now();
    }
};

class CClient {
  public:
    enum EState { CONNECTING, GREETING, DESCRIBING, SETTING_UP, STARTING, PLAYING, IDLE };

    CClient(const COptions& options, int epoll, uint64_t nIndex)
        : m_options(options), m_nEpoll(epoll), m_nIndex(nIndex) {}

    void Connect() {
        m_fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        const sockaddr_in addr = Loopback(m_options.nPort);
        m_nBegin = Now();
        if (connect(m_fd, reinterpret_cast<const sockaddr*>(&addr), sizeof(addr)) != 0 &&
            errno != EINPROGRESS)
            Die("connect");
        Watch(m_fd, EPOLLIN | EPOLLOUT, m_nIndex, EPOLL_CTL_ADD);
    }

    EState State() const { return m_emState; }
    bool Ready() const { return m_emState >= PLAYING; }
    int64_t Begin() const { return m_nBegin; }
    int64_t Connected() const { return m_nConnected; }
    int64_t Started() const { return m_nReady; }
    const CMedia& Media() const { return m_media; }

    void OnRtsp(std::vector<uint8_t>& buffer) {
        if (m_emState == CONNECTING)
            return Greet();
        const ssize_t n = recv(m_fd, buffer.data(), buffer.size(), 0);
        if (n < 0 && errno == EAGAIN)
            return;
        if (n <= 0) {
            errno = n == 0 ? ECONNRESET : errno;
            Die("the server closed a connection");
        }
        const auto nSize = static_cast<size_t>(n);
        if (m_emState == PLAYING)
            TakeFrames(buffer.data(), nSize);
        else
            TakeReply(buffer.data(), nSize);
    }

    void OnUdp() {
        constexpr unsigned int BATCH = 32;
        static uint8_t heads[BATCH][HEAD_SIZE];
        static iovec parts[BATCH];
        static mmsghdr messages[BATCH];
        for (unsigned int i = 0; i < BATCH; ++i) {
            parts[i] = {heads[i], HEAD_SIZE};
            messages[i].msg_hdr = {};
            messages[i].msg_hdr.msg_iov = &parts[i];
            messages[i].msg_hdr.msg_iovlen = 1;
        }
        const int n = recvmmsg(m_nRtp, messages, BATCH, MSG_DONTWAIT, nullptr);
        for (int i = 0; i < n; ++i)
            m_media.Take(heads[i]);
    }

  private:
    void Watch(int fd, uint32_t events, uint64_t data, int operation) const {
        epoll_event event = {};
        event.events = events;
        event.data.u64 = data;
        epoll_ctl(m_nEpoll, operation, fd, &event);
    }

    void Greet() {
        int error = 0;
        socklen_t size = sizeof(error);
        getsockopt(m_fd, SOL_SOCKET, SO_ERROR, &error, &size);
        if (error != 0) {
            errno = error;
            Die("connect");
        }
        m_nConnected = Now();
        Watch(m_fd, EPOLLIN, m_nIndex, EPOLL_CTL_MOD);
        if (m_options.bIdle)
            Ask(GREETING, "OPTIONS", "", "");
        else
            Ask(DESCRIBING, "DESCRIBE", "", "Accept: application/sdp\r\n");
    }

    void Ask(EState emState, const char* pMethod, const char* pTail, const std::string& headers) {
        const std::string text =
            std::string(pMethod) + " rtsp://127.0.0.1:" + std::to_string(m_options.nPort) +
            "/chan1/main/" + pTail + " RTSP/1.0\r\nCSeq: " + std::to_string(++m_nCseq) + "\r\n" +
            m_session + headers + "\r\n";
        if (send(m_fd, text.data(), text.size(), MSG_NOSIGNAL) < 0)
            Die("send");
        m_emState = emState;
    }

    void TakeReply(const uint8_t* pData, size_t nSize) {
        m_text.append(reinterpret_cast<const char*>(pData), nSize);
        DropEarlyFrames();
        if (m_text[0] == '$')
            return;
        const size_t nHead = m_text.find("\r\n\r\n");
        if (nHead == std::string::npos)
            return;
        size_t nBody = 0;
        const size_t nAt = m_text.find("Content-Length: ");
        if (nAt < nHead)
            nBody = std::strtoul(m_text.c_str() + nAt + 16, nullptr, 10);
        const size_t nReply = nHead + 4 + nBody;
        if (m_text.size() < nReply)
            return;
        if (m_text.compare(0, 12, "RTSP/1.0 200") != 0) {
            std::fprintf(stderr, "bench_clients: %s", m_text.c_str());
            std::exit(1);
        }
        const size_t nSession = m_text.find("Session: ");
        if (nSession < nHead)
            m_session =
                m_text.substr(nSession, m_text.find_first_of(";\r", nSession) - nSession) + "\r\n";
        const std::string rest = m_text.substr(nReply);
        m_text.clear();
        Proceed();
        if (m_emState == PLAYING && !rest.empty())
            TakeFrames(reinterpret_cast<const uint8_t*>(rest.data()), rest.size());
    }

    // Some servers send media before their reply to PLAY.
    void DropEarlyFrames() {
        while (m_text.size() >= PREFIX_SIZE && m_text[0] == '$') {
            const auto nHigh = static_cast<uint8_t>(m_text[2]);
            const auto nLow = static_cast<uint8_t>(m_text[3]);
            const size_t nFrame = PREFIX_SIZE + static_cast<size_t>(nHigh << 8 | nLow);
            if (m_text.size() < nFrame)
                return;
            m_text.erase(0, nFrame);
        }
    }

    void Proceed() {
        if (m_emState == DESCRIBING) {
            Ask(SETTING_UP, "SETUP", "streamid=0", "Transport: " + Transport() + "\r\n");
        } else if (m_emState == SETTING_UP) {
            Ask(STARTING, "PLAY", "", "");
        } else {
            m_emState = m_emState == GREETING ? IDLE : PLAYING;
            m_nReady = Now();
        }
    }

    std::string Transport() {
        if (!m_options.bUdp)
            return "RTP/AVP/TCP;unicast;interleaved=0-1";
        static int nextPort = 34000 + getpid() % 8000 * 2;
        for (int tries = 0; tries < 4000; ++tries) {
            nextPort = nextPort >= 60000 ? 34000 : nextPort + 2;
            m_nRtp = BindUdp(nextPort);
            m_nRtcp = m_nRtp < 0 ? -1 : BindUdp(nextPort + 1);
            if (m_nRtcp >= 0) {
                Watch(m_nRtp, EPOLLIN, m_nIndex | 1ULL << 32, EPOLL_CTL_ADD);
                const std::string port = std::to_string(nextPort);
                return "RTP/AVP;unicast;client_port=" + port + "-" + std::to_string(nextPort + 1);
            }
            if (m_nRtp >= 0)
                close(m_nRtp);
        }
        Die("no free ports");
    }

    void TakeFrames(const uint8_t* pData, size_t nSize) {
        while (nSize > 0) {
            if (m_nSkip > 0) {
                const size_t n = std::min(m_nSkip, nSize);
                pData += n;
                nSize -= n;
                m_nSkip -= n;
                continue;
            }
            const size_t n = std::min(HEAD_SIZE - m_nHead, nSize);
            std::memcpy(m_head + m_nHead, pData, n);
            pData += n;
            nSize -= n;
            m_nHead += n;
            if (m_nHead == HEAD_SIZE)
                TakeHead();
        }
    }

    // Every packet of the stream is longer than HEAD_SIZE, so the head never contains the next one.
    void TakeHead() {
        const size_t nUnit = PREFIX_SIZE + static_cast<size_t>(m_head[2] << 8 | m_head[3]);
        if (m_head[0] != '$' || nUnit < HEAD_SIZE) {
            std::fprintf(stderr, "bench_clients: a stream has an invalid frame\n");
            std::exit(1);
        }
        if (m_head[1] == 0)  // on another channel it is a report
            m_media.Take(m_head + PREFIX_SIZE);
        m_nSkip = nUnit - HEAD_SIZE;
        m_nHead = 0;
    }

    const COptions& m_options;
    const int m_nEpoll;
    const uint64_t m_nIndex;
    EState m_emState = CONNECTING;
    int m_fd = -1;
    int m_nRtp = -1;
    int m_nRtcp = -1;
    int m_nCseq = 0;
    int64_t m_nBegin = 0;
    int64_t m_nConnected = 0;
    int64_t m_nReady = 0;
    std::string m_text;
    std::string m_session;  // the Session header, once the server has sent one
    uint8_t m_head[HEAD_SIZE] = {};
    size_t m_nHead = 0;
    size_t m_nSkip = 0;
    CMedia m_media;
};

// The sums over all clients, and the clocks, at one point in time.
struct CSnapshot {
    int64_t nTime = 0;
    int64_t nServerCpu = 0;
    int64_t nOwnCpu = 0;
    uint64_t nPackets = 0;
    uint64_t nLost = 0;
    uint64_t nOutOfOrder = 0;
};

class CBench {
  public:
    explicit CBench(const COptions& options)
        : m_options(options), m_nEpoll(epoll_create1(EPOLL_CLOEXEC)), m_buffer(1 << 20) {
        if (options.nServer > 0 && clock_getcpuclockid(options.nServer, &m_serverClock) != 0)
            Die("the server's CPU clock");
        m_clients.reserve(options.nClients);
        for (size_t i = 0; i < options.nClients; ++i)
            m_clients.emplace_back(options, m_nEpoll, i);
    }

    int Run() {
        if (!Gather() || (m_options.bUntilPicture && !AwaitPictures()))
            return 1;
        const CSnapshot before = Rest(m_options.nWarmUp);
        const CSnapshot after = Rest(m_options.nWindow);
        Report(before, after);
        return 0;
    }

  private:
    size_t Serve(int timeoutMs) {
        epoll_event events[64];
        const int n = epoll_wait(m_nEpoll, events, 64, timeoutMs);
        for (int i = 0; i < n; ++i) {
            CClient& client = m_clients[events[i].data.u64 & 0xFFFFFFFF];
            if ((events[i].data.u64 >> 32) != 0)
                client.OnUdp();
            else
                client.OnRtsp(m_buffer);
        }
        return n > 0 ? static_cast<size_t>(n) : 0;
    }

    // Connects all clients, and runs their dialogues until each has reached its last state.
    bool Gather() {
        const int64_t limit = Now() + DIALOGUE_LIMIT;
        size_t nStarted = 0;
        for (;;) {
            const auto nReady = static_cast<size_t>(std::count_if(
                m_clients.begin(), m_clients.end(), [](const CClient& c) { return c.Ready(); }));
            if (nReady == m_clients.size())
                return true;
            while (nStarted < m_clients.size() && (m_options.bAtOnce || nStarted - nReady < GENTLE))
                m_clients[nStarted++].Connect();
            Serve(100);
            if (Now() > limit) {
                std::fprintf(stderr, "bench_clients: %zu of %zu clients are ready\n", nReady,
                             m_clients.size());
                return false;
            }
        }
    }

    bool AwaitPictures() {
        const auto hasPicture = [](const CClient& c) { return c.Media().nFirstPicture != 0; };
        const int64_t limit = Now() + DIALOGUE_LIMIT;
        while (!std::all_of(m_clients.begin(), m_clients.end(), hasPicture)) {
            if (Now() > limit) {
                std::fprintf(stderr, "bench_clients: no key picture\n");
                return false;
            }
            Serve(100);
        }
        return true;
    }

    // The resident memory of the server's process.
    size_t ServerKilobytes() const {
        const std::string path = "/proc/" + std::to_string(m_options.nServer) + "/statm";
        std::FILE* pFile = std::fopen(path.c_str(), "re");
        if (pFile == nullptr)
            return 0;
        size_t nResident = 0;
        if (std::fscanf(pFile, "%*s %zu", &nResident) != 1)
            nResident = 0;
        std::fclose(pFile);
        return nResident * static_cast<size_t>(sysconf(_SC_PAGESIZE)) / 1024;
    }

    // Continues for some time, and then until the next pause between two access units.
    CSnapshot Rest(int64_t nDuration) {
        const int64_t end = Now() + nDuration;
        while (Now() < end)
            Serve(QUIET_MS);
        while (Serve(QUIET_MS) > 0 && Now() < end + SECOND)
            continue;
        CSnapshot now;
        now.nTime = Now();
        now.nServerCpu = m_options.nServer > 0 ? Now(m_serverClock) : 0;
        now.nOwnCpu = Now(CLOCK_PROCESS_CPUTIME_ID);
        for (const CClient& client : m_clients) {
            now.nPackets += client.Media().nPackets;
            now.nLost += client.Media().nLost;
            now.nOutOfOrder += client.Media().nOutOfOrder;
        }
        return now;
    }

    void Report(const CSnapshot& before, const CSnapshot& after) const {
        int64_t first = INT64_MAX;
        int64_t last = 0;
        int64_t slowest = 0;
        std::vector<double> pictures;
        for (const CClient& client : m_clients) {
            first = std::min(first, client.Begin());
            last = std::max(last, client.Started());
            slowest = std::max(slowest, client.Connected() - client.Begin());
            if (client.Media().nFirstPicture != 0)
                pictures.push_back(
                    static_cast<double>(client.Media().nFirstPicture - client.Started()) / MS);
        }
        std::sort(pictures.begin(), pictures.end());
        const auto nPackets = static_cast<double>(after.nPackets - before.nPackets);
        const auto nCpu = static_cast<double>(after.nServerCpu - before.nServerCpu);
        const auto nWall = static_cast<double>(after.nTime - before.nTime);
        std::printf(
            "{\"clients\": %zu, \"transport\": \"%s\", \"seconds\": %.3f, \"packets\": %.0f, "
            "\"lost\": %llu, \"out_of_order\": %llu, \"server_cpu_ms\": %.3f, "
            "\"us_per_packet\": %.4f, \"server_rss_kb\": %zu, \"own_cpu_ms\": %.3f, "
            "\"all_ready_ms\": %.2f, "
            "\"slowest_connect_ms\": %.2f, \"lost_syn\": %s, \"first_picture_ms_median\": %.1f, "
            "\"first_picture_ms_max\": %.1f}\n",
            m_clients.size(), m_options.bUdp ? "udp" : "interleaved", nWall / SECOND, nPackets,
            static_cast<unsigned long long>(after.nLost - before.nLost),
            static_cast<unsigned long long>(after.nOutOfOrder - before.nOutOfOrder), nCpu / MS,
            nPackets > 0 ? nCpu / 1000 / nPackets : 0.0, ServerKilobytes(),
            static_cast<double>(after.nOwnCpu - before.nOwnCpu) / MS,
            static_cast<double>(last - first) / MS, static_cast<double>(slowest) / MS,
            slowest > LOST_SYN ? "true" : "false",
            pictures.empty() ? 0.0 : pictures[pictures.size() / 2],
            pictures.empty() ? 0.0 : pictures.back());
        std::fflush(stdout);
    }

    const COptions& m_options;
    const int m_nEpoll;
    clockid_t m_serverClock = CLOCK_MONOTONIC;
    std::vector<uint8_t> m_buffer;
    std::vector<CClient> m_clients;
};

constexpr const char* USAGE =
    "Usage: bench_clients --port N --clients N [--udp] [--at-once] [--idle] [--until-picture]\n"
    "                     [--warm-up MS] [--window MS] [--server PID]\n"
    "--at-once: all clients connect at the same time. --idle: clients send only OPTIONS.\n"
    "--until-picture: before the warm-up, wait until every client has a whole key picture.\n";

int64_t Number(const char* pText) {
    return std::strtol(pText, nullptr, 10);
}

}  // namespace

int main(int argc, char** argv) {
    const option options[] = {
        {"port", required_argument, nullptr, 'p'},    {"clients", required_argument, nullptr, 'n'},
        {"udp", no_argument, nullptr, 'u'},           {"at-once", no_argument, nullptr, 'a'},
        {"idle", no_argument, nullptr, 'i'},          {"until-picture", no_argument, nullptr, 'k'},
        {"warm-up", required_argument, nullptr, 'w'}, {"window", required_argument, nullptr, 't'},
        {"server", required_argument, nullptr, 's'},  {nullptr, 0, nullptr, 0},
    };
    COptions given;
    for (int c = 0; (c = getopt_long(argc, argv, "", options, nullptr)) != -1;) {
        switch (c) {
            case 'p':
                given.nPort = static_cast<int>(Number(optarg));
                break;
            case 'n':
                given.nClients = static_cast<size_t>(Number(optarg));
                break;
            case 'u':
                given.bUdp = true;
                break;
            case 'a':
                given.bAtOnce = true;
                break;
            case 'i':
                given.bIdle = true;
                break;
            case 'k':
                given.bUntilPicture = true;
                break;
            case 'w':
                given.nWarmUp = Number(optarg) * MS;
                break;
            case 't':
                given.nWindow = Number(optarg) * MS;
                break;
            case 's':
                given.nServer = static_cast<int>(Number(optarg));
                break;
            default:
                std::fputs(USAGE, stderr);
                return 2;
        }
    }
    const rlimit files = {8192, 8192};
    setrlimit(RLIMIT_NOFILE, &files);
    CBench bench(given);
    return bench.Run();
}
