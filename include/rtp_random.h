// SPDX-License-Identifier: MIT
/// @file
/// Random numbers for RTP values: SSRCs, first sequence numbers and time stamps (RFC 3550, section
/// 5.1), and the random part of report intervals. Do not use them for keys: they can be guessed. No
/// function blocks or throws.
#ifndef RTP_RANDOM_H
#define RTP_RANDOM_H

#include <stdint.h>
#include <stdlib.h>

#ifndef RTSPS_EXPORT
#define RTSPS_EXPORT __attribute__((visibility("default")))
#endif

/// A generator with its own state. Use each object from one thread at a time. Different objects are
/// independent of each other. A copy returns the same numbers as the original.
class RTSPS_EXPORT RTPRdm {
  public:
    /// Seeds the generator from process id, time, processor time and the address of the object.
    /// Objects that exist at the same time have different addresses. An object that is created
    /// within the same second at the address of an earlier one may return the same numbers.
    RTPRdm();

    /// Returns 8 random bits. @return any value of the type.
    uint8_t GetRandom8();
    /// Returns 16 random bits. @return any value of the type.
    uint16_t GetRandom16();
    /// Returns 32 random bits. @return any value of the type.
    uint32_t GetRandom32();

    /// Returns a random fraction. @return a value from 0 up to, but not including, 1.
    double GetRandomDouble();

  private:
    struct drand48_data drandbuffer = {};
};

/// @defgroup rtp_random_default Random numbers from rand(), with one state for the whole process
/// These functions never seed the generator. The RTSP server seeds it with srandom() from the clock
/// for each client that connects. A seed that the host sets does not last, because srandom() and
/// srand() seed the same generator. The functions may be called at any time and from any thread.
/// @{

/// Returns 8 random bits. @return any value of the type.
RTSPS_EXPORT uint8_t GetRandom8_Default();
/// Returns 16 random bits. @return any value of the type.
RTSPS_EXPORT uint16_t GetRandom16_Default();
/// Returns 32 random bits, made of three overlapping numbers of 16 bits: a ^ (b << 8) ^ (c << 16).
/// @return any value of the type.
RTSPS_EXPORT uint32_t GetRandom32_Default();
/// Returns a random fraction. @return a value from 0 up to, but not including, 1.
RTSPS_EXPORT double GetRandomDouble_Default();
/// @}

#endif
