// SPDX-License-Identifier: MIT
// One pipeline of the host through its life: prepared, playing, paused, and restarted when what it
// captures from stops. Everything here is the main thread's.
#ifndef GST_HOST_SOURCE_H
#define GST_HOST_SOURCE_H

#include <memory>
#include <string>
#include <vector>

#include "pipeline.h"
#include "rtp_feed.h"

class CSource {
  public:
    // name: for messages.
    CSource(std::string name, std::string pipeline, bool bVideo, std::vector<CStream*> streams)
        : m_strName(std::move(name)),
          m_strPipeline(std::move(pipeline)),
          m_feed(bVideo, std::move(streams)) {}

    // Makes the pipeline and prepares it to play. Returns false when that fails; see Error().
    bool Prepare();
    // Whether it is prepared, so that it plays at once when it is wanted.
    bool IsPrepared() const { return m_pPipeline != nullptr && m_pPipeline->IsPaused(); }

    // Whether it shall play or pause; at first it pauses.
    void SetWanted(bool bWanted);
    // At once, or as soon as the last request is old enough. For pictures only.
    void RequestKeyFrame();

    // To be called many times a second. Returns false when the source has failed for good; see
    // Error().
    bool Work();
    // How late its packets are, over the last two calls; one hold-up does not count.
    GstClockTime TakeLateness();
    // See CPipeline.
    GstClockTime MostLatency() const { return m_pPipeline ? m_pPipeline->MostLatency() : 0; }
    void SetLatency(GstClockTime latency);

    const std::string& Name() const { return m_strName; }
    const CRtpFeed& Feed() const { return m_feed; }
    // One sentence for people, naming the source.
    std::string Error() const { return m_strName + ": " + m_strError; }

  private:
    bool TakeNews();
    bool Fail(const std::string& what);
    bool StopForAWhile(const std::string& what);
    void Play();

    const std::string m_strName;
    const std::string m_strPipeline;
    std::string m_strError;
    CRtpFeed m_feed;
    std::unique_ptr<CPipeline> m_pPipeline;  // ends before the feed

    bool m_bWanted = false;
    bool m_bPlaying = false;
    bool m_bKeyFrameDue = false;
    GstClockTimeDiff m_lateness = 0;
    GstClockTime m_latency = 0;
    gint64 m_lastKeyFrame = 0;  // all times as g_get_monotonic_time
    gint64 m_lastChange = 0;    // of what the pipeline shall do
    gint64 m_restart = 0;       // when a stopped pipeline is started again
    gint64 m_pause = 0;         // before the last restart; 0 when packets have come since
};

#endif
