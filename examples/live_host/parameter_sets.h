// SPDX-License-Identifier: MIT
// Keeps a stream's parameter sets and puts them in front of each key picture that comes without.
// The server's description carries none, so a client that joins late has only these.
#ifndef LIVE_HOST_PARAMETER_SETS_H
#define LIVE_HOST_PARAMETER_SETS_H

#include <array>
#include <vector>

#include "access_unit.h"

class CParameterSets {
  public:
    explicit CParameterSets(EVideoCodec emCodec) : m_emCodec(emCodec) {}

    // Remembers what the unit brings and gives a key picture what it lacks. Returns false when it
    // is a key picture and lacks what was never seen.
    bool Complete(CAccessUnit& unit);

  private:
    bool Remember(const CAccessUnit& unit);
    void Rebuild(CAccessUnit& unit);

    using CSetList = std::vector<std::vector<uint8_t>>;

    const EVideoCodec m_emCodec;
    std::array<CSetList, PARAMETER_SET_KINDS> m_sets;  // of the last unit that had this kind
    CAccessUnit m_rebuilt;
};

#endif
