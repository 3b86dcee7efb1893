// SPDX-License-Identifier: MIT
#include "rtp_packet.h"

#include <arpa/inet.h>

#include <cstring>
#include <limits>

#include "rtsps_text.h"

void ConvertToNetwork(void* pWords, int nFirst, int nCount) {
    auto* p = static_cast<uint8_t*>(pWords) + static_cast<ptrdiff_t>(nFirst) * 4;
    for (int i = 0; i < nCount; ++i, p += 4) {
        uint32_t nWord;
        memcpy(&nWord, p, sizeof(nWord));
        WriteBe32(p, nWord);
    }
}

void ConvertFromNetwork(void* pWords, int nFirst, int nCount) {
    auto* p = static_cast<uint8_t*>(pWords) + static_cast<ptrdiff_t>(nFirst) * 4;
    for (int i = 0; i < nCount; ++i, p += 4) {
        const uint32_t nWord = ReadBe32(p);
        memcpy(p, &nWord, sizeof(nWord));
    }
}

CRtpPacket::CRtpPacket(void* hdr, int length)
    : m_rtphdr(static_cast<rtp_hdr*>(hdr)),
      m_length(length),
      m_bValid(false),
      m_rtpdata{nullptr, 0} {}

rtp_buf* CRtpPacket::pack(rtp_param* param) {
    if (m_rtphdr == nullptr || param == nullptr || m_length < 0 ||
        m_length > std::numeric_limits<int32_t>::max() - RTP_HEADER_SIZE) {
        return nullptr;
    }
    m_rtpdata.buf = reinterpret_cast<uint8_t*>(m_rtphdr);
    m_rtpdata.len = m_length + RTP_HEADER_SIZE;

    m_rtphdr->version = RTP_VERSION;
    m_rtphdr->padding = 0;
    m_rtphdr->extension = 0;
    m_rtphdr->count = 0;
    m_rtphdr->marker = (param->marker & 1) != 0;
    // Kept (hosts): [pack-payload-96] the payload type of `param` is not used.
    m_rtphdr->payload = RTP_PAYLOAD_VIDEO;
    m_rtphdr->sequence = htons(param->sequence);
    m_rtphdr->timestamp = param->timestamp;
    m_rtphdr->ssrc = param->ssrc;
    ConvertToNetwork(m_rtphdr, 1, m_rtphdr->count + 2);

    ++param->sequence;
    m_bValid = true;
    return &m_rtpdata;
}

rtp_buf* CRtpPacket::unpack() {
    if (m_rtphdr == nullptr || m_length < RTP_HEADER_SIZE || m_rtphdr->version != RTP_VERSION) {
        return nullptr;
    }
    auto* pStart = reinterpret_cast<uint8_t*>(m_rtphdr);
    const int nWords = m_rtphdr->count + 2;  // timestamp, SSRC and the CSRC list
    const int nFixedLen = (nWords + 1) * 4;
    int nHeaderLen = nFixedLen;
    if (m_rtphdr->extension != 0) {
        if (m_length < nFixedLen + RTP_EXTENSION_HEADER_SIZE) {
            return nullptr;
        }
        nHeaderLen += (ReadBe16(pStart + nFixedLen + 2) + 1) * 4;
    }
    const int nPadding = m_rtphdr->padding != 0 ? pStart[m_length - 1] : 0;
    if (m_length - nPadding < nHeaderLen) {
        return nullptr;
    }

    m_rtphdr->sequence = ntohs(m_rtphdr->sequence);
    ConvertFromNetwork(m_rtphdr, 1, nWords);
    if (m_rtphdr->extension != 0) {
        auto* pExt = reinterpret_cast<rtp_ext_hdr*>(pStart + nFixedLen);
        pExt->id = ntohs(pExt->id);
        pExt->len = ntohs(pExt->len);
    }
    m_length -= nPadding;
    m_rtpdata.buf = pStart + nHeaderLen;
    m_rtpdata.len = m_length - nHeaderLen;
    m_bValid = true;
    return &m_rtpdata;
}
