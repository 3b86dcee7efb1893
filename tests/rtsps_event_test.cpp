// SPDX-License-Identifier: MIT
// What the host hears of its clients.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

#include "rtsps_session_mgr.h"
#include "support/log_capture.h"
#include "support/test_net.h"

namespace {

using ::testing::ElementsAre;

struct CHeard {
    int event;
    int32_t id;
    TRtspServerEventInfo info;
    std::thread::id thread;
};

// Collects events, and may do something inside each.
class CListener {
  public:
    static void Hear(int32_t event, int32_t id, void* data, int32_t size, void* user) {
        auto* self = static_cast<CListener*>(user);
        CHeard heard{event, id, {}, std::this_thread::get_id()};
        ASSERT_EQ(size, static_cast<int32_t>(sizeof(heard.info)));
        memcpy(&heard.info, data, sizeof(heard.info));
        EXPECT_EQ(heard.info.dwSize, sizeof(heard.info));
        self->m_mutex.lock();
        self->m_heard.push_back(heard);
        self->m_mutex.unlock();
        self->inside(heard);
    }
    std::vector<CHeard> Heard() {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_heard;
    }
    std::vector<int> Events() {
        std::vector<int> events;
        for (const CHeard& heard : Heard()) {
            events.push_back(heard.event);
        }
        return events;
    }
    bool WaitFor(int event) {
        return WaitUntil([&] {
            const std::vector<int> events = Events();
            return std::find(events.begin(), events.end(), event) != events.end();
        });
    }
    void Clear() {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_heard.clear();
    }

    std::function<void(const CHeard&)> inside = [](const CHeard&) {
    };  // set before the first client

  private:
    std::mutex m_mutex;
    std::vector<CHeard> m_heard;
};

class CEventTest : public CServerTest {
  protected:
    void Start() {
        RTSPServer_SetEventCallBack(CListener::Hear, &m_listener);
        StartServer();
    }
    void TearDown() override {
        CServerTest::TearDown();
        RTSPServer_SetEventCallBack(nullptr, nullptr);
    }

    CLogCapture m_dump{2};
    CLogCapture m_log;
    CListener m_listener;
};

TEST_F(CEventTest, OneClientFromConnectToClose) {
    Start();
    const Bytes video = MakeRun({96, 1, 0, 100, 1}, 3);
    const Bytes audio = MakeUnit({8, 1, 0, 160, 1});
    {
        CTestClient client(m_port);
        CTestSocket sockets[2];
        ASSERT_TRUE(client.PlayUdp(&sockets[0], &sockets[1]));
        ASSERT_TRUE(m_listener.WaitFor(RTSPS_EVENT_PLAYING));
        Push(video);
        Push(audio);
        client.Ask("TEARDOWN", client.Url());
    }
    ASSERT_TRUE(m_listener.WaitFor(RTSPS_EVENT_CLOSED));
    EXPECT_THAT(m_listener.Events(), ElementsAre(1, 2, 3, 3, 4, 5, 6));
    const std::vector<CHeard> heard = m_listener.Heard();
    uint64_t before = 0;
    for (const CHeard& one : heard) {
        EXPECT_EQ(one.id, heard[0].id);
        EXPECT_TRUE(one.thread == heard[0].thread && one.thread != std::this_thread::get_id());
        EXPECT_STREQ(one.info.szClientAddr, "127.0.0.1");
        EXPECT_NE(one.info.dwClientPort, 0U);
        EXPECT_GE(one.info.qwConnectedMs, std::exchange(before, one.info.qwConnectedMs));
        const bool isFirst = one.event == RTSPS_EVENT_CONNECTED;
        EXPECT_EQ(one.info.nChan, isFirst ? -1 : 1);
        EXPECT_EQ(one.info.nStreamType, isFirst ? -1 : 0);
    }
    EXPECT_EQ(heard[2].info.dwMedia, static_cast<uint32_t>(RTSPS_MEDIA_VIDEO));
    EXPECT_EQ(heard[3].info.dwMedia, static_cast<uint32_t>(RTSPS_MEDIA_AUDIO));
    EXPECT_EQ(heard[3].info.dwTransport, static_cast<uint32_t>(RTSPS_TRANSPORT_UDP));
    const TRtspServerEventInfo& closed = heard.back().info;
    EXPECT_EQ(closed.dwReason, static_cast<uint32_t>(RTSPS_CLOSE_TEARDOWN));
    EXPECT_EQ(closed.stuTotals.qwVideoPackets, 3U);
    EXPECT_EQ(closed.stuTotals.qwVideoBytes, video.size() - 3 * 4);
    EXPECT_EQ(closed.stuTotals.qwAudioPackets, 1U);
    EXPECT_EQ(closed.stuTotals.qwAudioBytes, audio.size() - 4);
    EXPECT_EQ(closed.stuTotals.dwShortSends, 0U);
}

TEST_F(CEventTest, CloseReasons) {
    const std::pair<uint32_t, std::function<void(CTestClient&)>> rows[] = {
        {RTSPS_CLOSE_CLIENT_LEFT, [](CTestClient& client) { client.Socket().Reset(); }},
        {RTSPS_CLOSE_REFUSED, [](CTestClient& client) { client.Describe(); }},  // 455
        {RTSPS_CLOSE_TOO_SLOW,
         [this](CTestClient&) {
             for (uint16_t i = 0; i < 21; ++i) {
                 Push(MakeUnit({8, i, 0, 160, 1}));  // it has set up video only
             }
             CRtspSessionManager::Instance()->DelExceptionSession();
         }},
        {RTSPS_CLOSE_CONNECTION_ERROR, [](CTestClient& client) { client.Socket().ResetHard(); }},
        {RTSPS_CLOSE_SERVER_STOPPED, [](CTestClient&) { RTSPServer_Stop(); }},
    };
    Start();
    for (const auto& [reason, leave] : rows) {
        SCOPED_TRACE(reason);
        m_listener.Clear();
        CTestClient client(m_port);
        ASSERT_TRUE(client.PlayInterleaved(false));
        ASSERT_TRUE(m_listener.WaitFor(RTSPS_EVENT_PLAYING));
        leave(client);
        ASSERT_TRUE(m_listener.WaitFor(RTSPS_EVENT_CLOSED));
        const TRtspServerEventInfo closed = m_listener.Heard().back().info;
        EXPECT_EQ(closed.dwReason, reason);
        const uint32_t shortSends = reason == RTSPS_CLOSE_TOO_SLOW ? 21 : 0;
        EXPECT_EQ(closed.stuTotals.dwShortSends, shortSends);
        EXPECT_EQ(closed.stuTotals.dwLongestShortRun, shortSends);
        EXPECT_THAT(m_listener.Events(), ElementsAre(1, 2, 3, 4, 6));
    }
}

TEST_F(CEventTest, CallsFromInsideTheFunction) {
    std::atomic<int> started{0};
    std::atomic<int> stopped{-1};
    m_listener.inside = [&](const CHeard& heard) {
        if (heard.event == RTSPS_EVENT_PLAYING) {
            started = RTSPServer_Start();
            stopped = RTSPServer_Stop();
            TRtspServerStreamInfo info = MakeStreamInfo();
            EXPECT_EQ(RTSPServer_SetStreamInfo(7, 0, &info), 0);
            EXPECT_EQ(RTSPServer_Init(&m_para) + RTSPServer_Release(), 0);
            Push(MakeUnit({96, 9, 0, 50, 1}));  // reaches the client that it is about
        }
    };
    Start();
    CTestClient client(m_port);
    client.Describe();
    client.Setup(0, "RTP/AVP/TCP;unicast;interleaved=0-1");
    EXPECT_NE(client.Play(), "");
    EXPECT_EQ(client.Socket().ReceiveExactly(66),
              FrameOf(MakeUnit({96, 9, 0, 50, 1}), VIDEO_SSRC, 0));
    EXPECT_EQ(started, -1);
    EXPECT_EQ(stopped, 0);
    EXPECT_EQ(m_log.Count("start and stop do nothing inside the event callback"), 2);
    EXPECT_NE(client.Ask("OPTIONS", client.Url()), "");  // still running
}

TEST_F(CEventTest, OnlyTheClientItIsAboutWaits) {
    std::promise<void> go;
    m_listener.inside = [&](const CHeard& heard) {
        if (heard.event == RTSPS_EVENT_CLOSED && heard.id == m_listener.Heard()[0].id) {
            go.get_future().wait();
        }
    };
    Start();
    {
        CTestClient client(m_port);
        EXPECT_NE(client.Ask("OPTIONS", client.Url()), "");
    }
    ASSERT_TRUE(m_listener.WaitFor(RTSPS_EVENT_CLOSED));
    CRtspSessionManager::Instance()->DelExceptionSession();  // does not wait for the function
    EXPECT_EQ(CRtspSessionManager::Instance()->GetCurrSessionNums(), 1U);
    CTestClient other(m_port);
    EXPECT_TRUE(other.PlayInterleaved());
    go.set_value();
    EXPECT_TRUE(WaitUntil([] {
        CRtspSessionManager::Instance()->DelExceptionSession();
        return CRtspSessionManager::Instance()->GetCurrSessionNums() == 1;
    }));
}

TEST_F(CEventTest, WhoHearsWhat) {
    CListener second;
    RTSPServer_SetEventCallBack(nullptr, nullptr);
    StartServer();
    CTestClient unheard(m_port);
    EXPECT_NE(unheard.Ask("OPTIONS", unheard.Url()), "");
    RTSPServer_SetEventCallBack(CListener::Hear, &m_listener);
    EXPECT_NE(unheard.Describe(), "");
    CTestClient client(m_port);
    EXPECT_NE(client.Describe(), "");
    ASSERT_TRUE(m_listener.WaitFor(RTSPS_EVENT_DESCRIBED));
    RTSPServer_SetEventCallBack(CListener::Hear, &second);
    RTSPServer_Stop();
    EXPECT_THAT(m_listener.Events(), ElementsAre(RTSPS_EVENT_CONNECTED, RTSPS_EVENT_DESCRIBED))
        << "of the client that came first nothing is told";
    EXPECT_THAT(second.Events(), ElementsAre(RTSPS_EVENT_CLOSED));
}

TEST_F(CEventTest, RefusedClientsAreNotTold) {
    Start();
    std::deque<CTestClient> clients;
    for (int i = 0; i < RTSPS_MAX_SESSIONS + 1; ++i) {
        EXPECT_NE(clients.emplace_back(m_port).Ask("OPTIONS", "*"), "");
    }
    clients.clear();
    EXPECT_TRUE(WaitUntil([&] { return m_log.Count(" exit\n") == RTSPS_MAX_SESSIONS + 1; }));
    RTSPServer_Stop();
    CRtspSessionManager::Instance()->DelExceptionSession();
    EXPECT_EQ(m_log.Count("ERROR! add_session,OverSize!!!"), 1);
    EXPECT_EQ(m_listener.Heard().size(), 2U * RTSPS_MAX_SESSIONS);
}

}  // namespace
