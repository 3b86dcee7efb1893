// SPDX-License-Identifier: MIT
#include "rtp_burst.h"

#include <strings.h>

#include "rtp_packet.h"
#include "rtsps_text.h"

CRtpBurst::CRtpBurst(uint8_t* pUnits, int len, EKind kind, const CStamp& stamp,
                     uint16_t nExpectedSequence)
    : m_pUnits(pUnits), m_kind(kind), m_nSequence(nExpectedSequence) {
    while (m_kind != NONE && len - m_nBytes >= RTP_PREFIX_SIZE) {
        uint8_t* pUnit = m_pUnits + m_nBytes;
        const int nUnit = UnitSize(m_nBytes);
        if (nUnit > len - m_nBytes || !admits(pUnit, nUnit)) {
            return;
        }
        const uint8_t* pHeader = pUnit + RTP_PREFIX_SIZE;
        if ((pHeader[RTP_OFFSET_PAYLOAD] & RTP_PAYLOAD_MASK) == RTP_PAYLOAD_VIDEO) {
            const uint16_t nSequence = ReadBe16(pHeader + RTP_OFFSET_SEQUENCE);
            if (m_nSequence != 0 && nSequence != m_nSequence) {
                return;  // a gap is a log line
            }
            m_nSequence = static_cast<uint16_t>(nSequence + 1);
        }
        stamp_unit(pUnit, nUnit, stamp);
        m_pLastUnit = pUnit;
        m_nFirstSize = m_nUnits == 0 ? nUnit : m_nFirstSize;
        ++m_nUnits;
        m_nBytes += nUnit;
        if (m_kind == DATAGRAMS && nUnit < m_nFirstSize) {
            return;  // only the last datagram may be shorter
        }
    }
}

bool CRtpBurst::admits(const uint8_t* pUnit, int nUnit) const {
    if (nUnit < RTP_PREFIX_SIZE + RTP_HEADER_SIZE) {
        return false;
    }
    if (m_kind == STREAM) {
        // Interleaved, such a unit passes for the text of a reply and is not stamped.
        return strncasecmp(reinterpret_cast<const char*>(pUnit), "RTSP", RTP_PREFIX_SIZE) != 0;
    }
    return m_nUnits == 0 || (nUnit <= m_nFirstSize && m_nUnits < MAX_DATAGRAMS &&
                             m_nBytes + nUnit <= MAX_DATAGRAM_BYTES);
}

void CRtpBurst::stamp_unit(uint8_t* pUnit, int nUnit, const CStamp& stamp) const {
    WriteBe32(pUnit + RTP_PREFIX_SIZE + RTP_OFFSET_SSRC, stamp.dwSSRC);
    if (m_kind == STREAM) {
        WriteRtpPrefix(pUnit, stamp.byChannel, nUnit - RTP_PREFIX_SIZE);
    }
}

int CRtpBurst::UnitSize(int nOffset) const {
    return ReadBe16(m_pUnits + nOffset + RTP_PREFIX_OFFSET_LENGTH) + RTP_PREFIX_SIZE;
}

int CRtpBurst::EndOfUnitAt(int nByte) const {
    int nEnd = 0;
    while (nEnd <= nByte) {
        nEnd += UnitSize(nEnd);
    }
    return nEnd;
}
