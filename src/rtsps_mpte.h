// SPDX-License-Identifier: MIT
#ifndef RTSPS_MPTE_H
#define RTSPS_MPTE_H

#include <cstdint>

// An SMPTE time code (RFC 2326, section 3.5): "hh:mm:ss" with an optional ".ff" of frames. Also
// holds the time in milliseconds.
class SMPTETimeCode {
  public:
    enum DropFrame : int { DROP_FRAME = 0, NON_DROP_FRAME = 1 };
    enum FramesPerSec : int { FPS_25 = 0, FPS_30 = 1 };

    SMPTETimeCode() = default;
    explicit SMPTETimeCode(uint64_t msecs);
    SMPTETimeCode(int hour, int minute, int second, int frame, DropFrame dropFrame = DROP_FRAME,
                  FramesPerSec framesPerSec = FPS_30);
    SMPTETimeCode(const char* text, int len);  // at most 31 bytes are read

    // "hh:mm:ss", and ".ff" when the frame is above 0; valid until the next call.
    const char* to_string();
    explicit operator const char*() { return to_string(); }
    explicit operator unsigned long() const;  // whole seconds

    // Reads the time from a NUL-terminated text; null or empty text gives 0.
    void FromString(const char* text);

    // Recompute the milliseconds from the fields, and the fields from the milliseconds.
    void to_msec();
    void from_msec();
    [[nodiscard]] uint64_t msecs() const { return m_msecs; }

    // Returns a negative number when this time is earlier, 0 when equal, a positive one when later.
    [[nodiscard]] int compare(const SMPTETimeCode& other) const;
    // Results keep the rate of the left side; a difference below 0 is 0.
    SMPTETimeCode& operator+=(const SMPTETimeCode& other);
    SMPTETimeCode& operator-=(const SMPTETimeCode& other);
    friend SMPTETimeCode operator+(SMPTETimeCode left, const SMPTETimeCode& right) {
        return left += right;
    }
    friend SMPTETimeCode operator-(SMPTETimeCode left, const SMPTETimeCode& right) {
        return left -= right;
    }

  private:
    [[nodiscard]] int frames_per_sec() const { return m_framesPerSec == FPS_30 ? 30 : 25; }

    int m_hour = 0;
    int m_minute = 0;
    int m_second = 0;
    int m_frame = 0;
    uint64_t m_msecs = 0;
    [[maybe_unused]] uint64_t m_secs = 0;  // written by one constructor, read by none
    DropFrame m_dropFrame = DROP_FRAME;
    FramesPerSec m_framesPerSec = FPS_30;
    char m_szChunk[1024] = {};  // the text that to_string returns
};

#endif
