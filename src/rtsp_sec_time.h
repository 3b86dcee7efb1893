// SPDX-License-Identifier: MIT
#ifndef RTSP_SEC_TIME_H
#define RTSP_SEC_TIME_H

#include <climits>
#include <cstdint>

// Clamps a number to the range of int.
inline int ClampToInt(int64_t n) {
    if (n > INT_MAX) {
        return INT_MAX;
    }
    return n < INT_MIN ? INT_MIN : static_cast<int>(n);
}

// The common base of the time classes that hold seconds and microseconds. `T` is the derived class.
template <class T>
class SecTime {
  public:
    // Brings the microseconds into 0 to 999999, borrowing from or carrying to the seconds.
    void Normalize() { Set(m_sec, m_usec); }

    [[nodiscard]] int to_sec() const { return m_sec; }
    [[nodiscard]] int64_t to_msec() const { return int64_t{m_sec} * 1000 + m_usec / 1000; }
    void from_msec(int msecs) { Set(msecs / 1000, int64_t{msecs % 1000} * 1000); }
    [[nodiscard]] int usec() const { return m_usec; }

    // Returns a negative number when this time is earlier, 0 when equal, a positive one when later.
    [[nodiscard]] int compare(const T& other) const {
        if (m_sec != other.m_sec) {
            return m_sec < other.m_sec ? -1 : 1;
        }
        return m_usec < other.m_usec ? -1 : static_cast<int>(m_usec > other.m_usec);
    }

    T& operator+=(const T& other) {
        Set(int64_t{m_sec} + other.m_sec, int64_t{m_usec} + other.m_usec);
        return static_cast<T&>(*this);
    }
    T& operator-=(const T& other) {
        Set(int64_t{m_sec} - other.m_sec, int64_t{m_usec} - other.m_usec);
        return static_cast<T&>(*this);
    }
    friend T operator+(T left, const T& right) { return left += right; }
    friend T operator-(T left, const T& right) { return left -= right; }

    explicit operator unsigned long() const { return static_cast<unsigned long>(m_sec); }

  protected:
    static constexpr int USEC_PER_SEC = 1000000;

    SecTime() = default;
    SecTime(int sec, int usec) { Set(sec, usec); }
    // Converted to signed first, so that a negative time passed as unsigned long keeps its value.
    explicit SecTime(unsigned long sec) { Set(static_cast<long>(sec), 0); }

    // Stores a normalised time; seconds outside the range of int are clamped to it.
    void Set(int64_t nSec, int64_t nUsec) {
        const int64_t nBorrow = nUsec < 0 ? (-nUsec + USEC_PER_SEC - 1) / USEC_PER_SEC : 0;
        const int64_t nPositive = nUsec + nBorrow * USEC_PER_SEC;
        m_sec = ClampToInt(nSec - nBorrow + nPositive / USEC_PER_SEC);
        m_usec = static_cast<int>(nPositive % USEC_PER_SEC);
    }

    int m_sec = 0;
    int m_usec = 0;
    char m_szChunk[1024] = {};  // the text that to_string returns
};

#endif
