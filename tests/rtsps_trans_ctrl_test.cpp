// SPDX-License-Identifier: MIT
#include "rtsps_trans_ctrl.h"

#include <gmock/gmock.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "rtsps_server.h"
#include "support/fake_clock.h"
#include "support/log_capture.h"
#include "support/trans_info.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

constexpr uint32_t SSRC = 0x11223344;

std::vector<uint16_t> BorrowAll() {
    std::vector<uint16_t> ports;
    while (const int port = CRtspServer::Instance()->BorrowDataPort()) {
        ports.push_back(static_cast<uint16_t>(port));
    }
    return ports;
}

class CTransCtrlTest : public CServerTest {
  protected:
    void SetUp() override {
        CServerTest::SetUp();
        StartServer();
        m_ports = BorrowAll();
    }
    void TearDown() override {
        m_ctrl.Close();
        CServerTest::TearDown();
    }
    int Open(const TRANS_INFO& info, ETransStreamId id = TRANS_STREAM_VIDEO) {
        EXPECT_EQ(id == TRANS_STREAM_VIDEO ? m_ctrl.SetVideoTransInfo(&info)
                                           : m_ctrl.SetAudioTransInfo(&info),
                  0);
        return m_ctrl.Open(nullptr, id);
    }
    int OpenInterleaved() {
        return Open(MakeTransInfo(RTPOVERRTSP_MODE, 0, 0, m_connection.server.Fd()));
    }
    int SendStream(Bytes data, ETransStreamId id = TRANS_STREAM_VIDEO) {
        return m_ctrl.SendStream(data.data(), static_cast<int>(data.size()), id, 0);
    }
    int SendMsg(std::string text) {
        return m_ctrl.SendMsg(text.data(), static_cast<int>(text.size()), 0);
    }

    std::vector<uint16_t> m_ports;  // all of the pool
    CSocketPair m_connection;
    CLogCapture m_log;
    CTransCtrl m_ctrl{nullptr};
};

Bytes Joined(const std::vector<Bytes>& units) {
    Bytes run;
    for (const Bytes& unit : units) {
        run.insert(run.end(), unit.begin(), unit.end());
    }
    return run;
}

TEST_F(CTransCtrlTest, SeparateTcpLeavesTheLengthsForTheNextClient) {
    ASSERT_EQ(Open(MakeTransInfo(TCP_MODE, m_ports[0])), 0);
    const CTestSocket tcp = CTestSocket::ConnectTcp(m_ports[0]);
    ASSERT_TRUE(WaitUntil([&] { return CountThreads() == m_threadsBefore + 1; }));  // accepted
    Bytes run = MakeRun({96, 1, 0, 300, 1}, 50);
    Bytes stamped;
    std::string expected;
    for (uint16_t i = 0; i < 50; ++i) {
        const Bytes unit =
            MakeUnit({96, static_cast<uint16_t>(1 + i), 0, 300, static_cast<uint8_t>(1 + i)});
        const std::string packet = PacketOf(unit, SSRC);
        stamped.insert(stamped.end(), {'$', 0, unit[2], unit[3]});
        stamped.insert(stamped.end(), packet.begin(), packet.end());
        expected += std::string("$\0\0\0", 4) + packet;
    }
    const auto length = static_cast<int>(run.size());
    EXPECT_EQ(m_ctrl.SendStream(run.data(), length, TRANS_STREAM_VIDEO, 0), length);
    EXPECT_EQ(run, stamped);
    EXPECT_TRUE(tcp.ReceiveExactly(expected.size()) == expected);
}

// However many units leave at once, a report stands right behind the one that it was due at.
TEST_F(CTransCtrlTest, RunsOverUdpKeepTheReportsInTime) {
    const CTestSocket media = BindUdpAt(m_ports[8]);
    const CTestSocket reports = BindUdpAt(static_cast<uint16_t>(m_ports[8] + 1));
    CFakeClock clock(5000);
    ASSERT_EQ(Open(MakeTransInfo(UDP_MODE, m_ports[0], m_ports[8])), 0);
    const Bytes run = MakeRun({8, 1, 0, 50, 1}, 10);
    const struct {
        int64_t second;
        char count;  // packets that the report counts, 0 for no report
    } rows[] = {{5000, 0}, {5004, 0}, {5005, 21}, {5009, 0}, {5010, 41}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.second);
        clock.Set(row.second);
        EXPECT_EQ(SendStream(run), static_cast<int>(run.size()));
        const std::string report = reports.Receive(100, row.count != 0 ? 5000 : 0);
        ASSERT_EQ(report.size(), row.count != 0 ? 24U : 0U);
        EXPECT_TRUE(row.count == 0 || report[19] == row.count);
        EXPECT_EQ(reports.Receive(100, 0), "");
    }
}

TEST_F(CTransCtrlTest, WalkStopsWhereTheHostCutTheRun) {
    ASSERT_EQ(OpenInterleaved(), 0);
    const Bytes two = MakeRun({96, 1, 0, 30, 1}, 2);
    const struct {
        const char* name;
        Bytes tail;
        int more;  // bytes taken of the tail
    } rows[] = {
        {"whole", {}, 0},
        {"one byte", {'$'}, 0},
        {"three bytes", {'$', 0, 0}, 0},
        {"one byte missing", {'$', 0, 0, 3, 0x80, 96}, 0},
        {"longest length", {'$', 0, 0xFF, 0xFF, 0x80, 96}, 0},
        {"empty unit", {'$', 0, 0, 0}, 4},
        {"unit of a byte, cut", {'$', 0, 0, 1, 0x80, '$', 0}, 5},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto taken = static_cast<size_t>(row.more);
        Bytes alone(row.tail);
        alone.shrink_to_fit();
        EXPECT_EQ(SendStream(alone), row.more);
        EXPECT_EQ(m_connection.Queued(), taken);
        EXPECT_EQ(SendStream(Joined({two, row.tail})), static_cast<int>(two.size() + taken));
        EXPECT_EQ(m_connection.ReadAll().size(), two.size() + 2 * taken);
    }
    EXPECT_EQ(SendStream(two, TRANS_STREAM_AUDIO), 0);  // not set up
    EXPECT_EQ(SendStream(two, static_cast<ETransStreamId>(3)), 0);
    EXPECT_EQ(m_connection.ReadAll(), "");
}

TEST_F(CTransCtrlTest, WalkStopsAtTheUnitThatIsNotTaken) {
    m_connection = CSocketPair(16384);
    ASSERT_EQ(OpenInterleaved(), 0);
    const Bytes run = MakeRun({96, 1, 0, 60000, 1}, 5);
    // The first in part, its rest and the second in the pending buffer, no room for the third.
    EXPECT_EQ(SendStream(run), 2 * 60016);
    EXPECT_EQ(SendStream(run), 0);
    EXPECT_EQ(m_log.Count(" rtp seq error, cur[1],except[4]"), 1);
}

TEST_F(CTransCtrlTest, OpenFailures) {
    for (const int id : {0, 3}) {
        EXPECT_EQ(m_ctrl.Open(nullptr, static_cast<ETransStreamId>(id)), -1);
        EXPECT_TRUE(m_log.HasLines("E Setup failed,unkown streamid[" + std::to_string(id) + "];"));
    }
    TRANS_INFO info = MakeTransInfo(UDP_MODE, m_ports[0], 9, m_connection.server.Fd());
    info.serverAddr = MakeAddr("192.0.2.77", m_ports[0]);  // no address of this machine
    EXPECT_EQ(Open(info), -1);
    EXPECT_TRUE(m_log.HasLines("E Open m_pVideoSession error!;"));
    EXPECT_EQ(Open(info, TRANS_STREAM_AUDIO), -1);
    EXPECT_TRUE(m_log.HasLines("E Open m_pAudioSession error!;"));
    EXPECT_EQ(SendMsg("the refusal"), 11);  // leaves all the same
    EXPECT_EQ(m_connection.ReadAll(), "the refusal");
    EXPECT_EQ(SendStream(MakeUnit({})), 0);
}

TEST_F(CTransCtrlTest, EveryCloseGivesThePortsBack) {
    EXPECT_THAT(BorrowAll(), IsEmpty());
    ASSERT_EQ(Open(MakeTransInfo(UDP_MODE, m_ports[0])), 0);
    ASSERT_EQ(Open(MakeTransInfo(TCP_MODE, m_ports[1]), TRANS_STREAM_AUDIO), 0);
    EXPECT_EQ(m_ctrl.Close(), 0);
    EXPECT_THAT(BorrowAll(), ElementsAre(m_ports[0], m_ports[1]));
    EXPECT_EQ(m_ctrl.Close(), 0);
    EXPECT_THAT(BorrowAll(), ElementsAre(m_ports[0], m_ports[1]));  // kept
    ASSERT_EQ(OpenInterleaved(), 0);
    const TRANS_INFO none{};
    m_ctrl.SetAudioTransInfo(&none);
    EXPECT_EQ(m_ctrl.Close(), 0);
    EXPECT_THAT(BorrowAll(), IsEmpty());
    EXPECT_TRUE(m_connection.server.Send("still open"));
}

TEST_F(CTransCtrlTest, RepeatedSetupsAreOwnedAndBounded) {
    for (const ETransStreamId id : {TRANS_STREAM_VIDEO, TRANS_STREAM_AUDIO}) {
        SCOPED_TRACE(id);
        const char* name = id == TRANS_STREAM_VIDEO ? "Video" : "Audio";
        const int descriptors = CountDescriptors();
        const CTestSocket last = CTestSocket::BindUdp();
        for (size_t i = 0; i < 17; ++i) {
            ASSERT_EQ(Open(MakeTransInfo(UDP_MODE, m_ports[i], last.Port()), id), 0) << i;
        }
        EXPECT_EQ(CountDescriptors(), descriptors + 1 + 17 * 2);  // all are still open
        EXPECT_EQ(Open(MakeTransInfo(UDP_MODE, m_ports[17], 9), id), -1);
        EXPECT_TRUE(m_log.HasLines(std::string("E new m_p") + name + "Session error!;"));
        const Bytes unit = MakeUnit({});
        EXPECT_EQ(SendStream(unit, id), static_cast<int>(unit.size()));
        EXPECT_EQ(last.Receive(), PacketOf(unit, SSRC));
        EXPECT_EQ(last.Receive(100, 0), "");  // not from the replaced ones
        EXPECT_EQ(m_ctrl.Close(), 0);
        EXPECT_EQ(CountDescriptors(), descriptors + 1);
        EXPECT_THAT(BorrowAll(),
                    IsSupersetOf(std::vector<uint16_t>(m_ports.begin(), m_ports.begin() + 17)));
    }
}

TEST_F(CTransCtrlTest, RepliesTakeTheRoadOfTheVideoStream) {
    const std::string reply = "RTSP/1.0 200 OK\r\n\r\n";
    const auto length = static_cast<int>(reply.size());
    EXPECT_EQ(SendMsg(reply), -1);
    EXPECT_TRUE(m_log.HasLines("E m_pVideoSession is NULL"));
    const int fd = m_connection.server.Fd();
    ASSERT_EQ(Open(MakeTransInfo(RTPOVERRTSP_MODE, 0, 0, fd), TRANS_STREAM_AUDIO), 0);
    EXPECT_EQ(SendMsg(reply), -1);  // audio alone has no road
    for (const ETRANS_MODE mode : {UDP_MODE, TCP_MODE, RTPOVERRTSP_MODE}) {
        ASSERT_EQ(Open(MakeTransInfo(mode, mode == RTPOVERRTSP_MODE ? 0 : m_ports[0], 9, fd)), 0);
        EXPECT_EQ(SendMsg(reply), length);
        EXPECT_EQ(m_connection.ReadAll(), reply);
        m_ctrl.Close();
        EXPECT_EQ(SendMsg(reply), -1);
    }
}

}  // namespace
