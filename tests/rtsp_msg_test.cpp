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
#include <vector>

#include "cbb.h"
#include "rtsp_msg_parser.h"

namespace {

std::string Text(const CRtspMsg& msg) {
    std::vector<char> text(8192);
    msg.as_string(text.data());
    return text.data();
}

// A SETUP request with the given header lines.
std::unique_ptr<CRtspMsg> Request(const std::string& headers) {
    const std::string text = "SETUP rtsp://h/x RTSP/1.0\r\n" + headers + "\r\n";
    return std::unique_ptr<CRtspMsg>(
        CRtspMsgParser().parse(text.data(), static_cast<int>(text.size())));
}

// What a 200 response holds between its status line and its blank line.
std::string Headers(const CRtspResponse& response) {
    const std::string text = Text(response);
    const std::string status = "RTSP/1.0 200 OK\r\n";
    EXPECT_EQ(text.substr(0, status.size()), status);
    return text.substr(status.size(), text.size() - status.size() - 2);
}

}  // namespace

TEST(RtspMsg, WithoutAStatusRowNothingIsWritten) {
    char szOut[64] = "before";
    CRtspResponse response;
    response.Code("454");
    EXPECT_STREQ(response.Msg(), "Session Not Found");
    response.Code("999");
    EXPECT_EQ(response.Code(), nullptr);
    response.as_string(szOut);
    EXPECT_EQ(response.as_binary(szOut, sizeof(szOut)), -1);
    const CRtspMsg base;
    base.as_string(szOut);
    EXPECT_EQ(base.as_binary(szOut, sizeof(szOut)), -1);
    EXPECT_STREQ(szOut, "before");
    CRtspRequest request;
    request.Method("options");
    request.URL("rtsp://h/x");
    request.Version(2, 1);
    EXPECT_EQ(Text(request), "ERROR rtsp://h/x RTSP/2.1\r\n\r\n");
}

TEST(RtspMsg, BodyIsBytesInBinaryAndTextInText) {
    const std::string head = "RTSP/1.0 200 OK\r\n\r\n";
    const std::string body(
        "ab\0cd\0\xff"
        "123",
        10);
    CRtspResponse response(RTSP_STATUS_200);
    EXPECT_EQ(response.Content(body.data(), 10), 0);
    EXPECT_EQ(Text(response), head + "ab");

    std::vector<char> out(head.size() + 10, 'x');
    const int nTotal = static_cast<int>(out.size());
    ASSERT_EQ(response.as_binary(out.data(), nTotal), nTotal);
    EXPECT_EQ(std::string(out.begin(), out.end()), head + body);
    EXPECT_EQ(response.as_binary(out.data(), nTotal - 1), -1);
}

TEST(RtspMsg, BodyLimits) {
    const std::string body(CRtspMsg::CONTENT_SIZE + 1, 'b');
    CRtspResponse response(RTSP_STATUS_200);
    const std::pair<int, int> cases[] = {{2048, 0}, {2049, -1}, {-1, -1}, {INT_MAX, -1}};
    for (const auto& [nLen, nResult] : cases) {
        EXPECT_EQ(response.Content(body.data(), nLen), nResult) << nLen;
        EXPECT_EQ(response.ContentLen(), 2048) << nLen;
    }
    // A full body has no NUL of its own; its text must end with it all the same.
    EXPECT_EQ(Text(response), "RTSP/1.0 200 OK\r\n\r\n" + body.substr(0, 2048));
}

TEST(RtspMsg, HeadLimitOfBinaryForm) {
    const size_t nFixed = strlen("RTSP/1.0 200 OK\r\nN: \r\n\r\n") + 3 * 256;
    for (const size_t nTotal : {size_t{1023}, size_t{1024}}) {
        CRtspResponse response(RTSP_STATUS_200);
        CRtspHeader* pHeader = CRtspHeader::create_new("N");
        for (const size_t nValue : {size_t{255}, size_t{255}, size_t{255}, nTotal - nFixed}) {
            pHeader->AddHeaderValue(std::string(nValue, 'v').c_str());
        }
        response.AddHeader(pHeader);
        ASSERT_EQ(Text(response).size(), nTotal);
        char szOut[2048];
        EXPECT_EQ(response.as_binary(szOut, sizeof(szOut)), nTotal == 1023 ? 1023 : -1);
        EXPECT_EQ(response.as_binary(szOut, 1022), -1);
    }
    CRtspRequest request;
    request.URL(std::string(5000, 'u').c_str());
    EXPECT_EQ(strlen(request.URL()), 1023U);
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
        {"RTP/AVP", protocol_http, 7, nullptr, "RTP/AVP;ssrc=7"},
        {"RTP/AVP;a,RTP/AVP;b", protocol_udp, 7, nullptr,
         "RTP/AVP;a;server_port=6000-6001;ssrc=7,RTP/AVP;b"},
    };
    for (const auto& [szRequest, protocol, nSsrc, szSource, szReply] : cases) {
        CRtspResponse response(RTSP_STATUS_200);
        const auto request = Request(std::string("Transport: ") + szRequest + "\r\n");
        response.append_transport(request.get(), protocol, nSsrc, 6000, 6001, szSource, nullptr,
                                  nullptr);
        EXPECT_EQ(Headers(response), std::string("Transport: ") + szReply + "\r\n");
    }
    for (const char* szHeader : {"X: y\r\n", "Transport:\r\n"}) {
        CRtspResponse response(RTSP_STATUS_200);
        response.append_transport(Request(szHeader).get(), protocol_udp, 7, 1, 2, nullptr, nullptr,
                                  nullptr);
        EXPECT_EQ(Headers(response), "");
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
        EXPECT_EQ(by1, nChannel1) << szInterleaved;
        EXPECT_EQ(by2, nChannel2) << szInterleaved;
    }
}

TEST(RtspResponse, MulticastReply) {
    CBB_ADDR_T group = {};
    ASSERT_EQ(CBB_MakeAddrByString(AF_INET, "224.0.1.7", 6000, &group), 0);
    CRtspResponse response(RTSP_STATUS_200);
    response.append_mul_address_port(Request("Transport: RTP/AVP;multicast\r\n").get(), 0, 6000,
                                     6001, &group);
    EXPECT_EQ(Headers(response),
              "Transport: RTP/AVP;multicast;destination=224.0.1.7;port=6000-6001;ttl=127;"
              "ssrc=0\r\n");
}

TEST(RtspResponse, SessionIdCheck) {
    const std::tuple<const char*, const char*, int, const char*> cases[] = {
        {"Session: 12345678;timeout=60\r\n", "12345678", 0, ""},
        {"Session: 21\r\n", "1", 0, ""},  // contained is enough
        {"Session: 2\r\n", "1", -1, "CheckSessionId ERROR!!! BAD SessionID SRC[1], Coming [2]\n"},
        {"Session:\r\n", "1", -1,
         "CheckSessionId ERROR!!! CheckSessionId,pHeader->GetHeaderValue ERROR!\n"},
        {"session: 1\r\n", "1", -1,
         "CheckSessionId ERROR!!! CheckSessionId,\"Session\" not found! \n"},
    };
    for (const auto& [szHeaders, szId, nResult, szLog] : cases) {
        const auto request = Request(szHeaders);
        testing::internal::CaptureStdout();
        EXPECT_EQ(CRtspResponse::CheckSessionId(request.get(), szId), nResult) << szHeaders;
        const std::string log = testing::internal::GetCapturedStdout();
        EXPECT_THAT(log, testing::EndsWith(szLog));
    }
    // 127 bytes are looked at.
    const std::string late = "Session: " + std::string(127, 'a') + "b\r\n";
    EXPECT_EQ(CRtspResponse::CheckSessionId(Request(late).get(), "b"), -1);
}
