// SPDX-License-Identifier: MIT
#include "rtsps_misc.h"

#include <cstdio>
#include <cstring>

#include "rtsps_debug.h"
#include "rtsps_server.h"
#include "rtsps_server_api.h"
#include "rtsps_text.h"
#include "rtsps_url.h"

namespace {

constexpr int DUMP_ROW_SIZE = 16;

void AppendSessionLines(const tagRtspRequestCfg& cfg, CTextAppender& sdp) {
    // Kept (clients): [sdp-family-from-url] brackets in the URL select IPv6, although the
    // connection is always IPv4.
    const bool bIpv6 = cfg.byIPV6 != 0;
    const char* szFamily = bIpv6 ? "IP6" : "IP4";
    const char* szAnyAddr = bIpv6 ? "::" : "0.0.0.0";
    sdp.Append("v=0\r\n");
    // Kept (clients): [sdp-fixed-origin] every description has this session id and version.
    sdp.AppendFormat("o=%s %s %s IN %s %s\r\n", "-", "1109162014219182", "0", szFamily, szAnyAddr);
    sdp.Append("s=Media Server\r\n");
    sdp.Append("i=Media Server Session Description : standard\r\n");
    sdp.Append("e=NONE\r\n");
    sdp.AppendFormat("c=IN %s %s\r\n", szFamily, szAnyAddr);
    sdp.Append("t=0 0\r\n");
    sdp.Append("a=control:*\r\n");
    if (cfg.nReqType == 0) {
        sdp.Append("a=range:npt=0.0-\r\n");
    }
}

// Kept (clients): [sdp-no-parameter-sets] there is no "a=fmtp" line. The stream carries the
// parameter sets, before each key frame.
void AppendVideoLines(const tagRtspServerStreamInfo& info, CTextAppender& sdp) {
    sdp.AppendFormat("m=video 0 RTP/AVP %d\r\n", info.byVideoPayload);
    sdp.Append("i=Video media\r\n");
    sdp.AppendFormat("a=rtpmap:%d %s\r\n", info.byVideoPayload,
                     get_encoding_name_for_sdp(info.dwVideoFormat));
    sdp.Append("a=control:streamid=0\r\n");
}

// Kept (clients): [sdp-audio-title] audio has no "i=" line, unlike video.
void AppendAudioLines(const tagRtspServerStreamInfo& info, CTextAppender& sdp) {
    if (info.dwAudioFormat == 0 || info.dwAudioFormat == RTSPS_AUDIO_STREAM_TYPE_UNDEF) {
        return;
    }
    sdp.AppendFormat("m=audio 0 RTP/AVP %d\r\n", info.byAudioPayload);
    sdp.AppendFormat("a=rtpmap:%d %s\r\n", info.byAudioPayload,
                     get_encoding_name_for_sdp(info.dwAudioFormat));
    sdp.Append("a=control:streamid=1\r\n");
}

}  // namespace

const char* get_encoding_name_for_sdp(unsigned int format) {
    switch (format) {
        case RTSPS_VIDEO_STREAM_TYPE_H264:
            return "H264/90000";
        case RTSPS_VIDEO_STREAM_TYPE_H265:
            return "H265/90000";
        case RTSPS_AUDIO_STREAM_TYPE_G711A:
            return "PCMA/8000";
        default:
            // Kept (clients): [sdp-unknown-coding] every other value, AAC included, gets this name.
            RTSPS_LOG(ERROR, "encode is %u; nof find match!", format);
            return "MP4V-ES/90000";
    }
}

int GenerateSdpDescription(const tagRtspRequestCfg* cfg, char* out, int size) {
    if (out == nullptr || size <= 0) {
        return -1;
    }
    memset(out, 0, static_cast<size_t>(size));
    CTextAppender sdp(out, static_cast<size_t>(size));
    AppendSessionLines(*cfg, sdp);

    tagRtspServerStreamInfo info{};
    if (CRtspServer::Instance()->GetStreamInfo(cfg->nChan, cfg->nStreamtype, &info) < 0) {
        RTSPS_LOG(ERROR, "get stream info failed,reqtype[%d],chan[%d],streamtype[%d]",
                  cfg->nReqType, cfg->nChan, cfg->nStreamtype);
        return -1;
    }
    AppendVideoLines(info, sdp);
    AppendAudioLines(info, sdp);
    return sdp.Overflowed() ? -1 : 0;
}

void RtspsDebugHex(unsigned char* data, int len) {
    static constexpr char RULE[] = "\n-----------------------\n";
    fprintf(stderr, "%s", RULE);
    for (int i = 0; i < len; ++i) {
        if (i % DUMP_ROW_SIZE == 0) {
            // Kept (operators): [hex-dump-rows] rows are numbered from 1.
            fprintf(stderr, "\n %04d |", i + 1);
        }
        fprintf(stderr, "%02x ", data[i]);
    }
    fprintf(stderr, "%s", RULE);
}
