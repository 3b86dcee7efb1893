// SPDX-License-Identifier: MIT
#include "rtsps_url.h"

#include <cstddef>
#include <cstring>

#include "cbb.h"
#include "rtsps_debug.h"
#include "rtsps_text.h"

namespace {

constexpr int PROTOCOL_UNKNOWN = 0;
constexpr int PROTOCOL_RTSP = 1;
constexpr int PROTOCOL_HTTP = 2;

constexpr size_t NUMBER_SIZE = 64;

// Kept (clients): [url-short-host] a host and port text must be longer than this.
constexpr ptrdiff_t SHORT_HOST_LENGTH = 6;

struct StreamName {
    const char* szName;
    int nStreamtype;
};
// Kept (clients): [url-stream-substring] the names are searched in this order, as substrings, so
// "third-sub-main" is main.
constexpr StreamName STREAM_NAMES[] = {{"main", 0}, {"sub", 1}, {"third", 2}};

int ProtocolOf(const char* szScheme) {
    if (CBB_Strcmp(szScheme, "rtsp") == 0) {
        return PROTOCOL_RTSP;
    }
    return CBB_Strcmp(szScheme, "http") == 0 ? PROTOCOL_HTTP : PROTOCOL_UNKNOWN;
}

}  // namespace

CRtspUrl::CRtspUrl(const char* url) {
    parse(url);
}

int CRtspUrl::get_req_cfg(tagRtspRequestCfg* out) const {
    if (out == nullptr) {
        RTSPS_LOG(ERROR, "p_ReqCfg is NULL;");
        return -1;
    }
    *out = m_ReqCfg;
    return 0;
}

int CRtspUrl::atoin(const char* s, int n) {
    char szNumber[NUMBER_SIZE] = {};
    TextCopy(szNumber, sizeof(szNumber), s, n > 0 ? static_cast<size_t>(n) : 0);
    return TextToInt(szNumber);
}

void CRtspUrl::parse(const char* url) {
    if (url == nullptr) {
        RTSPS_LOG(ERROR, "pURL == NULL error!");
        return;
    }
    if (strnlen(url, URL_SIZE) >= URL_SIZE) {
        RTSPS_LOG(ERROR, "URL tooo Longgggg");
        return;
    }
    TextCopy(m_szUrl, url);
    TextToLower(m_szUrl);
    // Kept (clients): [url-without-scheme] without "://" the URL begins with the host.
    const char* szHostPart = m_szUrl;
    const char* szMark = CBB_Strstr(m_szUrl, "://");
    if (szMark != nullptr) {
        char szScheme[URL_SIZE] = {};
        TextCopy(szScheme, sizeof(szScheme), m_szUrl, static_cast<size_t>(szMark - m_szUrl));
        m_protocol = ProtocolOf(szScheme);
        if (m_protocol == PROTOCOL_HTTP) {
            RTSPS_LOG(ERROR, "m_protocol error 1! %s", szScheme);
            return;
        }
        if (m_protocol == PROTOCOL_UNKNOWN) {
            RTSPS_LOG(ERROR, "m_protocol error 2! %s", szScheme);
            return;
        }
        szHostPart = szMark + 3;
    }
    const char* szSlash = CBB_Strchr(szHostPart, '/');
    if (szSlash == nullptr || szSlash - szHostPart <= SHORT_HOST_LENGTH) {
        RTSPS_LOG(ERROR, "host_port error! %s", szHostPart);
        return;
    }
    if (!parse_host(szHostPart, szSlash)) {
        return;
    }
    const char* szChan = CBB_Strstr(szSlash + 1, "chan");
    if (szChan == nullptr) {
        RTSPS_LOG(ERROR, "can not find chan");
        return;
    }
    const char* szStream = parse_channel(szChan + strlen("chan"));
    if (szStream == nullptr) {
        return;
    }
    if (!parse_stream(szStream)) {
        RTSPS_LOG(ERROR, "Error!not find 'main' or 'sub' or 'third' [%s]", szStream);
        return;
    }
    m_bIsValid = true;
}

bool CRtspUrl::parse_host(const char* szHostPart, const char* szEnd) {
    m_ReqCfg.byIPV6 = szHostPart[0] == '[' ? 1 : 0;
    szHostPart += m_ReqCfg.byIPV6;
    TextCopy(m_szHost, sizeof(m_szHost), szHostPart, static_cast<size_t>(szEnd - szHostPart));
    char* szColon = nullptr;
    if (m_ReqCfg.byIPV6 != 0) {
        char* szBracket = strchr(m_szHost, ']');
        if (szBracket == nullptr) {
            return false;
        }
        *szBracket = '\0';
        szColon = strchr(szBracket + 1, ':');
    } else {
        szColon = strchr(m_szHost, ':');
    }
    if (szColon != nullptr) {
        parse_port(szColon);
    }
    return true;
}

void CRtspUrl::parse_port(char* szColon) {
    *szColon = '\0';
    if (szColon[1] != '\0') {
        // Kept (clients): [url-port-digit] the first digit is skipped, so 8554 is read as 554. No
        // code connects to this port.
        m_port = static_cast<uint16_t>(TextToInt(szColon + 2));
    }
}

// Returns the text after the channel number and its slash, or null without a slash.
const char* CRtspUrl::parse_channel(const char* szNumber) {
    const char* szSlash = strchr(szNumber, '/');
    if (szSlash == nullptr) {
        return nullptr;
    }
    // Kept (clients): [url-channel-number] text that is no number is channel 0, so "/channel/main"
    // is channel 0.
    m_ReqCfg.nChan = atoin(szNumber, static_cast<int>(szSlash - szNumber));
    m_ReqCfg.nReqType = 0;
    return szSlash + 1;
}

bool CRtspUrl::parse_stream(const char* szStream) {
    for (const StreamName& stream : STREAM_NAMES) {
        if (CBB_Strstr(szStream, stream.szName) != nullptr) {
            m_ReqCfg.nStreamtype = stream.nStreamtype;
            return true;
        }
    }
    return false;
}
