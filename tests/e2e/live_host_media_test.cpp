// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>

#include "rtp_packetizer.h"
#include "slot_clock.h"

namespace {

using testing::ElementsAre;
using CBytes = std::vector<uint8_t>;

// A NAL unit of a given size whose first byte behind the header has the first-slice bit.
CBytes Nal(EVideoCodec codec, int type, size_t size, bool first = true) {
    CBytes nal(size);
    for (size_t i = 0; i < size; ++i)
        nal[i] = static_cast<uint8_t>(1 + i * 31 % 255);
    const bool h264 = codec == EVideoCodec::eH264;
    nal[0] = static_cast<uint8_t>(h264 ? 0x60 | type : type << 1);
    if (!h264 && size > 1)
        nal[1] = 1;
    const size_t slice = NalHeaderSize(codec);
    if (size > slice)
        nal[slice] = first ? 0x88 : 0x44;
    return nal;
}

CAccessUnit Unit(EVideoCodec codec, const std::vector<CBytes>& nals) {
    CAccessUnit unit;
    for (const CBytes& nal : nals)
        unit.Append(codec, nal.data(), nal.size());
    return unit;
}

// Reads a push as the server does and puts its NAL units together again as a receiver does
// (RFC 6184, 5.8; RFC 7798, 4.4.3). `sizes`: of the payloads, negative with a marker.
std::vector<CBytes> Received(EVideoCodec codec, const CBytes& units, std::vector<int>& sizes) {
    const bool h264 = codec == EVideoCodec::eH264;
    std::vector<CBytes> nals;
    for (size_t at = 0; at < units.size();) {
        const uint8_t* unit = &units[at];
        const CBytes p(unit + 16, unit + 4 + (unit[2] << 8 | unit[3]));
        EXPECT_THAT(CBytes(unit + 8, unit + 12), ElementsAre(0xFF, 0xFF, 0xFF, 0xF0));
        EXPECT_EQ(static_cast<uint16_t>(65535 + sizes.size()), unit[6] << 8 | unit[7]);
        sizes.push_back(static_cast<int>(p.size()) * (unit[5] == (0x80 | 96) ? -1 : 1));
        at += 16 + p.size();
        if (h264 ? (p[0] & 0x1F) != 28 : (p[0] >> 1 & 0x3F) != 49) {
            nals.push_back(p);
            continue;
        }
        const size_t head = h264 ? 2 : 3;
        const uint8_t fu = p[head - 1];
        EXPECT_EQ(sizes.back() < 0, (fu & 0x40) != 0);
        if (fu & 0x80)
            nals.push_back(
                h264 ? CBytes{static_cast<uint8_t>((p[0] & 0xE0) | (fu & 0x1F))}
                     : CBytes{static_cast<uint8_t>((p[0] & 0x81) | (fu & 0x3F) << 1), p[1]});
        nals.back().insert(nals.back().end(), p.begin() + static_cast<int>(head), p.end());
    }
    return nals;
}

TEST(LiveHostPacketizer, CutsAtTheRightSizesAndLosesNothing) {
    constexpr EVideoCodec H264 = EVideoCodec::eH264, H265 = EVideoCodec::eH265;
    const std::tuple<EVideoCodec, size_t, std::vector<int>> rows[] = {
        {H264, 1, {-1}},
        {H264, 1400, {-1400}},
        {H264, 1401, {1400, -4}},             // header goes, 2 bytes of FU come
        {H264, 1 + 2 * 1398, {1400, -1400}},  // no empty last fragment
        {H265, 1401, {1400, -5}},
        {H265, 2 + 3 * 1397, {1400, 1400, -1400}},
    };
    for (const auto& [codec, size, expected] : rows) {
        // Types that RTP uses itself are left out; the marker is on the last one sent.
        const bool h264 = codec == H264;
        const CBytes nal = Nal(codec, 1, size);
        CBytes units;
        CRtpPacketizer(96, 65535).AppendPicture(
            codec, Unit(codec, {nal, Nal(codec, h264 ? 28 : 49, 9)}), 0xFFFFFFF0, units);
        std::vector<int> sizes;
        EXPECT_THAT(Received(codec, units, sizes), ElementsAre(nal));
        EXPECT_EQ(expected, sizes);
    }
}

TEST(LiveHostClock, DoesNotDrift) {
    CSlotClock ntsc(30000, 1001, 90000, 0xFFFFFFFF);
    EXPECT_EQ(0xFFFFFFFF, ntsc.Timestamp());
    for (int i = 0; i < 30000; ++i)
        ntsc.Next();
    EXPECT_EQ(1001 * NANOSECONDS, ntsc.Due());
    EXPECT_EQ(1001u * 90000 - 1, ntsc.Timestamp());
    ntsc.SkipTo(NANOSECONDS);  // never back
    EXPECT_EQ(1001 * NANOSECONDS, ntsc.Due());
}

}  // namespace
