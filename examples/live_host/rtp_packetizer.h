// SPDX-License-Identifier: MIT
// Writes media as the units that RTSPServer_SendRealSteam takes: each a prefix ('$', 0, the
// packet's length in two bytes) and one RTP packet. The SSRC stays 0; the server writes it for each
// stream.
#ifndef LIVE_HOST_RTP_PACKETIZER_H
#define LIVE_HOST_RTP_PACKETIZER_H

#include <vector>

#include "access_unit.h"

// What fits an Ethernet frame, with room for tunnels: 12 bytes of RTP header and the payload.
constexpr size_t RTP_HEADER_SIZE = 12;
constexpr size_t RTP_MAX_PAYLOAD = 1400;

// One RTP stream: its payload type and its running sequence number.
class CRtpPacketizer {
  public:
    CRtpPacketizer(uint8_t byPayloadType, uint16_t wFirstSequence)
        : m_byPayloadType(byPayloadType), m_wSequence(wFirstSequence) {}

    // A picture: every NAL unit in a packet of its own, or in fragments where it is too large; the
    // marker on the last packet. NAL units of types that RTP uses itself are left out.
    // units: appended to.
    void AppendPicture(EVideoCodec emCodec, const CAccessUnit& picture, uint32_t dwTimestamp,
                       std::vector<uint8_t>& units);

    // Samples of G.711 (RFC 3551, 4.5.14), at most RTP_MAX_PAYLOAD bytes.
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
