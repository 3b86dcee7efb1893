// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "cbb.h"
#include "support/trans_info.h"

namespace {

using Clock = std::chrono::steady_clock;

int64_t MillisSince(Clock::time_point start) {
    return (Clock::now() - start) / std::chrono::milliseconds(1);
}

// A listener, and one connection through it.
class CbbSocket : public testing::Test {
  protected:
    void ConnectPair() {
        m_client = CTestSocket::ConnectTcp(m_listen.Port());
        m_server = CTestSocket(CBB_Accept(m_listen.Fd(), nullptr, 5000));
        ASSERT_GE(m_server.Fd(), 0);
    }

    CTestSocket m_listen = CTestSocket::ListenTcp(0);
    CTestSocket m_client, m_server;
    const CBB_ADDR_T m_addr = MakeAddr("127.0.0.1", m_listen.Port());
};

TEST_F(CbbSocket, ConnectsWithinItsTime) {
    // Without an accept two connections fit the queue; the next one is never accepted.
    const CLogCapture log;
    std::vector<CTestSocket> waiting;
    Clock::time_point start;
    int result = 0;
    while (result == 0 && waiting.size() < 6) {
        waiting.emplace_back(CBB_CreateSocket(AF_INET, SOCK_STREAM, 0));
        const int fd = waiting.back().Fd();
        ASSERT_EQ(CBB_SetNonBlock(fd, 1), 0);
        start = Clock::now();
        result = CBB_ConnectWithTimeOut(fd, &m_addr, 100);
        EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0) << "kept: blocking, also after a failure";
    }
    EXPECT_GT(waiting.size(), 1U);
    EXPECT_GE(MillisSince(start), 99);
    EXPECT_EQ(log.Text(), "") << "a time-out is no error";
}

// Runs in a process of its own. It ends with 0 if no socket has the number of a standard stream.
[[noreturn]] void UseSocketsWithoutStreams(int firstClosed, int listener) {
    for (int fd = firstClosed; fd <= STDERR_FILENO; ++fd) {
        close(fd);
    }
    CBB_ADDR_T peer = {};
    const CBB_SOCK_T created = CBB_CreateSocket(AF_INET, SOCK_DGRAM, 0);
    const CBB_SOCK_T accepted =
        CBB_Accept(listener, firstClosed == STDIN_FILENO ? &peer : nullptr, 5000);
    bool ok = fcntl(firstClosed, F_GETFD) == -1 && fcntl(STDERR_FILENO, F_GETFD) == -1;
    for (const CBB_SOCK_T fd : {created, accepted}) {
        ok = ok && fd > STDERR_FILENO && fcntl(fd, F_GETFD) == FD_CLOEXEC;
    }
    // The host itself may use descriptor 0.
    ok = ok && dup2(accepted, 0) == 0 && CBB_Sendn(0, "abc", 3, CBB_INFINITE) == 3;
    _exit(ok ? 0 : 1);
}

// What the host prints to its closed standard streams must not reach a client.
TEST_F(CbbSocket, StandardStreamsAreNeverSockets) {
    for (const int firstClosed : {STDIN_FILENO, STDERR_FILENO}) {
        m_client = CTestSocket::ConnectTcp(m_listen.Port());
        EXPECT_EXIT(UseSocketsWithoutStreams(firstClosed, m_listen.Fd()),
                    testing::ExitedWithCode(0), "");
        EXPECT_EQ(m_client.Receive(), "abc") << "the connection has a new descriptor";
    }
}

TEST_F(CbbSocket, ARefusedConnectionIsReported) {
    m_listen.Reset();
    const CTestSocket client(CBB_CreateSocket(AF_INET, SOCK_STREAM, 0));
    const CLogCapture log;
    EXPECT_EQ(CBB_ConnectWithTimeOut(client.Fd(), &m_addr, 5000), -1);
    EXPECT_EQ(GetSystemLastError(), ECONNREFUSED);
    EXPECT_EQ(log.Text(), "CBB_ConnectWithTimeOut getsockopt !iError return error, 115, Error\n");
}

TEST_F(CbbSocket, TypeOfServiceReadsTheTimeToLive) {  // kept
    int tos = 0;
    const int fd = m_listen.Fd();
    EXPECT_EQ(CBB_SetTTL(fd, 33) | CBB_SetTOS(fd, 0x10) | CBB_GetTOS(fd, &tos), 0);
    EXPECT_EQ(tos, 33);
}

int Seconds(const CTestSocket& socket, int option) {
    timeval time = {};
    socklen_t length = sizeof(time);
    EXPECT_EQ(getsockopt(socket.Fd(), SOL_SOCKET, option, &time, &length), 0);
    EXPECT_EQ(time.tv_usec, 0);
    return static_cast<int>(time.tv_sec);
}

// The limits in seconds for receiving and for sending after a call of CBB_SetTimeOut.
std::pair<int, int> LimitsAfter(int sendMs, int receiveMs) {
    const CTestSocket socket = CTestSocket::BindUdp();
    EXPECT_EQ(CBB_SetTimeOut(socket.Fd(), sendMs, receiveMs), 0);
    return {Seconds(socket, SO_RCVTIMEO), Seconds(socket, SO_SNDTIMEO)};
}

// Kept: each time-out is set from the value of the other, and only when its own is not 0.
TEST_F(CbbSocket, TimeOutsAreCrossed) {
    EXPECT_EQ(LimitsAfter(2000, 5000), std::pair(2, 5));
    EXPECT_EQ(LimitsAfter(3000, 0), std::pair(0, 0));
    EXPECT_EQ(LimitsAfter(0, 4000), std::pair(0, 0));
}

TEST_F(CbbSocket, SendnNeverBlocksLongerThanAllowed) {
    const CSocketPair pair;  // blocking, and the client does not read
    const int fd = pair.server.Fd();
    EXPECT_EQ(CBB_Sendn(fd, "abc", -1, CBB_INFINITE), 0);
    constexpr int LARGE = 16 << 20;
    const std::string large(LARGE, 'x');
    const int first = CBB_Sendn(fd, large.data(), LARGE, 0);
    EXPECT_TRUE(first > 0 && first < LARGE) << first;
    EXPECT_EQ(CBB_Sendn(fd, "abc", 3, 100), 0);
    // As soon as the client reads, all data is sent.
    std::thread reader([&] { EXPECT_EQ(pair.client.ReceiveExactly(LARGE).size(), LARGE); });
    EXPECT_EQ(CBB_Sendn(fd, large.data() + first, LARGE - first, CBB_INFINITE), LARGE - first);
    reader.join();
}

TEST_F(CbbSocket, ABrokenConnectionEndsAnUnlimitedWaitAndRaisesNoSignal) {
    ConnectPair();
    signal(SIGPIPE, SIG_DFL);
    std::thread gone([this] { m_client.ResetHard(); });
    const std::string more(64 << 20, 'x');
    EXPECT_LT(CBB_Sendn(m_server.Fd(), more.data(), 64 << 20, CBB_INFINITE), 64 << 20);
    gone.join();
    EXPECT_EQ(CBB_Sendn(m_server.Fd(), "abc", 3, CBB_INFINITE), 0);
}

TEST_F(CbbSocket, ClosedDescriptorsEndUnlimitedWaits) {
    const int closed = m_listen.Fd();
    m_listen.Reset();
    char buf[8];
    for (const int fd : {closed, -1}) {
        EXPECT_EQ(CBB_Sendn(fd, "abc", 3, CBB_INFINITE), 0);
        EXPECT_EQ(CBB_Recvn(fd, buf, 3, CBB_INFINITE), -1);
        EXPECT_EQ(CBB_RecvWithTimeOut(fd, buf, 3, CBB_INFINITE), -1);
    }
}

// The result of CBB_Recvn after the peer has sent a text, and what it received.
std::pair<int, std::string> ReceivedOf(const CSocketPair& pair, const std::string& sent, int count,
                                       uint32_t timeoutMs) {
    EXPECT_TRUE(sent.empty() || pair.client.Send(sent));
    char buf[16] = {};
    const int result = CBB_Recvn(pair.server.Fd(), buf, count, timeoutMs);
    return {result, buf};
}

TEST_F(CbbSocket, RecvnReceivesExactly) {
    CSocketPair pair;
    using Received = std::pair<int, std::string>;
    EXPECT_EQ(ReceivedOf(pair, "abcdef", 4, CBB_INFINITE), Received(4, "abcd"));
    EXPECT_EQ(ReceivedOf(pair, "gh", 4, CBB_INFINITE), Received(4, "efgh")) << "all that was asked";
    EXPECT_EQ(ReceivedOf(pair, "ijkl", 6, 50), Received(4, "ijkl")) << "what arrived in time";
    errno = EINTR;  // of an earlier call; no signal interrupts this one
    EXPECT_EQ(ReceivedOf(pair, "", 6, 0), Received(0, ""));
    EXPECT_EQ(ReceivedOf(pair, "mn", -5, CBB_INFINITE), Received(0, ""));
    pair.client.Reset();
    EXPECT_EQ(ReceivedOf(pair, "", 6, CBB_INFINITE), Received(-1, "mn")) << "the peer closes first";
}

TEST_F(CbbSocket, AForcedCloseEndsTheConnectionForEveryCopy) {
    ConnectPair();
    EXPECT_EQ(CBB_CloseSocket(dup(m_server.Fd()), 1), 0);
    EXPECT_TRUE(m_client.AtEnd());
}

TEST_F(CbbSocket, AddressesOfAConnection) {
    ConnectPair();
    CBB_ADDR_T local{}, peer{};
    EXPECT_EQ(CBB_GetAddrBySockFd(m_client.Fd(), &local, &peer), 0);
    EXPECT_EQ(CBB_GetAddrPort(&local), m_client.Port());
    EXPECT_EQ(CBB_GetAddrPort(&peer), m_listen.Port());
    local = {};
    EXPECT_EQ(CBB_GetAddrBySockFd(m_listen.Fd(), &local, &peer), -1) << "it has no peer";
    EXPECT_EQ(CBB_GetAddrPort(&local), 0) << "kept: the local record is unchanged";
}

volatile sig_atomic_t g_signals = 0;

// A signal ends every poll(), whatever the flags of its handler are.
TEST_F(CbbSocket, AWaitContinuesAfterASignal) {
    signal(SIGALRM, [](int) { g_signals = 1; });
    const itimerval soon{{0, 0}, {0, 10000}};
    setitimer(ITIMER_REAL, &soon, nullptr);
    pollfd quiet = {m_listen.Fd(), POLLIN, 0};
    int timeLeft = 100;
    EXPECT_EQ(CBB_PollEx(&quiet, 1, &timeLeft), 0);
    EXPECT_EQ(g_signals, 1);
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
    FD_SET(0, &readable);
    EXPECT_EQ(CBB_FdIsSet(0, &readable), 1);
    for (const int outside : {-1, FD_SETSIZE}) {
        EXPECT_EQ(CBB_FdIsSet(outside, &readable), 0);
    }
}

TEST_F(CbbSocket, SmallCallsReachTheSystem) {
    ConnectPair();
    const int fd = m_client.Fd();
    EXPECT_EQ(CBB_Send(m_server.Fd(), "", 0), 0);
    EXPECT_EQ(CBB_Send(m_server.Fd(), "abc", 3), 3);
    uint32_t waiting = 0;
    EXPECT_TRUE(WaitUntil([&] { return CBB_Ioctl(fd, FIONREAD, &waiting) == 0 && waiting == 3; }));
    char bytes[8];
    EXPECT_EQ(CBB_Recv(fd, bytes, 0), 0);
    EXPECT_EQ(CBB_RecvFrom(fd, bytes, sizeof(bytes), nullptr), 3);
    EXPECT_EQ(CBB_RecvFrom(fd, bytes, -1, nullptr), -1);
    EXPECT_EQ(CBB_SendTo(fd, "abc", 3, nullptr), -1);
    errno = 0;
    EXPECT_EQ(CBB_RecvWithTimeOut(fd, bytes, 0, 0), -1);
    EXPECT_EQ(errno, 0) << "a length of 0 is valid";
    const CTestSocket udp = CTestSocket::BindUdp();
    const CBB_ADDR_T self = MakeAddr("127.0.0.1", udp.Port());
    CBB_ADDR_T from = {};
    EXPECT_EQ(CBB_SendTo(udp.Fd(), "abc", 3, &self), 3);
    EXPECT_EQ(CBB_RecvFrom(udp.Fd(), bytes, sizeof(bytes), &from), 3);
    EXPECT_EQ(CBB_GetAddrPort(&from), udp.Port());
    EXPECT_EQ(CBB_JoinMultiCastGroup(udp.Fd(), &self, nullptr), -1);
    EXPECT_EQ(CBB_BroadCast(udp.Fd()) | CBB_LingerOff(fd) | CBB_InitNetwork_Inter(), 0);
}

}  // namespace
