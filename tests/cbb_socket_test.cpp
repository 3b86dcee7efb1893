// SPDX-License-Identifier: MIT
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "cbb.h"
#include "support/trans_info.h"

namespace {

using Clock = std::chrono::steady_clock;

int64_t MillisSince(Clock::time_point start) {
    return (Clock::now() - start) / std::chrono::milliseconds(1);
}

// A listener on a port that the system chooses, and one connection through it.
class CbbSocket : public testing::Test {
  protected:
    void SetUp() override {
        CBB_MakeAddr4ByInt(htonl(INADDR_LOOPBACK), 0, &m_addr);
        m_listen = Open(SOCK_STREAM);
        ASSERT_EQ(CBB_Bind(m_listen, &m_addr) | CBB_Listen(m_listen, 1), 0);
        ASSERT_EQ(CBB_GetAddrBySockFd(m_listen, &m_addr, nullptr), 0);
    }
    void TearDown() override {
        for (const CBB_SOCK_T fd : m_sockets)
            close(fd);
    }
    CBB_SOCK_T Keep(CBB_SOCK_T fd) {
        EXPECT_GE(fd, 0) << strerror(errno);
        m_sockets.push_back(fd);
        return fd;
    }
    CBB_SOCK_T Open(int nType) { return Keep(CBB_CreateSocket(AF_INET, nType, 0)); }
    void ConnectPair() {
        m_client = Open(SOCK_STREAM);
        ASSERT_EQ(CBB_ConnectWithTimeOut(m_client, &m_addr, 5000), 0);
        m_server = Keep(CBB_Accept(m_listen, nullptr, 5000));
    }

    CBB_SOCK_T m_listen = -1, m_client = -1, m_server = -1;
    CBB_ADDR_T m_addr = {};
    std::vector<CBB_SOCK_T> m_sockets;
};

TEST_F(CbbSocket, AcceptsWithinItsTime) {
    Clock::time_point start = Clock::now();
    EXPECT_EQ(CBB_Accept(m_listen, nullptr, 100), -1);
    EXPECT_GE(MillisSince(start), 99);
    EXPECT_LT(MillisSince(start), 3000);
    ConnectPair();
    for (const CBB_SOCK_T fd : m_sockets)
        EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
}

TEST_F(CbbSocket, AShutdownWakesTheAccept) {
    const Clock::time_point start = Clock::now();
    std::thread stop([this] { CBB_ShutDown(m_listen, SHUT_RDWR); });
    EXPECT_EQ(CBB_Accept(m_listen, nullptr, 60000), -1);
    EXPECT_LT(MillisSince(start), 30000);
    stop.join();
}

TEST_F(CbbSocket, ConnectsWithinItsTime) {
    CBB_SOCK_T fd = Open(SOCK_STREAM);
    ASSERT_EQ(CBB_SetNonBlock(fd, 1), 0);
    EXPECT_EQ(CBB_ConnectWithTimeOut(fd, &m_addr, 5000), 0);
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);  // kept: blocking, also when it was not before
    // Without an accept one more connection fits the queue; the next one is never accepted.
    Clock::time_point start;
    do {
        fd = Open(SOCK_STREAM);
        start = Clock::now();
    } while (CBB_ConnectWithTimeOut(fd, &m_addr, 100) == 0 && m_sockets.size() < 6);
    EXPECT_GE(MillisSince(start), 99);
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
}

// Closes the standard streams from one descriptor on while it exists.
class CClosedStandardStreams {
  public:
    explicit CClosedStandardStreams(int first) : m_first(first) {
        for (int fd = first; fd <= STDERR_FILENO; ++fd) {
            m_saved[fd] = fcntl(fd, F_DUPFD_CLOEXEC, 10);
            close(fd);
        }
    }
    ~CClosedStandardStreams() {
        for (int fd = m_first; fd <= STDERR_FILENO; ++fd) {
            dup2(m_saved[fd], fd);
            close(m_saved[fd]);
        }
    }
    CClosedStandardStreams(const CClosedStandardStreams&) = delete;
    CClosedStandardStreams& operator=(const CClosedStandardStreams&) = delete;

  private:
    int m_first;
    int m_saved[3] = {};
};

// What the host prints to its closed standard streams must not reach a client.
TEST_F(CbbSocket, StandardStreamsAreNeverSockets) {
    for (const int first : {STDIN_FILENO, STDERR_FILENO}) {
        m_client = Open(SOCK_STREAM);
        ASSERT_EQ(CBB_ConnectWithTimeOut(m_client, &m_addr, 5000), 0);
        CBB_SOCK_T created = -1;
        CBB_SOCK_T accepted = -1;
        bool stillClosed = false;
        {
            const CClosedStandardStreams closed(first);
            CBB_ADDR_T peer = {};
            created = CBB_CreateSocket(AF_INET, SOCK_DGRAM, 0);
            accepted = CBB_Accept(m_listen, first == STDIN_FILENO ? &peer : nullptr, 5000);
            stillClosed = fcntl(first, F_GETFD) == -1 && fcntl(STDERR_FILENO, F_GETFD) == -1;
        }
        EXPECT_TRUE(stillClosed);
        for (const CBB_SOCK_T fd : {created, accepted}) {
            EXPECT_GT(fd, STDERR_FILENO);
            EXPECT_EQ(fcntl(Keep(fd), F_GETFD), FD_CLOEXEC);
        }
        EXPECT_EQ(CBB_Sendn(accepted, "abc", 3, 5000), 3);
        char buf[4] = {};
        EXPECT_EQ(CBB_Recvn(m_client, buf, 3, 5000), 3) << "the connection has a new descriptor";
    }
}

TEST_F(CbbSocket, AHostMayUseDescriptor0) {
    ConnectPair();
    char buf[4] = {};
    const CClosedStandardStreams closed(STDIN_FILENO);
    ASSERT_EQ(dup2(m_server, 0), 0);
    EXPECT_EQ(CBB_Sendn(0, "abc", 3, CBB_INFINITE), 3);
    EXPECT_EQ(CBB_Sendn(m_client, "abc", 3, CBB_INFINITE), 3);
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(0, &readable);
    EXPECT_EQ(CBB_Select(1, &readable, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(CBB_FdIsSet(0, &readable), 1);
    EXPECT_EQ(CBB_Recvn(0, buf, 3, CBB_INFINITE), 3);
}

TEST_F(CbbSocket, ARefusedConnectionIsReported) {
    CBB_ShutDown(m_listen, SHUT_RDWR);
    const CBB_SOCK_T fd = Open(SOCK_STREAM);
    const CLogCapture log;
    EXPECT_EQ(CBB_ConnectWithTimeOut(fd, &m_addr, 5000), -1);
    EXPECT_EQ(GetSystemLastError(), ECONNREFUSED);
    EXPECT_EQ(log.Text(), "CBB_ConnectWithTimeOut getsockopt !iError return error, 115, Error\n");
}

TEST_F(CbbSocket, TypeOfServiceReadsTheTimeToLive) {  // kept
    const CBB_SOCK_T fd = Open(SOCK_DGRAM);
    int tos = 0;
    EXPECT_EQ(CBB_SetTTL(fd, 33) | CBB_SetTOS(fd, 0x10) | CBB_GetTOS(fd, &tos), 0);
    EXPECT_EQ(tos, 33);
}

// Kept: each time-out is set from the value of the other, and only when its own is not 0.
TEST_F(CbbSocket, TimeOutsAreCrossed) {
    const struct {
        int sendMs, receiveMs;
        time_t receiveSec, sendSec;
    } rows[] = {{3000, 0, 0, 0}, {2000, 5000, 2, 5}, {0, 4000, 0, 0}, {1500, 1500, 1, 1}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.sendMs << ", " << row.receiveMs);
        const CBB_SOCK_T fd = Open(SOCK_STREAM);
        EXPECT_EQ(CBB_SetTimeOut(fd, row.sendMs, row.receiveMs), 0);
        timeval receive = {}, send = {};
        socklen_t length = sizeof(receive);
        getsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &receive, &length);
        getsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &send, &length);
        EXPECT_EQ(receive.tv_sec, row.receiveSec);
        EXPECT_EQ(send.tv_sec, row.sendSec);
    }
}

TEST_F(CbbSocket, SendnNeverBlocksLongerThanAllowed) {
    ConnectPair();
    EXPECT_EQ(CBB_Sendn(m_server, "abc", -1, CBB_INFINITE), 0);
    // A blocking socket and a peer that does not read.
    constexpr int nLarge = 64 << 20;
    const std::string large(nLarge, 'x');
    Clock::time_point start = Clock::now();
    const int nFirst = CBB_Sendn(m_server, large.data(), nLarge, 0);
    EXPECT_TRUE(nFirst > 0 && nFirst < nLarge) << nFirst;
    while (CBB_Sendn(m_server, large.data(), 65536, 400) > 0) {
    }
    EXPECT_EQ(CBB_Sendn(m_server, "abc", 3, 0), 0);
    EXPECT_LT(MillisSince(start), 20000);
    start = Clock::now();
    EXPECT_EQ(CBB_Sendn(m_server, "abc", 3, 100), 0);
    EXPECT_GE(MillisSince(start), 99);
    // As soon as the peer reads, all data is sent.
    std::thread reader([this] {
        std::vector<char> sink(1U << 20);
        while (CBB_Recv(m_client, sink.data(), 1 << 20) > 0) {
        }
    });
    EXPECT_EQ(CBB_Sendn(m_server, large.data(), nLarge, CBB_INFINITE), nLarge);
    CBB_ShutDown(m_server, SHUT_WR);
    reader.join();
}

TEST_F(CbbSocket, ABrokenConnectionEndsAnUnlimitedWaitAndRaisesNoSignal) {
    ConnectPair();
    signal(SIGPIPE, SIG_DFL);
    ASSERT_EQ(CBB_LingerOn(m_client, 0), 0);  // closing resets the connection
    m_sockets.clear();
    std::thread gone([this] { EXPECT_EQ(CBB_CloseSocket(m_client, 0), 0); });
    const std::string more(64 << 20, 'x');
    EXPECT_LT(CBB_Sendn(m_server, more.data(), 64 << 20, CBB_INFINITE), 64 << 20);
    gone.join();
    EXPECT_EQ(CBB_Sendn(m_server, "abc", 3, CBB_INFINITE), 0);
    CBB_InitNetwork_Inter();
    EXPECT_EQ(CBB_Send(m_server, "abc", 3), -1);  // with SIGPIPE the process would end here
    close(m_listen);
}

TEST_F(CbbSocket, ClosedDescriptorsEndUnlimitedWaits) {
    const CBB_SOCK_T closed = dup(m_listen);
    close(closed);
    char buf[8];
    for (const int fd : {closed, -1}) {
        EXPECT_EQ(CBB_Sendn(fd, "abc", 3, CBB_INFINITE), 0);
        EXPECT_EQ(CBB_Recvn(fd, buf, 3, CBB_INFINITE), -1);
        EXPECT_EQ(CBB_RecvWithTimeOut(fd, buf, 3, CBB_INFINITE), -1);
    }
}

TEST_F(CbbSocket, RecvnReceivesExactly) {
    const struct {
        const char* why;
        std::string sent;
        bool isClosed;
        int count;
        uint32_t timeoutMs;
        int result;
        std::string received;
    } rows[] = {
        {"all requested bytes", "abcdef", false, 6, CBB_INFINITE, 6, "abcdef"},
        {"not more than requested", "abcdef", false, 4, 0, 4, "abcd"},
        {"the bytes that arrived in time", "abcd", false, 6, 50, 4, "abcd"},
        {"no bytes", "", false, 6, 0, 0, ""},
        {"the peer closes first", "abcd", true, 6, CBB_INFINITE, -1, "abcd"},
        {"a negative count", "abcd", false, -5, CBB_INFINITE, 0, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        ConnectPair();
        const int length = static_cast<int>(row.sent.size());
        ASSERT_EQ(CBB_Sendn(m_client, row.sent.data(), length, 5000), length);
        if (row.isClosed)
            CBB_ShutDown(m_client, SHUT_WR);
        pollfd arrived = {m_server, POLLIN, 0};
        CBB_Poll(&arrived, 1, length > 0 ? -1 : 0);
        char buf[16] = {};
        EXPECT_EQ(CBB_Recvn(m_server, buf, row.count, row.timeoutMs), row.result);
        EXPECT_EQ(std::string(buf), row.received);
    }
}

// A copy of the descriptor keeps the connection open unless the close is forced.
TEST_F(CbbSocket, AForcedCloseEndsTheConnectionForEveryCopy) {
    for (const bool isForced : {false, true}) {
        ConnectPair();
        Keep(dup(m_server));
        const int copy = m_sockets.back();
        const int closed = dup(m_server);
        EXPECT_EQ(CBB_CloseSocket(closed, isForced ? 1 : 0), 0);
        EXPECT_EQ(CBB_Sendn(copy, "x", 1, 0), isForced ? 0 : 1);
        char byte = 0;
        EXPECT_EQ(CBB_Recv(m_client, &byte, 1), isForced ? 0 : 1);
    }
}

TEST_F(CbbSocket, SelectFindsWhatIsReadable) {
    const CSocketPair pair;
    const int fd = pair.client.Fd();
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(fd, &readable);
    const timeval atOnce{};
    EXPECT_EQ(CBB_Select(fd + 1, &readable, nullptr, nullptr, &atOnce), 0);
    EXPECT_EQ(CBB_FdIsSet(fd, &readable), 0);
    pair.server.Send("abc");
    FD_SET(fd, &readable);
    EXPECT_EQ(CBB_Select(fd + 1, &readable, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(CBB_FdIsSet(fd, &readable), 1);
    for (const int outside : {-1, FD_SETSIZE}) {
        EXPECT_EQ(CBB_FdIsSet(outside, &readable), 0);
    }
}

TEST_F(CbbSocket, SmallCallsReachTheSystem) {
    const CSocketPair pair;
    const int fd = pair.client.Fd();
    pair.server.Send("abc");
    uint32_t waiting = 0;
    EXPECT_EQ(CBB_Ioctl(fd, FIONREAD, &waiting), 0);
    EXPECT_EQ(waiting, 3U);
    char bytes[8];
    EXPECT_EQ(CBB_RecvFrom(fd, bytes, sizeof(bytes), nullptr), 3);
    EXPECT_EQ(CBB_RecvFrom(fd, bytes, -1, nullptr), -1);
    EXPECT_EQ(CBB_BroadCast(CTestSocket::BindUdp().Fd()) | CBB_LingerOff(fd), 0);
}

}  // namespace
