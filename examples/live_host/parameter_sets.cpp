// SPDX-License-Identifier: MIT
#include "parameter_sets.h"

#include <utility>

bool CParameterSets::Complete(CAccessUnit& unit) {
    const bool hasAll = Remember(unit);
    if (hasAll || !unit.IsKey())
        return true;
    for (int kind = 0; kind < PARAMETER_SET_KINDS; ++kind) {
        if (m_sets[static_cast<size_t>(kind)].empty() && NeedsParameterSet(m_emCodec, kind))
            return false;
    }
    Rebuild(unit);
    return true;
}

// Returns whether the unit itself has every kind of parameter set.
bool CParameterSets::Remember(const CAccessUnit& unit) {
    bool hasAll = true;
    for (int kind = 0; kind < PARAMETER_SET_KINDS; ++kind) {
        CSetList found;
        for (const CAccessUnit::CNal& nal : unit.Nals()) {
            if (nal.traits.emParameterSet == kind)
                found.emplace_back(unit.Data(nal), unit.Data(nal) + nal.nSize);
        }
        if (!found.empty())
            m_sets[static_cast<size_t>(kind)] = std::move(found);
        else if (NeedsParameterSet(m_emCodec, kind))
            hasAll = false;
    }
    return hasAll;
}

// A delimiter must stay first, and sequence sets must precede the picture sets that refer to them.
void CParameterSets::Rebuild(CAccessUnit& unit) {
    m_rebuilt.Clear();
    for (const CAccessUnit::CNal& nal : unit.Nals()) {
        if (nal.traits.bDelimiter)
            m_rebuilt.Append(m_emCodec, unit.Data(nal), nal.nSize);
    }
    for (const CSetList& sets : m_sets) {
        for (const std::vector<uint8_t>& set : sets)
            m_rebuilt.Append(m_emCodec, set.data(), set.size());
    }
    for (const CAccessUnit::CNal& nal : unit.Nals()) {
        if (!nal.traits.bDelimiter && nal.traits.emParameterSet == PARAMETER_SET_NONE)
            m_rebuilt.Append(m_emCodec, unit.Data(nal), nal.nSize);
    }
    std::swap(unit, m_rebuilt);
}
