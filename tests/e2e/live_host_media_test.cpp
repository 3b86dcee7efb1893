// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <utility>
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

// The sizes of the payloads of a push, negative with a marker. Reads the push as the server does.
// The players check the payloads: they compare all pictures with the source.
std::vector<int> PayloadSizes(const CBytes& units) {
    std::vector<int> sizes;
    for (size_t at = 0; at < units.size();) {
        const uint8_t* unit = &units[at];
        const int size = (unit[2] << 8 | unit[3]) - 12;
        EXPECT_THAT(CBytes(unit + 8, unit + 12), ElementsAre(0xFF, 0xFF, 0xFF, 0xF0));
        EXPECT_EQ(static_cast<uint16_t>(65535 + sizes.size()), unit[6] << 8 | unit[7]);
        sizes.push_back(unit[5] == (0x80 | 96) ? -size : size);
        at += static_cast<size_t>(16 + size);
    }
    return sizes;
}

TEST(LiveHostPacketizer, CutsAtTheRightSizes) {
    const struct {
        const char* why;
        EVideoCodec codec;
        size_t size;
        std::vector<int> payloads;  // negative: with the marker
    } rows[] = {
        {"the smallest", H264, 1, {-1}},
        {"fits one packet", H264, 1400, {-1400}},
        {"the header goes, 2 bytes of FU come", H264, 1401, {1400, -4}},
        {"no empty last fragment", H264, 1 + 2 * 1398, {1400, -1400}},
        {"3 bytes of FU come", H265, 1401, {1400, -5}},
        {"three fragments", H265, 2 + 3 * 1397, {1400, 1400, -1400}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        // NAL units whose type RTP uses for another purpose are left out. The last one that is sent
        // has the marker.
        const CBytes nal = Nal(row.codec, 1, row.size);
        CBytes units;
        CAccessUnit picture;
        for (const CBytes& each : {nal, Nal(row.codec, row.codec == H264 ? 28 : 49, 9)})
            picture.Append(row.codec, each.data(), each.size());
        CRtpPacketizer(96, 65535).AppendPicture(row.codec, picture, 0xFFFFFFF0, units);
        EXPECT_EQ(row.payloads, PayloadSizes(units));
    }
}

// NAL units with their start codes.
CBytes AnnexB(const std::vector<CBytes>& nals) {
    CBytes stream;
    for (const CBytes& nal : nals) {
        stream.insert(stream.end(), {0, 0, 0, 1});
        stream.insert(stream.end(), nal.begin(), nal.end());
    }
    return stream;
}

std::vector<size_t> NalSizes(const CAccessUnit& unit) {
    std::vector<size_t> sizes;
    for (const CAccessUnit::CNal& nal : unit.Nals())
        sizes.push_back(nal.nSize);
    return sizes;
}

using EResult = CAnnexBReader::EResult;

TEST(LiveHostReader, SplitsAStreamIntoPicturesForPiecesOfAnySize) {
    const CBytes stream = AnnexB({Nal(H264, 9, 2), Nal(H264, 7, 20), Nal(H264, 8, 5),
                                  Nal(H264, 5, 300), Nal(H264, 1, 40), Nal(H264, 1, 41)});
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
    const CBytes largest = AnnexB({Nal(H264, 5, CAnnexBReader::MAX_UNIT_SIZE)});
    endless.Append(largest.data(), largest.size());
    EXPECT_EQ(endless.Take(unit), EResult::eNeedData);
    endless.Append(largest.data() + 10, 1);
    EXPECT_EQ(endless.Take(unit), EResult::eTooLarge);
}

TEST(LiveHostParameterSets, EachKeyPictureHasThem) {
    const auto picture = [](const std::vector<CBytes>& nals) {
        CAccessUnit unit;
        for (const CBytes& nal : nals)
            unit.Append(H264, nal.data(), nal.size());
        return unit;
    };
    CParameterSets sets(H264);
    CAccessUnit early = picture({Nal(H264, 5, 300)});
    EXPECT_FALSE(sets.Complete(early)) << "a key picture, and no sets were seen yet";
    CAccessUnit full = picture({Nal(H264, 7, 20), Nal(H264, 8, 5), Nal(H264, 5, 300)});
    EXPECT_TRUE(sets.Complete(full));
    EXPECT_THAT(NalSizes(full), ElementsAre(20, 5, 300));
    CAccessUnit other = picture({Nal(H264, 1, 40)});
    EXPECT_TRUE(sets.Complete(other));
    EXPECT_THAT(NalSizes(other), ElementsAre(40));
    CAccessUnit bare = picture({Nal(H264, 9, 2), Nal(H264, 5, 301)});
    EXPECT_TRUE(sets.Complete(bare));
    EXPECT_THAT(NalSizes(bare), ElementsAre(2, 20, 5, 301)) << "the delimiter stays first";
    CAccessUnit half = picture({Nal(H264, 8, 6), Nal(H264, 5, 302)});
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
