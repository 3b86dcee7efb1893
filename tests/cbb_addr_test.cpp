// SPDX-License-Identifier: MIT
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <iomanip>
#include <sstream>
#include <string>

#include "cbb.h"

namespace {

std::string Hex(const void* p, size_t n) {
    std::ostringstream out;
    for (size_t i = 0; i < n; ++i) {
        out << std::hex << std::setw(2) << std::setfill('0')
            << int{static_cast<const uint8_t*>(p)[i]};
    }
    return out.str();
}

// The record of an IPv4 address: family (host order on the targets), port, address.
std::string Ipv4Record(const char* text, int result) {
    CBB_ADDR_T addr;
    memset(&addr, 0xEE, sizeof(addr));
    EXPECT_EQ(CBB_MakeAddrByString(AF_INET, text, 554, &addr), result);
    EXPECT_EQ(Hex(&addr.SA.sin6.sin6_addr, 20), std::string(40, 'e'));
    return Hex(&addr, 8);
}

TEST(CbbAddr, MakesIpv4FromText) {
    EXPECT_EQ(Ipv4Record("192.168.1.10", 0), "0200022ac0a8010a");
    EXPECT_EQ(Ipv4Record("127.1", 0), "0200022a7f000001") << "the classic short form";
    EXPECT_EQ(Ipv4Record(nullptr, 0), "0200022a00000000") << "any address";
    EXPECT_EQ(Ipv4Record("host", -1), "eeeeeeeeffffffff") << "kept: the address is written";
    EXPECT_EQ(Ipv4Record("255.255.255.255", -1), "eeeeeeeeffffffff") << "kept: refused";
}

// The address of an IPv6 text; "" when it is refused, which leaves the record unchanged.
std::string Ipv6Address(const char* text) {
    CBB_ADDR_T addr;
    memset(&addr, 0xEE, sizeof(addr));
    const bool isMade = CBB_MakeAddrByString(AF_INET6, text, 554, &addr) == 0;
    EXPECT_EQ(Hex(&addr, 4), isMade ? "0a00022a" : "eeeeeeee");
    const std::string address = Hex(&addr.SA.sin6.sin6_addr, 16);
    EXPECT_TRUE(isMade || address == std::string(32, 'e'));
    return isMade ? address : "";
}

TEST(CbbAddr, MakesIpv6FromText) {
    EXPECT_EQ(Ipv6Address("FE80::aBc:1"), "fe80000000000000000000000abc0001");
    EXPECT_EQ(Ipv6Address(nullptr), std::string(32, '0')) << "any address";
    EXPECT_EQ(Ipv6Address("::1"), "00010000000000000000000000000000") << "kept: not expanded";
    EXPECT_EQ(Ipv6Address("::ffff:1.2.3.4"), "ffff0102030400000000000000000000") << "kept: as well";
    EXPECT_EQ(Ipv6Address("1.2.3.4"), "01020304000000000000000000000000") << "kept: IPv4 is first";
    EXPECT_EQ(Ipv6Address("1:2g"), "00010002000000000000000000000000") << "kept: g ends the text";
    EXPECT_EQ(Ipv6Address("1::2:3:4:5:6:7:8:9"), "00020003000400050006000700080009") << "kept";
    EXPECT_EQ(Ipv6Address("1::2:3:4:5:6:7:8:9:a"), "") << "ten groups";
    EXPECT_EQ(Ipv6Address("1:2:3:4:5:6:7:8:9"), "") << "nine groups without a gap";
    EXPECT_EQ(Ipv6Address("1::1.2.3.4"), "") << "a gap before IPv4";
    EXPECT_EQ(Ipv6Address("1::2::3"), "");
    EXPECT_EQ(Ipv6Address("12345:1"), "");
    EXPECT_EQ(Ipv6Address("1:g:2"), "");
    EXPECT_EQ(Ipv6Address(":"), "");
    EXPECT_EQ(Ipv6Address("1:1.2.3.256"), "");
}

TEST(CbbAddr, ReadsDottedQuads) {
    uint8_t out[4] = {};
    for (const char* szText : {"1.2.3.4.", "1.2.3", "1.2.3.4.5", "1.2.3.256", "1..3.4", ".1.2.3",
                               "1.2.3.4 ", "", "1.2.3.99999999999999999999"}) {
        EXPECT_EQ(CBB_InetPton(szText, out), -1) << szText;
        EXPECT_EQ(Hex(out, 4), "00000000") << szText;
    }
    EXPECT_EQ(CBB_InetPton("010.255.1.004", out), 0);
    EXPECT_EQ(Hex(out, 4), "0aff0104");
}

// The fuzz target of URLs compares IPv6 addresses with the text of the system's function.
TEST(CbbAddr, PrintsAddressesThatFit) {
    uint8_t addr[16] = {10, 0, 0, 1};
    char out[64] = {};
    EXPECT_EQ(CBB_InetNtop(AF_INET, addr, out, -1), nullptr);
    EXPECT_EQ(CBB_InetNtop(AF_INET, addr, out, 7), nullptr) << "a byte too short";
    EXPECT_STREQ(CBB_InetNtop(AF_INET, addr, out, 8), "10.0.0.1") << "kept: no room for the NUL";
    ASSERT_EQ(inet_pton(AF_INET6, "::ffff:1.2.33.44", addr), 1);
    EXPECT_EQ(CBB_InetNtop(AF_INET6, addr, out, 64), nullptr) << "kept: more than 8 characters";
    ASSERT_EQ(inet_pton(AF_INET6, "1::2:0:0:3:4", addr), 1);
    EXPECT_STREQ(CBB_InetNtop(AF_INET6, addr, out, 64), "1::2:0:0:3:4") << "the first of two gaps";
    ASSERT_EQ(inet_pton(AF_INET6, "::fffe:1:2", addr), 1);
    EXPECT_STREQ(CBB_InetNtop(AF_INET6, addr, out, 64), "::fffe:1:2") << "not an embedded IPv4";
}

TEST(CbbAddr, RecordsOfOneFamilyAreNotReadAsTheOther) {
    const uint8_t bytes6[16] = {0x20, 1, 0xD, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 5};
    CBB_ADDR_T addr4 = {}, addr6 = {};
    CBB_ADDR_EXP_T info{};
    EXPECT_EQ(CBB_MakeAddr4ByInt(htonl(0x0A000001), 8554, &addr4), 0);
    EXPECT_EQ(CBB_GetAddrInfo(&addr4, &info), 0);
    EXPECT_EQ(Hex(&info, 8), "020000000a000001");
    EXPECT_EQ(info.nPort, 8554);
    EXPECT_EQ(CBB_SetAddrPort(&addr4, 1), 0);
    EXPECT_EQ(Hex(&addr4, 8), "020000010a000001");
    EXPECT_EQ(CBB_MakeAddr6ByInt(bytes6, 65535, &addr6), 0);
    EXPECT_EQ(CBB_GetAddrInfo(&addr6, &info), 0);
    EXPECT_EQ(info.ADDR.nAddr6[15], 5);
    uint32_t out4 = 0;
    uint8_t out6[16] = {};
    EXPECT_EQ(CBB_GetAddr4Int(&addr6, &out4), -1);
    EXPECT_EQ(CBB_GetAddr6Int(&addr4, out6), -1);
    addr6.SA.sin6.sin6_family = 0;
    EXPECT_EQ(CBB_GetAddr6Int(&addr6, out6), 0) << "kept: no family is not IPv4";
    EXPECT_EQ(memcmp(out6, bytes6, 16), 0);
    EXPECT_EQ(CBB_GetAddrString(&addr6), nullptr);
}

TEST(CbbAddr, RefusesNullAndOtherFamilies) {
    CBB_ADDR_T addr{};
    CBB_ADDR_EXP_T info{};
    uint8_t bytes[16] = {};
    char text[64] = {};
    EXPECT_EQ(CBB_MakeAddrByString(AF_INET, "127.0.0.1", 554, nullptr), -1);
    EXPECT_EQ(CBB_MakeAddrByString(AF_UNIX, "127.0.0.1", 554, &addr), -1);
    EXPECT_EQ(CBB_MakeAddr4ByInt(0, 554, nullptr), -1);
    EXPECT_EQ(CBB_MakeAddr6ByInt(bytes, 554, nullptr), -1);
    EXPECT_EQ(CBB_MakeAddr(nullptr, 16, &addr), -1);
    EXPECT_EQ(CBB_MakeAddr(bytes, 16, nullptr), -1);
    EXPECT_EQ(CBB_MakeAddr(bytes, 0, &addr), -1);
    EXPECT_EQ(CBB_SetAddrPort(nullptr, 554), -1);
    EXPECT_EQ(CBB_GetAddrType(nullptr), -1);
    EXPECT_EQ(CBB_GetAddrString(nullptr), nullptr);
    EXPECT_EQ(CBB_GetAddrPort(nullptr), 0);
    EXPECT_EQ(CBB_GetAddr4Int(nullptr, &info.ADDR.nAddr4), -1);
    EXPECT_EQ(CBB_GetAddr6Int(nullptr, bytes), -1);
    EXPECT_EQ(CBB_GetAddrInfo(nullptr, &info), -1);
    EXPECT_EQ(CBB_GetAddrInfo(&addr, nullptr), -1);
    EXPECT_EQ(CBB_GetAddrBySockFd(0, nullptr, nullptr), -1);
    EXPECT_EQ(CBB_InetPton(nullptr, bytes), -1);
    EXPECT_EQ(CBB_InetPton("127.0.0.1", nullptr), -1);
    EXPECT_EQ(CBB_InetNtop(AF_INET, nullptr, text, 64), nullptr);
    EXPECT_EQ(CBB_InetNtop(AF_INET, bytes, nullptr, 64), nullptr);
    EXPECT_EQ(CBB_InetNtop(AF_INET, bytes, text, 0), nullptr);
    EXPECT_EQ(CBB_InetNtop(AF_UNIX, bytes, text, 64), nullptr);
}

TEST(CbbAddr, CopiesAreCutToTheRecord) {
    CBB_ADDR_T out[3] = {};
    EXPECT_EQ(CBB_MakeAddr(std::string(64, 'x').data(), 64, &out[0]), 0);
    EXPECT_EQ(Hex(&out[1], 1), "00");
}

}  // namespace
