// SPDX-License-Identifier: MIT
#include "rtsp_msg.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <utility>

#include "cbb.h"
#include "rtsp_msg_parser.h"

namespace {

std::string Text(const CRtspMsg& msg) {
    char szText[8192] = {};
    msg.as_string(szText);
    return szText;
}

// A SETUP request with the given header lines.
std::unique_ptr<CRtspMsg> Request(const std::string& headers) {
    const std::string text = "SETUP rtsp://h/x RTSP/1.0\r\n" + headers + "\r\n";
    return std::unique_ptr<CRtspMsg>(
        CRtspMsgParser().parse(text.data(), static_cast<int>(text.size())));
}

std::string Reply(const std::string& headers) {
    return "RTSP/1.0 200 OK\r\n" + headers + "\r\n";
}

}  // namespace

TEST(RtspMsg, WithoutAStatusRowNothingIsWritten) {
    char szOut[64] = "before";
    CRtspResponse response;
    response.Code("454");
    EXPECT_STREQ(response.Msg(), "Session Not Found");
    response.Code("999");
    EXPECT_EQ(response.Code(), nullptr);
    const CRtspMsg base;
    for (const CRtspMsg* pMsg : {&base, static_cast<const CRtspMsg*>(&response)}) {
        pMsg->as_string(szOut);
        EXPECT_EQ(pMsg->as_binary(szOut, sizeof(szOut)), -1);
        EXPECT_STREQ(szOut, "before");
    }
    CRtspRequest request;
    request.Method("options");
    request.URL(std::string(5000, 'u').c_str());
    request.Version(2, 1);
    EXPECT_EQ(Text(request), "ERROR " + std::string(1023, 'u') + " RTSP/2.1\r\n\r\n");
}

TEST(RtspMsg, Bodies) {
    const std::string head = Reply("");
    const std::string body("ab\0cd\0\xff!!!", 10);
    CRtspResponse response(RTSP_STATUS_200);
    EXPECT_EQ(response.Content(body.data(), 10), 0);
    EXPECT_EQ(Text(response), head + "ab");  // all of it in binary form only
    std::string out(head.size() + 10, 'x');
    const int nTotal = static_cast<int>(out.size());
    ASSERT_EQ(response.as_binary(out.data(), nTotal), nTotal);
    EXPECT_EQ(out, head + body);
    EXPECT_EQ(response.as_binary(out.data(), nTotal - 1), -1);

    const std::string large(CRtspMsg::CONTENT_SIZE + 1, 'b');
    for (const int nLen : {2048, 2049, -1, INT_MAX}) {
        EXPECT_EQ(response.Content(large.data(), nLen), nLen == 2048 ? 0 : -1) << nLen;
        EXPECT_EQ(response.ContentLen(), 2048) << nLen;
    }
    // A full body has no NUL of its own; its text must end with it all the same.
    EXPECT_EQ(Text(response), head + large.substr(0, 2048));
}

TEST(RtspMsg, HeadLimitOfBinaryForm) {
    for (const int nTotal : {1023, 1024}) {
        CRtspResponse response(RTSP_STATUS_200);
        CRtspHeader* pHeader = CRtspHeader::create_new("N");
        for (const int nValue : {255, 255, 255, nTotal - 792}) {
            pHeader->AddHeaderValue(std::string(static_cast<size_t>(nValue), 'v').c_str());
        }
        response.AddHeader(pHeader);
        ASSERT_EQ(Text(response).size(), static_cast<size_t>(nTotal));
        char szOut[2048];
        EXPECT_EQ(response.as_binary(szOut, sizeof(szOut)), nTotal == 1023 ? 1023 : -1);
        EXPECT_EQ(response.as_binary(szOut, 1022), -1);
    }
}

TEST(RtspResponse, TransportReply) {
    const std::tuple<const char*, trans_protocol, uint32_t, const char*, const char*> cases[] = {
        {"RTP/AVP;unicast;client_port=5000-5001", protocol_udp, 0x1a2b3c4d, nullptr,
         "RTP/AVP;unicast;client_port=5000-5001;server_port=6000-6001;ssrc=1a2b3c4d"},
        {"RTP/AVP;ssrc=1;x", protocol_udp, 0xABC, nullptr,
         "RTP/AVP;ssrc=abc;x;server_port=6000-6001"},
        {"RTP/AVP/TCP;client_port=5", protocol_tcp, 7, nullptr,
         "RTP/AVP/TCP;client_port=5;server_port=6000-6001"},
        {"RTP/AVP;multicast", protocol_mcast, 7, nullptr,
         "RTP/AVP;multicast;port=6000-6001;ttl=127;ssrc=7"},
        {"RTP/AVP/TCP;interleaved=4-5", protocol_over_rtsp, 7, nullptr,
         "RTP/AVP/TCP;interleaved=4-5;ssrc=7"},
        {"RTP/AVP;destination=1.2.3.4", protocol_udp, 0, "5.6.7.8",
         "RTP/AVP;destination=1.2.3.4;server_port=6000-6001;source=5.6.7.8"},
        {"RTP/AVP", protocol_udp, 0, "5.6.7.8", "RTP/AVP;server_port=6000-6001"},
        {"RTP/AVP;a,RTP/AVP;b", protocol_http, 7, nullptr, "RTP/AVP;a;ssrc=7,RTP/AVP;b"},
    };
    for (const auto& [szRequest, protocol, nSsrc, szSource, szReply] : cases) {
        CRtspResponse response(RTSP_STATUS_200);
        const auto request = Request(std::string("Transport: ") + szRequest + "\r\n");
        response.append_transport(request.get(), protocol, nSsrc, 6000, 6001, szSource, nullptr,
                                  nullptr);
        EXPECT_EQ(Text(response), Reply(std::string("Transport: ") + szReply + "\r\n"));
    }
}

TEST(RtspResponse, InterleavedChannelsAreStored) {
    const std::tuple<const char*, int, int> cases[] = {
        {";interleaved=4-5", 4, 5},        {";interleaved=4", 4, 99},    {";interleaved=x", 99, 99},
        {";interleaved=255-254", 99, 254}, {";interleaved=256-1", 0, 1}, {"", 99, 99},
    };
    for (const auto& [szInterleaved, nChannel1, nChannel2] : cases) {
        unsigned char by1 = 99, by2 = 99;
        CRtspResponse response(RTSP_STATUS_200);
        const auto request =
            Request(std::string("Transport: RTP/AVP/TCP") + szInterleaved + "\r\n");
        response.append_transport(request.get(), protocol_over_rtsp, 0, 0, 1, nullptr, &by1, &by2);
        EXPECT_EQ(std::tuple(int{by1}, int{by2}), std::tuple(nChannel1, nChannel2))
            << szInterleaved;
    }
}

TEST(RtspResponse, MulticastReply) {
    CBB_ADDR_T group = {};
    ASSERT_EQ(CBB_MakeAddrByString(AF_INET, "224.0.1.7", 6000, &group), 0);
    CRtspResponse response(RTSP_STATUS_200);
    response.append_mul_address_port(Request("Transport: RTP/AVP;multicast\r\n").get(), 0, 6000,
                                     6001, &group);
    for (const char* szHeader : {"X: y\r\n", "Transport:\r\n"}) {  // nothing to answer
        const auto request = Request(szHeader);
        response.append_mul_address_port(request.get(), 0, 6000, 6001, &group);
        response.append_transport(request.get(), protocol_udp, 7, 1, 2, nullptr, nullptr, nullptr);
    }
    EXPECT_EQ(Text(response), Reply("Transport: RTP/AVP;multicast;destination=224.0.1.7;"
                                    "port=6000-6001;ttl=127;ssrc=0\r\n"));
}

TEST(RtspResponse, SessionIdCheck) {
    const std::string error = "CheckSessionId ERROR!!! ";
    const std::pair<std::string, std::string> cases[] = {
        {"Session: 21\r\n", ""},  // contained is enough
        {"Session: 2\r\n", error + "BAD SessionID SRC[1], Coming [2]\n"},
        {"Session: " + std::string(127, 'a') + "1\r\n", "a]\n"},  // 127 bytes are looked at
        {"Session:\r\n", error + "CheckSessionId,pHeader->GetHeaderValue ERROR!\n"},
        {"session: 1\r\n", error + "CheckSessionId,\"Session\" not found! \n"},
    };
    for (const auto& [headers, log] : cases) {
        testing::internal::CaptureStdout();
        EXPECT_EQ(CRtspResponse::CheckSessionId(Request(headers).get(), "1"), log.empty() ? 0 : -1);
        EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::EndsWith(log)) << headers;
    }
}
