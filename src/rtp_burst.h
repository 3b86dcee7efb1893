// SPDX-License-Identifier: MIT
// The units at the start of a push that may leave in one system call.
//
// A burst is only ever what nobody outside can tell from sending its units one by one: the same
// bytes in the same order, the same results and log lines, the same treatment of what the socket
// does not take (but for the room that the kernel grants one call and not many). Whatever needs
// more care than that (a sequence gap, a report that is due, a reply, an odd size) ends the burst,
// and the unit goes alone.
#ifndef RTP_BURST_H
#define RTP_BURST_H

#include <cstdint>

class CRtpBurst {
  public:
    enum EKind {
        NONE,       // every unit goes alone
        STREAM,     // the units as they lie in the buffer, prefixes included
        DATAGRAMS,  // one datagram a unit, of one size but for a shorter last one
    };

    static constexpr int MAX_DATAGRAMS = 64;          // segments that one call takes
    static constexpr int MAX_DATAGRAM_BYTES = 65000;  // together; one IP packet's worth

    // Looks for the burst at the start of `len` bytes of units. `nExpectedSequence` is the next
    // sequence number of video, 0 when none is expected.
    CRtpBurst(uint8_t* pUnits, int len, EKind kind, uint16_t nExpectedSequence);

    uint8_t* Data() const { return m_pUnits; }
    int Units() const { return m_nUnits; }
    int Bytes() const { return m_nBytes; }

    // The length of the unit at an offset, prefix included.
    int UnitSize(int nOffset) const;

    // Where the unit ends in which byte `nByte` of the burst lies.
    int EndOfUnitAt(int nByte) const;

  private:
    bool admits(const uint8_t* pUnit, int nUnit) const;

    uint8_t* m_pUnits;
    const EKind m_kind;
    uint16_t m_nSequence;
    int m_nUnits = 0;
    int m_nBytes = 0;
    int m_nFirstSize = 0;
};

#endif
