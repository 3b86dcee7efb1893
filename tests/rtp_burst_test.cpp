// SPDX-License-Identifier: MIT
// The units that one system call sends. faults/burst_differential_test.cpp compares such a call
// with sending the units one by one.
#include "rtp_burst.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/test_net.h"

namespace {

// Units with rising sequence numbers from 1 on and payloads of these sizes.
Bytes MakeUnits(const std::vector<size_t>& payloads) {
    std::vector<Bytes> units;
    uint16_t sequence = 0;
    for (const size_t payload : payloads) {
        units.push_back(MakeUnit({96, ++sequence, 0, payload, 1}));
    }
    return Join(units);
}

int Units(Bytes run, CRtpBurst::EKind kind) {
    constexpr CUnitStamp STAMP = {0x0A0B0C0D, CUnitStamp::INTERLEAVED, 6};
    return CRtpBurst(run.data(), static_cast<int>(run.size()), kind, STAMP, 0).Units();
}

TEST(RtpBurst, DatagramsHaveOneSizeExceptTheLast) {
    constexpr size_t LARGEST = CRtpBurst::MAX_DATAGRAM_BYTES / 2 - 16;  // two of them fit
    const struct {
        const char* why;
        std::vector<size_t> payloads;
        int units;
    } rows[] = {
        {"a shorter one ends the burst", {100, 99, 99}, 2},
        {"a longer one is left out", {100, 101}, 1},
        {"64 segments at most", std::vector<size_t>(65, 8), 64},
        {"exactly the limit in bytes", {LARGEST, LARGEST}, 2},
        {"a byte beyond it", {LARGEST + 1, LARGEST}, 1},
        {"no units", {}, 0},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Units(MakeUnits(row.payloads), CRtpBurst::DATAGRAMS), row.units) << row.why;
    }
}

TEST(RtpBurst, AUnitThatReadsLikeAReplyEndsIt) {
    Bytes units = MakeUnits({100, 29552 - 12, 100});  // "rtsp" ends with the length 29552
    units[116] = 'R', units[117] = 'T', units[118] = 's', units[119] = 'p';
    EXPECT_EQ(Units(units, CRtpBurst::STREAM), 1);
}

}  // namespace
