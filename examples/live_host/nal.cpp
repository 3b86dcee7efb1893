// SPDX-License-Identifier: MIT
#include "nal.h"

namespace {

// Set in the first slice of a picture: the top bit after the header. In H.264 it is the first
// macroblock 0 in Exp-Golomb code, in H.265 the flag for the first slice.
constexpr uint8_t FIRST_SLICE_BIT = 0x80;

constexpr bool Within(int type, int first, int last) {
    return type >= first && type <= last;
}

CNalTraits ClassifyH264(int type, uint8_t sliceHead) {
    CNalTraits traits;
    traits.bSlice = Within(type, 1, 5);
    traits.bKey = type == 5;
    traits.bDelimiter = type == 9;
    // RTP uses 24 to 31 for aggregation packets and fragments; 0 is unused.
    traits.bSendable = Within(type, 1, 23);
    if (type == 7)
        traits.emParameterSet = PARAMETER_SET_SEQUENCE;
    else if (type == 8)
        traits.emParameterSet = PARAMETER_SET_PICTURE;
    // Data partitions B and C (3, 4) always follow their partition A.
    const bool independent = traits.bSlice && type != 3 && type != 4;
    traits.bOpensUnit = independent ? (sliceHead & FIRST_SLICE_BIT) != 0
                                    : Within(type, 6, 9) || Within(type, 14, 18);
    return traits;
}

CNalTraits ClassifyH265(int type, int layer, uint8_t sliceHead) {
    CNalTraits traits;
    traits.bSlice = type < 32;
    traits.bKey = Within(type, 16, 23);
    traits.bDelimiter = type == 35;
    // RTP uses 48 to 50 for aggregation packets, fragments and PACI; the types above are unused.
    traits.bSendable = type < 48;
    if (Within(type, 32, 34))
        traits.emParameterSet = static_cast<EParameterSet>(type - 32);
    if (traits.bSlice)
        traits.bOpensUnit = layer == 0 && (sliceHead & FIRST_SLICE_BIT) != 0;
    else
        traits.bOpensUnit =
            Within(type, 32, 35) || type == 39 || Within(type, 41, 44) || Within(type, 48, 55);
    return traits;
}

}  // namespace

CNalTraits ClassifyNal(EVideoCodec emCodec, const uint8_t* pData, size_t size) {
    uint8_t head[NAL_HEAD_SIZE] = {};
    for (size_t i = 0; i < NAL_HEAD_SIZE && i < size; ++i)
        head[i] = pData[i];
    if (emCodec == EVideoCodec::eH264)
        return ClassifyH264(head[0] & 0x1F, head[1]);
    return ClassifyH265((head[0] >> 1) & 0x3F, ((head[0] & 1) << 5) | (head[1] >> 3), head[2]);
}

bool NeedsParameterSet(EVideoCodec emCodec, int kind) {
    return kind != PARAMETER_SET_VIDEO || emCodec == EVideoCodec::eH265;
}
