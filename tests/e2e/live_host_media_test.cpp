// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "annexb_reader.h"
#include "parameter_sets.h"
#include "rtp_packetizer.h"
#include "slot_clock.h"

namespace {

using testing::ElementsAre;
using CBytes = std::vector<uint8_t>;
constexpr EVideoCodec H264 = EVideoCodec::eH264, H265 = EVideoCodec::eH265;

// The first slice of a picture, of a given size.
CBytes Nal(EVideoCodec codec, int type, size_t size) {
    CBytes nal(size + 3, 1);
    nal[0] = static_cast<uint8_t>(codec == H264 ? 0x60 | type : type << 1);
    nal[NalHeaderSize(codec)] = 0x88;
    nal.resize(size);
    return nal;
}

CAccessUnit Picture(EVideoCodec codec, const std::vector<CBytes>& nals) {
    CAccessUnit picture;
    for (const CBytes& nal : nals)
        picture.Append(codec, nal.data(), nal.size());
    return picture;
}

// The players check the payloads: they compare all pictures with the source.
TEST(LiveHostPacketizer, CutsAtTheRightSizes) {
    const struct {
        const char* why;
        EVideoCodec codec;
        size_t size;
        std::vector<int> payloads;  // negative: with the marker
    } rows[] = {
        {"fits one packet", H264, 1400, {-1400}},
        {"the header goes, 2 bytes of FU come", H264, 1401, {1400, -4}},
        {"no empty last fragment", H264, 1 + 2 * 1398, {1400, -1400}},
        {"3 bytes of FU come", H265, 1401, {1400, -5}},
    };
    for (const auto& row : rows) {
        // NAL units whose type RTP uses for another purpose are left out. The last one that is sent
        // has the marker.
        const CAccessUnit picture =
            Picture(row.codec,
                    {Nal(row.codec, 1, row.size), Nal(row.codec, row.codec == H264 ? 28 : 49, 9)});
        CBytes units;
        CRtpPacketizer(96, 0).AppendPicture(row.codec, picture, 0, units);
        std::vector<int> payloads;
        for (size_t at = 0; at < units.size();) {
            const int size = (units[at + 2] << 8 | units[at + 3]) - 12;
            payloads.push_back(units[at + 5] == (0x80 | 96) ? -size : size);
            at += static_cast<size_t>(16 + size);
        }
        EXPECT_EQ(row.payloads, payloads) << row.why;
    }
}

std::vector<size_t> NalSizes(const CAccessUnit& unit) {
    std::vector<size_t> sizes;
    for (const CAccessUnit::CNal& nal : unit.Nals())
        sizes.push_back(nal.nSize);
    return sizes;
}

using EResult = CAnnexBReader::EResult;

TEST(LiveHostReader, SplitsAStreamIntoPicturesForPiecesOfAnySize) {
    CBytes stream;
    for (const CBytes& nal : {Nal(H264, 9, 2), Nal(H264, 7, 20), Nal(H264, 8, 5), Nal(H264, 5, 300),
                              Nal(H264, 1, 40), Nal(H264, 1, 41)}) {
        stream.insert(stream.end(), {0, 0, 0, 1});
        stream.insert(stream.end(), nal.begin(), nal.end());
    }
    for (const size_t step : {size_t{1}, size_t{7}, stream.size()}) {
        SCOPED_TRACE(step);
        CAnnexBReader reader(H264);
        CAccessUnit unit;
        std::vector<std::vector<size_t>> pictures;
        const auto take = [&] {
            while (reader.Take(unit) == EResult::eReady)
                pictures.push_back(NalSizes(unit));
        };
        for (size_t at = 0; at < stream.size(); at += step) {
            reader.Append(&stream[at], std::min(step, stream.size() - at));
            take();
        }
        EXPECT_EQ(pictures.size(), 2U) << "the last one may be incomplete";
        reader.End();
        take();
        EXPECT_THAT(pictures,
                    ElementsAre(ElementsAre(2, 20, 5, 300), ElementsAre(40), ElementsAre(41)));
        EXPECT_EQ(reader.Take(unit), EResult::eEnd);
    }
}

TEST(LiveHostReader, RefusesInputWithoutAStartCodeOrWithoutAnEnd) {
    CAccessUnit unit;
    CAnnexBReader text(H264);
    text.Append(reinterpret_cast<const uint8_t*>("no start code"), 13);
    EXPECT_EQ(text.Take(unit), EResult::eNoStream);
    text.Restart();
    EXPECT_EQ(text.Take(unit), EResult::eNeedData);

    CAnnexBReader endless(H264);
    CBytes largest = Nal(H264, 5, CAnnexBReader::MAX_UNIT_SIZE);
    largest.insert(largest.begin(), {0, 0, 0, 1});
    endless.Append(largest.data(), largest.size());
    EXPECT_EQ(endless.Take(unit), EResult::eNeedData);
    endless.Append(&largest.back(), 1);
    EXPECT_EQ(endless.Take(unit), EResult::eTooLarge);
}

TEST(LiveHostParameterSets, EachKeyPictureHasThem) {
    CParameterSets sets(H264);
    CAccessUnit early = Picture(H264, {Nal(H264, 5, 300)});
    EXPECT_FALSE(sets.Complete(early)) << "a key picture, and no sets were seen yet";
    CAccessUnit full = Picture(H264, {Nal(H264, 7, 20), Nal(H264, 8, 5), Nal(H264, 5, 300)});
    EXPECT_TRUE(sets.Complete(full));
    EXPECT_THAT(NalSizes(full), ElementsAre(20, 5, 300));
    CAccessUnit bare = Picture(H264, {Nal(H264, 9, 2), Nal(H264, 5, 301)});
    EXPECT_TRUE(sets.Complete(bare));
    EXPECT_THAT(NalSizes(bare), ElementsAre(2, 20, 5, 301)) << "the delimiter stays first";
    CAccessUnit half = Picture(H264, {Nal(H264, 8, 6), Nal(H264, 5, 302)});
    EXPECT_TRUE(sets.Complete(half));
    EXPECT_THAT(NalSizes(half), ElementsAre(20, 6, 302)) << "its own picture set is the newer one";
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
