// SPDX-License-Identifier: MIT
#include "rtp_burst.h"

namespace {

// Whether a unit of `nUnit` bytes fits a burst that already holds `nUnits` units of `nBytes` bytes.
bool FitsBurst(int nUnit, int nFirstSize, int nUnits, int nBytes) {
    return nUnit <= nFirstSize && nUnits < CRtpBurst::MAX_DATAGRAMS &&
           nBytes + nUnit <= CRtpBurst::MAX_DATAGRAM_BYTES;
}

}  // namespace

// The compiler has to assume that writes through `pUnit` change the members and the caller's stamp.
// The loop works on local copies, so that it need not read them again for each unit.
CRtpBurst::CRtpBurst(uint8_t* pUnits, int len, EKind kind, CUnitStamp stamp,
                     uint16_t nExpectedSequence)
    : m_pUnits(pUnits) {
    uint16_t nSequence = nExpectedSequence;
    int nUnits = 0;
    int nBytes = 0;
    int nFirstSize = 0;
    int nLastSize = 0;
    while (kind != NONE && len - nBytes >= RTP_PREFIX_SIZE) {
        uint8_t* pUnit = pUnits + nBytes;
        const int nUnit = UnitSize(pUnit);
        if (nUnit > len - nBytes || nUnit < RTP_PREFIX_SIZE + RTP_HEADER_SIZE) {
            break;
        }
        if (kind == STREAM ? IsReplyText(pUnit, nUnit)  // sent as it is, without a stamp
                           : nUnits > 0 && !FitsBurst(nUnit, nFirstSize, nUnits, nBytes)) {
            break;
        }
        uint16_t nNext = nSequence;
        if (!CheckVideoSequence(pUnit + RTP_PREFIX_SIZE, &nNext)) {
            break;  // a gap is logged when its unit is sent alone
        }
        nSequence = nNext;
        StampUnit(pUnit, nUnit, stamp);
        nFirstSize = nUnits == 0 ? nUnit : nFirstSize;
        nLastSize = nUnit;
        ++nUnits;
        nBytes += nUnit;
        if (kind == DATAGRAMS && nUnit < nFirstSize) {
            break;  // only the last datagram may be shorter
        }
    }
    m_nSequence = nSequence;
    m_nUnits = nUnits;
    m_nBytes = nBytes;
    m_nFirstSize = nFirstSize;
    m_pLastUnit = pUnits + nBytes - nLastSize;
}

CSendResult CRtpBurst::SentUpTo(int nByte) const {
    CSendResult result = {CSendResult::SENT};
    while (result.nBytes <= nByte) {
        result.nBytes += UnitSize(m_pUnits + result.nBytes);
        ++result.nUnits;
    }
    return result;
}
