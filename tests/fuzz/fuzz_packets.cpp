// SPDX-License-Identifier: MIT
// The RTP and the RTCP parser: all data that they return lies within the packet.
#include "fuzz_support.h"
#include "rtcp_packet.h"

static void CheckWithin(const Bytes& bytes, const void* p, int nSize) {
    const auto* pFirst = static_cast<const uint8_t*>(p);
    FUZZ_CHECK(p == nullptr || (nSize >= 0 && pFirst >= bytes.data() &&
                                pFirst + nSize <= bytes.data() + bytes.size()));
}

static void CheckRtcp(Bytes bytes) {
    const CRtcpPacket packet(bytes.data(), static_cast<int>(bytes.size()));
    const CRtcpSRPacket sr(packet);
    const CRtcpRRPacket rr(packet);
    const CRtcpSdesPacket sdes(packet);
    const CRtcpByePacket bye(packet);
    const CRtcpAppPacket app(packet);
    volatile uint32_t nRead = sr.sender_ssrc() + sr.osent() + rr.sender_ssrc() + app.ssrc();
    for (int i = -1; i < 34; ++i) {  // beyond any count in a packet
        nRead = nRead + bye.ssrc(i) + sdes.chunk_ssrc(i);
        CheckWithin(bytes, sr.report(i), sizeof(rtcp_report));
        CheckWithin(bytes, rr.report(i), sizeof(rtcp_report));
        FUZZ_CHECK((sdes.chunk(i) != nullptr) == (i >= 0 && i < sdes.chunk_count()));
        int nSize = 0;
        for (int j = 0; j < sdes.item_count(i); ++j) {
            nSize += 2 + sdes.item_size(i, j);
            CheckWithin(bytes, sdes.chunk(i)->item[j], 2 + sdes.item_size(i, j));
        }
        FUZZ_CHECK(nSize == sdes.chunk_size(i));
    }
    CheckWithin(bytes, app.name(), 4);
    CheckWithin(bytes, app.data(), app.data_len());
}

void Fuzz(CFuzzInput input) {
    CheckRtcp(input.All());
    Bytes bytes = input.All();
    CRtpPacket packet(bytes.data(), static_cast<int>(bytes.size()));
    const rtp_buf* pPayload = packet.unpack();
    if (pPayload != nullptr) {
        CheckWithin(bytes, pPayload->buf, pPayload->len);
        FUZZ_CHECK(pPayload->buf + pPayload->len == bytes.data() + packet.Length());
    }
}
