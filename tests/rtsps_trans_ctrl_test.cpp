// SPDX-License-Identifier: MIT
#include "rtsps_trans_ctrl.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "rtsps_server.h"
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
    int SendStream(Bytes data, ETransStreamId id = TRANS_STREAM_VIDEO) {
        return m_ctrl.SendStream(data.data(), static_cast<int>(data.size()), id, 0);
    }

    std::vector<uint16_t> m_ports;  // all of the pool
    CSocketPair m_connection;
    CLogCapture m_log;
    CTransCtrl m_ctrl{nullptr};
};

TEST_F(CTransCtrlTest, OpenFailures) {
    EXPECT_EQ(m_ctrl.Open(nullptr, static_cast<ETransStreamId>(3)), -1);
    EXPECT_TRUE(m_log.HasLines("E Setup failed,unkown streamid[3];"));
    TRANS_INFO info = MakeTransInfo(UDP_MODE, m_ports[0], 9, m_connection.server.Fd());
    info.serverAddr = MakeAddr("192.0.2.77", m_ports[0]);  // no address of this machine
    EXPECT_EQ(Open(info), -1);
    EXPECT_EQ(Open(info, TRANS_STREAM_AUDIO), -1);
    EXPECT_TRUE(m_log.HasLines("E Open m_pVideoSession error!;|E Open m_pAudioSession error!;"));
    std::string refusal = "the refusal";
    EXPECT_EQ(m_ctrl.SendMsg(refusal.data(), 11, 0), 11);  // is still sent
    EXPECT_EQ(m_connection.ReadAll(), "the refusal");
    EXPECT_EQ(SendStream(MakeUnit({})), 0);
    EXPECT_EQ(SendStream(MakeUnit({}), static_cast<ETransStreamId>(3)), 0);
}

TEST_F(CTransCtrlTest, EveryCloseGivesThePortsBack) {
    EXPECT_THAT(BorrowAll(), IsEmpty());
    ASSERT_EQ(Open(MakeTransInfo(UDP_MODE, m_ports[0])), 0);
    ASSERT_EQ(Open(MakeTransInfo(TCP_MODE, m_ports[1]), TRANS_STREAM_AUDIO), 0);
    for (int i = 0; i < 2; ++i) {  // kept: the second time too
        EXPECT_EQ(m_ctrl.Close(), 0);
        EXPECT_THAT(BorrowAll(), ElementsAre(m_ports[0], m_ports[1]));
    }
}

TEST_F(CTransCtrlTest, RepeatedSetupsAreOwnedAndBounded) {
    const CTestSocket last = CTestSocket::BindUdp();
    const int descriptors = CountDescriptors();
    const Bytes unit = MakeUnit({});
    for (const ETransStreamId id : {TRANS_STREAM_VIDEO, TRANS_STREAM_AUDIO}) {
        for (size_t i = 0; i < 17; ++i) {
            ASSERT_EQ(Open(MakeTransInfo(UDP_MODE, m_ports[i], last.Port()), id), 0) << i;
        }
        EXPECT_EQ(CountDescriptors(), descriptors + 17 * 2);  // all are still open
        EXPECT_EQ(Open(MakeTransInfo(UDP_MODE, m_ports[17], 9), id), -1);
        EXPECT_EQ(SendStream(unit, id), static_cast<int>(unit.size()));
        EXPECT_EQ(last.Receive(), PacketOf(unit, SSRC));
        EXPECT_EQ(last.Receive(100, 0), "");  // not from the replaced ones
        EXPECT_EQ(m_ctrl.Close(), 0);
        EXPECT_EQ(CountDescriptors(), descriptors);
        EXPECT_THAT(BorrowAll(), IsSupersetOf(m_ports.data(), m_ports.data() + 17));
    }
    EXPECT_TRUE(m_log.HasLines("E new m_pVideoSession error!;|E new m_pAudioSession error!;"));
}

}  // namespace
