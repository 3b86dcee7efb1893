// SPDX-License-Identifier: MIT
#include "rtsp_header.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "rtsp_msg_parser.h"
#include "support/log_capture.h"

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

TEST(RtspHeader, NullDoesNotReplaceAPartOfAParameter) {
    CRtspParameter parameter;
    parameter.add_attribute(nullptr, "1");
    parameter.add_attribute("a", nullptr);
    EXPECT_EQ(Text(parameter), "a=1");
}

TEST(RtspHeader, ParametersAreFoundByTheirName) {
    CRtspHeaderValue value("12345678");
    value.AddParameter("timeout", "60");
    value.AddParameter("timeout", "70");
    EXPECT_STREQ(value.GetParameterValue("timeout"), "timeout");  // a presence test, not the value
    EXPECT_STREQ(value.GetParameter("timeout")->get_value(), "60");
    value.remove_parameter("timeout");
    EXPECT_EQ(Text(value), "12345678;timeout=70");
    value.Clear();
    EXPECT_EQ(Text(value), "");
}

TEST(RtspHeader, OwnsItsValues) {
    CRtspHeader header("n");
    header.AddHeaderValue(static_cast<CRtspHeaderValue*>(nullptr));
    header.AddHeaderValue(new CRtspHeaderValue("a", "1"));
    CRtspHeaderValue* pSecond = header.AddHeaderValue("b;c");
    EXPECT_EQ(header.GetHeaderValue("b;c"), pSecond);
    const std::unique_ptr<CRtspHeader> copy(header.clone());
    header.Clear();
    EXPECT_EQ(Text(header) + Text(*copy), "\r\na=1,b;c\r\n");
}

TEST(RtspHeader, RangesKeepTheirTimes) {
    CRtspRangeValue range(10, 20, TR_NPT);
    EXPECT_EQ(range.Type(), TR_NPT);
    EXPECT_EQ(range.Begin(), 10U);
    EXPECT_EQ(range.End(), 20U);
    char szText[] = "before";
    range.remove_parameter("10-20");
    range.as_string(szText);
    EXPECT_STREQ(szText, "") << "kept: a range without text erases what the output held";
}

// Only the first value is read, and the comparison is case-sensitive.
TEST(RtspTransport, ProtocolTypeAndPorts) {
    const struct {
        const char* text;
        trans_protocol protocol;
        trans_type type;
        int clientPort, serverPort;
    } rows[] = {
        {"RTP/AVP/TCP;unicast;client_port=5000-5001", protocol_tcp, unicast, 5000, 0},
        {"RTP/AVP;multicast", protocol_mcast, mcast, 0, 0},
        {"RTP/AVP;mcast", protocol_mcast, unicast, 0, 0},
        {"RTP/AVP;unicast;multicast", protocol_mcast, unicast, 0, 0},
        {"rtp/avp;unicast;client_port=99999999999", protocol_udp, unicast, 65535, 0},
        {"RAW/RAW/UDP;multicast", protocol_udp, mcast, 0, 0},
        {"", protocol_udp, unicast, 0, 0},
        {"x,RTP/AVP/TCP;client_port=1", protocol_udp, unicast, 0, 0},
        {"RTP/AVP;client_port=70000;server_port=6000-6001", protocol_udp, unicast, 4464, 6000},
        {"RTP/AVP;client_port;server_port=x", protocol_udp, unicast, 0, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        const auto header = Split(row.text);
        EXPECT_EQ(CRtspTransport::GetTransProtocol(*header), row.protocol);
        EXPECT_EQ(CRtspTransport::GetTransType(*header), row.type);
        EXPECT_EQ(CRtspTransport::GetClientPort(*header), row.clientPort);
        EXPECT_EQ(CRtspTransport::GetServerPort(*header), row.serverPort);
    }
}

TEST(RtspTransport, InterleavedChannels) {
    int nFirst = 255, nSecond = 255;
    const CLogCapture errors(2);
    EXPECT_EQ(Split<CRtspTransport>("RTP/AVP/TCP")->GetInterleavedFlag(&nFirst, &nSecond), -1);
    EXPECT_EQ(errors.Text(), "can not find interleaved para! \n");
    EXPECT_EQ(Split<CRtspTransport>("")->GetInterleavedFlag(&nFirst, &nSecond), -1);
    EXPECT_EQ(nFirst + nSecond, 510);
    EXPECT_EQ(Split<CRtspTransport>("RTP/AVP;interleaved=x")->GetInterleavedFlag(&nFirst, &nSecond),
              0)
        << "the parameter exists";
}
