// SPDX-License-Identifier: MIT
#include "udp_transmitter.h"

#include <gtest/gtest.h>

#include <string>

#include "support/log_capture.h"
#include "support/trans_info.h"

namespace {

// A transmitter that is connected to a socket of the test.
class CUdpTransmitterTest : public ::testing::Test {
  protected:
    void SetUp() override {
        m_info.clientAddr = MakeAddr("127.0.0.1", m_peer.Port());
        ASSERT_EQ(m_transmitter.open(&m_info), 0);
    }
    CLogCapture m_dump{2};  // the addresses in hexadecimal
    CTestSocket m_peer = CTestSocket::BindUdp();
    TRANS_INFO m_info = MakeTransInfo(UDP_MODE);
    CUdpTransmitter m_transmitter{UDP_MODE};
};

TEST_F(CUdpTransmitterTest, DropsWhatIsNoDatagram) {
    EXPECT_EQ(Send(m_transmitter, "abc"), 0) << "shorter than a prefix";
    EXPECT_EQ(Send(m_transmitter, std::string(4 + 65508, 'x')), 0) << "longer than a datagram";
    EXPECT_EQ(m_transmitter.get_status(), STAUTS_OK);
    EXPECT_EQ(Send(m_transmitter, std::string(4 + 65507, 'x')), 4 + 65507);
    EXPECT_EQ(m_peer.Receive().size(), 65507U);
}

// Once a client has refused, a single packet goes ahead of every burst.
TEST_F(CUdpTransmitterTest, BurstsResumeAfterARefusal) {
    if (m_transmitter.burst_kind() == CRtpBurst::NONE) {
        GTEST_SKIP() << "this kernel does not segment UDP";
    }
    Bytes run = MakeRun({96, 1, 0, 100, 1}, 2);
    const CRtpBurst burst(run.data(), 232, CRtpBurst::DATAGRAMS,
                          {m_info.dwRtpSSRC, CUnitStamp::LEFT_ALONE, 0}, 0);
    const uint16_t port = m_peer.Port();
    m_peer.Reset();
    EXPECT_EQ(m_transmitter.SendBurst(burst).nBytes, 116) << "one unit, before the refusal";
    m_peer = CTestSocket::BindUdp(port);
    EXPECT_EQ(Send(m_transmitter, "$abclate"), 0) << "reports the refusal of the burst";
    EXPECT_EQ(m_transmitter.burst_kind(), CRtpBurst::NONE);
    EXPECT_EQ(Send(m_transmitter, "$abcalone"), 9);
    EXPECT_EQ(m_transmitter.burst_kind(), CRtpBurst::DATAGRAMS);
    EXPECT_EQ(m_transmitter.SendBurst(burst).nBytes, 232);
    EXPECT_EQ(m_transmitter.burst_kind(), CRtpBurst::NONE) << "the next one needs its own";
}

TEST_F(CUdpTransmitterTest, AsksForALargeSendBuffer) {
    const CTestSocket model = CTestSocket::BindUdp();
    int allowed = 0;  // the system may limit the size
    int actual = 0;
    CBB_SetBuffSize(model.Fd(), DATA_SEND_BUFFER_SIZE, 0);
    CBB_GetBuffSize(model.Fd(), &allowed, nullptr);
    CBB_GetBuffSize(m_transmitter.GetHandle(), &actual, nullptr);
    EXPECT_EQ(actual, allowed);
    EXPECT_EQ(m_transmitter.Close(), 0);
}

}  // namespace
