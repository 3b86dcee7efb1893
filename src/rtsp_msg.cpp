// SPDX-License-Identifier: MIT
#include "rtsp_msg.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

#include "cbb.h"
#include "rtsp_clock_time.h"
#include "rtsps_debug.h"
#include "rtsps_text.h"

namespace {

constexpr size_t NUMBER_TEXT_SIZE = 24;  // "%lu" needs 21 bytes
constexpr size_t SESSION_TEXT_SIZE = 128;
constexpr size_t ADDRESS_TEXT_SIZE = 64;
constexpr unsigned int MULTICAST_TTL = 127;
constexpr int NO_CHANNEL = 255;

void AddPortPair(CRtspHeaderValue& value, const char* szName, unsigned short port1,
                 unsigned short port2) {
    char szPorts[NUMBER_TEXT_SIZE];
    snprintf(szPorts, sizeof(szPorts), "%u-%u", port1, port2);
    value.AddParameter(szName, szPorts);
}

void AddTtl(CRtspHeaderValue& value) {
    char szTtl[NUMBER_TEXT_SIZE];
    snprintf(szTtl, sizeof(szTtl), "%u", MULTICAST_TTL);
    value.AddParameter("ttl", szTtl);
}

void SetSsrc(CRtspHeaderValue& value, unsigned int ssrc) {
    char szSsrc[NUMBER_TEXT_SIZE];
    // Kept (clients): [ssrc-unpadded] the digits are lower-case, without leading zeros. RFC 2326
    // has eight digits.
    snprintf(szSsrc, sizeof(szSsrc), "%x", ssrc);
    CRtspParameter* pSsrc = value.GetParameter("ssrc");
    if (pSsrc != nullptr) {
        pSsrc->reset_value(szSsrc);
    } else {
        value.AddParameter("ssrc", szSsrc);
    }
}

// Kept (clients): [interleaved-channel-bits] 255 means "not given", and channel 0 is used. Of other
// numbers the low 8 bits are used: 256 is channel 0, and 511 is channel 255.
void StoreChannel(int nChannel, unsigned char* pChannel) {
    if (pChannel != nullptr && nChannel != NO_CHANNEL) {
        *pChannel = static_cast<unsigned char>(nChannel);
    }
}

}  // namespace

CRtspMsg::CRtspMsg() {
    m_szContent[0] = '\0';  // the other 2047 bytes are written when there is a body
}

void CRtspMsg::as_string(char* out) const {
    CTextAppender appender(out, CTextAppender::UNBOUNDED);
    append_text(appender);
}

int CRtspMsg::as_binary(char*, int) const {
    return -1;
}

void CRtspMsg::append_text(CTextAppender&) const {}

void CRtspMsg::Version(int major, int minor) {
    m_majorVer = major;
    m_minorVer = minor;
}

int CRtspMsg::Content(const char* data, int len) {
    if (len < 0 || len > CONTENT_SIZE || (data == nullptr && len > 0)) {
        return -1;
    }
    memset(m_szContent, 0, sizeof(m_szContent));
    if (len > 0) {
        memcpy(m_szContent, data, static_cast<size_t>(len));
    }
    m_contentLen = len;
    return 0;
}

void CRtspMsg::AddHeader(CRtspHeader* pHeader) {
    if (pHeader != nullptr && !AppendOwned(m_headers, pHeader)) {
        m_bLacksPart = true;
    }
}

void CRtspMsg::AddHeader(const char* name, const char* text) {
    std::unique_ptr<CRtspHeader> header(CRtspHeader::create_new(name));
    if (header == nullptr || header->AddHeaderValue(text) == nullptr) {
        m_bLacksPart = true;
        return;
    }
    AddHeader(header.release());
}

void CRtspMsg::AddHeader(const char* name, int n) {
    char szNumber[NUMBER_TEXT_SIZE];
    snprintf(szNumber, sizeof(szNumber), "%d", n);
    AddHeader(name, szNumber);
}

void CRtspMsg::AddHeader(const char* name, unsigned long n) {
    char szNumber[NUMBER_TEXT_SIZE];
    snprintf(szNumber, sizeof(szNumber), "%lu", n);
    AddHeader(name, szNumber);
}

CRtspHeader* CRtspMsg::GetHeader(const char* name) {
    return const_cast<CRtspHeader*>(std::as_const(*this).GetHeader(name));
}

const CRtspHeader* CRtspMsg::GetHeader(const char* name) const {
    for (const auto& header : m_headers) {
        if (header->IsTypeByName(name)) {
            return header.get();
        }
    }
    return nullptr;
}

bool CRtspMsg::GetHeaderValue(const char* name, char* out) const {
    return GetHeaderValue(name, out, CTextAppender::UNBOUNDED);
}

bool CRtspMsg::GetHeaderValue(const char* name, char* out, size_t size) const {
    const CRtspHeader* pHeader = GetHeader(name);
    const CRtspHeaderValue* pValue = pHeader == nullptr ? nullptr : pHeader->GetHeaderValue();
    if (pValue == nullptr) {
        return false;
    }
    CTextAppender appender(out, size);
    pValue->append_text(appender);
    return true;
}

bool CRtspMsg::GetHeaderValue(const char* name, int& n) const {
    char szValue[256] = {};
    if (!GetHeaderValue(name, szValue, sizeof(szValue))) {
        return false;
    }
    n = TextToInt(szValue);
    return true;
}

CRtspHeader* CRtspMsg::GetFirstHeader() {
    m_iterator = 0;
    return GetNextHeader();
}

CRtspHeader* CRtspMsg::GetNextHeader() {
    return m_iterator < m_headers.size() ? m_headers[m_iterator++].get() : nullptr;
}

void CRtspMsg::Clear() {
    m_headers.clear();
    m_iterator = 0;
}

bool CRtspMsg::IsComplete() const {
    return !m_bLacksPart && std::all_of(m_headers.begin(), m_headers.end(),
                                        [](const auto& header) { return header->IsComplete(); });
}

void CRtspMsg::append_headers(CTextAppender& out) const {
    for (const auto& header : m_headers) {
        out.Append(header->Name());
        out.Append(": ");
        header->append_text(out);
    }
    out.Append("\r\n");
}

void CRtspMsg::append_body(CTextAppender& out) const {
    if (m_contentLen > 0) {
        out.Append(m_szContent, strnlen(m_szContent, static_cast<size_t>(m_contentLen)));
    }
}

int CRtspMsg::copy_binary(const CTextAppender& head, const char* szHead, char* out,
                          int size) const {
    const int nHead = static_cast<int>(head.Length());
    const int nTotal = nHead + m_contentLen;
    if (!IsComplete() || head.Overflowed() || nTotal > size) {
        return -1;
    }
    memcpy(out, szHead, head.Length());
    memcpy(out + nHead, m_szContent, static_cast<size_t>(m_contentLen));
    if (nTotal < size) {
        out[nTotal] = '\0';
    }
    return nTotal;
}

CRtspRequest::CRtspRequest() {
    m_szUrl[0] = '\0';
}

void CRtspRequest::URL(const char* url) {
    memset(m_szUrl, 0, sizeof(m_szUrl));
    TextCopy(m_szUrl, url);
}

void CRtspRequest::append_head(CTextAppender& out) const {
    out.AppendFormat("%s %s RTSP/%d.%d\r\n", Method(), URL(), MajorVer(), MinorVer());
    append_headers(out);
}

void CRtspRequest::append_text(CTextAppender& out) const {
    append_head(out);
    append_body(out);
}

int CRtspRequest::as_binary(char* out, int size) const {
    char szHead[HEAD_BUFFER_SIZE] = {};
    CTextAppender head(szHead, sizeof(szHead));
    append_head(head);
    return copy_binary(head, szHead, out, size);
}

const char* CRtspResponse::Code() const {
    const RTSP_STATUS_MAP* pStatus = get_rtsp_status_map(m_index);
    return pStatus == nullptr ? nullptr : pStatus->code;
}

const char* CRtspResponse::Msg() const {
    const RTSP_STATUS_MAP* pStatus = get_rtsp_status_map(m_index);
    return pStatus == nullptr ? nullptr : pStatus->msg;
}

// Kept (clients): [reason-ignored] a received reason phrase is discarded; the phrase is always the
// one of the status table.
void CRtspResponse::Msg(const char*) {}

bool CRtspResponse::append_head(CTextAppender& out) const {
    const RTSP_STATUS_MAP* pStatus = get_rtsp_status_map(m_index);
    if (pStatus == nullptr) {
        return false;
    }
    out.AppendFormat("RTSP/%d.%d %s %s\r\n", MajorVer(), MinorVer(), pStatus->code, pStatus->msg);
    append_headers(out);
    return true;
}

void CRtspResponse::append_text(CTextAppender& out) const {
    if (append_head(out)) {
        append_body(out);
    }
}

int CRtspResponse::as_binary(char* out, int size) const {
    char szHead[HEAD_BUFFER_SIZE] = {};
    CTextAppender head(szHead, sizeof(szHead));
    return append_head(head) ? copy_binary(head, szHead, out, size) : -1;
}

// A copy of the request's header of that name; null when there is none, or when memory runs out.
std::unique_ptr<CRtspHeader> CRtspResponse::copy_header(const CRtspMsg* req, const char* name) {
    if (req == nullptr) {
        return nullptr;
    }
    if (!req->IsComplete()) {
        MarkIncomplete();
    }
    const CRtspHeader* pHeader = req->GetHeader(name);
    if (pHeader == nullptr) {
        return nullptr;
    }
    std::unique_ptr<CRtspHeader> copy(pHeader->clone());
    if (copy == nullptr || !copy->IsComplete()) {
        MarkIncomplete();
    }
    return copy;
}

void CRtspResponse::append_cseq(const CRtspMsg* req) {
    // Kept (clients): [cseq-as-it-came] the value is not checked: text that is no number is
    // repeated too. The reply to a request without CSeq has none.
    AddHeader(copy_header(req, "CSeq").release());
}

void CRtspResponse::append_session_id(const CRtspMsg* req) {
    AddHeader(copy_header(req, "Session").release());
}

void CRtspResponse::append_session_id(const char* id) {
    AddHeader("Session", id);
}

void CRtspResponse::append_connection(const char* text) {
    AddHeader("Connection", text);
}

void CRtspResponse::append_date(const char* text) {
    AddHeader("Date", text);
}

void CRtspResponse::append_public_options(const char* text) {
    AddHeader("Public", text);
}

void CRtspResponse::append(const char* name, const char* text) {
    AddHeader(name, text);
}

void CRtspResponse::append_range_time_now(const CRtspMsg*, time_t now) {
    // Kept (clients): [range-now-bare] the header holds the bare time, without "clock=" and "-".
    AddHeader("Range", ClockTime(ClampToInt(now), 0).to_string());
}

void CRtspResponse::append_transport(const CRtspMsg* req, trans_protocol proto, unsigned int ssrc,
                                     unsigned short port1, unsigned short port2, const char* source,
                                     unsigned char* chan1, unsigned char* chan2) {
    // Kept (clients): [transport-alternatives] the reply repeats the whole list of alternatives,
    // but only the first one is read and completed.
    std::unique_ptr<CRtspHeader> header = copy_header(req, "Transport");
    CRtspHeaderValue* pValue = header == nullptr ? nullptr : header->GetHeaderValue();
    if (pValue == nullptr) {
        return;
    }
    int nFirst = NO_CHANNEL;
    int nSecond = NO_CHANNEL;
    switch (proto) {
        case protocol_mcast:
            AddPortPair(*pValue, "port", port1, port2);
            AddTtl(*pValue);
            break;
        case protocol_udp:
        case protocol_tcp:
            AddPortPair(*pValue, "server_port", port1, port2);
            break;
        case protocol_over_rtsp:
            // The reply repeats the client's own "interleaved" parameter.
            CRtspTransport::GetInterleavedFlag(*header, &nFirst, &nSecond);
            RTSPS_LOG(INFO, "tmpFlag1 %x, tmpFlag2 %x", static_cast<unsigned int>(nFirst),
                      static_cast<unsigned int>(nSecond));
            StoreChannel(nFirst, chan1);
            StoreChannel(nSecond, chan2);
            break;
        default:
            RTSPS_LOG(INFO, "Unknow protocol! [%d]", proto);
            break;
    }
    if (source != nullptr && pValue->GetParameter("destination") != nullptr) {
        pValue->AddParameter("source", source);
    }
    // Kept (clients): [separate-tcp-no-ssrc] the reply for separate TCP has no "ssrc", although the
    // packets carry one.
    if (proto != protocol_tcp && ssrc != 0) {
        SetSsrc(*pValue, ssrc);
    }
    AddHeader(header.release());
}

void CRtspResponse::append_mul_address_port(const CRtspMsg* req, unsigned int ssrc,
                                            unsigned short port1, unsigned short port2,
                                            const tagCBB_ADDR_T* addr) {
    std::unique_ptr<CRtspHeader> header = copy_header(req, "Transport");
    CRtspHeaderValue* pValue = header == nullptr ? nullptr : header->GetHeaderValue();
    if (pValue == nullptr) {
        return;
    }
    char szAddress[ADDRESS_TEXT_SIZE] = {};
    const char* szGroup = CBB_GetAddrString(addr);
    if (szGroup != nullptr) {
        TextCopy(szAddress, szGroup);
    }
    // Kept (clients): [mcast-second-destination] "destination" is appended even when the request
    // has one. An "ssrc" of the request is replaced.
    pValue->AddParameter("destination", szAddress);
    AddPortPair(*pValue, "port", port1, port2);
    AddTtl(*pValue);
    // Kept (clients): [mcast-ssrc-zero] an SSRC of 0 is written too, unlike in append_transport.
    SetSsrc(*pValue, ssrc);
    AddHeader(header.release());
}

// Kept (clients): [mul-address-unread] a placeholder that leaves both outputs unchanged.
void CRtspResponse::GetMulAddressPort(const CRtspMsg*, unsigned short&, unsigned long&) const {}

int CRtspResponse::CheckSessionId(const CRtspMsg* req, const char* id) {
    const CRtspHeader* pHeader = req == nullptr ? nullptr : req->GetHeader("Session");
    if (pHeader == nullptr) {
        RTSPS_LOG(WARN, "ERROR!!! CheckSessionId,\"Session\" not found! ");
        return -1;
    }
    const CRtspHeaderValue* pValue = pHeader->GetHeaderValue();
    if (pValue == nullptr) {
        RTSPS_LOG(WARN, "ERROR!!! CheckSessionId,pHeader->GetHeaderValue ERROR!");
        return -1;
    }
    char szSession[SESSION_TEXT_SIZE] = {};
    CTextAppender session(szSession, sizeof(szSession));
    pValue->append_text(session);
    // Kept (clients): [session-id-substring] the id may stand anywhere in the text. So
    // "12345678;timeout=60" matches "12345678", and so does any other text that contains the id.
    if (strstr(szSession, id) != nullptr) {
        return 0;
    }
    RTSPS_LOG(WARN, "ERROR!!! BAD SessionID SRC[%s], Coming [%s]", id, szSession);
    return -1;
}

int CRtspResponse::CheckSessionId(const CRtspMsg* req, unsigned int id) {
    char szId[SESSION_TEXT_SIZE];
    snprintf(szId, sizeof(szId), "%u", id);
    return CheckSessionId(req, szId);
}
