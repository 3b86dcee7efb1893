// SPDX-License-Identifier: MIT
// Cuts an Annex-B byte stream (NAL units behind start codes 00 00 01) into access units.
#ifndef LIVE_HOST_ANNEXB_READER_H
#define LIVE_HOST_ANNEXB_READER_H

#include <vector>

#include "access_unit.h"

class CAnnexBReader {
  public:
    enum class EResult {
        eReady,     // an access unit was handed out
        eNeedData,  // Append more, or End
        eEnd,       // everything was handed out
        eNoStream,  // what was appended does not begin with a start code
        eTooLarge   // no access unit ends within MAX_UNIT_SIZE
    };

    // What bounds the memory, whatever is read: no camera's picture comes near it.
    static constexpr size_t MAX_UNIT_SIZE = 4 * 1024 * 1024;

    explicit CAnnexBReader(EVideoCodec emCodec) : m_emCodec(emCodec) {}

    void Append(const uint8_t* pData, size_t size);
    // No more bytes follow: what is held is complete.
    void End() { m_bEnded = true; }
    // Starts over with a new stream.
    void Restart();

    // Hands out the next access unit. That it is complete shows at the beginning of the one behind
    // it: three bytes of that are enough. unit: overwritten when the result is eReady.
    EResult Take(CAccessUnit& unit);

  private:
    EResult SkipToFirstNal();
    size_t FindStartCode();
    bool StartsNextUnit() const;
    EResult HandOut(CAccessUnit& unit);

    const EVideoCodec m_emCodec;
    std::vector<uint8_t> m_bytes;
    CAccessUnit m_unit;    // grows until it is handed out
    size_t m_nalPos = 0;   // first byte of the NAL unit being read, behind its start code
    size_t m_scanPos = 0;  // no start code ends before this position
    bool m_bInNal = false;
    bool m_bEnded = false;
};

#endif
