// SPDX-License-Identifier: MIT
#include "mcast_transmitter.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>

#include "support/log_capture.h"
#include "support/trans_info.h"

namespace {

TEST(McastTransmitter, FailedOpenSaysWhyAndMarksAnError) {
    const CBB_ADDR_T any = MakeAddr("127.0.0.1", 0);
    const CBB_ADDR_T group = MakeAddr("239.1.2.3", 9);
    const struct {
        const char* why;
        CBB_ADDR_T local, group;
        const char* line;
        int descriptorsKept = 0;
    } rows[] = {
        {"no address family", any, CBB_ADDR_T{}, "E CreateSocket failed "},
        {"IPv6 to IPv4", MakeAddr("::1", 0), group, "E src v6, dst v4,error!!! failed "},
        {"IPv4 to IPv6", any, MakeAddr("ff02::1", 9), "E src v4, dst v6,error!!! failed "},
        {"group is no group", any, MakeAddr("127.0.0.1", 9), "E ERROR !! JoinMultiCastGroup"},
        // Kept: only this failure leaves the socket open until Close.
        {"not this machine's address", MakeAddr("192.0.2.77", 0), group, "E ERROR !! Bind", 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const CLogCapture log;
        const int descriptors = CountDescriptors();
        TRANS_INFO info = MakeTransInfo(MCAST_MODE);
        info.serverAddr = row.local;
        info.clientAddr = row.group;
        CMcastTransmitter transmitter(MCAST_MODE);
        EXPECT_EQ(transmitter.open(&info), -1);
        EXPECT_EQ(transmitter.get_status(), STAUTS_ERROR);
        EXPECT_EQ(CountDescriptors(), descriptors + row.descriptorsKept);
        EXPECT_EQ(log.Count("[RTSPS ERROR]"), 1);
        EXPECT_TRUE(log.HasLines(row.line));
        transmitter.Close();
        EXPECT_EQ(CountDescriptors(), descriptors);
    }
}

TEST(McastTransmitter, SendsDatagramsToTheGroup) {
    const CBB_ADDR_T any = MakeAddr("0.0.0.0", 0);
    const CTestSocket receiver(CBB_CreateSocket(AF_INET, SOCK_DGRAM, 0));
    ASSERT_EQ(CBB_Bind(receiver.Fd(), &any), 0);
    TRANS_INFO info = MakeTransInfo(MCAST_MODE);
    info.clientAddr = MakeAddr("239.255.17.4", receiver.Port());
    const ip_mreq membership{{inet_addr("239.255.17.4")}, {inet_addr("127.0.0.1")}};
    if (setsockopt(receiver.Fd(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof(membership)) !=
            0 ||
        CBB_SendTo(CTestSocket::BindUdp().Fd(), "probe", 5, &info.clientAddr) != 5 ||
        receiver.Receive(100, 1000) != "probe") {
        GTEST_SKIP() << "no multicast on the loopback interface: " << strerror(errno);
    }
    CMcastTransmitter transmitter(MCAST_MODE);
    int ttl = 0;
    socklen_t size = sizeof(ttl);
    for (const char* local : {"127.0.0.1", "::ffff:127.0.0.1"}) {
        info.serverAddr = MakeAddr(local, 0);
        ASSERT_EQ(transmitter.open(&info), 0) << local;
        CBB_ADDR_T bound{};
        EXPECT_EQ(CBB_GetAddrBySockFd(transmitter.GetHandle(), &bound, nullptr), 0);
        EXPECT_STREQ(CBB_GetAddrString(&bound), "127.0.0.1");
        EXPECT_EQ(Send(transmitter, "$abcpacket"), 10);
        EXPECT_EQ(receiver.Receive(), "packet");
        getsockopt(transmitter.GetHandle(), IPPROTO_IP, IP_MULTICAST_TTL, &ttl, &size);
        EXPECT_EQ(ttl, 127);
        EXPECT_EQ(transmitter.Close(), 0);
        EXPECT_EQ(transmitter.GetHandle(), -1);
    }
}

TEST(McastTransmitter, LimitsTheHopsToAnIpv6Group) {
    TRANS_INFO info = MakeTransInfo(MCAST_MODE);
    info.serverAddr = MakeAddr("::1", 0);
    info.clientAddr = MakeAddr("ff01::1", 9);
    CMcastTransmitter transmitter(MCAST_MODE);
    if (transmitter.open(&info) != 0) {
        GTEST_SKIP() << "no IPv6 multicast on this machine: " << strerror(errno);
    }
    int hops = 0;
    socklen_t size = sizeof(hops);
    getsockopt(transmitter.GetHandle(), IPPROTO_IPV6, IPV6_MULTICAST_HOPS, &hops, &size);
    EXPECT_EQ(hops, 127);
}

}  // namespace
