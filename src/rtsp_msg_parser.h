// SPDX-License-Identifier: MIT
#ifndef RTSP_MSG_PARSER_H
#define RTSP_MSG_PARSER_H

#include <cstddef>
#include <memory>
#include <vector>

#include "mimescan.h"

class CRtspHeader;
class CRtspMsg;
class CRtspRequest;
class CRtspResponse;

// Turns the bytes of one received message into a request or a response. One parser serves one
// thread; it keeps nothing from one message to the next.
class CRtspMsgParser {
  public:
    // The limits of a message; further lines and parameters are dropped.
    static constexpr size_t MAX_HEADER_LINES = 128;
    static constexpr size_t MAX_PARAMETERS = 64;

    CRtspMsgParser();
    ~CRtspMsgParser();
    CRtspMsgParser(const CRtspMsgParser&) = delete;
    CRtspMsgParser& operator=(const CRtspMsgParser&) = delete;

    // Parses `len` bytes as one whole message. The bytes are not changed, and not needed
    // afterwards. Returns a new message, owned by the caller. Returns null when
    // - `data` is null, `len` is not positive, or no line is found;
    // - the start line lacks one of its fields;
    // - the body that "Content-length" announces has not arrived in full or is larger than a
    //   message can hold;
    // - memory runs out for the message itself. When it runs out for a part, the message is
    //   incomplete.
    // An unknown method, status or version is not an error.
    [[nodiscard]] CRtspMsg* parse(const char* data, int len) noexcept;

    // The steps of parse(). Texts are slices (pointer and length) without a terminator. A step adds
    // its values to `header`.

    // Fills the line list. Returns the length of the header block with the skipped bytes before it;
    // only that of the skipped bytes when no blank line ends the block.
    int ScanHeaders(const char* data, int len);
    std::unique_ptr<CRtspMsg> ParseRequest();
    std::unique_ptr<CRtspMsg> ParseResponse();
    std::unique_ptr<CRtspRequest> ParseRequestLine(const char* line, int len);
    std::unique_ptr<CRtspResponse> ParseResponseLine(const char* line, int len);
    bool ParseProtocolVersion(const char* text, int len, int* major, int* minor);
    // Returns null when the line has no name, and when memory runs out. Only in the second case
    // sets `*pOutOfMemory` to true.
    std::unique_ptr<CRtspHeader> ParseHeader(const char* line, int len, bool* pOutOfMemory);
    void DefaultParseHeaderValues(const char* text, int len, CRtspHeader* header);
    void ParseHeaderValue(const char* text, int len, CRtspHeader* header);
    void ParseRangeValue(const char* text, int len, CRtspHeader* header);
    void ParseRTPInfoHeaderValues(const char* text, int len, CRtspHeader* header);

    // The first `key` in the NUL-terminated text `from` whose nearest preceding non-blank
    // character, within that text, is `before`; null when there is none.
    const char* NextRTPInfoEntry(const char* from, const char* key, char before);
    void SetRTPInfoEntry(const char* entry, int len, CRtspHeader* header);
    // Measures the field that follows `keyLen` bytes of key at `begin` and ends before `end`.
    void ReadRTPInfoEntry(const char* entry, int begin, int keyLen, int end, string_node* field);

  private:
    std::unique_ptr<CRtspMsg> parse_lines();
    int take_body(std::unique_ptr<CRtspMsg>& msg, const char* data, int len, int nHeaderLen);
    void parse_header_lines(CRtspMsg& msg);

    // Session thread only, in the server.
    std::vector<CMimeToken> m_lines;  // the start line, then the header lines
    CMimeFoldStore m_folded;          // the text of lines that were folded
};

#endif
