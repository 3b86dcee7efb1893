// SPDX-License-Identifier: MIT
#include "rtsps_misc.h"

#include <gtest/gtest.h>

#include "rtsps_server.h"
#include "rtsps_url.h"
#include "support/log_capture.h"
#include "support/test_net.h"

namespace {

std::string Session(const std::string& address, bool live) {
    return "v=0\r\no=- 1109162014219182 0 IN " + address +
           "\r\ns=Media Server\r\ni=Media Server Session Description : standard\r\ne=NONE\r\n"
           "c=IN " +
           address + "\r\nt=0 0\r\na=control:*\r\n" + (live ? "a=range:npt=0.0-\r\n" : "");
}

std::string Media(const std::string& kind, const std::string& payload, const std::string& coding) {
    const bool video = kind == "video";
    return "m=" + kind + " 0 RTP/AVP " + payload + (video ? "\r\ni=Video media" : "") +
           "\r\na=rtpmap:" + payload + " " + coding +
           "\r\na=control:streamid=" + (video ? "0\r\n" : "1\r\n");
}

TEST(SdpDescription, EveryLineForEveryCoding) {
    const std::string live = Session("IP4 0.0.0.0", true);
    const std::string h264 = Media("video", "96", "H264/90000");
    const std::string h265 = Media("video", "255", "H265/90000");
    const std::string unknown =
        Media("video", "96", "MP4V-ES/90000") + Media("audio", "97", "MP4V-ES/90000");
    const std::string noMatch = "E encode is 0; nof find match!|E encode is 33; nof find match!";
    const std::string pcma = Media("audio", "8", "PCMA/8000");
    const struct {
        int reqType;
        uint8_t ipv6;
        tagRtspServerStreamInfo info;
        std::string sdp;
        std::string lines;
    } rows[] = {
        {0, 0, {96, 8, 0, 0, 32, 1, {}}, live + h264 + pcma, ""},
        {0, 0, {255, 8, 0, 0, 0, 2, {}}, live + h265, ""},
        {0, 0, {96, 8, 0, 0, 100, 1, {}}, live + h264, ""},
        {0, 1, {96, 8, 0, 0, 32, 1, {}}, Session("IP6 ::", true) + h264 + pcma, ""},
        {1, 0, {96, 8, 0, 0, 32, 1, {}}, Session("IP4 0.0.0.0", false) + h264 + pcma, ""},
        {0, 0, {96, 97, 0, 0, 33, 0, {}}, live + unknown, noMatch},
    };
    for (auto row : rows) {
        tagRtspRequestCfg cfg{row.reqType, 3, 2, row.ipv6, {}, {}};
        CRtspServer::Instance()->SetStreamInfo(3, 2, &row.info);
        std::string out(2048, 'x');
        const CLogCapture log;
        EXPECT_EQ(GenerateSdpDescription(&cfg, out.data(), 2048), 0);
        EXPECT_EQ(out.c_str(), row.sdp);
        EXPECT_TRUE(log.HasLines(row.lines));
        EXPECT_EQ(log.Text().empty(), row.lines.empty());
    }
}

TEST(SdpDescription, FailsWithoutStreamRecordBufferOrRoom) {
    tagRtspRequestCfg cfg{1, 5, 2, 0, {}, {}};
    EXPECT_EQ(GenerateSdpDescription(&cfg, nullptr, 2048), -1);
    std::string out(2048, 'x');
    const CLogCapture log;
    EXPECT_EQ(GenerateSdpDescription(&cfg, out.data(), 2048), -1);
    EXPECT_EQ(out.c_str(), Session("IP4 0.0.0.0", false)) << "what was written stays";
    EXPECT_TRUE(log.HasLines("E get stream info failed,reqtype[1],chan[5],streamtype[2]"));

    TRtspServerStreamInfo info = MakeStreamInfo();
    CRtspServer::Instance()->SetStreamInfo(5, 2, &info);
    cfg.nReqType = 0;
    for (const size_t size : {1U, 64U, 319U, 320U}) {
        out.assign(2048, 'x');
        EXPECT_EQ(GenerateSdpDescription(&cfg, out.data(), static_cast<int>(size)),
                  size == 320 ? 0 : -1);
        EXPECT_EQ(out[size], 'x') << "nothing behind " << size << " bytes";
    }
}

}  // namespace
