// SPDX-License-Identifier: MIT
// Takes RTP packets from a pipeline's appsink and pushes them, an access unit at a time.
#ifndef GST_HOST_RTP_FEED_H
#define GST_HOST_RTP_FEED_H

#include <gst/app/gstappsink.h>

#include <atomic>
#include <vector>

#include "rtp_track.h"
#include "stream.h"

// What the payloader's caps say about its packets.
struct CRtpFormat {
    uint32_t dwCoding = RTSPS_VIDEO_STREAM_TYPE_UNDEF;  // a RTSP_SERVER_STREAM_TYPE value
    uint8_t byPayloadType = 0;
    uint32_t dwSsrc = 0;
    uint32_t dwRate = 0;
};

// Outlives the pipelines that it is connected to: one at a time, the next one after a restart.
class CRtpFeed {
  public:
    // streams: outlive the feed.
    CRtpFeed(bool bVideo, std::vector<CStream*> streams)
        : m_bVideo(bVideo), m_streams(std::move(streams)) {}

    void Connect(GstAppSink* pSink);

    // Whether packets have come, and Format() is what they are.
    bool IsOpen() const { return m_bOpen; }
    const CRtpFormat& Format() const { return m_format; }
    // When the last ones came, as g_get_monotonic_time; 0 before.
    gint64 LastPacket() const { return m_lastPacket; }

    // By how much the latest packet since the last call was late: it came so long after the time of
    // its media, plus the pipeline's latency.
    GstClockTimeDiff TakeLateness() { return m_lateness.exchange(0); }

    bool IsVideo() const { return m_bVideo; }
    const std::vector<CStream*>& Streams() const { return m_streams; }

  private:
    static GstFlowReturn OnSample(GstAppSink* pSink, gpointer pSelf);
    bool CheckCaps(GstAppSink* pSink, const GstCaps* pCaps);
    void Take(GstElement* pSink, const GstSegment* pSegment, GstBuffer* pPacket);
    void Append(GstBuffer* pPacket, GstClockTime time);
    bool IsStraySet(const uint8_t* pPayload, size_t size);
    void Push();

    const bool m_bVideo;
    const std::vector<CStream*> m_streams;

    // Written by the streaming thread, read by the main thread. m_format is written once, before
    // m_bOpen. The main thread resets m_lateness.
    std::atomic<bool> m_bOpen{false};
    std::atomic<gint64> m_lastPacket{0};
    std::atomic<GstClockTimeDiff> m_lateness{0};
    CRtpFormat m_format;

    // The streaming thread's. A restart joins the old one before it starts the new one.
    CRtpTrack m_track;
    std::vector<uint8_t> m_units;  // of the access unit that is not complete yet
    uint32_t m_dwUnitTime = 0;     // its RTP time
    bool m_bInPicture = false;     // a slice of it was there
};

#endif
