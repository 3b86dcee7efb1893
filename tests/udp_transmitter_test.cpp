// SPDX-License-Identifier: MIT
#include "udp_transmitter.h"

#include <gtest/gtest.h>
#include <netinet/udp.h>

#include <string>

#include "support/log_capture.h"
#include "support/trans_info.h"

#ifndef UDP_SEGMENT
#define UDP_SEGMENT 103
#endif

namespace {

// A transmitter that is connected to a socket of the test.
class CUdpTransmitterTest : public ::testing::Test {
  protected:
    void SetUp() override {
        m_info.clientAddr = MakeAddr("127.0.0.1", m_peer.Port());
        ASSERT_EQ(m_transmitter.open(&m_info), 0);
    }
    // Sends a run of two units as one burst; returns the bytes taken.
    int SendBurst() {
        Bytes run = MakeRun({96, 1, 0, 100, 1}, 2);
        const CRtpBurst burst(run.data(), static_cast<int>(run.size()), CRtpBurst::DATAGRAMS,
                              {m_info.dwRtpSSRC, CUnitStamp::LEFT_ALONE, 0}, 0);
        return m_transmitter.SendBurst(burst).nBytes;
    }
    static constexpr int UNIT = 116;
    CLogCapture m_dump{2};  // the addresses in hexadecimal
    CTestSocket m_peer = CTestSocket::BindUdp();
    TRANS_INFO m_info = MakeTransInfo(UDP_MODE);
    CUdpTransmitter m_transmitter{UDP_MODE};
};

TEST_F(CUdpTransmitterTest, SendsToIpv6) {
    const CBB_ADDR_T any = MakeAddr("::1", 0);
    const CTestSocket peer(CBB_CreateSocket(AF_INET6, SOCK_DGRAM, 0));
    if (CBB_Bind(peer.Fd(), &any) != 0) {
        GTEST_SKIP() << "a machine without IPv6";
    }
    m_info.serverAddr = any;
    CBB_GetAddrBySockFd(peer.Fd(), &m_info.clientAddr, nullptr);
    CUdpTransmitter transmitter(UDP_MODE);
    ASSERT_EQ(transmitter.open(&m_info), 0);
    EXPECT_EQ(Send(transmitter, "$abcpacket"), 10);
    EXPECT_EQ(peer.Receive(), "packet");
}

TEST_F(CUdpTransmitterTest, DropsWhatIsNoDatagram) {
    EXPECT_EQ(Send(m_transmitter, "abc"), 0) << "shorter than a prefix";
    EXPECT_EQ(Send(m_transmitter, std::string(4 + 65508, 'x')), 0) << "longer than a datagram";
    EXPECT_EQ(m_transmitter.get_status(), STAUTS_OK);
    EXPECT_EQ(Send(m_transmitter, std::string(4 + 65507, 'x')), 4 + 65507);
    EXPECT_EQ(m_peer.Receive().size(), 65507U);
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

// Sent one by one, the second packet would meet the refusal of the first. So once a client has
// refused, a single packet goes ahead of every burst.
TEST_F(CUdpTransmitterTest, AfterARefusalASinglePacketGoesAheadOfEveryBurst) {
    const int off = 0;
    if (setsockopt(m_peer.Fd(), IPPROTO_UDP, UDP_SEGMENT, &off, sizeof(off)) != 0) {
        GTEST_SKIP() << "this kernel does not segment UDP";
    }
    const uint16_t port = m_peer.Port();
    m_peer.Reset();
    EXPECT_EQ(SendBurst(), UNIT) << "the first unit is sent before the refusal";
    EXPECT_EQ(m_transmitter.burst_kind(), CRtpBurst::NONE);
    m_peer = BindUdpAt(port);
    EXPECT_EQ(Send(m_transmitter, "$abclate"), 0) << "reports the refusal of the burst";
    EXPECT_EQ(m_transmitter.burst_kind(), CRtpBurst::NONE);
    EXPECT_EQ(Send(m_transmitter, "$abcalone"), 9);
    EXPECT_EQ(m_transmitter.burst_kind(), CRtpBurst::DATAGRAMS);
    EXPECT_EQ(SendBurst(), 2 * UNIT);
    EXPECT_EQ(m_transmitter.burst_kind(), CRtpBurst::NONE) << "the next one needs its own";
    EXPECT_EQ(m_peer.Receive(), "alone");
}

}  // namespace
