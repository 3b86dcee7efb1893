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

// The first slice of a picture, of a given size.
CBytes Nal(EVideoCodec codec, int type, size_t size) {
    CBytes nal(size + 3);
    for (size_t i = 0; i < size; ++i)
        nal[i] = static_cast<uint8_t>(1 + i * 31 % 255);
    const bool h264 = codec == EVideoCodec::eH264;
    nal[0] = static_cast<uint8_t>(h264 ? 0x60 | type : type << 1);
    nal[1] = 1;
    nal[NalHeaderSize(codec)] = 0x88;
    nal.resize(size);
    return nal;
}

// Reads a push as the server does; players prove the headers of fragments (RFC 6184, 5.8; RFC 7798,
// 4.4.3). `sizes`: of the payloads, negative with a marker.
CBytes Received(EVideoCodec codec, const CBytes& units, std::vector<int>& sizes) {
    const bool h264 = codec == EVideoCodec::eH264;
    CBytes joined;
    for (size_t at = 0; at < units.size();) {
        const uint8_t* unit = &units[at];
        const CBytes p(unit + 16, unit + 4 + (unit[2] << 8 | unit[3]));
        EXPECT_THAT(CBytes(unit + 8, unit + 12), ElementsAre(0xFF, 0xFF, 0xFF, 0xF0));
        EXPECT_EQ(static_cast<uint16_t>(65535 + sizes.size()), unit[6] << 8 | unit[7]);
        sizes.push_back(static_cast<int>(p.size()) * (unit[5] == (0x80 | 96) ? -1 : 1));
        at += 16 + p.size();
        const bool fragment = h264 ? (p[0] & 0x1F) == 28 : (p[0] >> 1 & 0x3F) == 49;
        joined.insert(joined.end(), p.begin() + (fragment ? h264 ? 2 : 3 : 0), p.end());
    }
    return joined;
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
        CBytes nal = Nal(codec, 1, size);
        CBytes units;
        CAccessUnit picture;
        for (const CBytes& each : {nal, Nal(codec, codec == H264 ? 28 : 49, 9)})
            picture.Append(codec, each.data(), each.size());
        CRtpPacketizer(96, 65535).AppendPicture(codec, picture, 0xFFFFFFF0, units);
        std::vector<int> sizes;
        if (size > 1400)  // cut up, it has no header of its own
            nal.erase(nal.begin(), nal.begin() + static_cast<int>(NalHeaderSize(codec)));
        EXPECT_EQ(Received(codec, units, sizes), nal);
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
