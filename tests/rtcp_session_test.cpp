// SPDX-License-Identifier: MIT
#include "rtcp_session.h"

#include <gtest/gtest.h>

#include <string>

#include "rtp_session.h"
#include "support/fake_clock.h"
#include "support/trans_info.h"

namespace {

TEST(RtcpSession, ReportsAreDueEveryFiveSeconds) {
    CFakeClock clock(0);
    CRtcpSession session(UDP_MODE);
    const auto isDueAt = [&](int64_t sec, int64_t usec) {
        clock.Set(sec, usec);
        return session.is_time() == 1;
    };
    EXPECT_FALSE(isDueAt(1000, 0)) << "the first check only starts the interval";
    EXPECT_FALSE(isDueAt(1004, 999999)) << "whole seconds count";
    EXPECT_TRUE(isDueAt(1005, 0));
    EXPECT_FALSE(isDueAt(1005, 500000)) << "just reported";
    EXPECT_TRUE(isDueAt(1030, 0)) << "long silence, one report";
    EXPECT_FALSE(isDueAt(1034, 0)) << "the interval starts at the report";
    EXPECT_FALSE(isDueAt(1025, 0)) << "clock set back, 10 s ahead";
    EXPECT_TRUE(isDueAt(1024, 0)) << "clock set back, 11 s ahead";
    EXPECT_TRUE(isDueAt(1029, 0)) << "interval from there";
}

// The reports of a session that has sent three packets, by transport.
TEST(RtcpSession, ReportBytes) {
    const uint16_t port = FreeDataPortRange();
    const CTestSocket udp = CTestSocket::BindUdp();
    const CSocketPair connection;
    const std::string common("\x80\xC8\0\6", 4);
    const std::string rest(
        "\x11\x22\x33\x44"  // SSRC of the last packet
        "\xE8\xFE\x6F\x80"  // 1700000000 + 2208988800
        "\0\1\xE2\x40"      // 123456, not scaled
        "\xFE\xDC\xBA\x98"  // time stamp of the last packet
        "\0\0\0\3"
        "\xFF\xFF\xFF\xDC",  // 4294967260: three times -12
        24);
    const struct {
        ETRANS_MODE mode;
        std::string expected;
    } rows[] = {{UDP_MODE, rest},  // kept: without the common header
                {RTPOVERRTSP_MODE, std::string("$\7\0\x1C", 4) + common + rest}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.mode);
        const CFakeClock clock(1700000000, 123456);
        CRtcpSession session(row.mode);
        for (const uint8_t first : Bytes{1, 2, 0x11}) {
            const uint8_t header[] = {0x80, 0x60, 0,     1,    0xFE, 0xDC,
                                      0xBA, 0x98, first, 0x22, 0x33, 0x44};
            EXPECT_EQ(session.parse_rtp_packet(header, 0), 0);
        }
        EXPECT_EQ(session.send_sr(0), 0);  // without a transmitter
        TRANS_INFO info = MakeTransInfo(row.mode, port, udp.Port(), connection.server.Fd());
        ASSERT_EQ(session.open(&info), 0);
        EXPECT_NE(session.get_handle(), -1);
        EXPECT_EQ(session.send_sr(0), 0);
        EXPECT_EQ(row.mode == UDP_MODE ? udp.Receive() : connection.ReadAll(), row.expected);
        EXPECT_EQ(session.close(), 0);
        EXPECT_EQ(session.GetTransmitter(), nullptr);
    }
    EXPECT_EQ(udp.Receive(100, 0) + connection.ReadAll(), "");
}

// The reports that a client receives before and after its counters wrap.
TEST(RtcpSession, CountersAndSecondsWrap) {
    constexpr int64_t LAST_SECOND_OF_THE_ERA = 2085978495;  // in 2036
    const CSocketPair connection;
    TRANS_INFO info = MakeTransInfo(RTPOVERRTSP_MODE, 0, 0, connection.server.Fd());
    CFakeClock clock(LAST_SECOND_OF_THE_ERA);
    CRtcpSession session(RTPOVERRTSP_MODE);
    ASSERT_EQ(session.open(&info), 0);
    const uint8_t header[12] = {0x80, 0x60, 0, 1, 0, 0, 0, 7};
    session.is_time();
    session.count_packets(header, 0, 0xFFFFFFFF);
    session.send_sr(0);
    EXPECT_EQ(connection.ReadAll().substr(12), std::string("\xFF\xFF\xFF\xFF"  // seconds
                                                           "\0\0\0\0\0\0\0\7"
                                                           "\xFF\xFF\xFF\xFF"  // packets
                                                           "\0\0\0\x0C",       // octets
                                                           20));
    clock.Set(LAST_SECOND_OF_THE_ERA + 5);
    EXPECT_EQ(session.is_time(), 1U);
    session.count_packets(header, 0, 2);
    session.send_sr(0);
    EXPECT_EQ(connection.ReadAll().substr(12), std::string("\0\0\0\4\0\0\0\0\0\0\0\7"
                                                           "\0\0\0\1\xFF\xFF\xFF\xF4",
                                                           20));
}

}  // namespace
