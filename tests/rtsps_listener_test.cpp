// SPDX-License-Identifier: MIT
#include "rtsps_listener.h"

#include <fcntl.h>
#include <malloc.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "rtsps_session_mgr.h"
#include "support/test_net.h"

namespace {

int Option(int fd, int level, int name) {
    int value = -1;
    socklen_t size = sizeof(value);
    getsockopt(fd, level, name, &value, &size);
    return value;
}

std::string FirstLine(const std::filesystem::path& path) {
    std::string line;
    std::getline(std::ifstream(path), line);
    return line;
}

long AddressSpaceKb() {
    return std::stol(FirstLine("/proc/self/statm")) * sysconf(_SC_PAGESIZE) / 1024;
}

using CListenerTest = CLoggedServerTest;

TEST_F(CListenerTest, ConnectionsGetTheirOptions) {
    Init(true);
    ASSERT_EQ(RTSPServer_Start(), 0);
    CTestClient client(m_port);
    EXPECT_NE(client.Ask("OPTIONS", "*"), "");
    const std::string text = m_log.Text();
    const int fd = std::stoi(text.substr(text.find("ConnectFD [") + 11));
    const CTestSocket model(socket(AF_INET, SOCK_STREAM, 0));
    CBB_SetBuffSize(model.Fd(), 1048576, 262144);
    const int sendBuffer = Option(model.Fd(), SOL_SOCKET, SO_SNDBUF);
    CRtspListener listener;
    EXPECT_EQ(listener.Open(FreeTcpPort()), 0);
    const struct {
        int level, name, value;
    } rows[] = {{IPPROTO_TCP, TCP_KEEPIDLE, 10},
                {IPPROTO_TCP, TCP_KEEPINTVL, 5},
                {IPPROTO_TCP, TCP_KEEPCNT, 3},
                {IPPROTO_TCP, TCP_NODELAY, 1},
                {SOL_SOCKET, SO_KEEPALIVE, 1},
                {SOL_SOCKET, SO_SNDBUF, sendBuffer},
                {SOL_SOCKET, SO_RCVBUF, Option(model.Fd(), SOL_SOCKET, SO_RCVBUF)}};
    for (const auto& row : rows) {
        EXPECT_EQ(Option(fd, row.level, row.name), row.value) << row.level << ", " << row.name;
    }
    EXPECT_EQ(Option(listener.GetFd(), SOL_SOCKET, SO_SNDBUF), sendBuffer);
    EXPECT_EQ(listener.Close(), 0);
    EXPECT_NE(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(CListenerTest, DebugModeFollowsAClient) {
    Init(true);
    ASSERT_EQ(RTSPServer_Start(), 0);
    CTestClient client(m_port);
    EXPECT_TRUE(client.PlayInterleaved());
    client.Socket().Send(std::string("$\1\0\4abcd", 8));
    EXPECT_TRUE(m_log.HasLines(
        "I Thread_Create, the port is [#]|I the client connect is arrive!!!!!!!|"
        "I Client : family [AF_INET]|I port [" +
        std::to_string(client.Socket().Port()) +
        "]|I Coming Addr[127.0.0.1], ConnectFD [#]|I fd[#], len = [#],|"
        "I reqtype=0,chan=1,streamtype=0|I rtcp create_new OK == [4]|I RTCP packet recv"));
    EXPECT_TRUE(m_log.Has("pRecvBuf:\n[DESCRIBE rtsp://"));
    EXPECT_TRUE(m_log.Has(" send_response \n[RTSP/1.0 200 OK\r\n"));
}

// Hosts that lock their memory need RAM for the whole address space of every client. Priorities are
// the host's decision, also in a process with all privileges.
TEST_F(CListenerTest, ThreadsAreNamedSmallAndOfOrdinaryPriority) {
    mallopt(M_ARENA_MAX, 1);  // as the host guide advises: one heap for all threads
    StartServer();
    std::vector<CTestClient> clients;
    clients.reserve(17);
    long before = 0;
    for (int i = 0; i < 17; ++i) {
        before = i == 1 ? AddressSpaceKb() : before;  // the first one also allocates shared memory
        clients.emplace_back(m_port);
        EXPECT_TRUE(clients.back().PlayInterleaved(false));
    }
    EXPECT_TRUE(!IsPlainBuild() || AddressSpaceKb() - before < 16 * 1024) << "1 MB per client";
    std::map<std::string, int> names;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        ++names[FirstLine(task.path() / "comm")];
        EXPECT_EQ(sched_getscheduler(std::stoi(task.path().filename())), SCHED_OTHER);
    }
    EXPECT_EQ(names["rtsps_accept"], 1);
    EXPECT_EQ(names["rtsps_process_m"], 17);
}

TEST_F(CListenerTest, LackOfDescriptorsIsSurvived) {
    StartServer();
    CTestClient gone(m_port);
    ASSERT_NE(gone.Ask("OPTIONS", "*"), "");
    gone.Socket().Reset();
    ASSERT_TRUE(m_log.HasLines("C exit"));
    CTestClient next(m_port, CTestSocket(socket(AF_INET, SOCK_STREAM, 0)));
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit full{static_cast<rlim_t>(CTestSocket(dup(0)).Fd()), limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &full);
    // The failed accept sweeps the ended session, and the client gets its descriptor.
    ASSERT_TRUE(next.Socket().Connect(m_port));
    EXPECT_NE(next.Ask("OPTIONS", "*"), "");
    EXPECT_EQ(CRtspSessionManager::Instance()->GetCurrSessionNums(), 1U);
    setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace
