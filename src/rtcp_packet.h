// SPDX-License-Identifier: MIT
// RTCP on the wire (RFC 3550, section 6), and a parser for received packets. The server only sends
// reports; it does not use the parser, which is for programs that compile these sources.
#ifndef RTCP_PACKET_H
#define RTCP_PACKET_H

#include <cstdint>

#include "rtp_packet.h"

enum rtcp_type : uint8_t {
    RTCP_SR = 200,
    RTCP_RR = 201,
    RTCP_SDES = 202,
    RTCP_BYE = 203,
    RTCP_APP = 204,
};

enum rtcp_sdes_type : uint8_t {
    RTCP_SDES_END = 0,
    RTCP_SDES_CNAME = 1,
    RTCP_SDES_NAME = 2,
    RTCP_SDES_EMAIL = 3,
    RTCP_SDES_PHONE = 4,
    RTCP_SDES_LOC = 5,
    RTCP_SDES_TOOL = 6,
    RTCP_SDES_NOTE = 7,
    RTCP_SDES_PRIV = 8,
};

constexpr int RTCP_COMMON_SIZE = 4;
constexpr int RTCP_MAX_CHUNKS = 16;
constexpr int RTCP_MAX_ITEMS = 16;

struct RTP_WIRE rtcp_common {
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    uint8_t count : 5;
    uint8_t padding : 1;
    uint8_t version : 2;
#else
    uint8_t version : 2;
    uint8_t padding : 1;
    uint8_t count : 5;
#endif
    uint8_t type;
    uint16_t length;
};

struct RTP_WIRE rtcp_report {
    uint32_t ssrc;
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    int32_t lost : 24;
    uint32_t fraction : 8;
#else
    uint32_t fraction : 8;
    int32_t lost : 24;
#endif
    uint32_t last_seq;
    uint32_t jitter;
    uint32_t lsr;
    uint32_t dlsr;
};

struct RTP_WIRE rtcp_sr {
    uint32_t ssrc;
    uint32_t ntp_sec;
    uint32_t ntp_frac;
    uint32_t rtp_ts;
    uint32_t psent;
    uint32_t osent;
    rtcp_report rr[1];  // as many as the header counts
};

struct RTP_WIRE rtcp_rr {
    uint32_t ssrc;
    rtcp_report rr[1];  // as many as the header counts
};

struct RTP_WIRE rtcp_sdes_item {
    uint8_t type;
    uint8_t length;
    uint8_t data[256];  // the first `length` bytes are used
};

struct RTP_WIRE rtcp_sdes {
    uint32_t ssrc;
    rtcp_sdes_item item[1];  // one after the other, up to a type of 0
};

struct RTP_WIRE rtcp_bye {
    uint32_t ssrc[1];  // as many as the header counts
};

struct RTP_WIRE rtcp_app {
    uint32_t ssrc;
    char name[4];
    uint8_t app_data[1];
};

struct RTP_WIRE rtcp_packet {
    rtcp_common common;
    union RTP_WIRE {
        rtcp_sr sr;
        rtcp_rr rr;
        rtcp_sdes sdes;
        rtcp_bye bye;
        rtcp_app app;
    } r;
};

static_assert(sizeof(rtcp_common) == RTCP_COMMON_SIZE && sizeof(rtcp_report) == 24 &&
                  sizeof(rtcp_sr) == 48 && sizeof(rtcp_rr) == 28 && alignof(rtcp_packet) == 1,
              "as on the wire");

// One chunk of an SDES packet. The pointers point into the caller's buffer.
struct sdes_chunk {
    const rtcp_sdes* header;
    const rtcp_sdes_item* item[RTCP_MAX_ITEMS];
    int32_t count;  // items recorded
    int32_t size;   // their bytes, type and length included
};

// Parses one received packet in place. The constructor converts the fields that the packet declares
// and the buffer holds to host byte order. The caller owns the buffer, which must outlive the
// packet object. When the type is unknown, parse a CRtcpPacket, check type(), and construct the
// class of that type from it.
//
// `len` must not include the next packet of a compound packet: a sender or receiver report without
// blocks would treat the start of that packet as a report block and convert it.
//
// Every accessor returns 0 or null for fields that the packet does not hold.
class CRtcpPacket {
  public:
    CRtcpPacket(void* buf, int len);
    CRtcpPacket(const CRtcpPacket& other);
    CRtcpPacket& operator=(const CRtcpPacket&) = delete;

    [[nodiscard]] int version() const { return m_rtcp != nullptr ? m_rtcp->common.version : 0; }
    [[nodiscard]] int padding() const { return m_rtcp != nullptr ? m_rtcp->common.padding : 0; }
    [[nodiscard]] int count() const { return m_rtcp != nullptr ? m_rtcp->common.count : 0; }
    [[nodiscard]] int type() const { return m_rtcp != nullptr ? m_rtcp->common.type : 0; }
    // The header's length field, in 32-bit words.
    [[nodiscard]] int length() const { return m_rtcp != nullptr ? m_rtcp->common.length : 0; }

  protected:
    // Whether this is a packet of type `nType` with `nSize` readable bytes at `nOffset`.
    [[nodiscard]] bool Holds(rtcp_type nType, int nOffset, int nSize) const;
    // The word at `nOffset`, or 0.
    [[nodiscard]] uint32_t Word(rtcp_type nType, int nOffset) const;
    // Report block `i` of those that begin at `nFirst`, or null.
    [[nodiscard]] const rtcp_report* Report(rtcp_type nType, int nFirst, int i) const;
    [[nodiscard]] const uint8_t* Bytes() const { return reinterpret_cast<const uint8_t*>(m_rtcp); }

    rtcp_packet* m_rtcp;                   // not owned; null when the buffer is below a header
    int32_t m_length;                      // 0 when the packet declares more than the buffer holds
    int32_t m_nReadable;                   // bytes from the start that are held and converted
    sdes_chunk* m_chunk[RTCP_MAX_CHUNKS];  // recorded chunks, in m_stuChunk; the others are null

  private:
    void ConvertWords(int nWords, int len);
    void ParseSdes(int len);
    int ParseSdesItems(sdes_chunk* pChunk, int nOffset, int len);

    sdes_chunk m_stuChunk[RTCP_MAX_CHUNKS];
};

class CRtcpSRPacket : public CRtcpPacket {
  public:
    using CRtcpPacket::CRtcpPacket;
    explicit CRtcpSRPacket(const CRtcpPacket& packet) : CRtcpPacket(packet) {}

    [[nodiscard]] uint32_t sender_ssrc() const { return Word(RTCP_SR, 4); }
    [[nodiscard]] uint32_t ntp_sec() const { return Word(RTCP_SR, 8); }
    [[nodiscard]] uint32_t ntp_frac() const { return Word(RTCP_SR, 12); }
    [[nodiscard]] uint32_t rtp_ts() const { return Word(RTCP_SR, 16); }
    [[nodiscard]] uint32_t psent() const { return Word(RTCP_SR, 20); }
    [[nodiscard]] uint32_t osent() const { return Word(RTCP_SR, 24); }
    [[nodiscard]] const rtcp_report* report(int i) const { return Report(RTCP_SR, 28, i); }
};

class CRtcpRRPacket : public CRtcpPacket {
  public:
    using CRtcpPacket::CRtcpPacket;
    explicit CRtcpRRPacket(const CRtcpPacket& packet) : CRtcpPacket(packet) {}

    [[nodiscard]] uint32_t sender_ssrc() const { return Word(RTCP_RR, 4); }
    [[nodiscard]] const rtcp_report* report(int i) const { return Report(RTCP_RR, 8, i); }
};

// Chunks and items beyond 16 are not recorded, nor those that run out of the buffer.
class CRtcpSdesPacket : public CRtcpPacket {
  public:
    using CRtcpPacket::CRtcpPacket;
    explicit CRtcpSdesPacket(const CRtcpPacket& packet) : CRtcpPacket(packet) {}

    [[nodiscard]] int chunk_count() const;
    [[nodiscard]] const sdes_chunk* chunk(int i) const;
    [[nodiscard]] uint32_t chunk_ssrc(int i) const;
    [[nodiscard]] int chunk_size(int i) const;
    [[nodiscard]] int item_count(int i) const;
    [[nodiscard]] int item_type(int i, int j) const;
    [[nodiscard]] int item_size(int i, int j) const;  // bytes of data

  private:
    [[nodiscard]] const rtcp_sdes_item* Item(int i, int j) const;
};

class CRtcpByePacket : public CRtcpPacket {
  public:
    using CRtcpPacket::CRtcpPacket;
    explicit CRtcpByePacket(const CRtcpPacket& packet) : CRtcpPacket(packet) {}

    [[nodiscard]] uint32_t ssrc(int i) const;
};

class CRtcpAppPacket : public CRtcpPacket {
  public:
    using CRtcpPacket::CRtcpPacket;
    explicit CRtcpAppPacket(const CRtcpPacket& packet) : CRtcpPacket(packet) {}

    [[nodiscard]] uint32_t ssrc() const { return Word(RTCP_APP, 4); }
    [[nodiscard]] const char* name() const;     // 4 characters, not terminated
    [[nodiscard]] const uint8_t* data() const;  // data_len() bytes
    [[nodiscard]] int data_len() const;
};

#endif
