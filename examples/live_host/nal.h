// SPDX-License-Identifier: MIT
// What a NAL unit of H.264 (RFC 6184) or H.265 (RFC 7798) means to the stream that it stands in.
#ifndef LIVE_HOST_NAL_H
#define LIVE_HOST_NAL_H

#include <cstddef>
#include <cstdint>

enum class EVideoCodec { eH264, eH265 };

// Kinds of parameter sets, in the order in which a decoder needs them. H.264 has no video one.
enum EParameterSet {
    PARAMETER_SET_NONE = -1,
    PARAMETER_SET_VIDEO,
    PARAMETER_SET_SEQUENCE,
    PARAMETER_SET_PICTURE,
    PARAMETER_SET_KINDS
};

struct CNalTraits {
    bool bSlice = false;      // carries picture data
    bool bOpensUnit = false;  // behind a slice, it begins the next access unit
    bool bKey = false;        // decoding can begin with this picture
    bool bDelimiter = false;  // access unit delimiter
    bool bSendable = false;   // its type is not one that RTP uses for purposes of its own
    EParameterSet emParameterSet = PARAMETER_SET_NONE;
};

// Bytes that ClassifyNal reads: two of header and the first of the slice.
constexpr size_t NAL_HEAD_SIZE = 3;

// pData: the NAL unit without its start code, size bytes; more than NAL_HEAD_SIZE are not read and
// fewer make the missing ones count as 0. Reads nothing that is not given.
CNalTraits ClassifyNal(EVideoCodec emCodec, const uint8_t* pData, size_t size);

// Which parameter sets a picture of this codec cannot be decoded without.
bool NeedsParameterSet(EVideoCodec emCodec, int kind);

// Bytes of a NAL unit's header.
constexpr size_t NalHeaderSize(EVideoCodec emCodec) {
    return emCodec == EVideoCodec::eH264 ? 1 : 2;
}

#endif
