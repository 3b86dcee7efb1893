// SPDX-License-Identifier: MIT
// One stream of a channel, main or sub. Pictures and sound are pushed into it.
#ifndef GST_HOST_STREAM_H
#define GST_HOST_STREAM_H

#include <atomic>
#include <cstdint>
#include <vector>

#include "rtsps_server_api.h"

class CStream {
  public:
    CStream(int nChannel, int nType) : m_nChannel(nChannel), m_nType(nType) {}

    int Channel() const { return m_nChannel; }
    int Type() const { return m_nType; }

    // units: the units of one access unit, or of one audio packet. Each function has its own
    // streaming thread.
    void PushPicture(std::vector<uint8_t>& units) {
        m_nSounds = 0;
        Push(units);
    }
    void PushSound(std::vector<uint8_t>& units) {
        if (m_nSounds++ < MAX_SOUNDS)
            Push(units);
    }

  private:
    // More than 20 pushes of sound in a row end a client that has not set up audio. Sound above
    // this limit is dropped until the pictures continue.
    static constexpr int MAX_SOUNDS = 18;

    void Push(std::vector<uint8_t>& units) const {
        RTSPServer_SendRealSteam(m_nChannel, m_nType, units.data(),
                                 static_cast<int32_t>(units.size()));
    }

    const int m_nChannel;
    const int m_nType;
    // Pushes of sound since the last picture. Both streaming threads write it.
    std::atomic<int> m_nSounds{0};
};

#endif
