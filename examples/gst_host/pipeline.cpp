// SPDX-License-Identifier: MIT
#include "pipeline.h"

#include <gst/video/video.h>

#include <cstring>
#include <iterator>

namespace {

using CCapsPtr = std::unique_ptr<GstCaps, decltype(&gst_caps_unref)>;
using CPadPtr = std::unique_ptr<GstPad, decltype(&gst_object_unref)>;
using CElementPtr = std::unique_ptr<GstElement, decltype(&gst_object_unref)>;

struct CPayloader {
    const char* pCaps;
    const char* pFactory;  // null: the pipeline ends with a payloader
};
constexpr CPayloader PAYLOADERS[] = {{"application/x-rtp", nullptr},
                                     {"video/x-h264", "rtph264pay"},
                                     {"video/x-h265", "rtph265pay"},
                                     {"audio/x-alaw", "rtppcmapay"}};

// Returns the payloader for the pad's format; null when there is none.
const CPayloader* FindPayloader(GstPad* pPad) {
    const CCapsPtr caps(gst_pad_query_caps(pPad, nullptr), gst_caps_unref);
    if (gst_caps_is_any(caps.get()))
        return nullptr;
    for (const CPayloader& payloader : PAYLOADERS) {
        const CCapsPtr wanted(gst_caps_from_string(payloader.pCaps), gst_caps_unref);
        if (gst_caps_can_intersect(caps.get(), wanted.get()))
            return &payloader;
    }
    return nullptr;
}

// The server's description of a stream carries no parameter sets, so every key frame needs them.
// With -1 the payloaders of H.264 and H.265 insert them; by default the encoder has to. Audio
// packets of 20 ms are short enough to be sent when they are due.
void Configure(GstElement* pPayloader) {
    GObjectClass* pClass = G_OBJECT_GET_CLASS(pPayloader);
    if (g_object_class_find_property(pClass, "config-interval") != nullptr)
        g_object_set(pPayloader, "config-interval", -1, nullptr);
    else if (g_object_class_find_property(pClass, "max-ptime") != nullptr)
        g_object_set(pPayloader, "max-ptime", gint64{20 * GST_MSECOND}, nullptr);
}

// Returns the first line of the error. GStreamer's advice for developers follows it.
std::string Sentence(GstMessage* pMessage, const GError* pError) {
    return std::string(GST_MESSAGE_SRC_NAME(pMessage)) + ": " +
           std::string(pError->message, std::strcspn(pError->message, "\n"));
}

}  // namespace

CPipeline::CPipeline() : m_pPipeline(gst_pipeline_new(nullptr)) {
    // One clock for all pipelines, so that their times can be compared.
    GstClock* pClock = gst_system_clock_obtain();
    gst_pipeline_use_clock(GST_PIPELINE(m_pPipeline), pClock);
    gst_object_unref(pClock);
    gst_pipeline_set_latency(GST_PIPELINE(m_pPipeline), 0);
}

CPipeline::~CPipeline() {
    gst_element_set_state(m_pPipeline, GST_STATE_NULL);
    gst_object_unref(m_pPipeline);
}

std::unique_ptr<CPipeline> CPipeline::Make(const std::string& text, CRtpFeed& feed,
                                           std::string& error) {
    std::unique_ptr<CPipeline> pipeline(new CPipeline);
    if (!pipeline->Build(text, error))
        return nullptr;
    feed.Connect(GST_APP_SINK(pipeline->m_pSink));
    return pipeline;
}

bool CPipeline::Build(const std::string& text, std::string& error) {
    GError* pError = nullptr;
    GstElement* pBin = gst_parse_bin_from_description(text.c_str(), TRUE, &pError);
    if (pError != nullptr) {
        error = pError->message;
        g_error_free(pError);
        if (pBin != nullptr)
            gst_object_unref(pBin);
        return false;
    }
    // sync: each packet waits for its time on the clock, plus the latency. buffer-list: one call
    // per list of packets.
    m_pSink = gst_element_factory_make("appsink", nullptr);
    g_object_set(m_pSink, "sync", TRUE, "buffer-list", TRUE, nullptr);
    gst_bin_add_many(GST_BIN(m_pPipeline), pBin, m_pSink, nullptr);
    GstElement* pLast = AddPayloader(pBin, error);
    return pLast != nullptr && gst_element_link(pLast, m_pSink);
}

// Returns the pipeline's last element, whose output is RTP packets.
GstElement* CPipeline::AddPayloader(GstElement* pBin, std::string& error) {
    const CPadPtr pad(gst_element_get_static_pad(pBin, "src"), gst_object_unref);
    const CPayloader* pPayloader = pad == nullptr ? nullptr : FindPayloader(pad.get());
    if (pPayloader == nullptr) {
        error = "the pipeline does not end with H.264, H.265, A-law or their RTP packets";
        return nullptr;
    }
    if (pPayloader->pFactory == nullptr) {
        const CPadPtr inner(gst_ghost_pad_get_target(GST_GHOST_PAD(pad.get())), gst_object_unref);
        const CElementPtr last(gst_pad_get_parent_element(inner.get()), gst_object_unref);
        Configure(last.get());
        return pBin;
    }
    GstElement* pElement = gst_element_factory_make(pPayloader->pFactory, nullptr);
    if (pElement == nullptr) {
        error = std::string("GStreamer element is missing: ") + pPayloader->pFactory;
        return nullptr;
    }
    Configure(pElement);
    gst_bin_add(GST_BIN(m_pPipeline), pElement);
    return gst_element_link(pBin, pElement) ? pElement : nullptr;
}

bool CPipeline::IsPaused() const {
    GstState state = GST_STATE_NULL;
    const GstStateChangeReturn result = gst_element_get_state(m_pPipeline, &state, nullptr, 0);
    return state == GST_STATE_PAUSED &&
           (result == GST_STATE_CHANGE_SUCCESS || result == GST_STATE_CHANGE_NO_PREROLL);
}

void CPipeline::ForceKeyFrame() {
    gst_element_send_event(
        m_pSink, gst_video_event_new_upstream_force_key_unit(GST_CLOCK_TIME_NONE, TRUE, 0));
}

GstClockTime CPipeline::MostLatency() const {
    GstQuery* pQuery = gst_query_new_latency();
    GstClockTime most = 0;
    if (gst_element_query(m_pPipeline, pQuery))
        gst_query_parse_latency(pQuery, nullptr, &most, nullptr);
    gst_query_unref(pQuery);
    return most;
}

void CPipeline::SetLatency(GstClockTime latency) {
    if (gst_pipeline_get_latency(GST_PIPELINE(m_pPipeline)) == latency)
        return;
    gst_pipeline_set_latency(GST_PIPELINE(m_pPipeline), latency);
    gst_bin_recalculate_latency(GST_BIN(m_pPipeline));
}

CPipeline::ENews CPipeline::TakeNews(std::string& text) {
    const auto types = static_cast<GstMessageType>(GST_MESSAGE_ERROR | GST_MESSAGE_EOS);
    GstBus* pBus = gst_element_get_bus(m_pPipeline);
    GstMessage* pMessage = gst_bus_pop_filtered(pBus, types);
    gst_object_unref(pBus);
    if (pMessage == nullptr)
        return ENews::eNone;
    ENews emNews = ENews::eEnded;
    text = "the pipeline has ended";
    if (GST_MESSAGE_TYPE(pMessage) == GST_MESSAGE_ERROR) {
        GError* pError = nullptr;
        gst_message_parse_error(pMessage, &pError, nullptr);
        emNews = pError->domain == GST_RESOURCE_ERROR ? ENews::eSourceFailed : ENews::eFailed;
        text = Sentence(pMessage, pError);
        g_error_free(pError);
    }
    gst_message_unref(pMessage);
    return emNews;
}
