// SPDX-License-Identifier: MIT
// The RTP header on the wire (RFC 3550, section 5.1), and a packer and parser for it.
#ifndef RTP_PACKET_H
#define RTP_PACKET_H

#include <cstddef>
#include <cstdint>

#include "rtsps_server_api.h"
#include "rtsps_text.h"

// Offsets of the fields, in bytes from the start of the header. Packets in the host's buffers may
// have any alignment: read and write them byte by byte (ReadBe16 and similar functions).
constexpr int RTP_HEADER_SIZE = 12;
constexpr int RTP_OFFSET_PAYLOAD = 1;  // the marker bit shares this byte
constexpr int RTP_OFFSET_SEQUENCE = 2;
constexpr int RTP_OFFSET_TIMESTAMP = 4;
constexpr int RTP_OFFSET_SSRC = 8;
constexpr int RTP_OFFSET_CSRC = 12;
constexpr int RTP_EXTENSION_HEADER_SIZE = 4;
constexpr uint8_t RTP_PAYLOAD_MASK = 0x7F;
constexpr unsigned RTP_VERSION = 2;
constexpr uint8_t RTP_PAYLOAD_VIDEO = 96;  // the dynamic payload type that marks video

// A media unit is a prefix and one RTP packet. The prefix is "$", a channel byte, and the length of
// the packet as a big-endian 16-bit number.
constexpr int RTP_PREFIX_SIZE = RTSPS_UNIT_PREFIX_SIZE;
constexpr int RTP_PREFIX_OFFSET_CHANNEL = 1;
constexpr int RTP_PREFIX_OFFSET_LENGTH = 2;
constexpr uint8_t RTP_PREFIX_MAGIC = '$';

inline void WriteRtpPrefix(uint8_t* pUnit, uint8_t byChannel, int nPacketSize) {
    pUnit[0] = RTP_PREFIX_MAGIC;
    pUnit[RTP_PREFIX_OFFSET_CHANNEL] = byChannel;
    WriteBe16(pUnit + RTP_PREFIX_OFFSET_LENGTH, static_cast<uint16_t>(nPacketSize));
}

// The length of a unit, its prefix included. Reads the 4 bytes of the prefix.
inline int UnitSize(const uint8_t* pUnit) {
    return ReadBe16(pUnit + RTP_PREFIX_OFFSET_LENGTH) + RTP_PREFIX_SIZE;
}

// Whether a buffer holds a reply: it begins with "RTSP". In interleaved mode replies take the same
// path as media, so that both share the connection's pending buffer.
//
// Kept (hosts): [reply-like-unit] a unit of the host that begins with these letters, in any case,
// is treated as a reply and is not stamped.
inline bool IsReplyText(const void* pBuf, int len) {
    constexpr uint32_t LOWER_CASE_BITS = 0x20202020;
    constexpr uint32_t RTSP_IN_LOWER_CASE = 0x72747370;
    return len >= RTP_PREFIX_SIZE &&
           (ReadBe32(static_cast<const uint8_t*>(pBuf)) | LOWER_CASE_BITS) == RTSP_IN_LOWER_CASE;
}

// How a transport changes the units of the host.
struct CUnitStamp {
    enum EPrefix {
        LEFT_ALONE,   // datagrams are sent without the prefix
        EMPTY,        // channel 0 and length 0
        INTERLEAVED,  // the channel and the length
    };
    uint32_t dwSSRC;
    EPrefix prefix;
    uint8_t byChannel;  // for INTERLEAVED
};

// Stamps a unit of `len` bytes in place. A unit without room for a field is not stamped with it.
inline void StampUnit(uint8_t* pUnit, int len, CUnitStamp stamp) {
    if (len >= RTP_PREFIX_SIZE + RTP_HEADER_SIZE) {
        WriteBe32(pUnit + RTP_PREFIX_SIZE + RTP_OFFSET_SSRC, stamp.dwSSRC);
    }
    if (len < RTP_PREFIX_SIZE || stamp.prefix == CUnitStamp::LEFT_ALONE) {
        return;
    }
    if (stamp.prefix == CUnitStamp::EMPTY) {
        WriteRtpPrefix(pUnit, 0, 0);
    } else {
        WriteRtpPrefix(pUnit, stamp.byChannel, len - RTP_PREFIX_SIZE);
    }
}

// Compares the sequence number of a video packet with `*pnExpected` (0: no number is expected), and
// stores the next expected number there. Packets of other payload types always pass. Reads the
// first 4 bytes of the header.
inline bool CheckVideoSequence(const uint8_t* pHeader, uint16_t* pnExpected) {
    // Kept (hosts): [sequence-of-96] only payload type 96 is checked, also when the host has
    // declared another type for video.
    if ((pHeader[RTP_OFFSET_PAYLOAD] & RTP_PAYLOAD_MASK) != RTP_PAYLOAD_VIDEO) {
        return true;
    }
    const uint16_t nSequence = ReadBe16(pHeader + RTP_OFFSET_SEQUENCE);
    const bool bAsExpected = *pnExpected == 0 || *pnExpected == nSequence;
    // Kept (hosts): [sequence-after-wrap] after the wrap to 0 the next packet is not checked.
    *pnExpected = static_cast<uint16_t>(nSequence + 1);
    return bAsExpected;
}

// Wire structures are laid over received bytes, so they require no alignment and may alias any
// type.
#define RTP_WIRE __attribute__((packed, may_alias))

struct RTP_WIRE rtp_hdr {
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    uint8_t count : 4;
    uint8_t extension : 1;
    uint8_t padding : 1;
    uint8_t version : 2;
    uint8_t payload : 7;
    uint8_t marker : 1;
#else
    uint8_t version : 2;
    uint8_t padding : 1;
    uint8_t extension : 1;
    uint8_t count : 4;
    uint8_t marker : 1;
    uint8_t payload : 7;
#endif
    uint16_t sequence;
    uint32_t timestamp;
    uint32_t ssrc;
};
static_assert(sizeof(rtp_hdr) == RTP_HEADER_SIZE && alignof(rtp_hdr) == 1, "as on the wire");

struct RTP_WIRE rtp_ext_hdr {
    uint16_t id;
    uint16_t len;  // 32-bit words of extension data that follow
};
static_assert(sizeof(rtp_ext_hdr) == RTP_EXTENSION_HEADER_SIZE && alignof(rtp_ext_hdr) == 1,
              "as on the wire");

struct rtp_param {
    uint32_t ssrc;
    uint16_t sequence;
    uint32_t timestamp;
    int32_t marker;
    int32_t payload;
    int32_t extension;
};

struct rtp_buf {
    uint8_t* buf;
    int32_t len;
};

// Convert `nCount` 32-bit words in place, starting with word `nFirst` of the array at `pWords`. Any
// alignment is allowed.
void ConvertToNetwork(void* pWords, int nFirst, int nCount);
void ConvertFromNetwork(void* pWords, int nFirst, int nCount);

// Packs or parses one RTP header in a buffer that the caller owns. The buffer must outlive the
// object.
class CRtpPacket {
  public:
    // `hdr` is the start of the header. For pack(), `length` is the length of the payload after the
    // header, and the buffer is 12 bytes larger. For unpack(), `length` is that of the packet.
    CRtpPacket(void* hdr, int length);

    // Writes the header, and increments the sequence number of `param` for the next packet.
    // Returns header and payload. Returns null when the buffer or `param` is null, and when the
    // length is negative or too large.
    [[nodiscard]] rtp_buf* pack(rtp_param* param);

    // Converts the header to host byte order in place and finds the payload. Call it once.
    // Returns the payload. Returns null, and leaves the packet unchanged, when the packet is
    // shorter than it declares or its version is not 2.
    [[nodiscard]] rtp_buf* unpack();

    [[nodiscard]] int RtpHeaderSize() const { return RTP_HEADER_SIZE; }
    [[nodiscard]] const rtp_hdr* Header() const { return m_rtphdr; }
    [[nodiscard]] int Length() const { return m_length; }  // unpack() subtracts the padding
    [[nodiscard]] bool IsValid() const { return m_bValid; }

  private:
    rtp_hdr* m_rtphdr;
    int32_t m_length;
    bool m_bValid;  // pack() or unpack() has succeeded
    rtp_buf m_rtpdata;
};

#endif
