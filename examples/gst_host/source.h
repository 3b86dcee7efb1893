// SPDX-License-Identifier: MIT
// One pipeline of the host. It is prepared, played, paused, and restarted when its device fails.
// Main thread only.
#ifndef GST_HOST_SOURCE_H
#define GST_HOST_SOURCE_H

#include <memory>
#include <string>
#include <vector>

#include "pipeline.h"
#include "rtp_feed.h"

class CSource {
  public:
    // name: used in messages.
    CSource(std::string name, std::string pipeline, bool bVideo, std::vector<CStream*> streams)
        : m_strName(std::move(name)),
          m_strPipeline(std::move(pipeline)),
          m_feed(bVideo, std::move(streams)) {}

    // Creates the pipeline and prepares it to play. Returns false on failure; see Error().
    bool Prepare();
    // Whether it is prepared and can play at once.
    bool IsPrepared() const { return m_pPipeline != nullptr && m_pPipeline->IsPaused(); }

    // Whether it has to play or to pause. It starts paused.
    void SetWanted(bool bWanted);
    // Requests a key frame at once, or as soon as the last request is old enough. Video only.
    void RequestKeyFrame();

    // Call it many times per second. Returns false when the source has failed for good; see
    // Error().
    bool Work();
    // The delay of its packets over the last two calls; a single delay does not count.
    GstClockTime TakeLateness();
    // See CPipeline.
    GstClockTime MostLatency() const { return m_pPipeline ? m_pPipeline->MostLatency() : 0; }
    void SetLatency(GstClockTime latency);

    const std::string& Name() const { return m_strName; }
    const CRtpFeed& Feed() const { return m_feed; }
    // The message to print, with the name of the source.
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
    std::unique_ptr<CPipeline> m_pPipeline;  // destroyed before the feed

    bool m_bWanted = false;
    bool m_bPlaying = false;
    bool m_bKeyFrameDue = false;
    GstClockTimeDiff m_lateness = 0;
    GstClockTime m_latency = 0;
    gint64 m_lastKeyFrame = 0;  // all times as g_get_monotonic_time
    gint64 m_lastChange = 0;    // of the wanted state
    gint64 m_restart = 0;       // the time to restart a stopped pipeline
    gint64 m_pause = 0;         // before the last restart; 0 when packets have arrived since
};

#endif
