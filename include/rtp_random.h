// SPDX-License-Identifier: MIT
/// @file
/// Random numbers for RTP values: SSRCs, first sequence numbers and timestamps (RFC 3550, section
/// 5.1), and the jitter of reports. Not for keys or anything else that must not be guessed. No
/// function blocks or throws.
#ifndef RTP_RANDOM_H
#define RTP_RANDOM_H

#include <stdint.h>
#include <stdlib.h>

#ifndef RTSPS_EXPORT
#define RTSPS_EXPORT __attribute__((visibility("default")))
#endif

/// A generator with a state of its own. Use each object from one thread at a time; distinct objects
/// are independent. A copy repeats what the original draws.
class RTSPS_EXPORT RTPRdm {
  public:
    /// Seeds from process id, time, processor time and the object's address. Objects that live at
    /// the same time differ in their address. An object made within the same second at the address
    /// of an earlier one may repeat its numbers.
    RTPRdm();

    /// Draws 8 bits. @return any value of the type.
    uint8_t GetRandom8();
    /// Draws 16 bits. @return any value of the type.
    uint16_t GetRandom16();
    /// Draws 32 bits. @return any value of the type.
    uint32_t GetRandom32();

    /// Draws a fraction. @return a value from 0 up to, but not including, 1.
    double GetRandomDouble();

  private:
    struct drand48_data drandbuffer = {};
};

/// @defgroup rtp_random_default The same from rand(), whose one state the whole process shares
/// These functions never seed it. The RTSP server does, from the clock, for each client that
/// connects (srandom() and srand() are one generator), so a seed of the host's does not last. They
/// may be called at any time and from any thread.
/// @{

/// Draws 8 bits. @return any value of the type.
RTSPS_EXPORT uint8_t GetRandom8_Default();
/// Draws 16 bits. @return any value of the type.
RTSPS_EXPORT uint16_t GetRandom16_Default();
/// Draws 32 bits: the lowest 8 and the highest 8 come from one draw each, the others from two.
/// @return any value of the type.
RTSPS_EXPORT uint32_t GetRandom32_Default();
/// Draws a fraction. @return a value from 0 up to, but not including, 1.
RTSPS_EXPORT double GetRandomDouble_Default();
/// @}

#endif
