// SPDX-License-Identifier: MIT
// Sends video and audio in real time: reads the sources, packetises their data and pushes it into
// the server when it is due, all on one thread.
#ifndef LIVE_HOST_MEDIA_PUMP_H
#define LIVE_HOST_MEDIA_PUMP_H

#include "arguments.h"
#include "audio_source.h"
#include "rtp_packetizer.h"
#include "slot_clock.h"
#include "video_source.h"
#include "viewers.h"

// The RTP payload types that the host declares; see RTSPServer_SetStreamInfo.
constexpr uint8_t VIDEO_PAYLOAD_TYPE = 96;
constexpr uint8_t AUDIO_PAYLOAD_TYPE = 8;  // fixed for A-law, RFC 3551
// The server does not check this. With equal types all media would be sent as video; with a type
// above 127 the stream's pushes would match no stream.
static_assert(VIDEO_PAYLOAD_TYPE != AUDIO_PAYLOAD_TYPE, "the server tells the streams apart by it");
static_assert(VIDEO_PAYLOAD_TYPE <= 127 && AUDIO_PAYLOAD_TYPE <= 127, "RTP has 7 bits for it");

class CMediaPump {
  public:
    // video: an open source. pAudio: an open source, or null for no audio. Both outlive the pump.
    // stopFd: becomes readable when the host has to stop. viewers: requests key pictures.
    CMediaPump(const CArguments& arguments, CVideoSource& video, CAudioSource* pAudio, int stopFd,
               const CViewers& viewers);

    // Runs until a stop, the end of the video or the end of --seconds. Returns false when reading
    // the video fails.
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
    std::vector<uint8_t> m_units;  // the units of one push; a member to reuse its memory

    bool m_bPicture = false;  // a picture of the source waits to be sent
    bool m_bEnded = false;    // the source has ended
    // CLOCK_MONOTONIC, nanoseconds. Both slot clocks count from m_begin, the arrival of the first
    // picture, so that picture and sound stay synchronous.
    int64_t m_begin = -1;
    int64_t m_end;
};

#endif
