// SPDX-License-Identifier: MIT
#include "source.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace {

constexpr gint64 KEY_FRAME_INTERVAL = G_USEC_PER_SEC / 2;
constexpr gint64 SILENCE_LIMIT = 5 * G_USEC_PER_SEC;
constexpr gint64 FIRST_PAUSE = G_USEC_PER_SEC;
constexpr gint64 LONGEST_PAUSE = 32 * G_USEC_PER_SEC;

}  // namespace

bool CSource::Prepare() {
    std::string error;
    m_lastChange = g_get_monotonic_time();
    m_pPipeline = CPipeline::Make(m_strPipeline, m_feed, error);
    if (m_pPipeline == nullptr)
        return Fail(error);
    m_pPipeline->SetLatency(m_latency);
    m_pPipeline->Pause();
    return true;
}

void CSource::SetWanted(bool bWanted) {
    if (m_bWanted == bWanted)
        return;
    m_bWanted = bWanted;
    m_lastChange = g_get_monotonic_time();
    if (bWanted && IsPrepared())
        Play();
    if (!bWanted && m_bPlaying) {
        m_pPipeline->Pause();
        m_bPlaying = false;
    }
}

void CSource::Play() {
    m_lastChange = g_get_monotonic_time();
    m_pPipeline->Play();
    m_bPlaying = true;
}

void CSource::RequestKeyFrame() {
    m_bKeyFrameDue = true;
    const gint64 now = g_get_monotonic_time();
    if (!m_bPlaying || now - m_lastKeyFrame < KEY_FRAME_INTERVAL)
        return;
    m_bKeyFrameDue = false;
    m_lastKeyFrame = now;
    m_pPipeline->ForceKeyFrame();
}

GstClockTime CSource::TakeLateness() {
    const GstClockTimeDiff before = std::exchange(m_lateness, m_feed.TakeLateness());
    return static_cast<GstClockTime>(std::min(before, m_lateness));
}

void CSource::SetLatency(GstClockTime latency) {
    m_latency = latency;
    if (m_pPipeline != nullptr)
        m_pPipeline->SetLatency(latency);
}

bool CSource::Work() {
    const gint64 now = g_get_monotonic_time();
    if (m_pPipeline == nullptr)
        return now < m_restart || Prepare() || StopForAWhile(m_strError);
    if (!TakeNews())
        return false;
    if (m_pPipeline == nullptr)
        return true;
    if (m_bWanted && !m_bPlaying && IsPrepared())
        Play();
    if (m_bKeyFrameDue)
        RequestKeyFrame();
    if (m_pause > 0 && m_feed.LastPacket() > m_lastChange) {
        std::printf("%s works again\n", m_strName.c_str());
        m_pause = 0;
    }
    if (m_bWanted && now - std::max(m_lastChange, m_feed.LastPacket()) > SILENCE_LIMIT)
        return StopForAWhile("no packets for 5 s");
    return true;
}

bool CSource::TakeNews() {
    std::string text;
    switch (m_pPipeline->TakeNews(text)) {
        case CPipeline::ENews::eNone:
            return true;
        case CPipeline::ENews::eSourceFailed:
            return StopForAWhile(text);
        case CPipeline::ENews::eEnded:
        case CPipeline::ENews::eFailed:
            return m_pause > 0 ? StopForAWhile(text) : Fail(text);
    }
    return true;
}

bool CSource::Fail(const std::string& what) {
    m_strError = what;
    return false;
}

// A source that has worked before is restarted later: a camera may be plugged in again.
bool CSource::StopForAWhile(const std::string& what) {
    if (!m_feed.IsOpen())
        return Fail(what);
    m_pPipeline.reset();
    m_bPlaying = false;
    m_pause = std::clamp(2 * m_pause, FIRST_PAUSE, LONGEST_PAUSE);
    m_restart = g_get_monotonic_time() + m_pause;
    std::fprintf(stderr, "gst_host: %s: %s; next try in %d s\n", m_strName.c_str(), what.c_str(),
                 static_cast<int>(m_pause / G_USEC_PER_SEC));
    return true;
}
