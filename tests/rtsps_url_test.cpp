// SPDX-License-Identifier: MIT
#include "rtsps_url.h"

#include <sstream>

#include "support/log_capture.h"

namespace {

TEST(RtspUrl, SelectsChannelAndStreamOrSaysWhyNot) {
    const std::string longest = "rtsp://1234567/chan1/main/" + std::string(229, 'a');
    const std::string tooLong = longest + "a";
    // Channel, stream, IPv6 flag, port, host; or the line of a refusal, or "" for one without.
    const std::pair<const char*, const char*> rows[] = {
        {"RTSP://192.168.1.10:8554/Chan2/Sub/streamid=0", "2 1 0 554 192.168.1.10"},
        // The port's first digit is skipped.
        {"rtsp://192.168.1.10:554/chan2/sub", "2 1 0 54 192.168.1.10"},
        {"rtsp://192.168.1.10:165537/chan2/sub", "2 1 0 1 192.168.1.10"},
        {"rtsp://[fe80::1]:554/chan0/third", "0 2 1 54 fe80::1"},
        // Without a scheme the host comes first.
        {"192.168.1.10/chan1/main", "1 0 0 554 192.168.1.10"},
        // Substrings, main before sub before third.
        {"rtsp://1234567/live/chan12/x/third-sub-MAIN", "12 0 0 554 1234567"},
        {"rtsp://1234567/channel/main", "0 0 0 554 1234567"},
        {"rtsp://1234567/chan99999999999/main", "2147483647 0 0 554 1234567"},
        {longest.c_str(), "1 0 0 554 1234567"},
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
    for (const auto& [text, expected] : rows) {
        SCOPED_TRACE(text == nullptr ? "null" : text);
        const CLogCapture log;
        const CRtspUrl url(text);
        const bool isRefused = *expected == 'E' || *expected == '\0';
        EXPECT_EQ(url.IsValid(), !isRefused);
        EXPECT_EQ(log.Count("\n"), *expected == 'E' ? 1 : 0);
        if (isRefused) {
            EXPECT_TRUE(log.HasLines(expected));
            continue;
        }
        tagRtspRequestCfg cfg{};
        cfg.nReqType = 1;
        EXPECT_EQ(url.get_req_cfg(&cfg), 0);
        std::ostringstream out;
        out << cfg.nChan << " " << cfg.nStreamtype << " " << url.is_ipv6_addr() << " "
            << url.get_rtsp_port() << " " << url.get_host_string();
        EXPECT_EQ(out.str(), expected);
        EXPECT_TRUE(cfg.nReqType == 0 && cfg.byIPV6 == url.is_ipv6_addr());
    }
}

}  // namespace
