// SPDX-License-Identifier: MIT
#include "rtp_burst.h"

CRtpBurst::CRtpBurst(uint8_t* pUnits, int len, EKind kind, const CUnitStamp& stamp,
                     uint16_t nExpectedSequence)
    : m_pUnits(pUnits), m_kind(kind), m_nSequence(nExpectedSequence) {
    while (m_kind != NONE && len - m_nBytes >= RTP_PREFIX_SIZE) {
        uint8_t* pUnit = m_pUnits + m_nBytes;
        const int nUnit = UnitSize(pUnit);
        if (nUnit > len - m_nBytes || !fits_burst(pUnit, nUnit)) {
            return;
        }
        uint16_t nSequence = m_nSequence;
        if (!CheckVideoSequence(pUnit + RTP_PREFIX_SIZE, &nSequence)) {
            return;  // a gap is a log line
        }
        m_nSequence = nSequence;
        StampUnit(pUnit, nUnit, stamp);
        m_pLastUnit = pUnit;
        m_nFirstSize = m_nUnits == 0 ? nUnit : m_nFirstSize;
        ++m_nUnits;
        m_nBytes += nUnit;
        if (m_kind == DATAGRAMS && nUnit < m_nFirstSize) {
            return;  // only the last datagram may be shorter
        }
    }
}

bool CRtpBurst::fits_burst(const uint8_t* pUnit, int nUnit) const {
    if (nUnit < RTP_PREFIX_SIZE + RTP_HEADER_SIZE) {
        return false;
    }
    if (m_kind == STREAM) {
        return !IsReplyText(pUnit, nUnit);  // sent as it is, without a stamp
    }
    return m_nUnits == 0 || (nUnit <= m_nFirstSize && m_nUnits < MAX_DATAGRAMS &&
                             m_nBytes + nUnit <= MAX_DATAGRAM_BYTES);
}

CSendResult CRtpBurst::SentUpTo(int nByte) const {
    CSendResult result = {CSendResult::SENT};
    while (result.nBytes <= nByte) {
        result.nBytes += UnitSize(m_pUnits + result.nBytes);
        ++result.nUnits;
    }
    return result;
}
