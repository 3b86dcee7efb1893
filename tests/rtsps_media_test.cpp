// SPDX-License-Identifier: MIT
// The host's pushes, and the data that clients receive over every transport.

#include <algorithm>
#include <atomic>

#include "rtsps_server.h"
#include "support/test_net.h"

namespace {

constexpr uint8_t VIDEO = 96;
constexpr uint16_t NO_GAP = 65535;  // no number after it counts as a sequence gap

using CMediaTest = CLoggedServerTest;

TEST_F(CMediaTest, OnlyPlayersOfTheStreamReceiveIt) {
    StartServer();
    const Bytes unit = MakeUnit({});
    CPlayer ready(m_port, CPlayer::INTERLEAVED, CPlayer::SET_UP);
    CTestClient sub(m_port);
    CPlayer main(m_port, CPlayer::UDP);
    sub.m_stream = "sub";
    ASSERT_TRUE(sub.PlayInterleaved());
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

    const uint32_t freePorts = CRtspServer::Instance()->FreeDataPorts();
    EXPECT_TRUE(Ok(main.Ask("TEARDOWN", main.Url())));
    // The reply comes first; then the session drops its pushes and gives its ports back.
    EXPECT_TRUE(WaitUntil([&] { return CRtspServer::Instance()->FreeDataPorts() > freePorts; }));
    Push(unit);
    EXPECT_EQ(ready.Socket().ReceiveExactly(unit.size()), FrameOf(unit, VIDEO_SSRC, 0));
    EXPECT_TRUE(main.GetsNothing());
    EXPECT_FALSE(m_log.Has("[RTSPS ERROR]"));
}

// A new declaration of a stream does not affect its earlier clients.
TEST_F(CMediaTest, ANewDeclarationReachesLaterClients) {
    StartServer();
    CTestClient earlier(m_port);
    EXPECT_TRUE(earlier.PlayInterleaved(false));
    TRtspServerStreamInfo info = MakeStreamInfo();
    info.byVideoPayload = 101;
    info.dwVideoSSrc = 0xABCDEF01;
    EXPECT_EQ(RTSPServer_SetStreamInfo(1, RTSPS_STREAM_MAIN, &info), 0);
    CTestClient later(m_port);
    EXPECT_TRUE(later.PlayInterleaved(false));
    const Bytes before = MakeUnit({VIDEO});
    const Bytes after = MakeUnit({101});
    Push(before);
    Push(after);
    EXPECT_EQ(earlier.Socket().ReceiveExactly(before.size()), FrameOf(before, VIDEO_SSRC, 0));
    EXPECT_EQ(later.Socket().ReceiveExactly(after.size()), FrameOf(after, 0xABCDEF01, 0));
    EXPECT_EQ(earlier.Socket().Receive(1, 0) + later.Socket().Receive(1, 0), "");
    EXPECT_EQ(m_log.Count("unkown payload type"), 2) << "each client has one of the types";
}

// An interleaved client that does not read while the host pushes, until a part of a frame waits in
// the server.
class CLaggingClientTest : public CMediaTest {
  protected:
    CPlayer Lag() {
        StartServer();
        CPlayer client(m_port, CPlayer::INTERLEAVED, CPlayer::PLAYING, 4096);
        const Bytes unit = MakeUnit({VIDEO, NO_GAP, 0, 60000, 1});
        while (!m_log.Has(" SendPacket remain bufsize=") && pushed.size() < 24000000) {
            Push(unit);
            pushed += FrameOf(unit, VIDEO_SSRC, 0);
        }
        return client;
    }
    std::string pushed;
};

TEST_F(CLaggingClientTest, TeardownIsAnsweredAfterTheMediaThatWaited) {
    CPlayer client = Lag();
    const std::string log = m_log.Text();
    const size_t waiting = std::stoul(log.substr(log.find(" remain bufsize=") + 16));
    std::string received = client.Socket().ReceiveExactly(pushed.size() - waiting);
    client.Socket().Send("TEARDOWN " + client.Url() + " RTSP/1.0\r\nCSeq: 9\r\n\r\n");
    received += client.Socket().ReceiveExactly(waiting + 17);
    EXPECT_TRUE(received == pushed + "RTSP/1.0 200 OK\r\n");
}

// Kept: the transport closes right after the reply, and all waiting data is lost.
TEST_F(CLaggingClientTest, TeardownWithoutReadingLosesItsReply) {
    CPlayer client = Lag();
    client.Socket().Send("TEARDOWN " + client.Url() + " RTSP/1.0\r\nCSeq: 9\r\n\r\n");
    ASSERT_TRUE(WaitUntil([&] { return m_log.Count(" remain bufsize=") == 2; }))
        << "the reply waits";
    const std::string received = client.Socket().ReceiveExactly(pushed.size(), 200);
    EXPECT_TRUE(received == pushed.substr(0, received.size()));
    EXPECT_LT(received.size(), pushed.size());
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

// One client of every transport, and one that has never made its media connection.
TEST_F(CMediaTest, StopIsPromptAndQuietDuringPushes) {
    StartServer();
    const Bytes unit = MakeUnit({VIDEO, NO_GAP, 0, 1388, 1});
    CPlayer players[] = {
        {m_port, CPlayer::UDP}, {m_port, CPlayer::TCP}, {m_port, CPlayer::INTERLEAVED}};
    CTestClient late(m_port);
    late.Describe();
    late.Setup(0, "RTP/AVP/TCP;unicast;client_port=6000-6001");
    std::atomic<bool> ended{false};
    std::thread pusher([&] {
        while (!ended) {
            Push(unit);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    for (CPlayer& player : players) {
        EXPECT_TRUE(player.Gets({unit}));
    }
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(RTSPServer_Stop(), 0);
    const auto took = std::chrono::steady_clock::now() - start;
    ended = true;
    pusher.join();
    EXPECT_FALSE(m_log.Has("Recvn ,nRecvlen") || m_log.Has("select failed"));
    EXPECT_TRUE(late.Socket().AtEnd());
    // A wait that Stop does not end lasts 3 s for a request, and 5 s for a media connection.
    EXPECT_TRUE(!IsPlainBuild() || took < std::chrono::seconds(2));
}

}  // namespace
