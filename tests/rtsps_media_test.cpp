// SPDX-License-Identifier: MIT
// What the host pushes and what clients receive of it, over every transport.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "rtsps_server.h"
#include "rtsps_session_mgr.h"
#include "support/log_capture.h"
#include "support/session_probe.h"
#include "support/test_net.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr uint32_t VIDEO_SSRC = 0x11223344;
constexpr uint32_t AUDIO_SSRC = 0x55667788;
constexpr uint8_t VIDEO = 96;
constexpr uint8_t AUDIO = 8;
constexpr uint16_t NO_GAP = 65535;  // whatever follows it is no sequence gap

// A client that plays over one transport.
struct CPlayer {
    CPlayer(uint16_t port, ETRANS_MODE transport, bool withAudio = true, int nRecvBuffer = 0)
        : mode(transport), client(port, nRecvBuffer) {
        CTestSocket* pAudio = withAudio ? &audio : nullptr;
        EXPECT_TRUE(mode == UDP_MODE   ? client.PlayUdp(&video, pAudio)
                    : mode == TCP_MODE ? client.PlayTcp(&video, pAudio)
                                       : client.PlayInterleaved(withAudio));
    }
    // Whether the next packet that arrives is this one, byte for byte.
    bool Gets(const Bytes& unit) {
        const bool isAudio = (unit[5] & 0x7F) == AUDIO;
        const CTestSocket& socket = isAudio ? audio : video;
        const std::string packet = PacketOf(unit, isAudio ? AUDIO_SSRC : VIDEO_SSRC);
        switch (mode) {
            case UDP_MODE:
                return socket.Receive() == packet;
            case TCP_MODE:
                return socket.ReceiveExactly(unit.size()) == std::string("$\0\0\0", 4) + packet;
            default:
                return client.Socket().ReceiveExactly(unit.size()) ==
                       FrameOf(unit, isAudio ? AUDIO_SSRC : VIDEO_SSRC, isAudio ? 2 : 0);
        }
    }
    bool GetsNothing() const {
        return client.Socket().Receive(1, 0) + video.Receive(1, 0) + audio.Receive(1, 0) == "";
    }

    ETRANS_MODE mode;
    mutable CTestClient client;
    CTestSocket video;
    CTestSocket audio;
};

class CMediaTest : public CServerTest {
  protected:
    static CRtspSessionManager* Manager() { return CRtspSessionManager::Instance(); }

    // How many clients are registered once those that have ended are swept out.
    static uint32_t Alive() {
        Manager()->DelExceptionSession();
        return Manager()->GetCurrSessionNums();
    }
    // Waits until the clients over separate TCP were accepted: their threads have ended then.
    void AwaitThreads(int nSessions) const {
        ASSERT_TRUE(WaitUntil([&] { return CountThreads() == m_threadsBefore + 1 + nSessions; }));
    }

    CLogCapture m_log;
};

TEST_F(CMediaTest, MixedTransportsReceiveEveryByteOfOneStream) {
    StartServer();
    std::list<CPlayer> players;
    for (int i = 0; i < 2; ++i) {
        for (const ETRANS_MODE mode : {TCP_MODE, UDP_MODE, RTPOVERRTSP_MODE}) {
            players.emplace_back(m_port, mode);
        }
    }
    AwaitThreads(6);
    const struct {
        const char* name;
        uint8_t payloadType;
        std::vector<size_t> payloads;
    } pushes[] = {
        {"units of many sizes", VIDEO, {1388, 1388, 1400, 77, 1388, 12, 4}},
        {"audio", AUDIO, {160}},
        {"with the marker", VIDEO | 0x80, {1388}},
        {"audio run", AUDIO | 0x80, {320, 320, 320}},
        {"large access unit", VIDEO, std::vector<size_t>(120, 1388)},
        {"large packet", VIDEO, {60000}},
        {"header alone", VIDEO, {0}},
    };
    uint16_t sequence = 0;
    for (int round = 0; round < 3; ++round) {
        for (const auto& push : pushes) {
            std::vector<Bytes> units;
            Bytes run;
            for (const size_t payload : push.payloads) {
                if ((push.payloadType & 0x7F) == VIDEO) {
                    ++sequence;
                }
                units.push_back(MakeUnit({push.payloadType, sequence, sequence * 3600U, payload,
                                          static_cast<uint8_t>(units.size() + 1)}));
                run.insert(run.end(), units.back().begin(), units.back().end());
            }
            Push(run);
            for (CPlayer& player : players) {
                for (const Bytes& unit : units) {
                    ASSERT_TRUE(player.Gets(unit)) << push.name << ", mode " << player.mode;
                }
            }
        }
    }
    for (const CPlayer& player : players) {
        EXPECT_TRUE(player.GetsNothing());
    }
    EXPECT_FALSE(m_log.Has("[RTSPS ERROR]"));
}

TEST_F(CMediaTest, OnlyPlayersOfTheStreamReceiveIt) {
    StartServer();
    const Bytes unit = MakeUnit({});
    CPlayer main(m_port, UDP_MODE);
    CTestClient sub(m_port);
    sub.m_stream = "sub";
    ASSERT_TRUE(sub.PlayInterleaved());
    CTestClient ready(m_port);
    ready.Describe();
    ready.Setup(0, "RTP/AVP/TCP;unicast;interleaved=0-1");
    CTestClient idle(m_port);
    idle.Ask("OPTIONS", idle.Url());

    const struct { int chan, stream; } elsewhere[] = {{2, 0}, {0, 0}, {1, 2}, {1, -1}, {-1, 0}};
    for (const auto& push : elsewhere) {
        Push(unit, push.chan, push.stream);
    }
    Push(unit, 1, 1);
    EXPECT_EQ(sub.Socket().ReceiveExactly(unit.size()), FrameOf(unit, VIDEO_SSRC, 0));
    EXPECT_TRUE(main.GetsNothing());
    Push(unit);
    EXPECT_TRUE(main.Gets(unit));
    // What comes next on the other connections is the reply.
    EXPECT_EQ(ready.Play().substr(0, 15), "RTSP/1.0 200 OK");
    EXPECT_EQ(ready.Ask("HEARTBEAT", ready.Url()).substr(0, 15), "RTSP/1.0 200 OK");
    EXPECT_EQ(idle.Ask("OPTIONS", idle.Url()).substr(0, 15), "RTSP/1.0 200 OK");
    EXPECT_EQ(sub.Socket().Receive(1, 0), "");

    const int descriptors = CountDescriptors();
    EXPECT_EQ(main.client.Ask("TEARDOWN", main.client.Url()).substr(0, 15), "RTSP/1.0 200 OK");
    ASSERT_TRUE(WaitUntil([&] { return CountDescriptors() == descriptors - 4; }));
    Push(unit);
    EXPECT_EQ(ready.Socket().ReceiveExactly(unit.size()), FrameOf(unit, VIDEO_SSRC, 0));
    EXPECT_FALSE(m_log.Has("[RTSPS ERROR]"));
    EXPECT_TRUE(main.GetsNothing());
    RTSPServer_Stop();
    EXPECT_TRUE(main.client.Socket().AtEnd());
}

TEST(SendRealStream, GateIsSilentUnlessEverythingFits) {
    const struct {
        eRTSP_METHOD_INDEX stat;
        bool quit;
        int reqType, chan, stream;
        int result;
    } rows[] = {
        {RTSP_PLAY, false, 0, 1, 2, -1},  // fits, then misses the transport
        {RTSP_PAUSE, false, 0, 1, 2, 0}, {RTSP_SETUP, false, 0, 1, 2, 0},
        {RTSP_PLAY, true, 0, 1, 2, 0},   // told to quit
        {RTSP_PLAY, false, 1, 1, 2, 0},  // a recording
        {RTSP_PLAY, false, 0, 2, 2, 0},  {RTSP_PLAY, false, 0, 1, 0, 0},
    };
    Bytes unit = MakeUnit({});
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        const CLogCapture log;
        CRtspSession session(1);
        CRtspSessionProbe probe(session);
        probe.emRtspStat = row.stat;
        probe.bQuit = row.quit;
        probe.stuReqCfg.nReqType = row.reqType;
        probe.stuReqCfg.nChan = row.chan;
        probe.stuReqCfg.nStreamtype = row.stream;
        EXPECT_EQ(session.SendRealStream(1, 2, unit.data(), 4), 0);
        EXPECT_EQ(session.SendRealStream(1, 2, unit.data(), 116), row.result);
        EXPECT_EQ(log.Count("[RTSPS "), row.result == 0 ? 0 : 2);
        EXPECT_EQ(log.Has(" m_pTransCtrl is NULL\n"), row.result != 0);
    }
}

TEST_F(CMediaTest, OddPushesAreTold) {
    StartServer();
    CPlayer player(m_port, RTPOVERRTSP_MODE);
    const Bytes good = MakeUnit({});
    const Bytes two = MakeRun({}, 2);
    Bytes cutLater(two);
    cutLater.insert(cutLater.end(), good.begin(), good.end() - 1);
    const Bytes other = MakeUnit({97});
    const Bytes cut(good.begin(), good.end() - 1);
    const std::string failed = "send failed,nLen=#,nSendLen=";
    const std::string whom = ",chan=1, stream=0,client=127.0.0.1";
    const struct {
        const char* name;
        const Bytes* bytes;
        int len;
        std::string line;
        size_t received;
    } rows[] = {
        {"null", nullptr, 100, "datalen[100] is invalid", 0},
        {"negative", &good, -1, "datalen[-1] is invalid", 0},
        {"prefix alone", &good, 4, "datalen[4] is invalid", 0},
        {"no payload type", &good, 5, "unkown payload type", 0},
        {"unknown payload type", &other, 116, "unkown payload type", 0},
        {"cut off", &cut, 115, failed + "0" + whom, 0},
        {"cut off later", &cutLater, 347, failed + "232" + whom, 232},
        {"cut off in a prefix", &cutLater, 235, failed + "232" + whom, 232},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const CLogCapture log;
        // A copy of exactly the pushed size: a read beyond it is seen by the sanitizer.
        Bytes copy;
        if (row.bytes != nullptr) {
            copy.assign(row.bytes->begin(), row.bytes->begin() + std::max(row.len, 1));
        }
        EXPECT_EQ(
            RTSPServer_SendRealSteam(1, 0, row.bytes != nullptr ? copy.data() : nullptr, row.len),
            0);
        EXPECT_TRUE(log.HasLines("E " + row.line));
        EXPECT_EQ(player.client.Socket().ReceiveExactly(row.received).size(), row.received);
        Push(good);
        EXPECT_TRUE(player.Gets(good));  // it plays on
    }
}

TEST_F(CMediaTest, TwentyOneShortSendsInARowEndAClient) {
    StartServer();
    CPlayer player(m_port, RTPOVERRTSP_MODE, false);
    const Bytes video = MakeUnit({});
    const Bytes audio = MakeUnit({AUDIO});  // not set up, so no push of it is ever complete
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 20; ++i) {
            Push(audio);
        }
        EXPECT_EQ(Alive(), 1U);
        if (round == 0) {
            Push(video);
            EXPECT_TRUE(player.Gets(video));
        }
    }
    EXPECT_FALSE(m_log.Has("over thresold"));
    Push(audio);
    EXPECT_TRUE(m_log.HasLines("E send failed over thresold and exit"));
    Push(audio);
    EXPECT_EQ(m_log.Count(" send failed,nLen=116,nSendLen=0,"), 41);  // it takes none any more
    EXPECT_TRUE(WaitUntil([] { return Alive() == 0; }));
    EXPECT_TRUE(player.client.Socket().AtEnd());
}

TEST_F(CMediaTest, SetupOverUdpDumpsItsAddresses) {
    StartServer();
    CTestClient client(m_port);
    client.Describe();
    const CLogCapture dump(2);
    client.Setup(0, "RTP/AVP;unicast;client_port=5000-5001");
    std::string expected;
    for (const int port : {m_para.nMinPort, 5000, m_para.nMinPort + 1, 5001}) {
        char row[200];
        snprintf(row, sizeof(row),
                 "\n-----------------------\n"
                 "\n 0001 |02 00 %02x %02x 7f 00 00 01 00 00 00 00 00 00 00 00 "
                 "\n 0017 |00 00 00 00 00 00 00 00 00 00 00 00 "
                 "\n-----------------------\n",
                 static_cast<unsigned>(port) >> 8, static_cast<unsigned>(port) & 0xFF);
        expected += row;
    }
    EXPECT_EQ(dump.Text(), expected);
}

// Twenty playing clients of every transport, one of which never made its TCP connection.
class CStopTest : public CMediaTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(CStopTest, IsPromptQuietAndLeavesThePortFree) {
    const std::string variant = GetParam();
    StartServer();
    const Bytes unit = MakeUnit({VIDEO, NO_GAP, 0, 1388, 1});
    std::list<CPlayer> players;
    for (int i = 0; i < 19; ++i) {
        players.emplace_back(m_port, i % 3 == 0   ? UDP_MODE
                                     : i % 3 == 1 ? RTPOVERRTSP_MODE
                                                  : TCP_MODE);
    }
    std::atomic<bool> ended{false};
    std::thread pusher([&] {
        while (variant == "Pushing" && !ended) {
            Push(unit);
        }
    });
    Push(unit);
    CTestClient late(m_port);
    late.Describe();
    late.Setup(0, "RTP/AVP/TCP;unicast;client_port=6000-6001");
    if (variant == "ClientGone") {
        players.front().video.Reset();
        Push(unit);
        Push(unit);
    }
    const auto start = steady_clock::now();
    EXPECT_EQ(RTSPServer_Stop(), 0);
    const auto took = steady_clock::now() - start;
    EXPECT_FALSE(m_log.Has("Recvn ,nRecvlen") || m_log.Has("select failed"));
    ended = true;
    pusher.join();
    EXPECT_EQ(Manager()->GetCurrSessionNums(), 0U);
    if (IsPlainBuild()) {
        EXPECT_LT(took, milliseconds(200));
    }
    ASSERT_EQ(RTSPServer_Start(), 0);
    CPlayer again(m_port, UDP_MODE);
    Push(unit);
    EXPECT_TRUE(again.Gets(unit));
}

INSTANTIATE_TEST_SUITE_P(Media, CStopTest, ::testing::Values("Quiet", "ClientGone", "Pushing"),
                         [](const auto& name) { return std::string(name.param); });

TEST_F(CMediaTest, PortsComeBackWhenClientsLeave) {
    m_para.nMaxPort = m_para.nMinPort + 3;  // two pairs, one client's need
    StartServer();
    const Bytes unit = MakeUnit({});
    for (const ETRANS_MODE mode : {UDP_MODE, TCP_MODE, UDP_MODE}) {
        {
            CPlayer player(m_port, mode);
            AwaitThreads(1);
            Push(unit);
            EXPECT_TRUE(player.Gets(unit));
        }
        ASSERT_TRUE(WaitUntil([] { return Alive() == 0; }));
    }
    CRtspServer* server = CRtspServer::Instance();
    EXPECT_EQ(server->BorrowDataPort() + server->BorrowDataPort(), 2 * m_para.nMinPort + 2);
    EXPECT_EQ(server->BorrowDataPort(), 0);
}

}  // namespace
