// SPDX-License-Identifier: MIT
#include "rtsp_msg_parser.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <new>
#include <string>

#include "rtsp_clock_time.h"
#include "rtsp_msg.h"
#include "rtsp_nptime.h"
#include "rtsps_debug.h"
#include "rtsps_mpte.h"
#include "rtsps_text.h"

namespace {

constexpr char PROTOCOL_PREFIX[] = "RTSP/";
constexpr size_t PROTOCOL_PREFIX_LEN = sizeof(PROTOCOL_PREFIX) - 1;

// Room for one field of each kind, the NUL included; longer fields are cut. A parameter keeps at
// most 255 characters of each text, so values and whole texts are cut there.
constexpr size_t METHOD_SIZE = 128;
constexpr size_t URL_SIZE = 512;
constexpr size_t CODE_SIZE = 1024;
constexpr size_t VERSION_SIZE = 64;
constexpr size_t NAME_SIZE = 128;
constexpr size_t ATTRIBUTE_SIZE = 128;
constexpr size_t VALUE_SIZE = 1024;
constexpr size_t WHOLE_TEXT_SIZE = 512;

// A terminated, possibly cut, copy of a slice.
template <size_t N>
class CSliceText {
  public:
    explicit CSliceText(const string_node& slice) {
        TextCopySlice(m_szText, slice.value, slice.len);
    }
    [[nodiscard]] const char* c_str() const { return m_szText; }

  private:
    char m_szText[N];
};

bool IsLeadingSpace(char c) {
    return c == '\n' || c == '\r' || c == ' ' || c == '\t';
}

bool BeginsWithProtocol(const string_node& slice) {
    return slice.len >= static_cast<int>(PROTOCOL_PREFIX_LEN) &&
           memcmp(slice.value, PROTOCOL_PREFIX, PROTOCOL_PREFIX_LEN) == 0;
}

// Headers whose value is one text: commas and semicolons do not divide it.
bool IsWholeTextHeader(const CRtspHeader& header) {
    // Kept (clients): [whole-text-names] only these spellings match, "Content-base" among them.
    static constexpr const char* NAMES[] = {"WWW-Authenticate", "Authenticate", "Authorization",
                                            "Location", "Content-base"};
    return std::any_of(std::begin(NAMES), std::end(NAMES),
                       [&](const char* szName) { return header.IsTypeByName(szName); });
}

template <class Time>
unsigned long ReadTime(const CMimeToken& token) {
    return token.hasValue()
               ? static_cast<unsigned long>(Time(token.m_conten.value, token.m_conten.len))
               : 0;
}

// Reads "begin-end". ReadTime returns whole seconds for all three units, but a TR_SMPTE range is in
// milliseconds.
//
// Kept (clients): [range-smpte-unit] a parsed smpte range is written back with its times divided by
// 1000.
template <class Time>
CRtspRangeValue* ReadRange(CMimeScanner& scanner, RangeType type) {
    const unsigned long nBegin = ReadTime<Time>(scanner.next_token("-"));
    const unsigned long nEnd = ReadTime<Time>(scanner.next_token("\n"));
    return new (std::nothrow) CRtspRangeValue(nBegin, nEnd, type);
}

}  // namespace

CRtspMsgParser::CRtspMsgParser() = default;
CRtspMsgParser::~CRtspMsgParser() = default;

CRtspMsg* CRtspMsgParser::parse(const char* data, int len) noexcept {
    if (data == nullptr || len <= 0) {
        RTSPS_LOG(ERROR, "pasre parameter error!");
        return nullptr;
    }
    try {
        m_lines.clear();
        m_folded.Clear();
        const int nHeaderLen = ScanHeaders(data, len);
        std::unique_ptr<CRtspMsg> msg = parse_lines();
        const int nConsumed = msg == nullptr ? 0 : take_body(msg, data, len, nHeaderLen);
        RTSPS_LOG(INFO, "msg length=%d", nConsumed);
        return msg.release();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

int CRtspMsgParser::ScanHeaders(const char* data, int len) {
    int nSkipped = 0;
    while (nSkipped < len && IsLeadingSpace(data[nSkipped])) {
        ++nSkipped;
    }
    CMimeStream stream(data + nSkipped, len - nSkipped);
    CMimeScanner scanner(stream, &m_folded);
    bool bAfterLineEnd = false;
    for (;;) {
        const CMimeToken line = scanner.next_token("\n");
        const bool bEndOfData = line.m_lastChar == CMimeToken::END_OF_DATA;
        if (!line.hasValue() && bEndOfData) {
            return nSkipped;
        }
        if (!line.hasValue() && bAfterLineEnd) {
            return nSkipped + scanner.offset();
        }
        if (m_lines.size() <= MAX_HEADER_LINES) {  // not counting the start line
            m_lines.push_back(line);
        }
        if (bEndOfData) {
            // Kept (clients): [blank-line-missing] without a blank line the header block counts as
            // empty, but its lines are parsed.
            return nSkipped;
        }
        bAfterLineEnd = line.m_lastChar == CMimeToken::END_OF_LINE;
    }
}

std::unique_ptr<CRtspMsg> CRtspMsgParser::parse_lines() {
    if (m_lines.empty()) {
        return nullptr;
    }
    return BeginsWithProtocol(m_lines.front().m_conten) ? ParseResponse() : ParseRequest();
}

int CRtspMsgParser::take_body(std::unique_ptr<CRtspMsg>& msg, const char* data, int len,
                              int nHeaderLen) {
    int nBody = 0;
    // Kept (clients): [content-length-spelling] only this spelling announces a body.
    // "Content-Length" does not.
    if (!msg->GetHeaderValue("Content-length", nBody)) {
        return nHeaderLen;
    }
    nBody = std::max(nBody, 0);
    // A body that is too long for a message is rejected like a body that has not arrived.
    if (int64_t{len} < int64_t{nHeaderLen} + nBody || msg->Content(data + nHeaderLen, nBody) != 0) {
        msg.reset();
        return 0;
    }
    return nHeaderLen + nBody;
}

std::unique_ptr<CRtspMsg> CRtspMsgParser::ParseRequest() {
    const string_node& line = m_lines.front().m_conten;
    std::unique_ptr<CRtspMsg> msg = ParseRequestLine(line.value, line.len);
    if (msg == nullptr) {
        RTSPS_LOG(ERROR, "Parse Request Line Error!");
        return nullptr;
    }
    parse_header_lines(*msg);
    return msg;
}

std::unique_ptr<CRtspMsg> CRtspMsgParser::ParseResponse() {
    const string_node& line = m_lines.front().m_conten;
    std::unique_ptr<CRtspMsg> msg = ParseResponseLine(line.value, line.len);
    if (msg != nullptr) {
        parse_header_lines(*msg);
    }
    return msg;
}

void CRtspMsgParser::parse_header_lines(CRtspMsg& msg) {
    bool bOutOfMemory = m_folded.IsOutOfMemory();
    for (size_t i = 1; i < m_lines.size(); ++i) {
        const string_node& line = m_lines[i].m_conten;
        msg.AddHeader(ParseHeader(line.value, line.len, &bOutOfMemory).release());
    }
    if (bOutOfMemory) {
        msg.MarkIncomplete();
    }
    int nCseq = 0;
    msg.GetHeaderValue("CSeq", nCseq);
    msg.Cseq(nCseq);
}

std::unique_ptr<CRtspRequest> CRtspMsgParser::ParseRequestLine(const char* line, int len) {
    std::unique_ptr<CRtspRequest> request(new (std::nothrow) CRtspRequest);
    if (request == nullptr) {
        return nullptr;
    }
    CMimeStream stream(line, len);
    CMimeScanner scanner(stream);
    const CMimeToken method = scanner.next_token(nullptr);
    if (!method.hasValue()) {
        RTSPS_LOG(ERROR, "get request method ERROR!");
        return nullptr;
    }
    request->Method(CSliceText<METHOD_SIZE>(method.m_conten).c_str());

    const CMimeToken url = scanner.next_token(" ");
    if (!url.hasValue()) {
        RTSPS_LOG(ERROR, "get request url ERROR!");
        return nullptr;
    }
    request->URL(CSliceText<URL_SIZE>(url.m_conten).c_str());

    const CMimeToken version = scanner.next_token(nullptr);
    if (!version.hasValue()) {
        RTSPS_LOG(ERROR, "get request version ERROR!");
        return nullptr;
    }
    int nMajor = 1;
    int nMinor = 0;
    if (ParseProtocolVersion(version.m_conten.value, version.m_conten.len, &nMajor, &nMinor)) {
        request->Version(nMajor, nMinor);
    } else {
        // Kept (clients): [request-version-default] any other text is version 1.0, so a request
        // that ends in "HTTP/1.1" is served.
        request->Version(1, 0);
    }
    return request;
}

std::unique_ptr<CRtspResponse> CRtspMsgParser::ParseResponseLine(const char* line, int len) {
    std::unique_ptr<CRtspResponse> response(new (std::nothrow) CRtspResponse);
    if (response == nullptr) {
        return nullptr;
    }
    response->Method(RTSP_RESPONSE);
    CMimeStream stream(line, len);
    CMimeScanner scanner(stream);
    const CMimeToken version = scanner.next_token(nullptr);
    if (!version.hasValue()) {
        return nullptr;
    }
    int nMajor = 0;
    int nMinor = 0;
    if (ParseProtocolVersion(version.m_conten.value, version.m_conten.len, &nMajor, &nMinor)) {
        response->Version(nMajor, nMinor);
    } else {
        // Kept (clients): [response-version-default] any other text is version 0.0, but 1.0 in a
        // request.
        response->Version(0, 0);
    }
    const CMimeToken code = scanner.next_token(nullptr);
    if (!code.hasValue()) {
        return nullptr;
    }
    response->Code(CSliceText<CODE_SIZE>(code.m_conten).c_str());
    const CMimeToken reason = scanner.next_token("\n");
    response->Msg(CSliceText<CODE_SIZE>(reason.m_conten).c_str());
    return response;
}

bool CRtspMsgParser::ParseProtocolVersion(const char* text, int len, int* major, int* minor) {
    if (!BeginsWithProtocol({text, len})) {
        return false;
    }
    const CSliceText<VERSION_SIZE> version({text, len});
    if (TextToIntPair(version.c_str() + PROTOCOL_PREFIX_LEN, major, minor, '.') != 2) {
        return false;
    }
    RTSPS_LOG(INFO, "Get OK Version [%d.%d]!", *major, *minor);
    return true;
}

std::unique_ptr<CRtspHeader> CRtspMsgParser::ParseHeader(const char* line, int len,
                                                         bool* pOutOfMemory) {
    CMimeStream stream(line, len);
    CMimeScanner scanner(stream);
    const CMimeToken name = scanner.next_token(":");
    if (!name.hasValue()) {
        return nullptr;
    }
    std::unique_ptr<CRtspHeader> header(
        CRtspHeader::create_new(CSliceText<NAME_SIZE>(name.m_conten).c_str()));
    if (header == nullptr) {
        *pOutOfMemory = true;
        return nullptr;
    }
    const string_node value = scanner.next_token("\n").m_conten;
    if (header->IsTypeByName("Range")) {
        ParseRangeValue(value.value, value.len, header.get());
    } else if (IsWholeTextHeader(*header)) {
        header->AddHeaderValue(CSliceText<WHOLE_TEXT_SIZE>(value).c_str());
    } else if (header->IsTypeByName("RTP-Info")) {
        ParseRTPInfoHeaderValues(value.value, value.len, header.get());
    } else {
        DefaultParseHeaderValues(value.value, value.len, header.get());
    }
    return header;
}

void CRtspMsgParser::DefaultParseHeaderValues(const char* text, int len, CRtspHeader* header) {
    CMimeStream stream(text, len);
    CMimeScanner scanner(stream);
    for (;;) {
        // Kept (clients): [quotes-ignored] quotes have no meaning: a comma inside them divides the
        // value.
        const CMimeToken element = scanner.next_token(",");
        if (!element.hasValue()) {
            // Kept (clients): [empty-element] an empty element ends the list: "a,,b" is "a".
            return;
        }
        ParseHeaderValue(element.m_conten.value, element.m_conten.len, header);
        if (element.m_lastChar == CMimeToken::END_OF_LINE ||
            element.m_lastChar == CMimeToken::END_OF_DATA) {
            return;
        }
    }
}

void CRtspMsgParser::ParseHeaderValue(const char* text, int len, CRtspHeader* header) {
    CMimeStream stream(text, len);
    CMimeScanner scanner(stream);
    CMimeToken token = scanner.next_token(";=");
    if (!token.hasValue()) {
        return;
    }
    std::unique_ptr<CRtspHeaderValue> value(new (std::nothrow) CRtspHeaderValue);
    if (value == nullptr) {
        header->MarkIncomplete();
        return;
    }
    // Kept (clients): [empty-parameter] an empty parameter ends the value: "a;;b" is "a".
    while (token.hasValue() && value->ParameterCount() < MAX_PARAMETERS) {
        const CSliceText<ATTRIBUTE_SIZE> attribute(token.m_conten);
        if (token.m_lastChar == '=') {
            const CMimeToken right = scanner.next_token(";");
            value->AddParameter(attribute.c_str(), CSliceText<VALUE_SIZE>(right.m_conten).c_str());
        } else {
            value->AddParameter(attribute.c_str());
        }
        token = scanner.next_token("=;");
    }
    header->AddHeaderValue(value.release());
}

void CRtspMsgParser::ParseRangeValue(const char* text, int len, CRtspHeader* header) {
    CMimeStream stream(text, len);
    CMimeScanner scanner(stream);
    const CSliceText<ATTRIBUTE_SIZE> unit(scanner.next_token("=").m_conten);
    // Kept (clients): [range-unit-prefix] the comparison ends with the received word, so a
    // shortened word selects its unit, and an empty one selects smpte.
    const auto is_unit = [&unit](const char* szUnit) {
        return strncmp(unit.c_str(), szUnit, strlen(unit.c_str())) == 0;
    };
    if (is_unit("smpte")) {
        header->AddNewHeaderValue(ReadRange<SMPTETimeCode>(scanner, TR_SMPTE));
    } else if (is_unit("npt")) {
        header->AddNewHeaderValue(ReadRange<NPTime>(scanner, TR_NPT));
    } else if (is_unit("clock")) {
        header->AddNewHeaderValue(ReadRange<ClockTime>(scanner, TR_CLOCK));
    }
}

void CRtspMsgParser::ParseRTPInfoHeaderValues(const char* text, int len, CRtspHeader* header) {
    if (len <= 0) {
        return;
    }
    const std::string info(text, static_cast<size_t>(len));
    const char* szEntry = strstr(info.c_str(), "url=");
    while (szEntry != nullptr) {
        const char* szNext = NextRTPInfoEntry(szEntry + strlen("url="), "url=", ',');
        const size_t nLen =
            szNext == nullptr ? strlen(szEntry) : static_cast<size_t>(szNext - szEntry);
        SetRTPInfoEntry(szEntry, static_cast<int>(nLen), header);
        szEntry = szNext;
    }
}

const char* CRtspMsgParser::NextRTPInfoEntry(const char* from, const char* key, char before) {
    for (const char* p = strstr(from, key); p != nullptr; p = strstr(p + 1, key)) {
        const char* pBefore = p;
        while (pBefore > from && (pBefore[-1] == ' ' || pBefore[-1] == '\t')) {
            --pBefore;
        }
        if (pBefore > from && pBefore[-1] == before) {
            return p;
        }
    }
    return nullptr;
}

void CRtspMsgParser::SetRTPInfoEntry(const char* entry, int len, CRtspHeader* header) {
    const std::string text(entry, static_cast<size_t>(len));
    const char* szText = text.c_str();
    const auto offset_of = [szText](const char* pKey) {
        return pKey == nullptr ? -1 : static_cast<int>(pKey - szText);
    };
    const struct {
        int nBegin;
        int nKeyLen;
    } fields[] = {
        {offset_of(strstr(szText, "url=")), 4},
        {offset_of(NextRTPInfoEntry(szText, "seq=", ';')), 4},
        {offset_of(NextRTPInfoEntry(szText, "rtptime=", ';')), 8},
    };
    if (fields[1].nBegin < 0 && fields[2].nBegin < 0) {
        return;
    }
    for (const auto& field : fields) {
        int nEnd = len;
        for (const auto& other : fields) {
            nEnd = other.nBegin > field.nBegin ? std::min(nEnd, other.nBegin) : nEnd;
        }
        if (field.nBegin >= 0) {
            string_node slice;
            ReadRTPInfoEntry(szText, field.nBegin, field.nKeyLen, nEnd, &slice);
        }
    }
    // Kept (clients): [rtp-info-fields] an empty value represents the entry. Its fields are not
    // stored, and no code reads them.
    header->AddNewHeaderValue(new (std::nothrow) CRtspHeaderValue);
}

void CRtspMsgParser::ReadRTPInfoEntry(const char* entry, int begin, int keyLen, int end,
                                      string_node* field) {
    field->value = entry + begin + keyLen;
    field->len = end - begin - keyLen;
    if (field->len > 0 &&
        (field->value[field->len - 1] == ',' || field->value[field->len - 1] == ';')) {
        --field->len;
    }
}
