// SPDX-License-Identifier: MIT
// A GStreamer pipeline made from its description, with a payloader and an appsink at its end. The
// main thread's, but for the streaming thread that calls the feed.
#ifndef GST_HOST_PIPELINE_H
#define GST_HOST_PIPELINE_H

#include <gst/gst.h>

#include <memory>
#include <string>

#include "rtp_feed.h"

class CPipeline {
  public:
    // Null on failure; error is one sentence then. feed: outlives the pipeline.
    static std::unique_ptr<CPipeline> Make(const std::string& text, CRtpFeed& feed,
                                           std::string& error);
    // Joins the streaming threads.
    ~CPipeline();
    CPipeline(const CPipeline&) = delete;
    CPipeline& operator=(const CPipeline&) = delete;

    // A live source produces nothing while it is paused, and any other one up to one packet.
    void Pause() { gst_element_set_state(m_pPipeline, GST_STATE_PAUSED); }
    void Play() { gst_element_set_state(m_pPipeline, GST_STATE_PLAYING); }
    bool IsPaused() const;

    // Asks the encoder for a key frame, with parameter sets.
    void ForceKeyFrame();

    // How long the pipeline may take from capture to packet, by what its elements say.
    GstClockTime MostLatency() const;
    // How long after its capture each packet leaves. 0 at first: as soon as it is there.
    void SetLatency(GstClockTime latency);

    // What has ended the pipeline, if anything has.
    enum class ENews { eNone, eEnded, eSourceFailed, eFailed };
    // text: one sentence when the news is bad.
    ENews TakeNews(std::string& text);

  private:
    CPipeline();
    bool Build(const std::string& text, std::string& error);
    GstElement* AddPayloader(GstElement* pBin, std::string& error);

    GstElement* const m_pPipeline;
    GstElement* m_pSink = nullptr;  // the pipeline's
};

#endif
