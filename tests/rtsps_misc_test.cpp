// SPDX-License-Identifier: MIT
#include "rtsps_misc.h"

#include "rtsps_server.h"
#include "rtsps_url.h"
#include "support/test_net.h"

namespace {

std::string Session(const std::string& address) {
    return "v=0\r\no=- 1109162014219182 0 IN " + address +
           "\r\ns=Media Server\r\ni=Media Server Session Description : standard\r\ne=NONE\r\n"
           "c=IN " +
           address + "\r\nt=0 0\r\na=control:*\r\na=range:npt=0.0-\r\n";
}

const std::string LIVE = Session("IP4 0.0.0.0");
const std::string VIDEO = "m=video 0 RTP/AVP 96\r\ni=Video media\r\na=rtpmap:96 ";
const std::string H264 = VIDEO + "H264/90000\r\na=control:streamid=0\r\n";
const std::string H265 =
    "m=video 0 RTP/AVP 255\r\ni=Video media\r\na=rtpmap:255 H265/90000\r\n"
    "a=control:streamid=0\r\n";
const std::string PCMA = "m=audio 0 RTP/AVP 8\r\na=rtpmap:8 PCMA/8000\r\na=control:streamid=1\r\n";
const std::string UNKNOWN = VIDEO +
                            "MP4V-ES/90000\r\na=control:streamid=0\r\n"
                            "m=audio 0 RTP/AVP 97\r\na=rtpmap:97 MP4V-ES/90000\r\n"
                            "a=control:streamid=1\r\n";

constexpr uint32_t NO_AUDIO = 0;

tagRtspServerStreamInfo Info(uint8_t videoPayload, uint32_t videoFormat, uint8_t audioPayload,
                             uint32_t audioFormat) {
    return {videoPayload, audioPayload, 0, 0, audioFormat, videoFormat, {}};
}

tagRtspRequestCfg Declare(tagRtspServerStreamInfo info) {
    CRtspServer::Instance()->SetStreamInfo(3, RTSPS_STREAM_THIRD, &info);
    return {0, 3, RTSPS_STREAM_THIRD, 0, {}, {}};
}

std::string Describe(const tagRtspRequestCfg& cfg) {
    char text[2048] = {};
    EXPECT_EQ(GenerateSdpDescription(&cfg, text, sizeof(text)), 0);
    return text;
}

TEST(SdpDescription, EveryCoding) {
    const struct {
        const char* why;
        tagRtspServerStreamInfo info;
        std::string description;
        std::string lines = {};
    } rows[] = {
        {"H.265, the largest payload type, no audio",
         Info(255, RTSPS_VIDEO_STREAM_TYPE_H265, 8, NO_AUDIO), LIVE + H265},
        {"audio of no known format",
         Info(96, RTSPS_VIDEO_STREAM_TYPE_H264, 8, RTSPS_AUDIO_STREAM_TYPE_UNDEF), LIVE + H264},
        {"formats without a name",
         Info(96, RTSPS_VIDEO_STREAM_TYPE_UNDEF, 97, RTSPS_AUDIO_STREAM_TYPE_AAC), LIVE + UNKNOWN,
         "E encode is 0; nof find match!|E encode is 33; nof find match!"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const CLogCapture log;
        EXPECT_EQ(Describe(Declare(row.info)), row.description);
        EXPECT_TRUE(log.HasLines(row.lines));
        EXPECT_EQ(log.Text().empty(), row.lines.empty());
    }
}

TEST(SdpDescription, NamesTheAddressFamily) {
    tagRtspRequestCfg cfg = Declare(MakeStreamInfo());
    cfg.byIPV6 = 1;
    EXPECT_EQ(Describe(cfg), Session("IP6 ::") + H264 + PCMA);
}

TEST(SdpDescription, StaysWithinItsBuffer) {
    const tagRtspRequestCfg cfg = Declare(MakeStreamInfo());
    EXPECT_EQ(GenerateSdpDescription(&cfg, nullptr, 2048), -1);
    const size_t length = (LIVE + H264 + PCMA).size();
    for (const size_t size : {size_t{1}, size_t{64}, length, length + 1}) {
        std::string out(2048, 'x');
        EXPECT_EQ(GenerateSdpDescription(&cfg, out.data(), static_cast<int>(size)),
                  size > length ? 0 : -1);
        EXPECT_EQ(out[size], 'x') << "nothing after " << size << " bytes";
    }
}

}  // namespace
