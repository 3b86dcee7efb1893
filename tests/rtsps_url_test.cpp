// SPDX-License-Identifier: MIT
#include "rtsps_url.h"

#include <string>

#include "support/log_capture.h"

namespace {

const std::string LONGEST = "rtsp://1234567/chan1/main/" + std::string(229, 'a');

TEST(RtspUrl, SelectsChannelAndStream) {
    const struct {
        const char* why;
        std::string text;
        int channel, stream;
        const char* host = "1234567";
        int port = 554;
        bool isIpv6 = false;
    } rows[] = {
        {"any case", "RTSP://192.168.1.10:8554/Chan2/Sub/streamid=0", 2, 1, "192.168.1.10"},
        {"kept: the port's first digit is skipped", "rtsp://192.168.1.10:554/chan2/sub", 2, 1,
         "192.168.1.10", 54},
        {"kept: the other digits wrap at 16 bits", "rtsp://192.168.1.10:165537/chan2/sub", 2, 1,
         "192.168.1.10", 1},
        {"IPv6", "rtsp://[fe80::1]:554/chan0/third", 0, 2, "fe80::1", 54, true},
        {"without a scheme the host comes first", "192.168.1.10/chan1/main", 1, 0, "192.168.1.10"},
        {"main goes before sub and third", "rtsp://1234567/live/chan12/x/third-sub-MAIN", 12, 0},
        {"chan without a number", "rtsp://1234567/channel/main", 0, 0},
        {"clamped", "rtsp://1234567/chan99999999999/main", 2147483647, 0},
        {"63 digits count", "rtsp://1234567/chan" + std::string(62, '0') + "12/main", 1, 0},
        {"the longest URL", LONGEST, 1, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const CLogCapture log;
        const CRtspUrl url(row.text.c_str());
        EXPECT_TRUE(url.IsValid());
        EXPECT_EQ(log.Text(), "");
        tagRtspRequestCfg cfg{};
        cfg.nReqType = 1;
        EXPECT_EQ(url.get_req_cfg(&cfg), 0);
        EXPECT_EQ(cfg.nReqType, 0);
        EXPECT_EQ(cfg.nChan, row.channel);
        EXPECT_EQ(cfg.nStreamtype, row.stream);
        EXPECT_EQ(cfg.byIPV6, row.isIpv6 ? 1 : 0);
        EXPECT_EQ(url.is_ipv6_addr(), row.isIpv6 ? 1 : 0);
        EXPECT_EQ(url.get_rtsp_port(), row.port);
        EXPECT_STREQ(url.get_host_string(), row.host);
    }
}

TEST(RtspUrl, LogsWhyItRefuses) {
    const std::string tooLong = LONGEST + "a";
    const struct {
        const char* text;
        const char* line;  // empty: refused without a line
    } rows[] = {
        {nullptr, "E pURL == NULL error!"},
        {tooLong.c_str(), "E URL tooo Longgggg"},
        {"HTTP://192.168.1.10/chan1/main", "E m_protocol error 1! http"},
        {"rtmp://192.168.1.10/chan1/main", "E m_protocol error 2! rtmp"},
        {"rtsp://123456/chan1/main", "E host_port error! 123456/chan1/main"},
        {"rtsp://[fe80::1/chan1/main", ""},
        {"rtsp://192.168.1.10/cha/main", "E can not find chan"},
        {"rtsp://192.168.1.10/chan1", ""},
        {"rtsp://192.168.1.10/chan3/HD%n", "E Error!not find 'main' or 'sub' or 'third' [hd%n]"},
        {"rtsp://192.168.1.10/main/chan3/", "E Error!not find 'main' or 'sub' or 'third' []"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text == nullptr ? "null" : row.text);
        const CLogCapture log;
        EXPECT_FALSE(CRtspUrl(row.text).IsValid());
        EXPECT_TRUE(log.HasLines(row.line));
        EXPECT_EQ(log.Count(" parse "), *row.line == '\0' ? 0 : 1);
    }
}

}  // namespace
