// SPDX-License-Identifier: MIT
#include "rtsp_header.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <utility>

#include "rtsp_msg_parser.h"

namespace {

template <class T>
std::string Text(const T& object) {
    char szText[4096] = {};
    object.as_string(szText);
    return szText;
}

// A header with the values of `text`, split as on a received line.
template <class Header = CRtspHeader>
std::unique_ptr<Header> Split(const std::string& text) {
    auto header = std::make_unique<Header>();
    CRtspMsgParser().DefaultParseHeaderValues(text.data(), static_cast<int>(text.size()),
                                              header.get());
    return header;
}

}  // namespace

TEST(RtspHeader, ParameterKeepsWhatNullDoesNotReplaceAndCutsAt255) {
    CRtspParameter parameter;
    const std::string x(300, 'x'), cut(255, 'x');
    const std::tuple<const char*, const char*, std::string> cases[] = {
        {nullptr, nullptr, ""},
        {nullptr, "1", "=1"},
        {"a", nullptr, "a=1"},
        {"b", "", "b"},
        {x.c_str(), x.c_str(), cut + "=" + cut}};
    for (const auto& [szAttribute, szValue, expected] : cases) {
        EXPECT_EQ(parameter.add_attribute(szAttribute, szValue), 0);
        EXPECT_EQ(Text(parameter), expected);
    }
}

// An empty element ends the list, one without a first token makes no value, an empty token ends the
// value, trailing blanks stay, and quotes protect nothing: two values, written back alike.
TEST(RtspHeader, SplittingAndWritingBack) {
    // clang-format off: short rows side by side
    const std::pair<const char*, const char*> cases[] = {
        {"RTP/AVP;unicast;client_port=5000-5001", "RTP/AVP;unicast;client_port=5000-5001"},
        {"a, b;c=1", "a,b;c=1"},
        {"a,,b", "a"},
        {"a,;x,b", "a,b"},
        {"x=1 ;y", "x=1 ;y"},
        {"a=;b", "a;b"},
        {"a==b", "a==b"},
        {"a;;b", "a"},
        {"q=\"1,2\"", "q=\"1,2\""},
        {"", ""},
        {" \t ", ""}};
    // clang-format on
    for (const auto& [szText, szExpected] : cases) {
        EXPECT_EQ(Text(*Split(szText)), std::string(szExpected) + "\r\n") << szText;
    }
    EXPECT_NE(Split("q=\"1,2\"")->GetHeaderValue("q=\"1"), nullptr);
}

TEST(RtspHeader, LookupAndOwnership) {
    CRtspHeaderValue value("12345678");
    value.AddParameter("timeout", "60");
    value.AddParameter("timeout", "70");
    EXPECT_STREQ(value.GetParameterValue("timeout"), "timeout");  // a presence test, not the value
    EXPECT_STREQ(value.GetParameter("timeout")->get_value(), "60");
    EXPECT_EQ(value.GetParameterValue("Timeout"), nullptr);
    value.remove_parameter("absent");
    value.remove_parameter("timeout");
    EXPECT_EQ(Text(value), "12345678;timeout=70");

    std::unique_ptr<CRtspHeader> header(CRtspHeader::create_new("CSeq"));
    header->AddHeaderValue(static_cast<CRtspHeaderValue*>(nullptr));
    header->AddHeaderValue(new CRtspHeaderValue("a", "1"));
    CRtspHeaderValue* pSecond = header->AddHeaderValue("b;c");
    EXPECT_EQ(header->GetHeaderValue("b;c"), pSecond);
    EXPECT_FALSE(header->IsTypeByName("Cseq"));
    const std::unique_ptr<CRtspHeader> copy(header->clone());
    header->Clear();
    EXPECT_EQ(Text(*header), "\r\n");
    EXPECT_EQ(Text(*copy), "a=1,b;c\r\n");
    EXPECT_STREQ(std::unique_ptr<CRtspHeader>(CRtspHeader::create_new(nullptr))->Name(), "");
    EXPECT_EQ(strlen(CRtspHeader(std::string(2000, 'n').c_str()).Name()), 1023U);
}

// Only the first value and the given case count.
TEST(RtspTransport, ProtocolTypeAndPorts) {
    const std::tuple<const char*, trans_protocol, trans_type, int, int> cases[] = {
        {"RTP/AVP;unicast;client_port=5000-5001", protocol_udp, unicast, 5000, 0},
        {"RTP/AVP/UDP;unicast;client_port=5000", protocol_udp, unicast, 5000, 0},
        {"RTP/AVP/TCP;unicast;interleaved=0-1", protocol_over_rtsp, unicast, 0, 0},
        {"RTP/AVP/TCP;unicast;client_port=5000-5001", protocol_tcp, unicast, 5000, 0},
        {"RTP/AVP;multicast", protocol_mcast, mcast, 0, 0},
        {"RTP/AVP;mcast", protocol_mcast, unicast, 0, 0},
        {"RTP/AVP;unicast;multicast", protocol_mcast, unicast, 0, 0},
        {"rtp/avp;unicast", protocol_udp, unicast, 0, 0},
        {"RAW/RAW/UDP;multicast", protocol_udp, mcast, 0, 0},
        {"", protocol_udp, unicast, 0, 0},
        {"x,RTP/AVP/TCP;client_port=1", protocol_udp, unicast, 0, 0},
        {"RTP/AVP;client_port=70000;server_port=6000-6001", protocol_udp, unicast, 4464, 6000},
        {"RTP/AVP;client_port=99999999999", protocol_udp, unicast, 65535, 0},
        {"RTP/AVP;client_port;server_port=x", protocol_udp, unicast, 0, 0}};
    for (const auto& [szText, protocol, type, nClientPort, nServerPort] : cases) {
        const auto plain = Split(szText);
        EXPECT_EQ(CRtspTransport::GetTransProtocol(*plain), protocol) << szText;
        EXPECT_EQ(CRtspTransport::GetTransType(*plain), type) << szText;
        EXPECT_EQ(CRtspTransport::GetClientPort(*plain), nClientPort) << szText;
        EXPECT_EQ(CRtspTransport::GetServerPort(*plain), nServerPort) << szText;
    }
}

TEST(RtspTransport, InterleavedChannels) {
    const std::tuple<const char*, int, int, int, const char*> cases[] = {
        {"RTP/AVP/TCP;interleaved=0-1", 0, 0, 1, ""},
        {"RTP/AVP/TCP;interleaved=4", 0, 4, 255, ""},
        {"RTP/AVP/TCP;interleaved=x", 0, 255, 255, ""},
        {"RTP/AVP/TCP", -1, 255, 255, "can not find interleaved para! \n"},
        {"", -1, 255, 255, ""}};
    for (const auto& [szText, nResult, nExpected1, nExpected2, szError] : cases) {
        int nFirst = 255, nSecond = 255;
        testing::internal::CaptureStderr();
        EXPECT_EQ(Split<CRtspTransport>(szText)->GetInterleavedFlag(&nFirst, &nSecond), nResult);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), szError);
        EXPECT_EQ(nFirst, nExpected1) << szText;
        EXPECT_EQ(nSecond, nExpected2) << szText;
    }
}
