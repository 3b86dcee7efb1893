// SPDX-License-Identifier: MIT
#include "rtp_random.h"

#include <time.h>
#include <unistd.h>

namespace {

constexpr double RAND_RANGE = 2147483648.0;  // rand() yields 0 to RAND_RANGE - 1

}  // namespace

RTPRdm::RTPRdm() {
    const auto nClock = static_cast<uint32_t>(getpid()) + static_cast<uint32_t>(time(nullptr)) -
                        static_cast<uint32_t>(clock());
    const auto nAddress = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(&drandbuffer));
    srand48_r(static_cast<long>(nClock ^ nAddress), &drandbuffer);
}

uint8_t RTPRdm::GetRandom8() {
    return static_cast<uint8_t>(static_cast<unsigned>(GetRandomDouble() * 256.0));
}

uint16_t RTPRdm::GetRandom16() {
    return static_cast<uint16_t>(static_cast<unsigned>(GetRandomDouble() * 65536.0));
}

uint32_t RTPRdm::GetRandom32() {
    const uint32_t nHigh = GetRandom16();
    return (nHigh << 16) | GetRandom16();
}

double RTPRdm::GetRandomDouble() {
    double d = 0.0;
    drand48_r(&drandbuffer, &d);
    return d;
}

// The header documents rand(), with its one state for the whole process.
// NOLINTBEGIN(cert-msc30-c,cert-msc50-cpp,concurrency-mt-unsafe)
uint8_t GetRandom8_Default() {
    return static_cast<uint8_t>(static_cast<unsigned>(rand() * 256.0 / RAND_RANGE));
}

uint16_t GetRandom16_Default() {
    return static_cast<uint16_t>(static_cast<unsigned>(rand() * 65536.0 / RAND_RANGE));
}

uint32_t GetRandom32_Default() {
    const uint32_t a = GetRandom16_Default();
    const uint32_t b = GetRandom16_Default();
    const uint32_t c = GetRandom16_Default();
    // Kept (hosts): [random32-overlap] the parts overlap. Hosts that seed rand() get the same
    // sequence as ever.
    return a ^ (b << 8) ^ (c << 16);
}

double GetRandomDouble_Default() {
    return rand() / RAND_RANGE;
}
// NOLINTEND(cert-msc30-c,cert-msc50-cpp,concurrency-mt-unsafe)
