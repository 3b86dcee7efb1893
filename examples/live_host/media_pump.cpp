// SPDX-License-Identifier: MIT
#include "media_pump.h"

#include <poll.h>
#include <time.h>

#include <algorithm>
#include <limits>
#include <random>

#include "rtsps_server_api.h"

namespace {

constexpr uint32_t VIDEO_RTP_RATE = 90000;
constexpr uint32_t AUDIO_RTP_RATE = 8000;
constexpr uint32_t AUDIO_PACKETS_A_SECOND = 50;
constexpr size_t AUDIO_PACKET_SIZE = AUDIO_RTP_RATE / AUDIO_PACKETS_A_SECOND;

// A greater delay does not come from a busy machine: the source or the process stood still. A burst
// that catches up would only flood the clients.
constexpr int64_t MAX_LATENESS = NANOSECONDS / 2;

// The most sound that is pushed with a picture that is shown for a long time.
constexpr int64_t MAX_SOUND_AHEAD = 5 * NANOSECONDS;

// When the next picture is later than this, sound is pushed without it.
constexpr int64_t SOUND_PATIENCE = NANOSECONDS / 10;

constexpr int64_t NEVER = std::numeric_limits<int64_t>::max();

int64_t Now() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * NANOSECONDS + now.tv_nsec;
}

// Sequence numbers and time stamps begin with a random value (RFC 3550, 5.1).
template <typename T>
T Random() {
    static std::random_device device;
    return static_cast<T>(device());
}

}  // namespace

CMediaPump::CMediaPump(const CArguments& arguments, CVideoSource& video, CAudioSource* pAudio,
                       int stopFd, const CViewers& viewers)
    : m_arguments(arguments),
      m_video(video),
      m_pAudio(pAudio),
      m_stopFd(stopFd),
      m_viewers(viewers),
      m_videoClock(static_cast<uint32_t>(arguments.nFrames),
                   static_cast<uint32_t>(arguments.nFrameSeconds), VIDEO_RTP_RATE,
                   Random<uint32_t>()),
      m_audioClock(AUDIO_PACKETS_A_SECOND, 1, AUDIO_RTP_RATE, Random<uint32_t>()),
      m_videoRtp(VIDEO_PAYLOAD_TYPE, Random<uint16_t>()),
      m_audioRtp(AUDIO_PAYLOAD_TYPE, Random<uint16_t>()),
      m_end(arguments.nSeconds > 0 ? Now() + arguments.nSeconds * NANOSECONDS : NEVER) {}

bool CMediaPump::Run() {
    for (;;) {
        if (!FetchPicture())
            return false;
        if (!Wait(NextDue()))
            return true;
        const int64_t now = Now();
        if (now >= m_end)
            return true;
        if (m_bPicture && now >= m_begin + m_videoClock.Due())
            PushPicture(now);
        if (m_pAudio != nullptr && m_begin >= 0 && now >= LoneSoundDue())
            PushSound(now - m_begin, now - m_begin);
    }
}

bool CMediaPump::FetchPicture() {
    if (m_bPicture || m_bEnded)
        return true;
    switch (m_video.Fetch()) {
        case CVideoSource::EState::eReady:
            m_bPicture = true;
            FollowCue();
            if (m_begin < 0)
                m_begin = Now();
            return true;
        case CVideoSource::EState::eEnded:
            // The last picture and its sound last as long as those of every other picture.
            m_bEnded = true;
            m_end = std::min(m_end, m_begin + m_videoClock.Due());
            return true;
        case CVideoSource::EState::eWaiting:
            return true;
        case CVideoSource::EState::eFailed:
            return false;
    }
    return false;
}

int64_t CMediaPump::NextDue() const {
    int64_t due = m_end;
    if (m_bPicture)
        due = std::min(due, m_begin + m_videoClock.Due());
    if (m_pAudio != nullptr && m_begin >= 0)
        due = std::min(due, LoneSoundDue());
    return due;
}

// The time at which sound is pushed without a picture, because the next picture is late.
int64_t CMediaPump::LoneSoundDue() const {
    return m_begin + m_audioClock.Due() + SOUND_PATIENCE;
}

// Waits until a point in time, or for input when the source has no picture. Returns false when the
// host has to stop.
bool CMediaPump::Wait(int64_t until) {
    const bool dry = !m_bPicture && !m_bEnded;
    pollfd events[] = {{m_stopFd, POLLIN, 0},
                       {m_arguments.bCue ? m_viewers.CueFd() : -1, POLLIN, 0},
                       {dry ? m_video.Fd() : -1, POLLIN, 0}};
    const int64_t left = until == NEVER ? NANOSECONDS : std::max<int64_t>(until - Now(), 0);
    const timespec timeout = {static_cast<time_t>(left / NANOSECONDS),
                              static_cast<long>(left % NANOSECONDS)};
    ppoll(events, std::size(events), &timeout, nullptr);
    if (events[1].revents != 0)
        Cue();
    return events[0].revents == 0;
}

// A single viewer has started to play: the clip jumps to its next group of pictures. The slots do
// not change, so RTP time continues without a jump.
void CMediaPump::Cue() {
    m_viewers.TakeCue();
    if (m_bEnded || (m_bPicture && m_video.Unit().IsKey()))
        return;
    m_video.SkipToKey(m_bPicture);
    m_bPicture = false;
}

// Skips as much sound as pictures were skipped.
void CMediaPump::FollowCue() {
    const size_t pictures = m_video.TakeSkipped();
    if (m_pAudio == nullptr || pictures == 0)
        return;
    m_pAudio->Skip(pictures * AUDIO_RTP_RATE * static_cast<size_t>(m_arguments.nFrameSeconds) /
                   static_cast<size_t>(m_arguments.nFrames));
}

void CMediaPump::PushPicture(int64_t now) {
    if (now - m_begin - m_videoClock.Due() > MAX_LATENESS)
        m_videoClock.SkipTo(now - m_begin);
    m_units.clear();
    m_videoRtp.AppendPicture(m_arguments.emCodec, m_video.Unit(), m_videoClock.Timestamp(),
                             m_units);
    Publish();
    const int64_t slot = m_videoClock.Due();
    m_videoClock.Next();
    m_bPicture = false;
    // The sound of a picture's time is pushed with the picture: players assume that the first
    // packets of both streams belong to the same instant. It is one push: for a client that plays
    // video only, each push of sound counts as short, and too many in a row would end it.
    if (m_pAudio != nullptr)
        PushSound(slot, std::min(m_videoClock.Due(), slot + MAX_SOUND_AHEAD) - 1);
}

// Pushes the packets that are due until a point in time. Both times are counted from m_begin.
void CMediaPump::PushSound(int64_t now, int64_t until) {
    if (now - m_audioClock.Due() > MAX_LATENESS)
        m_audioClock.SkipTo(now);
    m_units.clear();
    while (m_pAudio != nullptr && m_audioClock.Due() <= until) {
        uint8_t samples[AUDIO_PACKET_SIZE];
        const size_t size = m_pAudio->Read(samples, sizeof(samples));
        if (size < sizeof(samples))
            m_pAudio = nullptr;
        if (size > 0)
            m_audioRtp.AppendSamples(samples, size, m_audioClock.Timestamp(), m_units);
        m_audioClock.Next();
    }
    Publish();
}

// A camera would push a smaller picture as "sub". The server leaves the buffer in a state that
// allows a second push.
void CMediaPump::Publish() {
    if (m_units.empty())
        return;
    for (const int stream : {RTSPS_STREAM_MAIN, RTSPS_STREAM_SUB}) {
        RTSPServer_SendRealSteam(m_arguments.nChannel, stream, m_units.data(),
                                 static_cast<int32_t>(m_units.size()));
    }
}
