// SPDX-License-Identifier: MIT
#include "rtsps_misc.h"

#include "rtsps_server.h"
#include "rtsps_url.h"
#include "support/log_capture.h"

namespace {

std::string Session(const std::string& address, bool live) {
    return "v=0\r\no=- 1109162014219182 0 IN " + address +
           "\r\ns=Media Server\r\ni=Media Server Session Description : standard\r\ne=NONE\r\n"
           "c=IN " +
           address + "\r\nt=0 0\r\na=control:*\r\n" + (live ? "a=range:npt=0.0-\r\n" : "");
}

TEST(SdpDescription, EveryLineForEveryCoding) {
    const std::string live = Session("IP4 0.0.0.0", true);
    const std::string video = "m=video 0 RTP/AVP 96\r\ni=Video media\r\na=rtpmap:96 ";
    const std::string h264 = video + "H264/90000\r\na=control:streamid=0\r\n";
    const std::string h265 =
        "m=video 0 RTP/AVP 255\r\ni=Video media\r\n"
        "a=rtpmap:255 H265/90000\r\na=control:streamid=0\r\n";
    const std::string unknown =
        video +
        "MP4V-ES/90000\r\na=control:streamid=0\r\n"
        "m=audio 0 RTP/AVP 97\r\na=rtpmap:97 MP4V-ES/90000\r\na=control:streamid=1\r\n";
    const std::string noMatch = "E encode is 0; nof find match!|E encode is 33; nof find match!";
    const std::string pcma =
        "m=audio 0 RTP/AVP 8\r\na=rtpmap:8 PCMA/8000\r\na=control:streamid=1\r\n";
    std::tuple<int, uint8_t, tagRtspServerStreamInfo, std::string, std::string> rows[] = {
        {0, 0, {96, 8, 0, 0, 32, 1, {}}, live + h264 + pcma, ""},
        {0, 0, {255, 8, 0, 0, 0, 2, {}}, live + h265, ""},
        {0, 0, {96, 8, 0, 0, 100, 1, {}}, live + h264, ""},
        {0, 1, {96, 8, 0, 0, 32, 1, {}}, Session("IP6 ::", true) + h264 + pcma, ""},
        {1, 0, {96, 8, 0, 0, 32, 1, {}}, Session("IP4 0.0.0.0", false) + h264 + pcma, ""},
        {0, 0, {96, 97, 0, 0, 33, 0, {}}, live + unknown, noMatch}};
    for (auto& [reqType, ipv6, info, sdp, lines] : rows) {
        SCOPED_TRACE(sdp);
        const CLogCapture log;
        tagRtspRequestCfg cfg{reqType, 3, 2, ipv6, {}, {}};
        CRtspServer::Instance()->SetStreamInfo(3, 2, &info);
        EXPECT_EQ(GenerateSdpDescription(&cfg, nullptr, 2048), -1);
        for (const size_t size : {size_t{1}, size_t{64}, sdp.size(), sdp.size() + 1}) {
            const bool fits = size > sdp.size();
            std::string out(2048, 'x');
            EXPECT_EQ(GenerateSdpDescription(&cfg, out.data(), static_cast<int>(size)),
                      fits ? 0 : -1);
            EXPECT_TRUE(!fits || out.c_str() == sdp) << out;
            EXPECT_EQ(out[size], 'x') << "nothing behind " << size << " bytes";
        }
        EXPECT_TRUE(log.HasLines(lines));
        EXPECT_EQ(log.Text().empty(), lines.empty());
    }
}

}  // namespace
