// SPDX-License-Identifier: MIT
// What the host pushes and what clients receive of it, over every transport.

#include <algorithm>
#include <atomic>
#include <list>

#include "rtsps_session_mgr.h"
#include "support/test_net.h"
#include "transmitter.h"

namespace {

constexpr uint32_t SSRCS[] = {0x11223344, 0x55667788};  // video, audio
constexpr ETRANS_MODE MODES[] = {UDP_MODE, RTPOVERRTSP_MODE, TCP_MODE};
constexpr uint8_t VIDEO = 96;
constexpr uint8_t AUDIO = 8;
constexpr uint16_t NO_GAP = 65535;  // whatever follows it is no sequence gap

// A client that plays over one transport.
struct CPlayer {
    CPlayer(uint16_t port, ETRANS_MODE transport) : mode(transport), client(port) {
        EXPECT_TRUE(mode == UDP_MODE   ? client.PlayUdp(&video, &audio)
                    : mode == TCP_MODE ? client.PlayTcp(&video, &audio)
                                       : client.PlayInterleaved());
    }
    // Whether the next packet that arrives is this one, byte for byte.
    bool Gets(const Bytes& unit) {
        const bool isAudio = (unit[5] & 0x7F) == AUDIO;
        const CTestSocket& socket = isAudio ? audio : video;
        const std::string packet = PacketOf(unit, SSRCS[isAudio]);
        const std::string frame = FrameOf(unit, SSRCS[isAudio], isAudio ? 2 : 0);
        return mode == UDP_MODE ? socket.Receive() == packet
               : mode == TCP_MODE
                   ? socket.ReceiveExactly(unit.size()) == std::string("$\0\0\0", 4) + packet
                   : client.Socket().ReceiveExactly(unit.size()) == frame;
    }
    bool GetsNothing() const {
        return client.Socket().Receive(1, 0) + video.Receive(1, 0) + audio.Receive(1, 0) == "";
    }

    ETRANS_MODE mode;
    mutable CTestClient client;
    CTestSocket video;
    CTestSocket audio;
};

using CMediaTest = CLoggedServerTest;

TEST_F(CMediaTest, MixedTransportsReceiveEveryByteOfOneStream) {
    StartServer();
    std::list<CPlayer> players;
    for (int i = 0; i < 6; ++i) {
        players.emplace_back(m_port, MODES[i % 3]);
    }
    // The threads of those over separate TCP have ended: they were accepted.
    ASSERT_TRUE(WaitUntil([&] { return CountThreads() == m_threadsBefore + 7; }));
    const std::pair<uint8_t, std::vector<size_t>> pushes[] = {
        {VIDEO, {1388, 1388, 1400, 77, 1388, 12, 4}},
        {AUDIO, {160}},
        {VIDEO | 0x80, {1388}},
        {AUDIO | 0x80, {320, 320, 320}},
        {VIDEO, std::vector<size_t>(120, 1388)},
        {VIDEO, {60000}},
        {VIDEO, {0}},
    };
    uint16_t sequence = 0;
    for (int round = 0; round < 3; ++round) {
        for (const auto& [payloadType, payloads] : pushes) {
            std::vector<Bytes> units;
            Bytes run;
            for (const size_t payload : payloads) {
                sequence = static_cast<uint16_t>(sequence + ((payloadType & 0x7F) == VIDEO));
                units.push_back(MakeUnit({payloadType, sequence, sequence * 3600U, payload,
                                          static_cast<uint8_t>(units.size() + 1)}));
                run.insert(run.end(), units.back().begin(), units.back().end());
            }
            Push(run);
            for (CPlayer& player : players) {
                for (const Bytes& unit : units) {
                    ASSERT_TRUE(player.Gets(unit))
                        << units.size() << " units, mode " << player.mode;
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
    CTestClient ready(m_port);  // three that arrive at once
    CTestClient sub(m_port);
    CPlayer main(m_port, UDP_MODE);
    sub.m_stream = "sub";
    ASSERT_TRUE(sub.PlayInterleaved());
    ready.Describe();
    ready.Setup(0, "RTP/AVP/TCP;unicast;interleaved=0-1");
    const std::pair<int, int> elsewhere[] = {{2, 0}, {0, 0}, {1, 2}, {1, -1}, {-1, 0}};
    for (const auto& [chan, stream] : elsewhere) {
        Push(unit, chan, stream);
    }
    Push(unit, 1, 1);
    EXPECT_EQ(sub.Socket().ReceiveExactly(unit.size()), FrameOf(unit, SSRCS[0], 0));
    EXPECT_TRUE(main.GetsNothing());
    Push(unit);
    EXPECT_TRUE(main.Gets(unit));
    EXPECT_EQ(ready.Play().substr(0, 15), "RTSP/1.0 200 OK") << "no frame comes before the reply";
    EXPECT_EQ(sub.Socket().Receive(1, 0), "");

    const int descriptors = CountDescriptors();
    EXPECT_EQ(main.client.Ask("TEARDOWN", main.client.Url()).substr(0, 15), "RTSP/1.0 200 OK");
    ASSERT_TRUE(WaitUntil([&] { return CountDescriptors() == descriptors - 4; }));
    Push(unit);
    EXPECT_EQ(ready.Socket().ReceiveExactly(unit.size()), FrameOf(unit, SSRCS[0], 0));
    EXPECT_FALSE(m_log.Has("[RTSPS ERROR]"));
    EXPECT_TRUE(main.GetsNothing());
}

TEST_F(CMediaTest, OddPushesAreTold) {
    StartServer();
    CPlayer player(m_port, RTPOVERRTSP_MODE);
    const Bytes good = MakeUnit({});
    Bytes run = MakeRun({}, 3);
    run.resize(run.size() - 1);
    const std::string whom = ",chan=1, stream=0,client=127.0.0.1";
    // What is told of it, and how many bytes are received.
    const std::tuple<Bytes, int, std::string, size_t> rows[] = {
        {{}, 100, "datalen[100] is invalid", 0},
        {good, -1, "datalen[-1] is invalid", 0},
        {good, 4, "datalen[4] is invalid", 0},
        {good, 5, "unkown payload type", 0},
        {MakeUnit({97}), 116, "unkown payload type", 0},
        {good, 115, "send failed,nLen=115,nSendLen=0" + whom, 0},
        {run, 347, "send failed,nLen=347,nSendLen=232" + whom, 232},
    };
    for (const auto& [bytes, len, line, received] : rows) {
        SCOPED_TRACE(line);
        const CLogCapture log;
        // Of exactly the pushed size: a read beyond it is seen by the sanitizer.
        Bytes copy(bytes.begin(), bytes.begin() + (bytes.empty() ? 0 : std::max(len, 0)));
        EXPECT_EQ(RTSPServer_SendRealSteam(1, 0, copy.data(), len), 0);
        EXPECT_TRUE(log.HasLines("E " + line));
        EXPECT_EQ(player.client.Socket().ReceiveExactly(received).size(), received);
        Push(good);
        EXPECT_TRUE(player.Gets(good));  // it plays on
    }
}

// Twenty clients of every transport, one of which never made its TCP connection.
TEST_F(CMediaTest, StopIsPromptQuietAndLeavesThePortFree) {
    enum EVariant { QUIET, CLIENT_GONE, PUSHING, VARIANTS };
    Init();
    const Bytes unit = MakeUnit({VIDEO, NO_GAP, 0, 1388, 1});
    for (int variant = QUIET; variant < VARIANTS; ++variant) {
        SCOPED_TRACE(variant);
        ASSERT_EQ(RTSPServer_Start(), 0);
        std::list<CPlayer> players;
        for (int i = 0; i < 19; ++i) {
            players.emplace_back(m_port, MODES[i % 3]);
        }
        std::atomic<bool> ended{false};
        std::thread pusher([&] {
            while (variant == PUSHING && !ended) {
                Push(unit);
            }
        });
        Push(unit);
        EXPECT_TRUE(players.front().Gets(unit));
        CTestClient late(m_port);
        late.Describe();
        late.Setup(0, "RTP/AVP/TCP;unicast;client_port=6000-6001");
        if (variant == CLIENT_GONE) {
            players.front().video.Reset();
            Push(MakeRun({}, 3));
            Push(MakeRun({}, 3));
        }
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(RTSPServer_Stop(), 0);
        const auto took = std::chrono::steady_clock::now() - start;
        EXPECT_FALSE(m_log.Has("Recvn ,nRecvlen") || m_log.Has("select failed"));
        ended = true;
        pusher.join();
        EXPECT_EQ(m_log.Count("process_msg_svc exit\n"), 20 * (variant + 1));
        EXPECT_TRUE(late.Socket().AtEnd() && players.back().client.Socket().AtEnd());
        EXPECT_EQ(CRtspSessionManager::Instance()->GetCurrSessionNums(), 0U);
        EXPECT_TRUE(!IsPlainBuild() || took < std::chrono::milliseconds(200));
    }
}

}  // namespace
