// SPDX-License-Identifier: MIT
// What is there for hosts, or to complete the protocol's vocabulary, and no request leads to.
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <set>

#include "cbb.h"
#include "rtp_random.h"
#include "rtsp_msg.h"
#include "rtsps_mpte.h"
#include "rtsps_session_mgr.h"
#include "support/log_capture.h"
#include "support/test_net.h"
#include "support/trans_info.h"

namespace {

TEST(Tools, CopyCompareAndReadText) {
    char out[8] = "xxxxxxx";
    EXPECT_STREQ(CBB_Strcpy(out, "abc"), "abc");
    EXPECT_EQ(std::string(CBB_Strncpy(out, "de", 5), 6), std::string("de\0\0\0x", 6));
    EXPECT_EQ(*CBB_Strncpy(out, "f", 0), 'd');
    for (char* copy : {CBB_Strdup("abc"), CBB_Strndup("abcd", 3)}) {
        EXPECT_STREQ(copy, "abc");
        free(copy);
    }
    EXPECT_EQ(CBB_Strncmp("abc", "abd", 2), 0);
    EXPECT_LT(CBB_Strncmp("abc", "abd", 3), 0);
    EXPECT_EQ(CBB_Strcasecmp("aB", "Ab"), 0);
    EXPECT_EQ(CBB_Atoi32("-7"), -7);
    EXPECT_EQ(CBB_Atoi64("5000000000"), 5000000000);
}

TEST(Tools, AskSocketsAndWaitForThem) {
    const CSocketPair pair;
    const int fd = pair.client.Fd();
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(fd, &readable);
    const timeval atOnce{};
    EXPECT_EQ(CBB_Select(fd + 1, &readable, nullptr, nullptr, &atOnce), 0);
    EXPECT_EQ(CBB_FdIsSet(fd, &readable), 0);
    pair.server.Send("abc");
    FD_SET(fd, &readable);
    EXPECT_EQ(CBB_Select(fd + 1, &readable, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(CBB_FdIsSet(fd, &readable), 1);
    for (const int none : {-1, FD_SETSIZE}) {
        EXPECT_EQ(CBB_FdIsSet(none, &readable), 0);
    }
    uint32_t waiting = 0;
    EXPECT_EQ(CBB_Ioctl(fd, FIONREAD, &waiting), 0);
    EXPECT_EQ(waiting, 3U);
    char bytes[8];
    EXPECT_EQ(CBB_RecvFrom(fd, bytes, sizeof(bytes), nullptr), 3);
    EXPECT_EQ(CBB_RecvFrom(fd, bytes, -1, nullptr), -1);
    const CTestSocket udp = CTestSocket::BindUdp();
    EXPECT_EQ(CBB_BroadCast(udp.Fd()) | CBB_LingerOff(fd), 0);
}

TEST(Tools, UnpackAddresses) {
    CBB_ADDR_EXP_T info{};
    const CBB_ADDR_T addr4 = MakeAddr("127.0.0.1", 554);
    EXPECT_EQ(CBB_GetAddrInfo(&addr4, &info), 0);
    EXPECT_EQ(info.iAf, AF_INET);
    EXPECT_EQ(info.nPort, 554);
    EXPECT_EQ(info.ADDR.nAddr4, htonl(INADDR_LOOPBACK));
    const CBB_ADDR_T addr6 = MakeAddr("fe80::7", 1);
    EXPECT_EQ(CBB_GetAddrInfo(&addr6, &info), 0);
    EXPECT_EQ(info.ADDR.nAddr6[15], 7);
    EXPECT_EQ(CBB_GetAddrInfo(nullptr, &info), -1);
}

TEST(Tools, ChangeThreads) {
    const CBB_HANDLE self = CBB_Thread_GetSelfId();
    EXPECT_EQ(CBB_Thread_Suspend(self), -2);
    EXPECT_EQ(CBB_Thread_Resume(self), -2);
    EXPECT_EQ(CBB_Thread_SetPriority(self, 0), 0);
    EXPECT_EQ(CBB_Thread_SetPriority(self, 99), -1) << "of the ordinary policy";
    EXPECT_EQ(CBB_Thread_SetSchedPolicy(self, 0), 0);
    for (const CBB_HANDLE none : {CBB_INVALID_HANDLE, CBB_HANDLE{}}) {
        EXPECT_EQ(CBB_Thread_SetPriority(none, 0), -1);
    }
    EXPECT_EQ(CBB_Thread_SetSchedPolicy(self, 1000), -1);
}

TEST(Tools, DrawRandomNumbers) {
    RTPRdm one;
    RTPRdm copy = one;
    RTPRdm other;
    std::set<unsigned> bytes;
    std::set<uint32_t> words;
    for (int i = 0; i < 4096; ++i) {
        bytes.insert(one.GetRandom8());
        EXPECT_EQ(one.GetRandom32(), (copy.GetRandom8(), copy.GetRandom32()));
        words.insert({other.GetRandom32(), GetRandom32_Default()});
        for (const double d : {other.GetRandomDouble(), GetRandomDouble_Default()}) {
            EXPECT_TRUE(d >= 0 && d < 1) << d;
        }
    }
    EXPECT_EQ(bytes.size(), 256U);
    EXPECT_GT(words.size(), 8100U);
    srand(7);
    const unsigned first = GetRandom8_Default();
    srand(7);
    EXPECT_EQ(GetRandom8_Default(), first) << "the host's seed counts";
}

TEST(Tools, WalkAndShowMessages) {
    const CLogCapture log;
    CRtspResponse resp(RTSP_STATUS_200);
    resp.append_date("today");
    resp.append_range_time_now(nullptr, 0);
    resp.AddHeader("Big", 4294967296UL);
    char text[1024] = {};
    resp.as_string(text);
    EXPECT_STREQ(text,
                 "RTSP/1.0 200 OK\r\nDate: today\r\nRange: 19700101T000000Z\r\n"
                 "Big: 4294967296\r\n\r\n");
    std::string names;
    for (CRtspHeader* header = resp.GetFirstHeader(); header != nullptr;
         header = resp.GetNextHeader()) {
        names += header->Name();
        header->show_header();
        header->GetHeaderValue()->show_value();
    }
    EXPECT_EQ(names, "DateRangeBig");
    EXPECT_TRUE(log.Has("show_value [today]\n"));
    resp.Clear();
    EXPECT_EQ(resp.GetFirstHeader(), nullptr);
    EXPECT_EQ(SMPTETimeCode(0, 0, 1, 0).compare(SMPTETimeCode(0, 0, 2, 0)), -1);
}

using CFileDataTest = CServerTest;

TEST_F(CFileDataTest, ClientKeepsItsPlaceForGood) {
    const CLogCapture log;
    StartServer();
    CTestClient client(m_port);
    ASSERT_TRUE(client.PlayInterleaved());
    CRtspSessionManager* manager = CRtspSessionManager::Instance();
    const CSessionList sessions = manager->getSession();
    const auto id = static_cast<int>(sessions.begin()->dwSessionId);
    manager->releaseSession(sessions);
    EXPECT_EQ(RTSPServer_SendFileStream(id + 1, nullptr, 0), -1);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(RTSPServer_SendFileStream(id, nullptr, 0), 0);
    }
    RTSPServer_Stop();
    EXPECT_EQ(manager->GetCurrSessionNums(), 1U) << "of " << manager->GetMaxsessionNums();
    client.Socket().Reset();
}

}  // namespace
