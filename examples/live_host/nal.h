// SPDX-License-Identifier: MIT
// Classifies the NAL units of H.264 (RFC 6184) and H.265 (RFC 7798).
#ifndef LIVE_HOST_NAL_H
#define LIVE_HOST_NAL_H

#include <cstddef>
#include <cstdint>

enum class EVideoCodec { eH264, eH265 };

// Kinds of parameter sets, in the order in which a decoder needs them. H.264 has no video parameter
// set.
enum EParameterSet {
    PARAMETER_SET_NONE = -1,
    PARAMETER_SET_VIDEO,
    PARAMETER_SET_SEQUENCE,
    PARAMETER_SET_PICTURE,
    PARAMETER_SET_KINDS
};

struct CNalTraits {
    bool bSlice = false;      // carries picture data
    bool bOpensUnit = false;  // begins the next access unit when it follows a slice
    bool bKey = false;        // decoding can begin with this picture
    bool bDelimiter = false;  // access unit delimiter
    bool bSendable = false;   // RTP does not use its type for another purpose
    EParameterSet emParameterSet = PARAMETER_SET_NONE;
};

// Bytes that ClassifyNal reads: at most two header bytes, and the first byte after them.
constexpr size_t NAL_HEAD_SIZE = 3;

// pData: size bytes of the NAL unit, without its start code. At most NAL_HEAD_SIZE bytes are read;
// missing bytes count as 0.
CNalTraits ClassifyNal(EVideoCodec emCodec, const uint8_t* pData, size_t size);

// Whether pictures of this codec cannot be decoded without this kind of parameter set.
bool NeedsParameterSet(EVideoCodec emCodec, int kind);

// Bytes of a NAL unit's header.
constexpr size_t NalHeaderSize(EVideoCodec emCodec) {
    return emCodec == EVideoCodec::eH264 ? 1 : 2;
}

#endif
