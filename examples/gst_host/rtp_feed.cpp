// SPDX-License-Identifier: MIT
#include "rtp_feed.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <string>

#include "nal.h"

namespace {

using CSamplePtr = std::unique_ptr<GstSample, decltype(&gst_sample_unref)>;

// Over UDP the server's sender reports begin with the SSRC. When its top bits are those of RTP
// version 2, players treat the report as media.
constexpr uint32_t SSRC_BITS = 0x7FFFFFFF;

struct CCoding {
    const char* pName;  // in the caps
    bool bVideo;
    uint32_t dwCoding;
};
constexpr CCoding CODINGS[] = {{"H264", true, RTSPS_VIDEO_STREAM_TYPE_H264},
                               {"H265", true, RTSPS_VIDEO_STREAM_TYPE_H265},
                               {"PCMA", false, RTSPS_AUDIO_STREAM_TYPE_G711A}};

bool ReadFormat(const GstCaps* pCaps, bool bVideo, CRtpFormat& format) {
    const GstStructure* pFields = gst_caps_get_structure(pCaps, 0);
    const gchar* pName = gst_structure_get_string(pFields, "encoding-name");
    const auto* pCoding = std::find_if(std::begin(CODINGS), std::end(CODINGS), [=](const auto& c) {
        return c.bVideo == bVideo && g_strcmp0(c.pName, pName) == 0;
    });
    int payload = 0;
    int rate = 0;
    guint ssrc = 0;
    if (pCoding == std::end(CODINGS) || !gst_structure_get_int(pFields, "payload", &payload) ||
        !gst_structure_get_int(pFields, "clock-rate", &rate))
        return false;
    gst_structure_get_uint(pFields, "ssrc", &ssrc);
    format.dwCoding = pCoding->dwCoding;
    format.byPayloadType = static_cast<uint8_t>(payload);
    format.dwSsrc = ssrc & SSRC_BITS;
    format.dwRate = static_cast<uint32_t>(rate);
    return true;
}

}  // namespace

void CRtpFeed::Connect(GstAppSink* pSink) {
    GstAppSinkCallbacks callbacks = {};
    callbacks.new_sample = OnSample;
    gst_app_sink_set_callbacks(pSink, &callbacks, this, nullptr);
}

// A sample is one packet, or a list of packets that the payloader has produced together.
GstFlowReturn CRtpFeed::OnSample(GstAppSink* pSink, gpointer pSelf) {
    auto& feed = *static_cast<CRtpFeed*>(pSelf);
    const CSamplePtr sample(gst_app_sink_try_pull_sample(pSink, 0), gst_sample_unref);
    if (sample == nullptr)
        return GST_FLOW_OK;
    if (!feed.CheckCaps(pSink, gst_sample_get_caps(sample.get())))
        return GST_FLOW_ERROR;
    const auto take = [&](GstBuffer* pPacket) {
        feed.Take(GST_ELEMENT(pSink), gst_sample_get_segment(sample.get()), pPacket);
    };
    GstBufferList* pList = gst_sample_get_buffer_list(sample.get());
    for (guint i = 0; pList != nullptr && i < gst_buffer_list_length(pList); ++i)
        take(gst_buffer_list_get(pList, i));
    if (GstBuffer* pPacket = gst_sample_get_buffer(sample.get()))
        take(pPacket);
    feed.m_lastPacket = g_get_monotonic_time();
    return GST_FLOW_OK;
}

void CRtpFeed::Take(GstElement* pSink, const GstSegment* pSegment, GstBuffer* pPacket) {
    const GstClockTime now = gst_element_get_current_clock_time(pSink);
    const GstClockTime running =
        gst_segment_to_running_time(pSegment, GST_FORMAT_TIME, GST_BUFFER_PTS(pPacket));
    const GstClockTime time =
        GST_CLOCK_TIME_IS_VALID(running) ? gst_element_get_base_time(pSink) + running : now;
    m_lateness = std::max<GstClockTimeDiff>(m_lateness, GST_CLOCK_DIFF(time, now));
    Append(pPacket, time);
}

// The payload type and SSRC of a new payloader are ignored, because the track keeps its own.
bool CRtpFeed::CheckCaps(GstAppSink* pSink, const GstCaps* pCaps) {
    CRtpFormat format;
    const bool bKnown = ReadFormat(pCaps, m_bVideo, format);
    if (!bKnown) {
        GST_ELEMENT_ERROR(pSink, STREAM, FORMAT,
                          ("%s is required here", m_bVideo ? "H.264 or H.265" : "A-law"),
                          (nullptr));
    } else if (!m_bOpen) {
        m_format = format;
        m_track.Open(format.byPayloadType, format.dwRate);
        m_bOpen = true;
    } else if (format.dwCoding != m_format.dwCoding || format.dwRate != m_format.dwRate) {
        GST_ELEMENT_ERROR(pSink, STREAM, FORMAT, ("the coding has changed"), (nullptr));
        return false;
    }
    return bKnown;
}

void CRtpFeed::Append(GstBuffer* pPacket, GstClockTime time) {
    const gsize size = gst_buffer_get_size(pPacket);
    uint8_t header[RTP_HEADER_SIZE];
    if (size > G_MAXUINT16 ||
        gst_buffer_extract(pPacket, 0, header, sizeof(header)) < sizeof(header))
        return;
    // A marker is missing, for example because the pipeline was restarted within an access unit.
    const uint32_t dwUnitTime = ReadBe32(header + 4);
    if (!m_units.empty() && dwUnitTime != m_dwUnitTime)
        Push();
    m_dwUnitTime = dwUnitTime;
    uint8_t payload[NAL_HEAD_SIZE];
    const gsize nalSize = gst_buffer_extract(pPacket, RTP_HEADER_SIZE, payload, sizeof(payload));
    if (m_bVideo && IsStraySet(payload, nalSize))
        return;
    const size_t at = m_units.size();
    m_units.resize(at + RTSPS_UNIT_PREFIX_SIZE + size);
    uint8_t* pUnit = m_units.data() + at;
    pUnit[0] = '$';
    pUnit[1] = 0;
    WriteBe16(pUnit + 2, static_cast<uint16_t>(size));
    gst_buffer_extract(pPacket, 0, pUnit + RTSPS_UNIT_PREFIX_SIZE, size);
    m_track.Stamp(pUnit + RTSPS_UNIT_PREFIX_SIZE, time);
    const bool bMarker = (pUnit[RTSPS_UNIT_PREFIX_SIZE + 1] & 0x80) != 0;
    if (bMarker || !m_bVideo)
        Push();
}

// Payloaders that repeat parameter sets insert them before each slice of a key frame. Decoders
// treat those between two slices as the beginning of another picture.
bool CRtpFeed::IsStraySet(const uint8_t* pPayload, size_t size) {
    const bool bH264 = m_format.dwCoding == RTSPS_VIDEO_STREAM_TYPE_H264;
    const CNalTraits traits =
        ClassifyNal(bH264 ? EVideoCodec::eH264 : EVideoCodec::eH265, pPayload, size);
    if (traits.emParameterSet != PARAMETER_SET_NONE)
        return m_bInPicture;
    // A type that only RTP uses is a fragment of a slice.
    m_bInPicture = m_bInPicture || traits.bSlice || !traits.bSendable;
    return false;
}

// The server leaves the buffer in a state that allows a second push.
void CRtpFeed::Push() {
    for (CStream* pStream : m_streams) {
        if (m_bVideo)
            pStream->PushPicture(m_units);
        else
            pStream->PushSound(m_units);
    }
    m_units.clear();
    m_bInPicture = false;
}
