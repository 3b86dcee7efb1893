// SPDX-License-Identifier: MIT
// The events that the host receives about its clients.

#include <chrono>
#include <functional>
#include <future>
#include <map>
#include <mutex>
#include <stdexcept>

#include "rtsps_session_mgr.h"
#include "support/test_net.h"

namespace {

struct CHeard {
    int event;
    int32_t id;
    TRtspServerEventInfo info;
    std::thread::id thread;
};

const std::map<int, std::string> NAMES = {
    {RTSPS_EVENT_CONNECTED, "connected"}, {RTSPS_EVENT_DESCRIBED, "described"},
    {RTSPS_EVENT_SETUP, "set up"},        {RTSPS_EVENT_PLAYING, "playing"},
    {RTSPS_EVENT_TORN_DOWN, "torn down"}, {RTSPS_EVENT_CLOSED, "closed"}};

// Collects events, and may do something inside each.
class CListener {
  public:
    ~CListener() { RTSPServer_SetEventCallBack(nullptr, nullptr); }
    static void Hear(int32_t event, int32_t id, void* data, int32_t size, void* user) {
        auto* self = static_cast<CListener*>(user);
        const CHeard heard{event, id, *static_cast<TRtspServerEventInfo*>(data),
                           std::this_thread::get_id()};
        EXPECT_EQ(size, static_cast<int32_t>(sizeof(heard.info)));
        EXPECT_EQ(heard.info.dwSize, sizeof(heard.info));
        self->m_mutex.lock();
        self->m_heard.push_back(heard);
        self->m_mutex.unlock();
        if (self->inside) {
            self->inside(heard);
        }
    }
    std::vector<CHeard> Heard() {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_heard;
    }
    std::string Events() {
        std::string events;
        for (const CHeard& heard : Heard()) {
            events += (events.empty() ? "" : ", ") + NAMES.at(heard.event);
        }
        return events;
    }
    bool WaitFor(int event, int seconds = 10) {
        return WaitUntil([&] { return Events().find(NAMES.at(event)) != std::string::npos; },
                         std::chrono::seconds(seconds));
    }

    std::function<void(const CHeard&)> inside;  // set before the first client

  private:
    std::mutex m_mutex;
    std::vector<CHeard> m_heard;
};

class CEventTest : public CLoggedServerTest {
  protected:
    void Start() {
        RTSPServer_SetEventCallBack(CListener::Hear, &m_listener);
        StartServer();
    }
    CLogCapture m_dump{2};
    CListener m_listener;
};

TEST_F(CEventTest, OneClientFromConnectToClose) {
    const auto start = std::chrono::steady_clock::now();
    Start();
    const Bytes video = MakeRun({96, 1, 0, 100, 1}, 3);
    const Bytes audio = MakeUnit({8, 1, 0, 160, 1});
    uint16_t port = 0;
    {
        CPlayer client(m_port, CPlayer::UDP);
        port = client.Socket().Port();
        ASSERT_TRUE(m_listener.WaitFor(RTSPS_EVENT_PLAYING));
        Push(video);
        Push(audio);
        client.Ask("TEARDOWN", client.Url());
    }
    ASSERT_TRUE(m_listener.WaitFor(RTSPS_EVENT_CLOSED));
    EXPECT_EQ(m_listener.Events(),
              "connected, described, set up, set up, playing, torn down, closed");
    const std::vector<CHeard> heard = m_listener.Heard();
    uint64_t before = 0;
    for (const auto& [event, id, info, thread] : heard) {
        EXPECT_EQ(id, heard[0].id);
        EXPECT_TRUE(thread == heard[0].thread && thread != std::this_thread::get_id());
        EXPECT_STREQ(info.szClientAddr, "127.0.0.1");
        EXPECT_EQ(info.dwClientPort, port);
        EXPECT_GE(info.qwConnectedMs, std::exchange(before, info.qwConnectedMs));
        EXPECT_EQ(info.nChan, event == RTSPS_EVENT_CONNECTED ? -1 : 1);
        EXPECT_EQ(info.nStreamType, event == RTSPS_EVENT_CONNECTED ? -1 : 0);
    }
    EXPECT_EQ(heard[2].info.dwMedia, static_cast<uint32_t>(RTSPS_MEDIA_VIDEO));
    EXPECT_EQ(heard[3].info.dwMedia, static_cast<uint32_t>(RTSPS_MEDIA_AUDIO));
    EXPECT_EQ(heard[3].info.dwTransport, static_cast<uint32_t>(RTSPS_TRANSPORT_UDP));
    const TRtspServerEventInfo& closed = heard.back().info;
    EXPECT_LE(std::chrono::milliseconds(closed.qwConnectedMs),
              std::chrono::steady_clock::now() - start + std::chrono::milliseconds(1));
    EXPECT_EQ(closed.dwReason, static_cast<uint32_t>(RTSPS_CLOSE_TEARDOWN));
    EXPECT_EQ(closed.stuTotals.qwVideoPackets, 3U);
    EXPECT_EQ(closed.stuTotals.qwVideoBytes, video.size() - 3 * 4);
    EXPECT_EQ(closed.stuTotals.qwAudioPackets, 1U);
    EXPECT_EQ(closed.stuTotals.qwAudioBytes, audio.size() - 4);
}

TEST_F(CEventTest, ShortPushesEndASession) {
    const Bytes video = MakeUnit({});
    const Bytes audio = MakeUnit({8, 1, 0, 160, 1});  // not set up, so no push is complete
    Start();
    CTestClient client(m_port);
    ASSERT_TRUE(client.PlayInterleaved(false));
    // 20 short pushes, a whole one, 21 short ones, and one after the end.
    for (int i = 0; i < 43; ++i) {
        EXPECT_EQ(m_log.Has("send failed over thresold and exit"), i == 42);
        Push(i == 20 ? video : audio);
    }
    ASSERT_TRUE(m_listener.WaitFor(RTSPS_EVENT_CLOSED, IsPlainBuild() ? 2 : 10))
        << "a push that ends a session wakes its thread, which waits longer";
    EXPECT_FALSE(client.Socket().AtEnd(0)) << "the socket stays open until the sweep";
    EXPECT_FALSE(m_log.Has("Recvn ,nRecvlen"));
    EXPECT_EQ(m_log.Count(" send failed,nLen=176,nSendLen=0,"), 41);
    EXPECT_EQ(client.Socket().ReceiveExactly(video.size()), FrameOf(video, VIDEO_SSRC, 0));
    CRtspSessionManager::Instance()->DelExceptionSession();
    EXPECT_TRUE(client.Socket().AtEnd());
    const TRtspServerEventInfo closed = m_listener.Heard().back().info;
    EXPECT_EQ(closed.dwReason, static_cast<uint32_t>(RTSPS_CLOSE_TOO_SLOW));
    EXPECT_EQ(closed.stuTotals.dwShortSends, 41U);
    EXPECT_EQ(closed.stuTotals.dwLongestShortRun, 21U);
    EXPECT_EQ(m_listener.Events(), "connected, described, set up, playing, closed");
}

TEST_F(CEventTest, CallsFromInsideTheFunction) {
    m_listener.inside = [&](const CHeard& heard) {
        if (heard.event == RTSPS_EVENT_PLAYING) {
            EXPECT_EQ(RTSPServer_Start(), -1);
            EXPECT_EQ(RTSPServer_Stop(), 0);
            TRtspServerStreamInfo info = MakeStreamInfo();
            EXPECT_EQ(RTSPServer_SetStreamInfo(7, 0, &info), 0);
            EXPECT_EQ(RTSPServer_Init(&m_para) + RTSPServer_Release(), 0);
            Push(MakeUnit({}));  // reaches the client of the event
        }
    };
    Start();
    CTestClient client(m_port);
    EXPECT_TRUE(client.PlayInterleaved(false));
    EXPECT_EQ(client.Socket().ReceiveExactly(116), FrameOf(MakeUnit({}), VIDEO_SSRC, 0));
    EXPECT_EQ(m_log.Count("start and stop do nothing inside the event callback"), 2);
    EXPECT_NE(client.Ask("OPTIONS", client.Url()), "");  // still running
}

TEST_F(CEventTest, AnExceptionOfTheHostEndsNothing) {
    m_listener.inside = [](const CHeard&) { throw std::runtime_error("the host's own"); };
    Start();
    CTestClient client(m_port);
    EXPECT_TRUE(client.PlayInterleaved(false));
    Push(MakeUnit({}));
    EXPECT_EQ(client.Socket().ReceiveExactly(116), FrameOf(MakeUnit({}), VIDEO_SSRC, 0));
    client.Socket().Reset();
    ASSERT_TRUE(m_listener.WaitFor(RTSPS_EVENT_CLOSED));
    EXPECT_EQ(m_listener.Events(), "connected, described, set up, playing, closed")
        << "no event is left out";
}

TEST_F(CEventTest, OnlyTheClientItIsAboutWaits) {
    std::promise<void> go;
    m_listener.inside = [&](const CHeard& heard) {
        if (heard.event == RTSPS_EVENT_CLOSED && heard.id == m_listener.Heard()[0].id) {
            go.get_future().wait();
        }
    };
    m_para.nMaxPort = m_para.nMinPort + 2;  // for one player
    Start();
    EXPECT_TRUE(Ok(CPlayer(m_port, CPlayer::UDP).reply));
    ASSERT_TRUE(m_listener.WaitFor(RTSPS_EVENT_CLOSED));
    CRtspSessionManager::Instance()->DelExceptionSession();  // does not wait for the function
    EXPECT_EQ(CRtspSessionManager::Instance()->GetCurrSessionNums(), 1U);
    EXPECT_FALSE(Ok(CPlayer(m_port, CPlayer::UDP).reply)) << "a SETUP without a port does not wait";
    CTestClient other(m_port);
    EXPECT_TRUE(other.PlayInterleaved());
    go.set_value();
    EXPECT_TRUE(WaitUntil([] {
        CRtspSessionManager::Instance()->DelExceptionSession();
        return CRtspSessionManager::Instance()->GetCurrSessionNums() == 1;
    }));
}

TEST_F(CEventTest, ClientsThatConnectWithoutAFunctionRaiseNoEvents) {
    CListener second;
    RTSPServer_SetEventCallBack(nullptr, nullptr);
    StartServer();
    CTestClient earlier(m_port);
    EXPECT_NE(earlier.Ask("OPTIONS", earlier.Url()), "");
    RTSPServer_SetEventCallBack(CListener::Hear, &m_listener);
    EXPECT_NE(earlier.Describe(), "");
    CTestClient client(m_port);
    EXPECT_NE(client.Describe(), "");
    ASSERT_TRUE(m_listener.WaitFor(RTSPS_EVENT_DESCRIBED));
    RTSPServer_SetEventCallBack(CListener::Hear, &second);
    RTSPServer_Stop();
    EXPECT_EQ(m_listener.Events(), "connected, described") << "the earlier client raises no event";
    EXPECT_EQ(second.Events(), "closed");
    EXPECT_EQ(second.Heard()[0].info.dwReason, static_cast<uint32_t>(RTSPS_CLOSE_SERVER_STOPPED));
}

}  // namespace
