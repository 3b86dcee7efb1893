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

    // What a unit gets on its way into the burst, as it would when sent alone.
    struct CStamp {
        uint32_t dwSSRC;
        uint8_t byChannel;  // in the prefix, for STREAM
    };

    static constexpr int MAX_DATAGRAMS = 64;          // segments that one call takes
    static constexpr int MAX_DATAGRAM_BYTES = 65000;  // together; one IP packet's worth

    // Looks for the burst at the start of `len` bytes of units, and stamps its units. One that is
    // sent alone after all is stamped again, with the same; one that is not sent at all keeps the
    // stamp in the host's buffer, which the next client's replaces. `nExpectedSequence` is the next
    // sequence number of video, 0 when none is expected.
    CRtpBurst(uint8_t* pUnits, int len, EKind kind, const CStamp& stamp,
              uint16_t nExpectedSequence);

    uint8_t* Data() const { return m_pUnits; }
    int Units() const { return m_nUnits; }
    int Bytes() const { return m_nBytes; }
    // Once all units are sent: the next sequence number of video.
    uint16_t NextSequence() const { return m_nSequence; }
    const uint8_t* LastUnit() const { return m_pLastUnit; }

    // The length of the unit at an offset, prefix included.
    int UnitSize(int nOffset) const;

    // Where the unit ends in which byte `nByte` of the burst lies.
    int EndOfUnitAt(int nByte) const;

  private:
    bool admits(const uint8_t* pUnit, int nUnit) const;

    void stamp_unit(uint8_t* pUnit, int nUnit, const CStamp& stamp) const;

    uint8_t* m_pUnits;
    uint8_t* m_pLastUnit = nullptr;
    const EKind m_kind;
    uint16_t m_nSequence;
    int m_nUnits = 0;
    int m_nBytes = 0;
    int m_nFirstSize = 0;
};

#endif
