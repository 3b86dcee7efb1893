// SPDX-License-Identifier: MIT
#include "rtsps_session_mgr.h"

#include <sys/socket.h>

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <thread>

#include "support/session_probe.h"
#include "support/test_net.h"

namespace {

CRtspSessionManager& Manager() {
    return *CRtspSessionManager::Instance();
}

// A session without a thread. It is running until somebody closes it.
CRtspSession* MakeSession(uint32_t id) {
    auto* session = new CRtspSession(id);
    CRtspSessionProbe(*session).bQuit = false;
    return session;
}

bool IsKnown(uint32_t id) {
    const bool known = Manager().getSession(id) != nullptr;
    Manager().releaseSession(known ? id : 0xFFFFFFFFU);
    return known;
}

TEST(SessionManager, ReferencesDecideWhenASessionIsDestroyed) {
    CRtspSession* session = nullptr;
    CSessionList all;
    const std::map<char, std::function<void()>> steps = {
        {'t', [&] { EXPECT_EQ(Manager().getSession(7), session); }},
        {'T', [&] { all = Manager().getSession(); }},
        {'r', [&] { Manager().releaseSession(7); }},
        {'p', [&] { Manager().releaseSession(session); }},
        {'R', [&] { Manager().releaseSession(all); }},
        {'d', [&] { Manager().closeSession(7); }},
        {'D', [&] { Manager().closeSession(all); }},
        {'c', [&] { EXPECT_EQ(Manager().Close(7U), session == nullptr ? -1 : 0); }},
        {'C', [&] { EXPECT_EQ(Manager().Close(), 0); }},
        {'s', [&] { Manager().DelExceptionSession(); }},
    };
    // What leaves it registered, and the one step that does not. The registry's own reference goes
    // once, whoever drops it.
    const std::pair<std::string, char> rows[] = {
        {"s", 'd'},  {"", 'c'},   {"", 'C'},    {"td", 'r'},   {"TD", 'R'},   {"ttdp", 'p'},
        {"tc", 'r'}, {"tC", 'r'}, {"TCD", 'R'}, {"tTdR", 'p'}, {"tddcs", 'r'}};
    for (const auto& [keep, end] : rows) {
        session = MakeSession(7);
        ASSERT_EQ(Manager().AddSession(session), 0);
        for (const char what : keep) {
            steps.at(what)();
        }
        EXPECT_TRUE(IsKnown(7)) << keep;
        steps.at(end)();
        EXPECT_FALSE(IsKnown(7)) << keep << end;
    }
    session = nullptr;
    for (const char what : std::string("rdRDCcs")) {
        steps.at(what)();  // unknown ids do nothing
    }
}

TEST(SessionManager, FullRegistryRefusesUntilSomethingEnds) {
    const CLogCapture log;
    std::vector<CRtspSession*> sessions;
    for (uint32_t i = 0; i < 256; ++i) {
        EXPECT_TRUE(Manager().CanTakeSession()) << i;
        sessions.push_back(MakeSession(0x80000040U - i));
        EXPECT_EQ(Manager().AddSession(sessions[i]), i < 128 ? 0 : -1);
    }
    EXPECT_TRUE(log.HasLines("C m_maxSessions=128, now has 128|W ERROR! add_session,OverSize!!!"));
    EXPECT_FALSE(Manager().CanTakeSession());
    const CSessionList snapshot = Manager().getSession();
    auto rising = sessions.begin() + 128;
    for (const tagSessionRef& entry : snapshot) {
        EXPECT_EQ(entry.pSession, *--rising);
    }
    EXPECT_EQ(rising, sessions.begin());
    Manager().releaseSession(snapshot);

    // A refused one has ended: it is freed, and one more may come.
    CRtspSessionProbe(*sessions[133]).bQuit = true;
    EXPECT_TRUE(Manager().CanTakeSession());
    sessions[133] = MakeSession(1);
    EXPECT_EQ(Manager().AddSession(sessions[133]), -1);
    EXPECT_FALSE(Manager().CanTakeSession());

    // Registered ones have ended: live clients get their places.
    CRtspSessionProbe(*sessions[77]).bQuit = true;
    CRtspSessionProbe(*sessions[78]).bQuit = true;
    EXPECT_EQ(Manager().AddSession(MakeSession(2)), 0);
    EXPECT_EQ(Manager().GetCurrSessionNums(), 127U);
    EXPECT_TRUE(IsKnown(2) && !IsKnown(0x80000040U - 77) && IsKnown(0x80000040U - 79));

    Manager().Close();
    for (size_t i = 128; i < sessions.size(); ++i) {
        EXPECT_TRUE(sessions[i]->IsRunning()) << "Close leaves refused ones alone";
        CRtspSessionProbe(*sessions[i]).bQuit = true;
    }
    Manager().DelExceptionSession();
}

using CSessionManagerServerTest = CLoggedServerTest;

// After Stop there is no accept thread that sweeps, and the next Start may never come.
TEST_F(CSessionManagerServerTest, RefusedClientsThatLeaveAroundStopLeaveNothing) {
    StartServer();
    std::deque<CTestClient> clients;
    for (int i = 0; i < RTSPS_MAX_SESSIONS; ++i) {
        EXPECT_NE(clients.emplace_back(m_port).Ask("OPTIONS", "*"), "");
    }
    CTestSocket media[4];
    for (CTestSocket& video : media) {
        EXPECT_TRUE(clients.emplace_back(m_port).PlayUdp(&video));
    }
    const auto leave = [&] { clients.pop_back(); };
    leave();
    EXPECT_TRUE(m_log.WaitFor(" exit\n")) << "one ends well before Stop,";
    leave();  // one at about the same time,
    RTSPServer_Stop();
    leave();  // one after it,
    EXPECT_NE(clients.back().Ask("HEARTBEAT", "*"), "") << "and one is still served";
    RTSPServer_Start();
    RTSPServer_Stop();
    clients.clear();
    for (CTestSocket& video : media) {
        video.Reset();
    }
    EXPECT_TRUE(WaitUntil([&] { return CountDescriptors() == m_descriptorsBefore; }));
    EXPECT_TRUE(WaitUntil([&] { return CountThreads() == m_threadsBefore; }));
}

// A viewer that leaves and comes back must not wait for its own earlier ports.
TEST_F(CSessionManagerServerTest, SetupTakesThePortsOfEndedSessions) {
    m_para.nMaxPort = m_para.nMinPort;  // one pair
    StartServer();
    CTestSocket video;
    for (int visit = 1; visit <= 5; ++visit) {
        EXPECT_TRUE(CTestClient(m_port).PlayUdp(&video)) << "visit " << visit;
        EXPECT_TRUE(WaitUntil([&] { return m_log.Count(" exit\n") == visit; }));
    }
    EXPECT_EQ(m_log.Count("borrow_data_port"), 0);
    CTestClient viewer(m_port);
    EXPECT_TRUE(viewer.PlayUdp(&video));
    CTestClient other(m_port);
    other.Describe();
    EXPECT_EQ(other.Setup(0, "RTP/AVP;unicast;client_port=6000").substr(0, 12), "RTSP/1.0 500");
    Push(MakeUnit({}));
    EXPECT_EQ(video.Receive(), PacketOf(MakeUnit({}), VIDEO_SSRC)) << "a live one keeps its ports";
}

// Session threads that sweep at once, and Stop that ends them meanwhile, never wait for each other.
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

TEST_F(CSessionManagerServerTest, FileDataKeepsAClientsPlaceForGood) {
    StartServer();
    CTestClient client(m_port);
    ASSERT_TRUE(client.PlayInterleaved());
    const CSessionList sessions = Manager().getSession();
    const auto id = static_cast<int>(sessions.begin()->dwSessionId);
    Manager().releaseSession(sessions);
    EXPECT_EQ(RTSPServer_SendFileStream(id + 1, nullptr, 0), -1);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(RTSPServer_SendFileStream(id, nullptr, 0), 0);
    }
    RTSPServer_Stop();
    EXPECT_EQ(Manager().GetCurrSessionNums(), 1U) << "of " << Manager().GetMaxsessionNums();
    client.Socket().Reset();
}

}  // namespace
