// SPDX-License-Identifier: MIT
#include "annexb_reader.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

constexpr size_t START_CODE_SIZE = 3;  // 0 0 1
constexpr size_t NOT_FOUND = static_cast<size_t>(-1);

}  // namespace

void CAnnexBReader::Append(const uint8_t* pData, size_t size) {
    // The bytes before the current NAL unit are no longer needed.
    m_bytes.erase(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(m_nalPos));
    m_scanPos -= m_nalPos;
    m_nalPos = 0;
    m_bytes.insert(m_bytes.end(), pData, pData + size);
}

void CAnnexBReader::Restart() {
    m_bytes.clear();
    m_unit.Clear();
    m_nalPos = 0;
    m_scanPos = 0;
    m_bInNal = false;
    m_bEnded = false;
}

CAnnexBReader::EResult CAnnexBReader::Take(CAccessUnit& unit) {
    if (!m_bInNal) {
        const EResult result = SkipToFirstNal();
        if (result != EResult::eReady)
            return result;
    }
    for (;;) {
        if (m_bytes.size() - m_nalPos < NAL_HEAD_SIZE && !m_bEnded)
            return EResult::eNeedData;
        if (StartsNextUnit())
            return HandOut(unit);
        size_t end = FindStartCode();
        if (m_unit.Size() + std::min(end, m_bytes.size()) - m_nalPos > MAX_UNIT_SIZE)
            return EResult::eTooLarge;
        if (end == NOT_FOUND && !m_bEnded)
            return EResult::eNeedData;
        const size_t next = std::min(end, m_bytes.size());
        // Zeros before a start code belong to the start code: a NAL unit never ends with a zero.
        for (end = next; end > m_nalPos && m_bytes[end - 1] == 0;)
            --end;
        m_unit.Append(m_emCodec, m_bytes.data() + m_nalPos, end - m_nalPos);
        m_nalPos = std::min(next + START_CODE_SIZE, m_bytes.size());
        m_scanPos = m_nalPos;
        if (next == m_bytes.size()) {
            m_bInNal = false;
            return m_unit.HasSlice() ? HandOut(unit) : EResult::eEnd;
        }
    }
}

CAnnexBReader::EResult CAnnexBReader::SkipToFirstNal() {
    const size_t found = FindStartCode();
    const size_t zeros = std::min(found, m_bytes.size());
    const auto begin = m_bytes.begin() + static_cast<std::ptrdiff_t>(m_nalPos);
    const auto end = m_bytes.begin() + static_cast<std::ptrdiff_t>(zeros);
    if (std::any_of(begin, end, [](uint8_t byte) { return byte != 0; }))
        return EResult::eNoStream;
    if (found == NOT_FOUND) {
        m_nalPos = m_scanPos;
        return m_bEnded ? EResult::eEnd : EResult::eNeedData;
    }
    m_nalPos = found + START_CODE_SIZE;
    m_scanPos = m_nalPos;
    m_bInNal = true;
    return EResult::eReady;
}

// Returns the position of the next start code, or NOT_FOUND. No byte is searched twice.
size_t CAnnexBReader::FindStartCode() {
    const size_t kept = START_CODE_SIZE - 1;
    // A search for the 1 of the start code is fast: memchr compares many bytes at once, and 1 is
    // rarer than 0.
    for (size_t pos = m_scanPos + kept; pos < m_bytes.size(); ++pos) {
        const void* pOne = memchr(m_bytes.data() + pos, 1, m_bytes.size() - pos);
        if (pOne == nullptr)
            break;
        pos = static_cast<size_t>(static_cast<const uint8_t*>(pOne) - m_bytes.data());
        if (m_bytes[pos - 1] == 0 && m_bytes[pos - 2] == 0) {
            m_scanPos = pos - kept;
            return m_scanPos;
        }
    }
    m_scanPos = std::max(m_scanPos, m_bytes.size() - std::min(m_bytes.size(), kept));
    return NOT_FOUND;
}

bool CAnnexBReader::StartsNextUnit() const {
    return m_unit.HasSlice() &&
           ClassifyNal(m_emCodec, m_bytes.data() + m_nalPos, m_bytes.size() - m_nalPos).bOpensUnit;
}

CAnnexBReader::EResult CAnnexBReader::HandOut(CAccessUnit& unit) {
    std::swap(unit, m_unit);
    m_unit.Clear();
    return EResult::eReady;
}
