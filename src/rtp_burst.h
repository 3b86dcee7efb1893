// SPDX-License-Identifier: MIT
// The units at the start of a push that may leave in one system call, and the result of a send.
//
// A burst is only ever what an observer cannot tell from sending its units one by one: the same
// bytes in the same order, the same results and log lines, the same treatment of what the socket
// does not take (but for the room that the kernel grants one call and not many). Whatever needs
// more care than that (a sequence gap, a report that is due, a reply, an odd size) ends the burst,
// and the unit goes alone.
#ifndef RTP_BURST_H
#define RTP_BURST_H

#include <cstdint>

#include "rtp_packet.h"

// What became of the first units of a run.
struct CSendResult {
    enum EOutcome {
        SENT,        // `nUnits` units of `nBytes` in all were taken
        SEND_ALONE,  // nothing was tried: the first unit has to leave on its own
        NOT_TAKEN,   // the first unit was not taken whole, but for `nBytes` of it
        FAILED,      // a socket error
    };
    EOutcome outcome;
    int nBytes = 0;
    int nUnits = 0;
};

class CRtpBurst {
  public:
    enum EKind {
        NONE,       // every unit goes alone
        STREAM,     // the units as they lie in the buffer, prefixes included
        DATAGRAMS,  // one datagram per unit, all of one size except for a shorter last one
    };

    static constexpr int MAX_DATAGRAMS = 64;          // segments that one call takes
    static constexpr int MAX_DATAGRAM_BYTES = 65000;  // together; less than one IP packet holds

    // Looks for the burst at the start of `len` bytes of units, and stamps its units. A unit that
    // is sent alone after all is stamped again, with the same. A unit that is not sent keeps the
    // stamp in the host's buffer until the next client's replaces it. `nExpectedSequence` is the
    // next sequence number of video, 0 when none is expected.
    CRtpBurst(uint8_t* pUnits, int len, EKind kind, CUnitStamp stamp, uint16_t nExpectedSequence);

    uint8_t* Data() const { return m_pUnits; }
    int Units() const { return m_nUnits; }
    int Bytes() const { return m_nBytes; }
    int FirstSize() const { return m_nFirstSize; }  // of the first unit, prefix included
    // The next sequence number of video once all units are sent.
    uint16_t NextSequence() const { return m_nSequence; }
    const uint8_t* LastUnit() const { return m_pLastUnit; }

    // The results when all units were taken, the first one only, and all up to and including the
    // one in which byte `nByte` of the burst lies.
    CSendResult AllSent() const { return {CSendResult::SENT, m_nBytes, m_nUnits}; }
    CSendResult FirstSent() const { return {CSendResult::SENT, m_nFirstSize, 1}; }
    CSendResult SentUpTo(int nByte) const;

  private:
    uint8_t* m_pUnits;
    uint8_t* m_pLastUnit = nullptr;
    uint16_t m_nSequence = 0;
    int m_nUnits = 0;
    int m_nBytes = 0;
    int m_nFirstSize = 0;
};

#endif
