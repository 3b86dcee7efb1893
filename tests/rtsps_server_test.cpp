// SPDX-License-Identifier: MIT
#include "rtsps_server.h"

#include <csignal>
#include <cstring>

#include "support/test_net.h"

namespace {

CRtspServer* Server() {
    return CRtspServer::Instance();
}

using CServerObjectTest = CLoggedServerTest;

TEST_F(CServerObjectTest, FirstInitDecidesAndEachWantsItsRelease) {
    signal(SIGPIPE, SIG_DFL);
    m_para.szUserName[31] = 'u';
    Init();
    EXPECT_EQ(signal(SIGPIPE, SIG_IGN), SIG_IGN) << "a client that left must not kill the host";
    TRtspServerPara second{};
    second.byDbg = 1;
    EXPECT_EQ(RTSPServer_Init(&second), 0);
    EXPECT_EQ(Server()->GetPara(&second), 0);
    EXPECT_EQ(memcmp(&second, &m_para, sizeof(second)), 0);
    EXPECT_EQ(RTSPServer_Release(), 0);
    EXPECT_EQ(RTSPServer_Start(), 0) << "one Init still stands";
    EXPECT_EQ(m_log.Text(), "") << "the first debug switch was off";
    EXPECT_EQ(RTSPServer_Start(), 0);
    EXPECT_EQ(RTSPServer_Stop() + RTSPServer_Stop() + RTSPServer_Release(), 0);
    EXPECT_EQ(RTSPServer_Start(), -1);
    Init(true);  // the count is 0 again, so this one decides
    EXPECT_EQ(RTSPServer_Start(), 0);
    EXPECT_TRUE(
        m_log.HasLines("W already started....|E Start failed,not init|"
                       "I Thread_Create, the port is [#]"));
}

TEST_F(CServerObjectTest, FailedStartLeavesNothingAndCanBeRepeated) {
    EXPECT_EQ(RTSPServer_Stop(), 0) << "never started";
    CTestSocket taken = CTestSocket::ListenTcp(m_port);
    const std::string bound = "E bind " + std::to_string(m_port) + " failed,errno 98|";
    const std::pair<int32_t, std::string> rows[] = {
        {65536 + 65535, "E CNet_PortPool::create_new "},
        {m_para.nMinPort, bound + "E m_pListener open error"}};
    for (const auto& [maxPort, lines] : rows) {
        m_para.nMaxPort = maxPort;
        Init();
        EXPECT_EQ(RTSPServer_Start(), -1);
        EXPECT_TRUE(m_log.HasLines(lines));
        EXPECT_EQ(Server()->BorrowDataPort(), 0) << "the pool is gone";
        RTSPServer_Release();
    }
    taken.Reset();
    m_para.nMinPort += 65536;  // the low 16 bits count
    Init();
    EXPECT_EQ(RTSPServer_Start(), 0);
    EXPECT_EQ(Server()->BorrowDataPort(), m_para.nMinPort - 65536);
    RTSPServer_Stop();
    EXPECT_EQ(Server()->GivebackDataPort(m_para.nMinPort), 0) << "forgotten with the pool";
}

TEST_F(CServerObjectTest, StreamRecordsAreKeyedBySignExtendedNumbers) {
    const int stored[][3] = {{1, 0, 1}, {1, 0, 2}, {0, 1, 3}, {5, -1, 4}, {-1, 0, 5}};
    for (const auto& [chan, stream, mark] : stored) {
        TRtspServerStreamInfo info{};
        info.res[5] = static_cast<uint32_t>(mark);
        EXPECT_EQ(RTSPServer_SetStreamInfo(chan, stream, &info), 0);
    }
    const int found[][3] = {{1, 0, 2},  {0, 1, 3}, {9, -1, 4}, {-7, -1, 4},
                            {-1, 0, 5}, {1, 1, 0}, {0, 0, 0},  {-1, -2, 0}};  // 0: none
    for (const auto& [chan, stream, mark] : found) {
        TRtspServerStreamInfo info{};
        EXPECT_EQ(Server()->GetStreamInfo(chan, stream, &info), mark != 0 ? 0 : -1);
        EXPECT_EQ(info.res[5], static_cast<uint32_t>(mark)) << chan << "," << stream;
    }
}

}  // namespace
