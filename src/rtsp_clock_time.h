// SPDX-License-Identifier: MIT
#ifndef RTSP_CLOCK_TIME_H
#define RTSP_CLOCK_TIME_H

#include "rtsp_sec_time.h"

// An absolute time (RFC 2326, section 3.7), held as seconds since 1970-01-01 UTC.
class ClockTime : public SecTime<ClockTime> {
  public:
    ClockTime() = default;
    ClockTime(int sec, int usec) : SecTime(sec, usec) {}
    explicit ClockTime(unsigned long sec) : SecTime(sec) {}
    ClockTime(const char* text, int len);  // at most 255 bytes are read

    // "19700101T000000Z", in UTC; valid until this object's next call.
    const char* to_string();
    explicit operator const char*() { return to_string(); }

    // Reads the time from a NUL-terminated text, in the LOCAL time zone. A fraction of a second is
    // ignored. Text without a 'T' or without a 'Z' gives 0. In other text, fields that cannot be
    // read count as 0, and a time outside the range of an int is clamped to it.
    void FromString(const char* text);
};

#endif
