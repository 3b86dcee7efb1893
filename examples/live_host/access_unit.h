// SPDX-License-Identifier: MIT
// One access unit: the NAL units of one coded picture, with those that belong to it.
#ifndef LIVE_HOST_ACCESS_UNIT_H
#define LIVE_HOST_ACCESS_UNIT_H

#include <vector>

#include "nal.h"

class CAccessUnit {
  public:
    struct CNal {
        size_t nOffset;
        size_t nSize;
        CNalTraits traits;
    };

    void Clear();
    // Appends a copy of a NAL unit, without its start code. An empty unit is ignored.
    void Append(EVideoCodec emCodec, const uint8_t* pData, size_t size);

    const std::vector<CNal>& Nals() const { return m_nals; }
    // The bytes of a member of Nals(), valid until the next change.
    const uint8_t* Data(const CNal& nal) const { return m_bytes.data() + nal.nOffset; }
    size_t Size() const { return m_bytes.size(); }
    bool HasSlice() const { return m_bHasSlice; }
    bool IsKey() const { return m_bKey; }

  private:
    std::vector<uint8_t> m_bytes;
    std::vector<CNal> m_nals;
    bool m_bHasSlice = false;
    bool m_bKey = false;
};

#endif
