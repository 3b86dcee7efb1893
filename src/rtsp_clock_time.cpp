// SPDX-License-Identifier: MIT
#include "rtsp_clock_time.h"

#include <cstdio>
#include <cstring>
#include <ctime>

#include "rtsps_text.h"

namespace {

constexpr size_t TEXT_SIZE = 256;

}  // namespace

ClockTime::ClockTime(const char* text, int len) {
    char szText[TEXT_SIZE];
    TextCopySlice(szText, text, len);
    FromString(szText);
}

void ClockTime::FromString(const char* text) {
    Set(0, 0);
    if (strchr(text, 'T') == nullptr || strchr(text, 'Z') == nullptr) {
        return;
    }
    tm when = {};
    // Kept (clients): [clock-missing-fields] missing fields count as 0, and the resulting time is
    // used.
    // NOLINTNEXTLINE(cert-err34-c): at most four digits per field cannot overflow
    (void)sscanf(text + strspn(text, " "), "%4d%2d%2dT%2d%2d%2d", &when.tm_year, &when.tm_mon,
                 &when.tm_mday, &when.tm_hour, &when.tm_min, &when.tm_sec);
    when.tm_year -= 1900;
    when.tm_mon -= 1;
    when.tm_isdst = -1;
    // Kept (clients): [clock-local-zone] mktime reads the fields in the local time zone, while
    // to_string writes UTC.
    Set(mktime(&when), 0);
}

const char* ClockTime::to_string() {
    const time_t nSec = m_sec;
    tm when = {};
    gmtime_r(&nSec, &when);
    snprintf(m_szChunk, sizeof(m_szChunk), "%04d%02d%02dT%02d%02d%02dZ", when.tm_year + 1900,
             when.tm_mon + 1, when.tm_mday, when.tm_hour, when.tm_min, when.tm_sec);
    return m_szChunk;
}
