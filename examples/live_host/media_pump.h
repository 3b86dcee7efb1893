// SPDX-License-Identifier: MIT
// Sends video and audio in real time: takes what the sources have, has it packetised and pushes it
// into the server when it is due. One thread does all of it.
#ifndef LIVE_HOST_MEDIA_PUMP_H
#define LIVE_HOST_MEDIA_PUMP_H

#include "arguments.h"
#include "audio_source.h"
#include "rtp_packetizer.h"
#include "slot_clock.h"
#include "video_source.h"
#include "viewers.h"

// RTP payload types and what the host declares them to be; see RTSPServer_SetStreamInfo.
constexpr uint8_t VIDEO_PAYLOAD_TYPE = 96;
constexpr uint8_t AUDIO_PAYLOAD_TYPE = 8;  // fixed for A-law, RFC 3551
// The server takes all others too, and then sends all media as video, or none.
static_assert(VIDEO_PAYLOAD_TYPE != AUDIO_PAYLOAD_TYPE, "the server tells the streams apart by it");
static_assert(VIDEO_PAYLOAD_TYPE <= 127 && AUDIO_PAYLOAD_TYPE <= 127, "RTP has 7 bits for it");

class CMediaPump {
  public:
    // video: open. pAudio: open, or null for none. Both outlive the pump. stopFd: becomes readable
    // when it is time to stop.
    // viewers: who asks for a key picture.
    CMediaPump(const CArguments& arguments, CVideoSource& video, CAudioSource* pAudio, int stopFd,
               const CViewers& viewers);

    // Runs until a stop, the end of the video or the end of the time. Returns false when the video
    // cannot be read any further.
    bool Run();

  private:
    bool FetchPicture();
    int64_t NextDue() const;
    bool Wait(int64_t until);
    void Cue();
    void FollowCue();
    void PushPicture(int64_t now);
    int64_t LoneSoundDue() const;
    void PushSound(int64_t now, int64_t until);
    void Publish();

    const CArguments& m_arguments;
    CVideoSource& m_video;
    CAudioSource* m_pAudio;
    const int m_stopFd;
    const CViewers& m_viewers;

    CSlotClock m_videoClock;
    CSlotClock m_audioClock;
    CRtpPacketizer m_videoRtp;
    CRtpPacketizer m_audioRtp;
    std::vector<uint8_t> m_units;  // what is being pushed; kept for its memory

    bool m_bPicture = false;  // the source's unit waits to be sent
    bool m_bEnded = false;    // the source has no more
    // CLOCK_MONOTONIC, nanoseconds. Both clocks count from m_begin, the arrival of the first
    // picture, so that picture and sound stay together.
    int64_t m_begin = -1;
    int64_t m_end;
};

#endif
