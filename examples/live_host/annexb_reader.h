// SPDX-License-Identifier: MIT
// Splits an Annex-B byte stream (NAL units after start codes 00 00 01) into access units.
#ifndef LIVE_HOST_ANNEXB_READER_H
#define LIVE_HOST_ANNEXB_READER_H

#include <vector>

#include "access_unit.h"

class CAnnexBReader {
  public:
    enum class EResult {
        eReady,     // an access unit was returned
        eNeedData,  // call Append or End first
        eEnd,       // all access units were returned
        eNoStream,  // the appended bytes do not begin with a start code
        eTooLarge   // no access unit ends within MAX_UNIT_SIZE
    };

    // Limits the memory for any input. Pictures of cameras are much smaller.
    static constexpr size_t MAX_UNIT_SIZE = 4 * 1024 * 1024;

    explicit CAnnexBReader(EVideoCodec emCodec) : m_emCodec(emCodec) {}

    void Append(const uint8_t* pData, size_t size);
    // No more bytes follow, so the bytes that were appended are complete.
    void End() { m_bEnded = true; }
    // Starts over with a new stream.
    void Restart();

    // Returns the next access unit in `unit`, which is overwritten when the result is eReady. An
    // access unit is complete when the first three bytes of the next one have been appended.
    EResult Take(CAccessUnit& unit);

  private:
    EResult SkipToFirstNal();
    size_t FindStartCode();
    bool StartsNextUnit() const;
    EResult HandOut(CAccessUnit& unit);

    const EVideoCodec m_emCodec;
    std::vector<uint8_t> m_bytes;
    CAccessUnit m_unit;    // grows until it is returned
    size_t m_nalPos = 0;   // first byte of the current NAL unit, after its start code
    size_t m_scanPos = 0;  // no start code ends before this position
    bool m_bInNal = false;
    bool m_bEnded = false;
};

#endif
