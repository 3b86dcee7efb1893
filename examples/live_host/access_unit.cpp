// SPDX-License-Identifier: MIT
#include "access_unit.h"

void CAccessUnit::Clear() {
    m_bytes.clear();
    m_nals.clear();
    m_bHasSlice = false;
    m_bKey = false;
}

void CAccessUnit::Append(EVideoCodec emCodec, const uint8_t* pData, size_t size) {
    if (size == 0)
        return;
    const CNal nal{m_bytes.size(), size, ClassifyNal(emCodec, pData, size)};
    m_bytes.insert(m_bytes.end(), pData, pData + size);
    m_nals.push_back(nal);
    m_bHasSlice = m_bHasSlice || nal.traits.bSlice;
    m_bKey = m_bKey || nal.traits.bKey;
}
