// SPDX-License-Identifier: MIT
// A GStreamer pipeline that is created from its description, with a payloader and an appsink at its
// end. Only the main thread uses it. A streaming thread calls the feed.
#ifndef GST_HOST_PIPELINE_H
#define GST_HOST_PIPELINE_H

#include <gst/gst.h>

#include <memory>
#include <string>

#include "rtp_feed.h"

class CPipeline {
  public:
    // Returns null on failure; error is then the message to print. feed: outlives the pipeline.
    static std::unique_ptr<CPipeline> Make(const std::string& text, CRtpFeed& feed,
                                           std::string& error);
    // Joins the streaming threads.
    ~CPipeline();
    CPipeline(const CPipeline&) = delete;
    CPipeline& operator=(const CPipeline&) = delete;

    // While it is paused, a live source produces no packet, and any other source at most one.
    void Pause() { gst_element_set_state(m_pPipeline, GST_STATE_PAUSED); }
    void Play() { gst_element_set_state(m_pPipeline, GST_STATE_PLAYING); }
    bool IsPaused() const;

    // Requests a key frame with parameter sets from the encoder.
    void ForceKeyFrame();

    // The longest time from capture to packet that the elements report.
    GstClockTime MostLatency() const;
    // The time from capture to sending of each packet. 0 at first: each packet is sent at once.
    void SetLatency(GstClockTime latency);

    // Whether the pipeline has ended, and why.
    enum class ENews { eNone, eEnded, eSourceFailed, eFailed };
    // text: the message to print, unless the result is eNone.
    ENews TakeNews(std::string& text);

  private:
    CPipeline();
    bool Build(const std::string& text, std::string& error);
    GstElement* AddPayloader(GstElement* pBin, std::string& error);

    GstElement* const m_pPipeline;
    GstElement* m_pSink = nullptr;  // owned by the pipeline
};

#endif
