// SPDX-License-Identifier: MIT
// The clock of a stream that sends in slots of equal length: frames, or packets of samples. All
// times are calculated from the beginning, so that rounding errors do not add up.
#ifndef LIVE_HOST_SLOT_CLOCK_H
#define LIVE_HOST_SLOT_CLOCK_H

#include <cstdint>

constexpr int64_t NANOSECONDS = 1000000000;

class CSlotClock {
  public:
    // There are nSlots slots in nSeconds. RTP time starts at dwRtpStart and advances by dwRtpRate
    // per second.
    CSlotClock(uint32_t nSlots, uint32_t nSeconds, uint32_t dwRtpRate, uint32_t dwRtpStart)
        : m_nSlots(nSlots),
          m_nSeconds(nSeconds),
          m_dwRtpRate(dwRtpRate),
          m_dwRtpStart(dwRtpStart) {}

    // When the current slot is due, in nanoseconds from the beginning.
    int64_t Due() const {
        const uint64_t ticks = m_nIndex * m_nSeconds;
        const uint64_t part = ticks % m_nSlots * static_cast<uint64_t>(NANOSECONDS) / m_nSlots;
        return static_cast<int64_t>(ticks / m_nSlots) * NANOSECONDS + static_cast<int64_t>(part);
    }

    uint32_t Timestamp() const {
        return m_dwRtpStart + static_cast<uint32_t>(m_nIndex * m_nSeconds * m_dwRtpRate / m_nSlots);
    }

    void Next() { ++m_nIndex; }

    // Called after a pause of the source or of the whole process. Skips the slots that have passed,
    // in RTP time too, so that the host does not send all of them late at once.
    void SkipTo(int64_t now) {
        const int64_t late = now - Due();
        if (late > 0)
            m_nIndex += static_cast<uint64_t>(late / NANOSECONDS) * m_nSlots / m_nSeconds +
                        static_cast<uint64_t>(late % NANOSECONDS) * m_nSlots / m_nSeconds /
                            static_cast<uint64_t>(NANOSECONDS);
    }

  private:
    const uint32_t m_nSlots;
    const uint32_t m_nSeconds;
    const uint32_t m_dwRtpRate;
    const uint32_t m_dwRtpStart;
    uint64_t m_nIndex = 0;
};

#endif
