// SPDX-License-Identifier: MIT
#include "rtsps_session_mgr.h"

#include <sys/socket.h>

#include <atomic>
#include <cstdlib>
#include <deque>
#include <functional>
#include <thread>

#include "support/fake_clock.h"
#include "support/session_probe.h"
#include "support/trans_info.h"

namespace {

CRtspSessionManager& Manager() {
    return *CRtspSessionManager::Instance();
}

// A session without a thread. It runs until it is closed.
CRtspSession* MakeSession(uint32_t id) {
    auto* session = new CRtspSession(id);
    CRtspSessionProbe(*session).bQuit = false;
    return session;
}

bool IsKnown(uint32_t id) {
    const bool known = Manager().getSession(id) != nullptr;
    if (known) {
        Manager().releaseSession(id);
    }
    return known;
}

TEST(SessionManager, TheLastReferenceDestroysASession) {
    using Step = std::function<void()>;
    CRtspSession* session = nullptr;
    const Step take = [&] { EXPECT_EQ(Manager().getSession(7), session); };
    const Step give = [&] { Manager().releaseSession(session); };
    const Step drop = [&] { Manager().closeSession(7); };
    const Step close = [&] { EXPECT_EQ(Manager().Close(7U), 0); };
    const Step sweep = [&] { Manager().DelExceptionSession(); };
    const struct {
        const char* why;
        std::vector<Step> keep;  // the session stays registered
        Step end;                // destroys it
    } rows[] = {
        {"two callers hold it", {take, take, drop, give}, give},
        {"closed while a caller holds it", {take, close}, give},
        {"the registry's reference goes once", {take, drop, drop, close, sweep}, give},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        session = MakeSession(7);
        ASSERT_EQ(Manager().AddSession(session), 0);
        for (const Step& step : row.keep) {
            step();
        }
        EXPECT_TRUE(IsKnown(7));
        row.end();
        drop();
        EXPECT_EQ(Manager().Close(7U), -1) << "it is gone";
    }
}

TEST(SessionManager, IdsComeFromTheMicrosecondsOfTheClock) {
    const CFakeClock clock(1, 6);
    srandom(6);
    const auto high = static_cast<uint32_t>(random());
    srandom(7);
    const auto low = static_cast<uint32_t>(random());
    EXPECT_EQ(Manager().GenerateSessionId(), (high & ~0xFU) | (low & 0xFU));
}

TEST(SessionManager, FileDataKeepsAClientsPlaceForGood) {
    ASSERT_EQ(Manager().AddSession(MakeSession(7)), 0);
    EXPECT_EQ(RTSPServer_SendFileStream(8, nullptr, 0), -1);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(RTSPServer_SendFileStream(7, nullptr, 0), 0);
    }
    RTSPServer_Stop();
    EXPECT_EQ(Manager().GetCurrSessionNums(), 1U) << "of " << Manager().GetMaxsessionNums();
    Manager().releaseSession(7);
    EXPECT_EQ(Manager().GetCurrSessionNums(), 0U) << "one reference for all calls";
}

// 128 registered sessions, with falling ids.
class CFullRegistry : public ::testing::Test {
  protected:
    void SetUp() override {
        for (uint32_t i = 0; i < RTSPS_MAX_SESSIONS; ++i) {
            EXPECT_EQ(Manager().AddSession(MakeSession(HIGHEST - i)), 0);
        }
    }
    void TearDown() override { Manager().Close(); }
    // Ends it like a client that disconnects: a sweep may then destroy it.
    static void End(CRtspSession* session) { CRtspSessionProbe(*session).bQuit = true; }

    static constexpr uint32_t HIGHEST = 0x80000040U;
    CLogCapture m_log;
};

TEST_F(CFullRegistry, Refuses128MoreAndFreesThemWhenTheyHaveEnded) {
    std::vector<CRtspSession*> refused;
    for (uint32_t i = 0; i < RTSPS_MAX_SESSIONS; ++i) {
        EXPECT_TRUE(Manager().CanTakeSession()) << i;
        refused.push_back(MakeSession(i + 1));
        EXPECT_EQ(Manager().AddSession(refused[i]), -1);
    }
    EXPECT_TRUE(
        m_log.HasLines("C m_maxSessions=128, now has 128|W ERROR! add_session,OverSize!!!"));
    EXPECT_FALSE(Manager().CanTakeSession());
    End(refused[5]);
    EXPECT_TRUE(Manager().CanTakeSession());
    refused[5] = MakeSession(500);
    EXPECT_EQ(Manager().AddSession(refused[5]), -1);
    EXPECT_FALSE(Manager().CanTakeSession());
    for (CRtspSession* session : refused) {
        End(session);
    }
    Manager().DelExceptionSession();
}

// A session whose host is still inside the event function cannot be destroyed yet.
TEST_F(CFullRegistry, WaitsOnlyAMomentForASessionThatIsAboutToEnd) {
    static std::atomic<bool> isInside;
    static std::atomic<bool> hasRefused;
    isInside = hasRefused = false;
    Manager().SetEventCallBack(
        [](int32_t event, int32_t, void*, int32_t, void*) {
            if (event == RTSPS_EVENT_CLOSED) {
                isInside = true;
                WaitUntil([] { return hasRefused.load(); });
                CBB_Sleep(20);
            }
        },
        nullptr);
    EXPECT_EQ(Manager().Close(HIGHEST), 0);
    CSocketPair connection;
    auto* leaving = new CRtspSession(7);
    const CBB_ADDR_T client = MakeAddr("127.0.0.1", 9);
    leaving->AwaitRegistration();
    ASSERT_EQ(leaving->Open(connection.server.Take(), &client), 0);
    EXPECT_EQ(Manager().AddSession(leaving), 0);
    connection.client.Reset();
    ASSERT_TRUE(WaitUntil([] { return isInside.load(); }));
    CRtspSession* refused = MakeSession(9);
    EXPECT_EQ(Manager().AddSession(refused), -1) << "the host stays in its function";
    End(refused);
    hasRefused = true;
    EXPECT_EQ(Manager().AddSession(MakeSession(8)), 0) << "the host returns";
    EXPECT_FALSE(IsKnown(7));
    Manager().SetEventCallBack(nullptr, nullptr);
}

using CSessionManagerServerTest = CLoggedServerTest;

// After Stop there is no accept thread that sweeps, and the next Start may never come.
TEST_F(CSessionManagerServerTest, RefusedClientsThatLeaveAroundStopLeaveNothing) {
    StartServer();
    std::deque<CTestClient> clients;
    for (int i = 0; i < RTSPS_MAX_SESSIONS; ++i) {
        EXPECT_NE(clients.emplace_back(m_port).Ask("OPTIONS", "*"), "");
    }
    static std::atomic<int> events{0};
    const auto count = [](int32_t, int32_t, void*, int32_t, void*) { ++events; };
    RTSPServer_SetEventCallBack(count, nullptr);
    std::deque<CPlayer> refused;
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(Ok(refused.emplace_back(m_port, CPlayer::UDP).reply));
    }
    Push(MakeUnit({}));
    EXPECT_TRUE(refused.back().GetsNothing());
    refused.pop_back();
    EXPECT_TRUE(m_log.WaitFor(" exit\n")) << "one ends well before Stop,";
    refused.pop_back();  // one at about the same time,
    RTSPServer_Stop();
    refused.pop_back();  // one after it,
    EXPECT_NE(refused.back().Ask("HEARTBEAT", "*"), "") << "and one is still served";
    RTSPServer_Start();
    RTSPServer_Stop();
    clients.clear();
    refused.clear();
    EXPECT_EQ(events, 0);
    RTSPServer_SetEventCallBack(nullptr, nullptr);
    EXPECT_TRUE(WaitUntil([&] { return CountDescriptors() == m_descriptorsBefore; }));
    EXPECT_TRUE(WaitUntil([&] { return CountThreads() == m_threadsBefore; }));
}

// A viewer that reconnects must not wait for the ports of its earlier session.
TEST_F(CSessionManagerServerTest, SetupTakesThePortsOfEndedSessions) {
    m_para.nMaxPort = m_para.nMinPort + 2;  // for one player
    StartServer();
    for (int visit = 1; visit <= 5; ++visit) {
        EXPECT_TRUE(Ok(CPlayer(m_port, CPlayer::UDP).reply)) << "visit " << visit;
        EXPECT_TRUE(WaitUntil([&] { return CountThreads() == m_threadsBefore + 1; }));
    }
    EXPECT_EQ(m_log.Count("borrow_data_port"), 0);
    CPlayer viewer(m_port, CPlayer::UDP);
    EXPECT_EQ(Manager().GetCurrSessionNums(), 1U) << "the ended ones are closed";
}

// Session threads that sweep at the same time, and a Stop meanwhile, never wait for each other.
TEST_F(CSessionManagerServerTest, SweepsOfSetupsAndStopDoNotBlockEachOther) {
    constexpr int VIEWERS = 8;
    m_para.nMaxPort = m_para.nMinPort + 2;  // two pairs for eight viewers
    Init();
    for (int round = 0; round < 20; ++round) {
        ASSERT_EQ(RTSPServer_Start(), 0);
        std::atomic<int> visits{0};
        std::vector<std::thread> viewers;
        for (int i = 0; i < VIEWERS; ++i) {
            viewers.emplace_back([&] {
                for (std::string reply = "x"; !reply.empty(); ++visits) {
                    CTestClient viewer(m_port, CTestSocket(socket(AF_INET, SOCK_STREAM, 0)));
                    reply = viewer.Socket().Connect(m_port) ? viewer.Describe() : "";
                    viewer.Setup(0, "RTP/AVP;unicast;client_port=6000");
                }
            });
        }
        WaitUntil([&] { return visits > 10 * VIEWERS; });
        RTSPServer_Stop();
        for (std::thread& viewer : viewers) {
            viewer.join();
        }
    }
    EXPECT_TRUE(m_log.Has("borrow_data_port")) << "the pool was empty at times";
}

}  // namespace
