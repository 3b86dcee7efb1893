// SPDX-License-Identifier: MIT
#include "rtsp_header.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "rtsp_clock_time.h"
#include "rtsp_nptime.h"
#include "rtsps_debug.h"
#include "rtsps_mpte.h"
#include "rtsps_text.h"

namespace {

constexpr size_t SHOW_SIZE = 1024;
constexpr size_t RANGE_TEXT_SIZE = 128;

template <class T>
void AppendToUnbounded(const T& object, char* out) {
    CTextAppender appender(out, CTextAppender::UNBOUNDED);
    object.append_text(appender);
}

template <class T>
void Show(const T& object, const char* szTitle) {
    char szText[SHOW_SIZE] = {};
    CTextAppender appender(szText, sizeof(szText));
    object.append_text(appender);
    printf("%s [%s]\n", szTitle, szText);
}

}  // namespace

CRtspParameter::CRtspParameter() {
    m_szAttribute[0] = '\0';
    m_szValue[0] = '\0';
}

int CRtspParameter::add_attribute(const char* attr, const char* value) {
    if (attr != nullptr) {
        TextCopy(m_szAttribute, attr);
    }
    return reset_value(value);
}

int CRtspParameter::reset_value(const char* value) {
    if (value != nullptr) {
        TextCopy(m_szValue, value);
    }
    return 0;
}

void CRtspParameter::as_string(char* out) const {
    AppendToUnbounded(*this, out);
}

void CRtspParameter::append_text(CTextAppender& out) const {
    out.Append(m_szAttribute);
    if (m_szValue[0] != '\0') {
        out.Append("=");
        out.Append(m_szValue);
    }
}

CRtspHeaderValue::CRtspHeaderValue(const char* attr) {
    AddParameter(attr);
}

CRtspHeaderValue::CRtspHeaderValue(const char* attr, const char* value) {
    AddParameter(attr, value);
}

void CRtspHeaderValue::as_string(char* out) const {
    AppendToUnbounded(*this, out);
}

void CRtspHeaderValue::append_text(CTextAppender& out) const {
    const char* szSeparator = "";
    for (const auto& parameter : m_parameters) {
        out.Append(szSeparator);
        parameter->append_text(out);
        szSeparator = ";";
    }
}

void CRtspHeaderValue::AddParameter(const char* attr, const char* value) {
    auto* pParameter = new (std::nothrow) CRtspParameter;
    if (pParameter == nullptr) {
        m_bLacksPart = true;
        return;
    }
    pParameter->add_attribute(attr, value);
    AddParameter(pParameter);
}

void CRtspHeaderValue::AddParameter(const char* attr) {
    AddParameter(attr, nullptr);
}

void CRtspHeaderValue::AddParameter(CRtspParameter* pParameter) {
    if (pParameter != nullptr && !AppendOwned(m_parameters, pParameter)) {
        m_bLacksPart = true;
    }
}

CRtspParameter* CRtspHeaderValue::GetParameter(const char* attr) {
    return const_cast<CRtspParameter*>(std::as_const(*this).GetParameter(attr));
}

const CRtspParameter* CRtspHeaderValue::GetParameter(const char* attr) const {
    for (const auto& parameter : m_parameters) {
        if (strcmp(parameter->get_attr(), attr) == 0) {
            return parameter.get();
        }
    }
    return nullptr;
}

const char* CRtspHeaderValue::GetParameterValue(const char* attr) const {
    // Kept (clients): [parameter-presence] this returns the attribute, not the value. Callers only
    // test whether the parameter is present.
    const CRtspParameter* pParameter = GetParameter(attr);
    return pParameter == nullptr ? nullptr : pParameter->get_attr();
}

void CRtspHeaderValue::remove_parameter(const char* attr) {
    for (auto it = m_parameters.begin(); it != m_parameters.end(); ++it) {
        if (strcmp((*it)->get_attr(), attr) == 0) {
            m_parameters.erase(it);
            return;
        }
    }
}

CRtspHeaderValue* CRtspHeaderValue::clone() const {
    auto* pCopy = new (std::nothrow) CRtspHeaderValue;
    if (pCopy != nullptr) {
        pCopy->m_bLacksPart = m_bLacksPart;
        for (const auto& parameter : m_parameters) {
            pCopy->AddParameter(parameter->get_attr(), parameter->get_value());
        }
    }
    return pCopy;
}

void CRtspHeaderValue::Clear() {
    m_parameters.clear();
}

void CRtspHeaderValue::show_value() const {
    Show(*this, "show_value");
}

CRtspHeader* CRtspHeader::create_new(const char* name) {
    return new (std::nothrow) CRtspHeader(name == nullptr ? "" : name);
}

CRtspHeader::CRtspHeader() : CRtspHeader("") {}

CRtspHeader::CRtspHeader(const char* name) {
    TextCopy(m_szName, name);
}

void CRtspHeader::as_string(char* out) const {
    AppendToUnbounded(*this, out);
}

void CRtspHeader::append_text(CTextAppender& out) const {
    const char* szSeparator = "";
    for (const auto& value : m_headers) {
        out.Append(szSeparator);
        value->append_text(out);
        szSeparator = ",";
    }
    out.Append("\r\n");
}

// Kept (clients): [header-name-case] the comparison is case-sensitive, although RFC 2326 ignores
// case. A request with "Cseq" gets a reply without CSeq.
bool CRtspHeader::IsTypeByName(const char* name) const {
    return strcmp(m_szName, name) == 0;
}

void CRtspHeader::AddHeaderValue(CRtspHeaderValue* pValue) {
    if (pValue != nullptr && !AppendOwned(m_headers, pValue)) {
        m_bLacksPart = true;
    }
}

void CRtspHeader::AddNewHeaderValue(CRtspHeaderValue* pValue) {
    m_bLacksPart |= pValue == nullptr;
    AddHeaderValue(pValue);
}

CRtspHeaderValue* CRtspHeader::AddHeaderValue(const char* text) {
    std::unique_ptr<CRtspHeaderValue> value(new (std::nothrow) CRtspHeaderValue(text));
    if (value == nullptr || !value->IsComplete() || !AppendOwned(m_headers, value.release())) {
        m_bLacksPart = true;
        return nullptr;
    }
    return m_headers.back().get();
}

CRtspHeaderValue* CRtspHeader::GetHeaderValue() {
    return m_headers.empty() ? nullptr : m_headers.front().get();
}

const CRtspHeaderValue* CRtspHeader::GetHeaderValue() const {
    return m_headers.empty() ? nullptr : m_headers.front().get();
}

CRtspHeaderValue* CRtspHeader::GetHeaderValue(const char* text) {
    for (const auto& value : m_headers) {
        char szText[1024] = {};
        CTextAppender appender(szText, sizeof(szText));
        value->append_text(appender);
        if (!appender.Overflowed() && strcmp(szText, text) == 0) {
            return value.get();
        }
    }
    return nullptr;
}

CRtspHeader* CRtspHeader::clone() const {
    CRtspHeader* pCopy = create_new(m_szName);
    if (pCopy != nullptr) {
        pCopy->m_bLacksPart = m_bLacksPart;
        for (const auto& value : m_headers) {
            pCopy->AddNewHeaderValue(value->clone());
        }
    }
    return pCopy;
}

bool CRtspHeader::IsComplete() const {
    return !m_bLacksPart && std::all_of(m_headers.begin(), m_headers.end(),
                                        [](const auto& value) { return value->IsComplete(); });
}

void CRtspHeader::Clear() {
    m_headers.clear();
}

void CRtspHeader::show_header() const {
    Show(*this, "show_header");
}

namespace {

bool HasParameter(const CRtspHeaderValue& value, const char* attr) {
    return value.GetParameter(attr) != nullptr;
}

// The value text of a parameter of the header's first value, or null.
const char* FirstValueText(const CRtspHeader& header, const char* attr) {
    const CRtspHeaderValue* pValue = header.GetHeaderValue();
    const CRtspParameter* pParameter = pValue == nullptr ? nullptr : pValue->GetParameter(attr);
    return pParameter == nullptr ? nullptr : pParameter->get_value();
}

// The leading number of a port or port pair, cut to 16 bits.
unsigned short PortFromText(const char* szPort) {
    // Kept (clients): [client-port-16-bits] only the low 16 bits of the number are used: 70000 is
    // port 4464.
    return szPort == nullptr ? static_cast<unsigned short>(0)
                             : static_cast<unsigned short>(TextToInt(szPort));
}

}  // namespace

trans_protocol CRtspTransport::GetTransProtocol(const CRtspHeader& header) {
    const CRtspHeaderValue* pValue = header.GetHeaderValue();
    if (pValue == nullptr) {
        return protocol_udp;
    }
    if (HasParameter(*pValue, "RTP/AVP/TCP")) {
        // Kept (clients): [separate-tcp-by-port] "client_port" next to "RTP/AVP/TCP" selects a
        // separate connection, also when "interleaved" is present.
        return HasParameter(*pValue, "client_port") ? protocol_tcp : protocol_over_rtsp;
    }
    if (HasParameter(*pValue, "RTP/AVP") || HasParameter(*pValue, "RTP/AVP/UDP")) {
        const bool bMulticast =
            HasParameter(*pValue, "multicast") || HasParameter(*pValue, "mcast");
        return bMulticast ? protocol_mcast : protocol_udp;
    }
    // Kept (clients): [transport-default-udp] an unknown transport, or a known one in another case,
    // is served over UDP.
    return protocol_udp;
}

trans_type CRtspTransport::GetTransType(const CRtspHeader& header) {
    // Kept (clients): [mcast-type] a bare "mcast" makes the protocol multicast but not the type.
    const CRtspHeaderValue* pValue = header.GetHeaderValue();
    const bool bMulticast = pValue != nullptr && !HasParameter(*pValue, "unicast") &&
                            HasParameter(*pValue, "multicast");
    return bMulticast ? mcast : unicast;
}

unsigned short CRtspTransport::GetClientPort(const CRtspHeader& header) {
    const char* szPort = FirstValueText(header, "client_port");
    if (szPort != nullptr) {
        RTSPS_LOG(INFO, "GetClientPort [%s]", szPort);
    }
    return PortFromText(szPort);
}

unsigned short CRtspTransport::GetMcastClientPort(const CRtspHeader& header) {
    return PortFromText(FirstValueText(header, "client_port"));
}

unsigned short CRtspTransport::GetServerPort(const CRtspHeader& header) {
    return PortFromText(FirstValueText(header, "server_port"));
}

const char* CRtspTransport::GetClientAddress(const CRtspHeader& header) {
    return FirstValueText(header, "destination");
}

const char* CRtspTransport::GetMcastClientAddress(const CRtspHeader& header) {
    return FirstValueText(header, "destination");
}

int CRtspTransport::GetInterleavedFlag(const CRtspHeader& header, int* first, int* second) {
    if (header.GetHeaderValue() == nullptr) {
        return -1;
    }
    const char* szValue = FirstValueText(header, "interleaved");
    if (szValue == nullptr) {
        // Kept (operators): [interleaved-on-stderr] the text goes to standard error, without a log
        // level and independent of the debug switch.
        fputs("can not find interleaved para! \n", stderr);
        return -1;
    }
    const int n = TextToIntPair(szValue, first, second);
    RTSPS_LOG(INFO, "szValue %s, n %d, flag1 %d,flag2 %d", szValue, n, *first, *second);
    return 0;
}

namespace {

// Appends the beginning or the end of a range in its unit. For an open one (0) it appends nothing.
void AppendRangeEnd(CTextAppender& out, unsigned long nTime, RangeType type) {
    // Kept (clients): [range-open-end-zero] 0 stands for an open end, so "npt=0-" is written back
    // as "npt=-".
    if (nTime == 0) {
        return;
    }
    switch (type) {
        case TR_SMPTE:
            out.Append(SMPTETimeCode(nTime).to_string());
            break;
        case TR_CLOCK:
            out.Append(ClockTime(nTime).to_string());
            break;
        case TR_NPT:
            out.Append(NPTime(nTime).to_string());
            break;
    }
}

const char* RangeUnit(RangeType type) {
    switch (type) {
        case TR_SMPTE:
            return "smpte=";
        case TR_CLOCK:
            return "clock=";
        case TR_NPT:
            return "npt=";
    }
    return "";
}

}  // namespace

CRtspRangeValue::CRtspRangeValue(unsigned long begin, unsigned long end, RangeType type)
    : m_begin(begin), m_end(end), m_rtype(type) {
    char szRange[RANGE_TEXT_SIZE] = {};
    CTextAppender range(szRange, sizeof(szRange));
    AppendRangeEnd(range, begin, type);
    range.Append("-");
    AppendRangeEnd(range, end, type);
    AddParameter(szRange);
}

void CRtspRangeValue::append_text(CTextAppender& out) const {
    if (m_parameters.empty()) {
        // Kept (clients): [range-without-text] a range without text erases the earlier contents of
        // the output.
        out.Clear();
        return;
    }
    out.Append(RangeUnit(m_rtype));
    CRtspHeaderValue::append_text(out);
}
