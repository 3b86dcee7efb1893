// SPDX-License-Identifier: MIT
// Stores a stream's parameter sets and inserts them before each key picture that lacks them. The
// server's session description has none, so a client that joins later depends on these.
#ifndef LIVE_HOST_PARAMETER_SETS_H
#define LIVE_HOST_PARAMETER_SETS_H

#include <array>
#include <vector>

#include "access_unit.h"

class CParameterSets {
  public:
    explicit CParameterSets(EVideoCodec emCodec) : m_emCodec(emCodec) {}

    // Stores the parameter sets of the unit, and inserts those that a key picture lacks. Returns
    // false for a key picture when a parameter set is missing and the stream has not had it yet.
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
