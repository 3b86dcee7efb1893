// SPDX-License-Identifier: MIT
#include "rtsp_msg.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "cbb.h"
#include "rtsp_msg_parser.h"
#include "support/log_capture.h"

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

TEST(RtspMsg, ContentNeedsItsBytesAndItsRoom) {
    CRtspResponse response(RTSP_STATUS_200);
    EXPECT_EQ(response.Content("ab", 2), 0);
    EXPECT_EQ(response.Content("ab", -1), -1);
    EXPECT_EQ(response.Content(nullptr, 1), -1);
    EXPECT_EQ(response.ContentLen(), 2);
    std::string out = Reply("") + "xx|";
    const int nTotal = static_cast<int>(out.size()) - 1;
    EXPECT_EQ(response.as_binary(out.data(), nTotal - 1), -1);
    EXPECT_EQ(response.as_binary(out.data(), nTotal), nTotal);
    EXPECT_EQ(out, Reply("") + "ab|") << "nothing after the last byte";
}

// CDialogueTest compares the replies for UDP and interleaved transport.
TEST(RtspResponse, TransportReply) {
    const struct {
        const char* why;
        std::string request;
        trans_protocol protocol;
        uint32_t ssrc;
        const char* source;
        const char* reply;
    } rows[] = {
        {"separate TCP", "RTP/AVP/TCP;client_port=5", protocol_tcp, 7, nullptr,
         "RTP/AVP/TCP;client_port=5;server_port=6000-6001"},
        {"multicast", "RTP/AVP;multicast", protocol_mcast, 7, nullptr,
         "RTP/AVP;multicast;port=6000-6001;ttl=127;ssrc=7"},
        {"no SSRC, a source", "RTP/AVP;destination=1.2.3.4", protocol_udp, 0, "5.6.7.8",
         "RTP/AVP;destination=1.2.3.4;server_port=6000-6001;source=5.6.7.8"},
        {"no source without a destination", "RTP/AVP", protocol_udp, 0, "5.6.7.8",
         "RTP/AVP;server_port=6000-6001"},
        {"another SSRC", "RTP/AVP;ssrc=1;x", protocol_udp, 0xABC, nullptr,
         "RTP/AVP;ssrc=abc;x;server_port=6000-6001"},
        {"two alternatives", "RTP/AVP;a,RTP/AVP;b", protocol_http, 7, nullptr,
         "RTP/AVP;a;ssrc=7,RTP/AVP;b"},
    };
    for (const auto& row : rows) {
        CRtspResponse response(RTSP_STATUS_200);
        const auto request = Request("Transport: " + row.request + "\r\n");
        response.append_transport(request.get(), row.protocol, row.ssrc, 6000, 6001, row.source,
                                  nullptr, nullptr);
        EXPECT_EQ(Text(response), Reply(std::string("Transport: ") + row.reply + "\r\n"))
            << row.why;
    }
}

TEST(RtspResponse, InterleavedChannelsAreStored) {
    constexpr int UNTOUCHED = 99;
    const auto channels = [](const std::string& parameter) {
        unsigned char first = UNTOUCHED, second = UNTOUCHED;
        CRtspResponse response(RTSP_STATUS_200);
        const auto request = Request("Transport: RTP/AVP/TCP" + parameter + "\r\n");
        response.append_transport(request.get(), protocol_over_rtsp, 0, 0, 1, nullptr, &first,
                                  &second);
        return std::pair<int, int>(first, second);
    };
    EXPECT_EQ(channels(";interleaved=4-5"), std::pair(4, 5));
    EXPECT_EQ(channels(";interleaved=4"), std::pair(4, UNTOUCHED));
    EXPECT_EQ(channels(";interleaved=x"), std::pair(UNTOUCHED, UNTOUCHED));
    EXPECT_EQ(channels(";interleaved=255-254"), std::pair(UNTOUCHED, 254)) << "kept: 255 is none";
    EXPECT_EQ(channels(";interleaved=256-1"), std::pair(0, 1));
    EXPECT_EQ(channels(";interleaved=511-1"), std::pair(255, 1));
    EXPECT_EQ(channels(""), std::pair(UNTOUCHED, UNTOUCHED));
}

TEST(RtspResponse, MulticastReply) {
    CBB_ADDR_T group = {};
    ASSERT_EQ(CBB_MakeAddrByString(AF_INET, "224.0.1.7", 6000, &group), 0);
    CRtspResponse response(RTSP_STATUS_200);
    response.append_mul_address_port(Request("Transport: RTP/AVP;multicast\r\n").get(), 0, 6000,
                                     6001, &group);
    response.append_mul_address_port(Request("Transport:\r\n").get(), 0, 6000, 6001, &group);
    EXPECT_EQ(Text(response), Reply("Transport: RTP/AVP;multicast;destination=224.0.1.7;"
                                    "port=6000-6001;ttl=127;ssrc=0\r\n"));
}

TEST(RtspMsg, HeadersAreShownInTheirOrder) {
    const CLogCapture log;
    CRtspResponse response(RTSP_STATUS_200);
    EXPECT_STREQ(response.Msg(), "OK");
    response.append_date("today");
    response.append_range_time_now(nullptr, time_t{1} << 40);  // clamped to the range of int
    response.AddHeader("Big", 4294967295UL);
    EXPECT_EQ(Text(response), Reply("Date: today\r\nRange: 20380119T031407Z\r\n"
                                    "Big: 4294967295\r\n"));
    std::string names;
    for (CRtspHeader* header = response.GetFirstHeader(); header != nullptr;
         header = response.GetNextHeader()) {
        names += header->Name();
        header->show_header();
        header->GetHeaderValue()->show_value();
    }
    EXPECT_EQ(names, "DateRangeBig");
    EXPECT_TRUE(log.Has("show_value [today]\n"));
    EXPECT_STREQ(response.GetFirstHeader()->Name(), "Date") << "starts again";
    response.Clear();
    response.AddHeader("First", "again");
    EXPECT_STREQ(response.GetNextHeader()->Name(), "First");
}
