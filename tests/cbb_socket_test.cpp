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
#include <tuple>
#include <vector>

#include "cbb.h"

namespace {

using Clock = std::chrono::steady_clock;

long MillisSince(Clock::time_point start) {
    return (Clock::now() - start) / std::chrono::milliseconds(1);
}

// A listener on a port of the system's choice, and one connection through it.
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
    std::thread stop([this] { CBB_ShutDown(m_listen, SHUT_RDWR); });
    EXPECT_EQ(CBB_Accept(m_listen, nullptr, 60000), -1);  // a shutdown wakes the wait
    EXPECT_LT(MillisSince(start), 30000);
    stop.join();
}

TEST_F(CbbSocket, ConnectsWithinItsTime) {
    CBB_SOCK_T fd = Open(SOCK_STREAM);
    ASSERT_EQ(CBB_SetNonBlock(fd, 1), 0);
    EXPECT_EQ(CBB_ConnectWithTimeOut(fd, &m_addr, 5000), 0);
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);  // kept: also when it was not before
    // Nobody accepts: one more connection fits the queue, the next one waits in vain.
    Clock::time_point start;
    do {
        fd = Open(SOCK_STREAM);
        start = Clock::now();
    } while (CBB_ConnectWithTimeOut(fd, &m_addr, 100) == 0 && m_sockets.size() < 6);
    EXPECT_GE(MillisSince(start), 99);
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    CBB_ShutDown(m_listen, SHUT_RDWR);
    fd = Open(SOCK_STREAM);
    testing::internal::CaptureStdout();
    EXPECT_EQ(CBB_ConnectWithTimeOut(fd, &m_addr, 5000), -1);
    EXPECT_EQ(GetSystemLastError(), ECONNREFUSED);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "CBB_ConnectWithTimeOut getsockopt !iError return error, 115, Error\n");
}

// What the host prints to its closed standard streams must not reach a client.
TEST_F(CbbSocket, StandardStreamsAreNeverSockets) {
    for (const bool withAddress : {false, true}) {
        m_client = Open(SOCK_STREAM);
        ASSERT_EQ(CBB_ConnectWithTimeOut(m_client, &m_addr, 5000), 0);
        int saved[3] = {};
        for (int fd = 0; fd < 3; ++fd) {
            saved[fd] = fcntl(fd, F_DUPFD_CLOEXEC, 10);
            close(fd);
        }
        CBB_ADDR_T peer = {};
        const CBB_SOCK_T created = CBB_CreateSocket(AF_INET, SOCK_DGRAM, 0);
        const CBB_SOCK_T accepted = CBB_Accept(m_listen, withAddress ? &peer : nullptr, 5000);
        const bool stillClosed = fcntl(0, F_GETFD) + fcntl(1, F_GETFD) + fcntl(2, F_GETFD) == -3;
        for (int fd = 0; fd < 3; ++fd) {
            dup2(saved[fd], fd);
            close(saved[fd]);
        }
        EXPECT_TRUE(stillClosed);
        for (const CBB_SOCK_T fd : {created, accepted}) {
            EXPECT_GT(fd, 2);
            EXPECT_EQ(fcntl(Keep(fd), F_GETFD), FD_CLOEXEC);
        }
        EXPECT_EQ(CBB_Sendn(accepted, "abc", 3, 5000), 3);
        char buf[4] = {};
        EXPECT_EQ(CBB_Recvn(m_client, buf, 3, 5000), 3) << "the connection has moved along";
    }
}

TEST_F(CbbSocket, OptionsThatAreKeptCrossed) {
    const CBB_SOCK_T fd = Open(SOCK_DGRAM);
    int nTos = 0;
    EXPECT_EQ(CBB_SetTTL(fd, 33) | CBB_SetTOS(fd, 0x10) | CBB_GetTOS(fd, &nTos), 0);
    EXPECT_EQ(nTos, 33);  // kept: the TTL
    // Kept: each time-out is set from the other's value, and the first not at all without a second.
    const std::tuple<int, int, long, long> rows[] = {
        {3000, 0, 0, 0}, {2000, 5000, 2, 5}, {0, 4000, 0, 0}, {1500, 1500, 1, 1}};
    for (const auto& [nSnd, nRcv, nRcvSec, nSndSec] : rows) {
        const CBB_SOCK_T fresh = Open(SOCK_STREAM);
        EXPECT_EQ(CBB_SetTimeOut(fresh, nSnd, nRcv), 0);
        timeval rcv = {}, snd = {};
        socklen_t nLength = sizeof(rcv);
        getsockopt(fresh, SOL_SOCKET, SO_RCVTIMEO, &rcv, &nLength);
        getsockopt(fresh, SOL_SOCKET, SO_SNDTIMEO, &snd, &nLength);
        EXPECT_EQ(std::pair(rcv.tv_sec, snd.tv_sec), std::pair(nRcvSec, nSndSec)) << nSnd;
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
    // As soon as the peer reads, everything goes through.
    std::thread reader([this] {
        std::vector<char> sink(1U << 20);
        while (CBB_Recv(m_client, sink.data(), 1 << 20) > 0) {
        }
    });
    EXPECT_EQ(CBB_Sendn(m_server, large.data(), nLarge, CBB_INFINITE), nLarge);
    CBB_ShutDown(m_server, SHUT_WR);
    reader.join();
}

TEST_F(CbbSocket, BrokenConnectionsEndUnlimitedWaitsAndRaiseNoSignal) {
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
    EXPECT_EQ(CBB_Send(m_server, "abc", 3), -1);  // without the ignored signal: the end
    close(m_listen);
    char buf[8];
    for (const int fd : {m_listen, -1}) {
        EXPECT_EQ(CBB_Sendn(fd, "abc", 3, CBB_INFINITE), 0);
        EXPECT_EQ(CBB_Recvn(fd, buf, 3, CBB_INFINITE), -1);
        EXPECT_EQ(CBB_RecvWithTimeOut(fd, buf, 3, CBB_INFINITE), -1);
    }
}

// A time-out yields what has come, an end before all has come nothing.
TEST_F(CbbSocket, RecvnReceivesExactly) {
    // clang-format off
    const std::tuple<const char*, bool, int, uint32_t, int> rows[] = {
        {"abcdef", false, 6, CBB_INFINITE, 6}, {"abcdef", false, 4, 0, 4},
        {"abcd", false, 6, 50, 4},             {"", false, 6, 0, 0},
        {"abcd", true, 6, CBB_INFINITE, -1},   {"abcd", false, -5, CBB_INFINITE, 0}};
    // clang-format on
    for (const auto& [szSent, bClosed, nCount, nTimeOut, nResult] : rows) {
        ConnectPair();
        const int nLen = static_cast<int>(strlen(szSent));
        ASSERT_EQ(CBB_Sendn(m_client, szSent, nLen, 5000), nLen);
        if (bClosed)
            CBB_ShutDown(m_client, SHUT_WR);
        pollfd arrived = {m_server, POLLIN, 0};
        CBB_Poll(&arrived, 1, nLen > 0 ? -1 : 0);
        char buf[16] = {};
        EXPECT_EQ(CBB_Recvn(m_server, buf, nCount, nTimeOut), nResult) << szSent << nCount;
        EXPECT_EQ(std::string(buf, 4), nCount > 0 && nLen > 0 ? "abcd" : std::string(4, '\0'));
    }
}

}  // namespace
