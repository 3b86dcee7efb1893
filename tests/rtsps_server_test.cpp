// SPDX-License-Identifier: MIT
#include "rtsps_server.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <list>
#include <mutex>
#include <thread>

#include "support/test_net.h"

namespace {

CRtspServer* Server() {
    return CRtspServer::Instance();
}

using CServerObjectTest = CLoggedServerTest;

TEST_F(CServerObjectTest, InitIgnoresSigpipe) {
    signal(SIGPIPE, SIG_DFL);
    Init();
    EXPECT_EQ(signal(SIGPIPE, SIG_IGN), SIG_IGN) << "a client that disconnects would end the host";
}

TEST_F(CServerObjectTest, FirstInitDecidesAndEachNeedsItsRelease) {
    m_para.szUserName[31] = 'u';
    Init();
    TRtspServerPara second{};
    second.byDbg = 1;
    EXPECT_EQ(RTSPServer_Init(&second), 0);
    EXPECT_EQ(Server()->GetPara(&second), 0);
    EXPECT_EQ(memcmp(&second, &m_para, sizeof(second)), 0);
    EXPECT_EQ(RTSPServer_Release(), 0);
    EXPECT_EQ(RTSPServer_Start(), 0) << "one Init is not released yet";
    EXPECT_EQ(m_log.Text(), "") << "the first debug switch was off";
    EXPECT_EQ(RTSPServer_Start(), 0);
    EXPECT_EQ(RTSPServer_Stop() + RTSPServer_Stop() + RTSPServer_Release(), 0);
    EXPECT_EQ(RTSPServer_Start(), -1);
    Init(true);  // the count is 0 again, so this configuration counts
    EXPECT_EQ(RTSPServer_Start(), 0);
    EXPECT_TRUE(
        m_log.HasLines("W already started....|E Start failed,not init|"
                       "I Thread_Create, the port is [#]"));
}

TEST_F(CServerObjectTest, TheLow16BitsOfPortsCount) {
    EXPECT_EQ(RTSPServer_Stop(), 0) << "never started";
    m_para.nMinPort += 65536;
    m_para.nMaxPort = 65536 + 65535;  // a range that never ends
    Init();
    EXPECT_EQ(RTSPServer_Start(), -1);
    EXPECT_TRUE(m_log.HasLines("E CNet_PortPool::create_new "));
    RTSPServer_Release();
    m_para.nMaxPort = m_para.nMinPort;
    m_para.nServerPort += 65536;
    StartServer();
    EXPECT_TRUE(Ok(CTestClient(m_port).Ask("OPTIONS", "*")));
    EXPECT_EQ(Server()->FreeDataPorts(), 1U);
    EXPECT_EQ(Server()->BorrowDataPort(), m_para.nMinPort - 65536);
    RTSPServer_Stop();
    EXPECT_EQ(Server()->GivebackDataPort(m_para.nMinPort), 0) << "ignored without a pool";
    EXPECT_EQ(Server()->BorrowDataPort(), 0);
}

// A call is finished, with its locks released, before a cancelled thread ends.
TEST_F(CServerObjectTest, CancellationWaitsForTheEndOfACall) {
    bool finished = false;
    std::thread([&] {
        pthread_cancel(pthread_self());
        StartServer();
        Push(MakeUnit({}));
        EXPECT_EQ(RTSPServer_Stop(), 0);
        finished = true;
        // The sanitizers' runtime does not support a thread that is really cancelled.
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    }).join();
    EXPECT_TRUE(finished);
}

TEST_F(CServerObjectTest, StreamRecordsAreKeyedBySignExtendedNumbers) {
    struct CRecord {
        int channel, stream;
        uint32_t mark;  // 0: none is stored
    };
    EXPECT_EQ(RTSPServer_SetStreamInfo(1, 0, nullptr), 0) << "stores nothing";
    constexpr CRecord stored[] = {{1, 0, 1}, {1, 0, 2}, {0, 1, 3}, {5, -1, 4}, {-1, 0, 5}};
    for (const CRecord& record : stored) {
        TRtspServerStreamInfo info{};
        info.res[5] = record.mark;
        EXPECT_EQ(RTSPServer_SetStreamInfo(record.channel, record.stream, &info), 0);
    }
    // Kept: for a negative stream number all channels share one record.
    constexpr CRecord found[] = {{1, 0, 2}, {0, 1, 3}, {9, -1, 4},  {-7, -1, 4},        {-1, 0, 5},
                                 {1, 1, 0}, {0, 0, 0}, {-1, -2, 0}, {-2147483647, 0, 0}};
    for (const CRecord& record : found) {
        TRtspServerStreamInfo info{};
        EXPECT_EQ(Server()->GetStreamInfo(record.channel, record.stream, &info),
                  record.mark != 0 ? 0 : -1);
        EXPECT_EQ(info.res[5], record.mark) << record.channel << ", " << record.stream;
    }
}

TEST_F(CServerObjectTest, StopMayRunInTwoThreadsAtOnce) {
    Init();
    std::mutex counting;
    for (int round = 0; round < 20; ++round) {
        ASSERT_EQ(RTSPServer_Start(), 0);
        std::list<CTestClient> players;
        for (int i = 0; i < round % 2 * 4; ++i) {  // without clients only the accept thread ends
            EXPECT_TRUE(players.emplace_back(m_port).PlayInterleaved());
        }
        const auto stop = [&] {
            EXPECT_EQ(RTSPServer_Stop(), 0);
            const std::lock_guard<std::mutex> guard(counting);  // which opens a descriptor, too
            EXPECT_EQ(CountDescriptors(), m_descriptorsBefore + static_cast<int>(players.size()))
                << "those of threads that have not ended are open";
        };
        std::thread other(stop);
        stop();
        other.join();
        for (CTestClient& player : players) {
            EXPECT_TRUE(player.Socket().AtEnd());
        }
    }
}

TEST_F(CServerObjectTest, AHostMayLeaveMainWhileClientsPlay) {
    EXPECT_EXIT(
        {
            // Runs after the destructors of all static objects that are created from here on.
            atexit([] { std::this_thread::sleep_for(std::chrono::milliseconds(20)); });
            StartServer();
            std::list<CTestClient> players;
            for (int i = 0; i < 4; ++i) {
                EXPECT_TRUE(players.emplace_back(m_port).PlayInterleaved());
            }
            std::thread([] {
                for (;;) {  // slowly: clients that fall behind would be ended
                    Push(MakeUnit({}));
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                }
            }).detach();
            players.front().Socket().Receive();
            exit(HasFailure() ? 1 : 0);  // like a return from main, runs the destructors
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
