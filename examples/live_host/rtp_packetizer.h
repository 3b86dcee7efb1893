// SPDX-License-Identifier: MIT
// Writes media as units for RTSPServer_SendRealSteam. A unit is a prefix ('$', 0, the length of the
// packet in two bytes) and one RTP packet. The SSRC stays 0; the server writes it for each client.
#ifndef LIVE_HOST_RTP_PACKETIZER_H
#define LIVE_HOST_RTP_PACKETIZER_H

#include <vector>

#include "access_unit.h"

// RTP header and payload fit an Ethernet frame, with room for the headers of tunnels.
constexpr size_t RTP_HEADER_SIZE = 12;
constexpr size_t RTP_MAX_PAYLOAD = 1400;

// One RTP stream: its payload type and its running sequence number.
class CRtpPacketizer {
  public:
    CRtpPacketizer(uint8_t byPayloadType, uint16_t wFirstSequence)
        : m_byPayloadType(byPayloadType), m_wSequence(wFirstSequence) {}

    // Appends the packets of a picture to units: one packet for each NAL unit, or fragments when
    // the unit is too large. The last packet has the marker. NAL units with a type that RTP uses
    // for another purpose are left out.
    void AppendPicture(EVideoCodec emCodec, const CAccessUnit& picture, uint32_t dwTimestamp,
                       std::vector<uint8_t>& units);

    // Appends a packet of G.711 samples (RFC 3551, 4.5.14), at most RTP_MAX_PAYLOAD bytes.
    void AppendSamples(const uint8_t* pData, size_t size, uint32_t dwTimestamp,
                       std::vector<uint8_t>& units);

  private:
    struct CBytes {
        const uint8_t* pData;
        size_t nSize;
    };

    void AppendNal(EVideoCodec emCodec, CBytes nal, uint32_t dwTimestamp, bool bLast,
                   std::vector<uint8_t>& units);
    void AppendPacket(CBytes head, CBytes body, uint32_t dwTimestamp, bool bMarker,
                      std::vector<uint8_t>& units);

    const uint8_t m_byPayloadType;
    uint16_t m_wSequence;
};

#endif
