// SPDX-License-Identifier: MIT
// A burst: the units at the start of a push that one system call may send. Also the result of a
// send.
//
// A burst has the same effects as sending its units one by one: the same bytes in the same order,
// the same results and the same log lines. Units that the socket does not take are handled in the
// same way. The only difference: the kernel may accept more bytes in one call than in several.
// A unit with a further effect (a sequence gap, a report that is due, a reply, a size that does not
// fit) ends the burst and is sent alone.
#ifndef RTP_BURST_H
#define RTP_BURST_H

#include <cstdint>

#include "rtp_packet.h"

// The result of sending the first units of a run.
struct CSendResult {
    enum EOutcome {
        SENT,        // the socket took `nUnits` units, `nBytes` bytes in total
        SEND_ALONE,  // nothing was sent: the caller has to send the first unit alone
        NOT_TAKEN,   // the socket took only `nBytes` bytes of the first unit, or 0
        FAILED,      // a socket error
    };
    EOutcome outcome;
    int nBytes = 0;
    int nUnits = 0;
};

class CRtpBurst {
  public:
    enum EKind {
        NONE,       // every unit is sent alone
        STREAM,     // the units as they are in the buffer, prefixes included
        DATAGRAMS,  // one datagram per unit, all of one size except for a shorter last one
    };

    static constexpr int MAX_DATAGRAMS = 64;          // segments that one call takes
    static constexpr int MAX_DATAGRAM_BYTES = 65000;  // in total; below the limit of an IP packet

    // Finds the burst at the start of `len` bytes of units, and stamps its units. A unit that is
    // then sent alone is stamped again with the same values. A unit that is not sent keeps this
    // stamp in the host's buffer until the stamp of the next client replaces it.
    // `nExpectedSequence` is the next sequence number of video, 0 when none is expected.
    CRtpBurst(uint8_t* pUnits, int len, EKind kind, CUnitStamp stamp, uint16_t nExpectedSequence);

    uint8_t* Data() const { return m_pUnits; }
    int Units() const { return m_nUnits; }
    int Bytes() const { return m_nBytes; }
    int FirstSize() const { return m_nFirstSize; }  // of the first unit, prefix included
    // The next sequence number of video once all units are sent.
    uint16_t NextSequence() const { return m_nSequence; }
    const uint8_t* LastUnit() const { return m_pLastUnit; }

    // The results for three cases: the socket took all units, only the first one, or all up to the
    // one that contains byte `nByte` of the burst, included.
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
