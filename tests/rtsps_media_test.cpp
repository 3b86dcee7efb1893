// SPDX-License-Identifier: MIT
// The host's pushes, and the data that clients receive over every transport.

#include <algorithm>
#include <atomic>
#include <list>

#include "rtsps_session_mgr.h"
#include "support/test_net.h"

namespace {

constexpr uint8_t VIDEO = 96;
constexpr uint8_t AUDIO = 8;
constexpr uint16_t NO_GAP = 65535;  // no number after it counts as a sequence gap

using CMediaTest = CLoggedServerTest;

// Pushes from buffers at all eight offsets to an aligned address. The sanitizer for undefined
// behaviour reports an access that requires alignment.
TEST_F(CMediaTest, MixedTransportsReceiveEveryByteOfOneStream) {
    StartServer();
    std::list<CPlayer> players;
    for (int i = 0; i < 6; ++i) {
        players.emplace_back(m_port, i % CPlayer::TRANSPORTS);
    }
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
    for (size_t offset = 0; offset < 8; ++offset) {
        for (const auto& [payloadType, payloads] : pushes) {
            std::vector<Bytes> units;
            for (const size_t payload : payloads) {
                sequence = static_cast<uint16_t>(sequence + ((payloadType & 0x7F) == VIDEO));
                units.push_back(MakeUnit({payloadType, sequence, sequence * 3600U, payload,
                                          static_cast<uint8_t>(units.size() + 1)}));
            }
            Push(Join(units), 1, RTSPS_STREAM_MAIN, offset);
            for (CPlayer& player : players) {
                ASSERT_TRUE(player.Gets(units)) << units.size() << " units, offset " << offset;
            }
        }
    }
    for (CPlayer& player : players) {
        EXPECT_TRUE(player.GetsNothing());
    }
    EXPECT_FALSE(m_log.Has("[RTSPS ERROR]"));
}

TEST_F(CMediaTest, OnlyPlayersOfTheStreamReceiveIt) {
    StartServer();
    const Bytes unit = MakeUnit({});
    CTestClient ready(m_port);
    CTestClient sub(m_port);
    CPlayer main(m_port, CPlayer::UDP);
    sub.m_stream = "sub";
    ASSERT_TRUE(sub.PlayInterleaved());
    ready.Describe();
    ready.Setup(0, "RTP/AVP/TCP;unicast;interleaved=0-1");
    const std::pair<int, int> elsewhere[] = {{2, 0}, {0, 0}, {1, 2}, {1, -1}, {-1, 0}};
    for (const auto& [chan, stream] : elsewhere) {
        Push(unit, chan, stream);
    }
    Push(unit, 1, 1);
    EXPECT_EQ(sub.Socket().ReceiveExactly(unit.size()), FrameOf(unit, VIDEO_SSRC, 0));
    EXPECT_TRUE(main.GetsNothing());
    Push(unit);
    EXPECT_TRUE(main.Gets({unit}));
    EXPECT_TRUE(Ok(ready.Play())) << "no frame comes before the reply";
    EXPECT_EQ(sub.Socket().Receive(1, 0), "");

    const int descriptors = CountDescriptors();
    EXPECT_TRUE(Ok(main.Ask("TEARDOWN", main.Url())));
    ASSERT_TRUE(WaitUntil([&] { return CountDescriptors() == descriptors - 4; }));
    Push(unit);
    EXPECT_EQ(ready.Socket().ReceiveExactly(unit.size()), FrameOf(unit, VIDEO_SSRC, 0));
    EXPECT_FALSE(m_log.Has("[RTSPS ERROR]"));
    EXPECT_TRUE(main.GetsNothing());
}

// A new declaration of a stream does not affect its earlier clients.
TEST_F(CMediaTest, ANewDeclarationReachesLaterClients) {
    StartServer();
    CTestClient earlier(m_port);
    EXPECT_TRUE(earlier.PlayInterleaved(false));
    TRtspServerStreamInfo info = MakeStreamInfo();
    info.byVideoPayload = 101;
    info.dwVideoSSrc = 0xABCDEF01;
    info.dwVideoFormat = RTSPS_VIDEO_STREAM_TYPE_H265;
    EXPECT_EQ(RTSPServer_SetStreamInfo(1, RTSPS_STREAM_MAIN, &info), 0);
    CTestClient later(m_port);
    EXPECT_NE(later.Describe().find("a=rtpmap:101 H265/90000"), std::string::npos);
    EXPECT_NE(later.Setup(0, "RTP/AVP/TCP;unicast;interleaved=0-1").find("ssrc=abcdef01"),
              std::string::npos);
    EXPECT_TRUE(Ok(later.Play()));
    const Bytes before = MakeUnit({VIDEO});
    const Bytes after = MakeUnit({101});
    Push(before);
    Push(after);
    EXPECT_EQ(earlier.Socket().ReceiveExactly(before.size()), FrameOf(before, VIDEO_SSRC, 0));
    EXPECT_EQ(later.Socket().ReceiveExactly(after.size()), FrameOf(after, 0xABCDEF01, 0));
    EXPECT_EQ(earlier.Socket().Receive(1, 0) + later.Socket().Receive(1, 0), "");
    EXPECT_EQ(m_log.Count("unkown payload type"), 2) << "each client has one of the types";
}

// The longest unit is 65539 bytes with its prefix. The length field cannot announce more.
TEST_F(CMediaTest, TheLongestUnitArrivesWhole) {
    StartServer();
    CPlayer player(m_port, CPlayer::INTERLEAVED);
    const Bytes unit = MakeUnit({VIDEO, 1, 0, 65535 - 12, 1});
    ASSERT_EQ(unit.size(), 65539U);
    Push(unit);
    EXPECT_TRUE(player.Gets({unit}));
}

// An interleaved client that does not read while the host pushes, until frames wait in the server.
struct CLaggingClient : CPlayer {
    CLaggingClient(uint16_t port, const CLogCapture& log)
        : CPlayer(port, INTERLEAVED, PLAYING, 4096) {
        Bytes unit = MakeUnit({VIDEO, NO_GAP, 0, 60000, 1});
        for (int i = 0; i < 400 && !log.Has(" remain bufsize="); ++i) {
            pushed += FrameOf(unit, MakeStreamInfo().dwVideoSSrc, 0);
            RTSPServer_SendRealSteam(1, 0, unit.data(), static_cast<int>(unit.size()));
        }
    }
    // Reads all data that arrives before the first pause.
    std::string ReadAll() {
        std::string received;
        for (std::string more = "x"; !more.empty(); received += more) {
            more = Socket().Receive(1 << 20, 200);
        }
        return received;
    }
    std::string pushed;
};

TEST_F(CMediaTest, TeardownIsAnsweredAfterTheMediaThatWaited) {
    StartServer();
    CLaggingClient client(m_port, m_log);
    const std::string received = client.ReadAll();
    client.Socket().Send("TEARDOWN " + client.Url() + " RTSP/1.0\r\nCSeq: 9\r\n\r\n");
    const std::string rest = client.ReadAll();
    const size_t waited = client.pushed.size() - received.size();
    EXPECT_TRUE(waited > 0 && received + rest.substr(0, waited) == client.pushed);
    EXPECT_EQ(rest.substr(waited, 17), "RTSP/1.0 200 OK\r\n");
}

// Kept: the transport closes right after the reply, and all waiting data is lost.
TEST_F(CMediaTest, TeardownOfAClientThatDoesNotReadLosesItsReply) {
    StartServer();
    CLaggingClient client(m_port, m_log);
    client.Socket().Send("TEARDOWN " + client.Url() + " RTSP/1.0\r\nCSeq: 9\r\n\r\n");
    ASSERT_TRUE(WaitUntil([&] { return m_log.Count(" remain bufsize=") == 2; }))
        << "the reply waits";
    const std::string received = client.ReadAll();
    EXPECT_TRUE(received == client.pushed.substr(0, received.size()));
    EXPECT_LT(received.size(), client.pushed.size());
    EXPECT_FALSE(client.Socket().AtEnd(0)) << "the client closes";
}

TEST_F(CMediaTest, OddPushesAreReportedAndChangeNothing) {
    StartServer();
    CPlayer player(m_port, CPlayer::INTERLEAVED);
    const Bytes good = MakeUnit({});
    Bytes run = MakeRun({}, 3);
    run.resize(run.size() - 1);
    const std::string whom = ",chan=1, stream=0,client=127.0.0.1";
    const struct {
        const char* why;
        Bytes bytes;
        int length;
        std::string line;
        size_t received = 0;
    } rows[] = {
        {"no buffer", {}, 100, "datalen[100] is invalid"},
        {"a negative length", good, -1, "datalen[-1] is invalid"},
        {"a prefix alone", good, 4, "datalen[4] is invalid"},
        {"no payload type", good, 5, "unkown payload type"},
        {"another payload type", MakeUnit({97}), 116, "unkown payload type"},
        {"a cut unit", good, 115, "send failed,nLen=115,nSendLen=0" + whom},
        {"a cut run", run, 347, "send failed,nLen=347,nSendLen=232" + whom, 232},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const CLogCapture log;
        // Exactly as long as the push, so that the sanitizer finds a read beyond it.
        Bytes copy(row.bytes.begin(),
                   row.bytes.begin() + (row.bytes.empty() ? 0 : std::max(row.length, 0)));
        EXPECT_EQ(RTSPServer_SendRealSteam(1, 0, copy.data(), row.length), 0);
        EXPECT_TRUE(log.HasLines("E " + row.line));
        EXPECT_EQ(player.Socket().ReceiveExactly(row.received).size(), row.received);
        Push(good);
        EXPECT_TRUE(player.Gets({good})) << "it plays on";
    }
}

// Twenty clients of every transport. One of them has never made its TCP connection.
TEST_F(CMediaTest, StopIsPromptQuietAndLeavesThePortFree) {
    enum EVariant { QUIET, CLIENT_GONE, PUSHING, VARIANTS };
    Init();
    const Bytes unit = MakeUnit({VIDEO, NO_GAP, 0, 1388, 1});
    for (int variant = QUIET; variant < VARIANTS; ++variant) {
        SCOPED_TRACE(variant);
        ASSERT_EQ(RTSPServer_Start(), 0);
        std::list<CPlayer> players;
        for (int i = 0; i < 19; ++i) {
            players.emplace_back(m_port, i % CPlayer::TRANSPORTS);
        }
        std::atomic<bool> ended{false};
        std::thread pusher([&] {
            while (variant == PUSHING && !ended) {
                Push(unit);
            }
        });
        Push(unit);
        EXPECT_TRUE(players.front().Gets({unit}));
        CTestClient late(m_port);
        late.Describe();
        late.Setup(0, "RTP/AVP/TCP;unicast;client_port=6000-6001");
        if (variant == CLIENT_GONE) {
            players.front().media[0].Reset();
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
        EXPECT_TRUE(late.Socket().AtEnd() && players.back().Socket().AtEnd());
        EXPECT_EQ(CRtspSessionManager::Instance()->GetCurrSessionNums(), 0U);
        EXPECT_TRUE(!IsPlainBuild() || took < std::chrono::milliseconds(200));
    }
}

}  // namespace
