// SPDX-License-Identifier: MIT
// The units that one system call sends. faults/burst_differential_test.cpp compares such a call
// with sending the units one by one.
#include "rtp_burst.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/test_net.h"

namespace {

// Units with rising sequence numbers from 1 on and payloads of these sizes.
Bytes MakeUnits(const std::vector<size_t>& payloads) {
    Bytes run;
    uint16_t sequence = 0;
    for (const size_t payload : payloads) {
        const Bytes unit = MakeUnit({96, ++sequence, 0, payload, 1});
        run.insert(run.end(), unit.begin(), unit.end());
    }
    return run;
}

int Units(Bytes run, CRtpBurst::EKind kind, uint16_t expectedSequence = 0) {
    constexpr CUnitStamp STAMP = {0x0A0B0C0D, CUnitStamp::INTERLEAVED, 6};
    return CRtpBurst(run.data(), static_cast<int>(run.size()), kind, STAMP, expectedSequence)
        .Units();
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

TEST(RtpBurst, WhatNeedsMoreCareEndsIt) {
    Bytes tiny = MakeUnits({100, 100});
    tiny[3] = 11;
    EXPECT_EQ(Units(tiny, CRtpBurst::STREAM), 0) << "a packet without a whole header";
    Bytes replyLike = MakeUnits({100, 29552 - 12, 100});  // "rtsp" starts with the length 29552
    replyLike[116] = 'R', replyLike[117] = 'T', replyLike[118] = 's', replyLike[119] = 'p';
    EXPECT_EQ(Units(replyLike, CRtpBurst::STREAM), 1) << "a unit that looks like a reply";
    Bytes gap = MakeUnits({100, 100, 100});
    gap[116 + 7] = 9;
    EXPECT_EQ(Units(gap, CRtpBurst::STREAM), 1) << "a gap in the sequence numbers";
    EXPECT_EQ(Units(gap, CRtpBurst::STREAM, 2), 0) << "a gap before the first unit";
    Bytes cut = MakeUnits({100, 100});
    cut.pop_back();
    EXPECT_EQ(Units(cut, CRtpBurst::STREAM), 1) << "a push that ends inside a unit";
}

}  // namespace
