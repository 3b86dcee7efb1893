// SPDX-License-Identifier: MIT
// One RTP stream for the clients. Its packets come from a payloader, and from a new one after each
// restart of the pipeline. Sequence numbers, times and payload type continue.
#ifndef GST_HOST_RTP_TRACK_H
#define GST_HOST_RTP_TRACK_H

#include <gst/gst.h>

#include <cstdint>
#include <cstdlib>

constexpr size_t RTP_HEADER_SIZE = 12;

// Reads at any alignment.
inline uint32_t ReadBe32(const uint8_t* p) {
    return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | uint32_t{p[3]};
}
inline void WriteBe16(uint8_t* p, uint16_t value) {
    p[0] = static_cast<uint8_t>(value >> 8);
    p[1] = static_cast<uint8_t>(value);
}
inline void WriteBe32(uint8_t* p, uint32_t value) {
    WriteBe16(p, static_cast<uint16_t>(value >> 16));
    WriteBe16(p + 2, static_cast<uint16_t>(value));
}

class CRtpTrack {
  public:
    // Called before the first packet.
    void Open(uint8_t byPayloadType, uint32_t dwRate) {
        m_byPayloadType = byPayloadType;
        m_dwRate = dwRate;
    }

    // Rewrites the packet's header. time: when its media were captured, on the clock that all
    // pipelines share.
    void Stamp(uint8_t* pPacket, GstClockTime time) {
        const uint32_t dwGiven = ReadBe32(pPacket + 4);
        const uint32_t dwDue =
            m_dwStart + static_cast<uint32_t>(gst_util_uint64_scale(time, m_dwRate, GST_SECOND));
        const auto nAway = static_cast<int32_t>(dwGiven + m_dwOffset - dwDue);
        if (std::abs(int64_t{nAway}) > m_dwRate / MAX_AWAY)
            m_dwOffset = dwDue - dwGiven;
        pPacket[1] = static_cast<uint8_t>((pPacket[1] & 0x80) | m_byPayloadType);
        WriteBe16(pPacket + 2, m_wSequence);
        WriteBe32(pPacket + 4, dwGiven + m_dwOffset);
        ++m_wSequence;
    }

  private:
    // The payloader's time stamps are used, because they have no jitter. When they differ from the
    // clock by 1/25 s or more (new payloader, pause), an offset moves them to it.
    static constexpr uint32_t MAX_AWAY = 25;

    uint8_t m_byPayloadType = 0;
    uint32_t m_dwRate = 1;
    // Sequence numbers and times begin with a random value (RFC 3550, 5.1).
    uint16_t m_wSequence = static_cast<uint16_t>(g_random_int());
    const uint32_t m_dwStart = g_random_int();
    uint32_t m_dwOffset = 0;
};

#endif
