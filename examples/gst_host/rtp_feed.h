// SPDX-License-Identifier: MIT
// Reads RTP packets from a pipeline's appsink and pushes them, one access unit at a time.
#ifndef GST_HOST_RTP_FEED_H
#define GST_HOST_RTP_FEED_H

#include <gst/app/gstappsink.h>

#include <atomic>
#include <vector>

#include "rtp_track.h"
#include "stream.h"

// The format of the packets, from the caps of the payloader.
struct CRtpFormat {
    uint32_t dwCoding = RTSPS_VIDEO_STREAM_TYPE_UNDEF;  // a RTSP_SERVER_STREAM_TYPE value
    uint8_t byPayloadType = 0;
    uint32_t dwSsrc = 0;
    uint32_t dwRate = 0;
};

// Connected to one pipeline at a time, and to a new one after a restart. Outlives the pipelines.
class CRtpFeed {
  public:
    // streams: outlive the feed.
    CRtpFeed(bool bVideo, std::vector<CStream*> streams)
        : m_bVideo(bVideo), m_streams(std::move(streams)) {}

    void Connect(GstAppSink* pSink);

    // Whether packets have arrived, so that Format() is known.
    bool IsOpen() const { return m_bOpen; }
    const CRtpFormat& Format() const { return m_format; }
    // The time of the last packets, as g_get_monotonic_time; 0 before the first.
    gint64 LastPacket() const { return m_lastPacket; }

    // The greatest delay of a packet since the last call: its arrival minus the time of its media
    // and the latency of the pipeline.
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

    // Streaming thread only. A restart joins the old thread before it starts the new one.
    CRtpTrack m_track;
    std::vector<uint8_t> m_units;  // of the access unit that is not complete yet
    uint32_t m_dwUnitTime = 0;     // its RTP time
    bool m_bInPicture = false;     // a slice of it has arrived
};

#endif
