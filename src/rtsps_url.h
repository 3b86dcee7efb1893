// SPDX-License-Identifier: MIT
#ifndef RTSPS_URL_H
#define RTSPS_URL_H

#include <cstdint>

// The file of a playback request. No URL sets it.
struct tagRtspPlayBackCfg {
    char ReqfileName[256];
};

// The stream that a client requests.
struct tagRtspRequestCfg {
    int32_t nReqType;     // 0 live, the only kind that a URL selects
    int32_t nChan;        // channel number
    int32_t nStreamtype;  // 0 main, 1 sub, 2 third
    uint8_t byIPV6;       // 1 when the host was written in brackets
    uint8_t res[3];
    tagRtspPlayBackCfg stuPlaybackCfg;
};
using RtspRequestCfg = tagRtspRequestCfg;

// Splits a request URL into its parts:
//     rtsp://<host>[:<port>]/<text>chan<number>/<text with main, sub or third>
// The first "chan" of the path is used, so the text before it cannot contain "chan". Without digits
// after it, the number is 0. In the remaining text, "main" is searched first, then "sub", then
// "third", each at any position. Case is ignored. Not thread-safe; created on the stack for one
// request.
class CRtspUrl {
  public:
    explicit CRtspUrl(const char* url);
    virtual ~CRtspUrl() = default;
    CRtspUrl(const CRtspUrl&) = delete;
    CRtspUrl& operator=(const CRtspUrl&) = delete;

    // False when the URL was refused. The fields then hold what was read before that.
    bool IsValid() const { return m_bIsValid; }

    // Copies what the URL selects; 0, or -1 for a null `out`.
    int get_req_cfg(tagRtspRequestCfg* out) const;

    const char* get_host_string() const { return m_szHost; }
    const char* get_rtsp_url() const { return m_szUrl; }  // lower-cased
    uint16_t get_rtsp_port() const { return m_port; }     // informational, see parse_port
    int get_req_type() const { return m_ReqCfg.nReqType; }
    int is_ipv6_addr() const { return m_ReqCfg.byIPV6; }

    // The leading decimal number of at most `n` characters of `s`.
    static int atoin(const char* s, int n);

  private:
    static constexpr int URL_SIZE = 256;

    void parse(const char* url);
    bool parse_host(const char* szHostPart, const char* szEnd);
    void parse_port(char* szColon);
    const char* parse_channel(const char* szNumber);
    bool parse_stream(const char* szStream);

    char m_szUrl[URL_SIZE] = {};
    char m_szHost[URL_SIZE] = {};
    int32_t m_protocol = 0;  // 0 unknown, 1 rtsp, 2 http
    bool m_bIsValid = false;
    tagRtspRequestCfg m_ReqCfg{};
    uint16_t m_port = 554;
};

#endif
