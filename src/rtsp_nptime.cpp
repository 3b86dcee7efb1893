// SPDX-License-Identifier: MIT
#include "rtsp_nptime.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "rtsps_text.h"

namespace {

constexpr size_t TEXT_SIZE = 32;
constexpr int MAX_FIELDS = 4;

// The integer part of a number from the wire, clamped to the range of int; NaN is 0.
int ToWhole(double f) {
    if (std::isnan(f)) {
        return 0;
    }
    if (f >= static_cast<double>(INT_MAX)) {
        return INT_MAX;
    }
    return f <= static_cast<double>(INT_MIN) ? INT_MIN : static_cast<int>(f);
}

// Splits a text at ":" into at most MAX_FIELDS numbers. Returns how many there are, or 0 when there
// are more.
int SplitFields(const char* text, double (&fields)[MAX_FIELDS]) {
    char szText[TEXT_SIZE];
    TextCopy(szText, text);
    int nFields = 0;
    char* pSave = nullptr;
    // Kept (clients): [npt-empty-fields] empty fields do not count: "1::7" is 1 minute and 7
    // seconds, not 1 hour and 7 seconds.
    for (char* szField = strtok_r(szText, ":", &pSave); szField != nullptr;
         szField = strtok_r(nullptr, ":", &pSave)) {
        if (nFields == MAX_FIELDS) {
            return 0;
        }
        // strtod expects the decimal point of the host's locale. The server needs whole seconds
        // only, which do not depend on it.
        fields[nFields++] = strtod(szField, nullptr);
    }
    return nFields;
}

}  // namespace

NPTime::NPTime(const char* text, int len) {
    char szText[TEXT_SIZE];
    TextCopySlice(szText, text, len);
    FromString(szText);
}

NPTime::NPTime(const char* text, int len, bool wholeSeconds, bool& valid) {
    char szText[TEXT_SIZE];
    TextCopySlice(szText, text, len);
    valid = FromString(szText);
    if (wholeSeconds) {
        m_usec = 0;
    }
}

bool NPTime::FromString(const char* text) {
    static constexpr int SECONDS_PER_UNIT[MAX_FIELDS] = {1, 60, 3600, 86400};
    double fields[MAX_FIELDS] = {};
    const int nFields = SplitFields(text, fields);
    if (nFields == 0) {
        Set(0, 0);
        return false;
    }
    const double fSeconds = fields[nFields - 1];
    int64_t nSec = ToWhole(fSeconds);
    // Kept (clients): [npt-field-cut] each field is cut to whole seconds before the sum; only the
    // last one keeps a fraction.
    for (int i = 1; i < nFields; ++i) {
        // NOLINTNEXTLINE(clang-analyzer-core.UndefinedBinaryOperatorResult): at most MAX_FIELDS
        nSec += ToWhole(fields[nFields - 1 - i] * SECONDS_PER_UNIT[i]);
    }
    const double fFraction = std::isfinite(fSeconds) ? fSeconds - std::trunc(fSeconds) : 0.0;
    Set(nSec, static_cast<int>(fFraction * USEC_PER_SEC));
    return true;
}

const char* NPTime::to_string() {
    // Kept (clients): [npt-negative] the fraction counts from the lower whole second, so -1.5 s is
    // written "-2.500000".
    if (m_usec < 1) {
        snprintf(m_szChunk, sizeof(m_szChunk), "%d", m_sec);
    } else {
        snprintf(m_szChunk, sizeof(m_szChunk), "%d.%06d", m_sec, m_usec);
    }
    return m_szChunk;
}
