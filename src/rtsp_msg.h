// SPDX-License-Identifier: MIT
// RTSP messages: start-line data, headers in order, and an optional body (RFC 2326, sections 4 to
// 7). A message belongs to one thread at a time.
#ifndef RTSP_MSG_H
#define RTSP_MSG_H

#include <cstddef>
#include <ctime>
#include <memory>

#include "rtsp_common.h"
#include "rtsp_header.h"

struct tagCBB_ADDR_T;

class CRtspMsg {
  public:
    static constexpr int CONTENT_SIZE = 2048;         // largest body
    static constexpr size_t HEAD_BUFFER_SIZE = 1024;  // start line, headers, blank line and a NUL

    CRtspMsg();
    virtual ~CRtspMsg() = default;
    CRtspMsg(const CRtspMsg&) = delete;
    CRtspMsg& operator=(const CRtspMsg&) = delete;

    // Appends the whole message as text to a NUL-terminated buffer; the caller guarantees that the
    // buffer is large enough. The body ends at its first NUL byte. The base class, and a response
    // whose status has no row in the status table, write nothing.
    virtual void as_string(char* out) const;

    // Writes the message as bytes and returns their number: the head, then exactly ContentLen()
    // body bytes. A NUL follows when there is room for one. Returns -1 and leaves `out` unchanged
    // - when the head is longer than HEAD_BUFFER_SIZE - 1 bytes, or the total exceeds `size`;
    // - when the status of a response has no row in the status table;
    // - when the message is incomplete;
    // - always in the base class.
    virtual int as_binary(char* out, int size) const;

    // Like as_string, for a bounded output, which records whether the text was cut.
    virtual void append_text(CTextAppender& out) const;

    void Version(int major, int minor);
    [[nodiscard]] int MajorVer() const { return m_majorVer; }
    [[nodiscard]] int MinorVer() const { return m_minorVer; }
    void Cseq(int nCseq) { m_cseq = nCseq; }
    [[nodiscard]] int Cseq() const { return m_cseq; }

    // Copies the body. Returns 0. Returns -1 and changes nothing when `len` is negative or above
    // CONTENT_SIZE, and when `data` is null and `len` is not 0.
    int Content(const char* data, int len);
    [[nodiscard]] const char* Content() const { return m_szContent; }  // ContentLen() bytes
    [[nodiscard]] int ContentLen() const { return m_contentLen; }

    void Method(eRTSP_METHOD_INDEX method) { m_method = method; }
    void Method(const char* szMethod) { m_method = get_rtsp_method(szMethod); }
    [[nodiscard]] const char* Method() const { return get_rtsp_method(m_method); }
    [[nodiscard]] bool IsRequest() const { return m_method != RTSP_RESPONSE; }

    // Append a header. When memory runs out, nothing is appended, and the message is incomplete.
    // The message takes ownership of a passed object, also on failure; null is ignored. `text`
    // becomes one value and is not split.
    void AddHeader(CRtspHeader* pHeader);
    void AddHeader(const char* name, const char* text);
    void AddHeader(const char* name, int n);
    void AddHeader(const char* name, unsigned long n);

    // The first header of that name, or null. The message still owns it.
    CRtspHeader* GetHeader(const char* name);
    [[nodiscard]] const CRtspHeader* GetHeader(const char* name) const;

    // Finds the first header of that name and appends the text of its first value to the
    // NUL-terminated `out`. Returns false and leaves `out` unchanged when there is no such header
    // or it has no value. With `size` (the NUL included) text that does not fit is cut. Without it,
    // the caller guarantees that the buffer is large enough.
    bool GetHeaderValue(const char* name, char* out) const;
    bool GetHeaderValue(const char* name, char* out, size_t size) const;
    // The same value as a decimal number; 0 when the value does not begin with a number.
    bool GetHeaderValue(const char* name, int& n) const;

    // Iterate over the headers in order; null at the end. A message supports one iteration at a
    // time.
    CRtspHeader* GetFirstHeader();
    CRtspHeader* GetNextHeader();

    void Clear();  // destroys all headers

    // False when a part of it could not be allocated.
    [[nodiscard]] bool IsComplete() const;
    void MarkIncomplete() { m_bLacksPart = true; }

  protected:
    // Shared by requests and responses: everything after the start line.
    void append_headers(CTextAppender& out) const;
    void append_body(CTextAppender& out) const;
    // Copies a finished head and the body to `out`, as as_binary describes.
    int copy_binary(const CTextAppender& head, const char* szHead, char* out, int size) const;

  private:
    COwningList<CRtspHeader> m_headers;
    bool m_bLacksPart = false;
    size_t m_iterator = 0;  // the header that GetNextHeader returns next
    int m_majorVer = 1;
    int m_minorVer = 0;
    int m_cseq = 0;
    eRTSP_METHOD_INDEX m_method = RTSP_UNKNOWN;
    char m_szContent[CONTENT_SIZE];
    int m_contentLen = 0;
};

class CRtspRequest : public CRtspMsg {
  public:
    CRtspRequest();

    int as_binary(char* out, int size) const override;
    void append_text(CTextAppender& out) const override;

    void URL(const char* url);  // cut to 1023 characters
    [[nodiscard]] const char* URL() const { return m_szUrl; }

  private:
    void append_head(CTextAppender& out) const;

    char m_szUrl[1024];
};

class CRtspResponse : public CRtspMsg {
  public:
    CRtspResponse() = default;
    explicit CRtspResponse(eRTSP_STATUS_CODE_INDEX index) : m_index(index) {}

    int as_binary(char* out, int size) const override;
    void append_text(CTextAppender& out) const override;

    void SetResponseCode(eRTSP_STATUS_CODE_INDEX index) { m_index = index; }
    [[nodiscard]] eRTSP_STATUS_CODE_INDEX GetResponseCode() const { return m_index; }

    // The code text and the reason phrase of the status, or null when the status has no row.
    [[nodiscard]] const char* Code() const;
    [[nodiscard]] const char* Msg() const;
    void Code(const char* code) { m_index = get_rtsp_status_index(code); }
    void Msg(const char* msg);  // ignored: the phrase is always that of the status table

    // Header builders. Each appends one header at the end, so the order of the calls is the order
    // on the wire. When memory runs out, the header is left out, and the response is incomplete.
    // The response to an incomplete request is also incomplete, because the missing part may be the
    // header to copy.
    void append_cseq(const CRtspMsg* req);        // a copy of the request's "CSeq", when it has one
    void append_session_id(const CRtspMsg* req);  // a copy of its "Session", when it has one
    void append_session_id(const char* id);
    void append_connection(const char* text);
    void append_date(const char* text);
    void append_public_options(const char* text);
    void append(const char* name, const char* text);
    void append_range_time_now(const CRtspMsg* req, time_t now);

    // A copy of the request's "Transport" header, completed with the ports, `source` and the SSRC.
    // `source` is added only when the client named a destination; null leaves it out. An SSRC of 0
    // is left out, and for protocol_tcp every SSRC. For protocol_over_rtsp, stores the client's
    // channel numbers through `chan1` and `chan2`, which may be null. Does nothing when the request
    // has no such header, or the header has no value.
    void append_transport(const CRtspMsg* req, trans_protocol proto, unsigned int ssrc,
                          unsigned short port1, unsigned short port2, const char* source,
                          unsigned char* chan1, unsigned char* chan2);

    // The same for multicast: group address, ports, a time-to-live of 127 and the SSRC.
    void append_mul_address_port(const CRtspMsg* req, unsigned int ssrc, unsigned short port1,
                                 unsigned short port2, const tagCBB_ADDR_T* addr);

    // A placeholder: leaves both outputs unchanged.
    void GetMulAddressPort(const CRtspMsg* req, unsigned short& port, unsigned long& addr) const;

    // Returns 0 when the text of the request's "Session" value contains `id`. Otherwise writes a
    // log line and returns -1.
    static int CheckSessionId(const CRtspMsg* req, const char* id);
    static int CheckSessionId(const CRtspMsg* req, unsigned int id);

  private:
    bool append_head(CTextAppender& out) const;  // false when the status has no row
    std::unique_ptr<CRtspHeader> copy_header(const CRtspMsg* req, const char* name);

    eRTSP_STATUS_CODE_INDEX m_index = RTSP_STATUS_UNK;
};

#endif
