// SPDX-License-Identifier: MIT
#ifndef RTSP_NPTIME_H
#define RTSP_NPTIME_H

#include "rtsp_sec_time.h"

// A normal play time (RFC 2326, section 3.6): seconds, or up to four fields "d:h:m:s", the last
// with a fraction.
class NPTime : public SecTime<NPTime> {
  public:
    NPTime() = default;
    NPTime(int sec, int usec) : SecTime(sec, usec) {}
    explicit NPTime(unsigned long sec) : SecTime(sec) {}
    NPTime(const char* text, int len);  // at most 31 bytes are read
    // With `wholeSeconds` the fraction is dropped. `valid` is set to whether the text had one to
    // four fields.
    NPTime(const char* text, int len, bool wholeSeconds, bool& valid);

    // The seconds, with six decimals unless they are whole; valid until the next call.
    const char* to_string();
    explicit operator const char*() { return to_string(); }

    // Reads the time from a NUL-terminated text. For text without a field, or with more than four,
    // the time is 0 and the result false.
    bool FromString(const char* text);
};

#endif
