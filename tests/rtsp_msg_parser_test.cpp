// SPDX-License-Identifier: MIT
#include "rtsp_msg_parser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "rtsp_msg.h"
#include "rtsps_debug.h"

namespace {

// Parses a copy that is exactly as long as the text and gone before the message is used, so that
// the sanitizers see every read beyond the data and every slice that is kept too long.
std::unique_ptr<CRtspMsg> Parse(const std::string& text) {
    const std::unique_ptr<char[]> copy(new char[text.size()]);
    memcpy(copy.get(), text.data(), text.size());
    CRtspMsgParser parser;
    return std::unique_ptr<CRtspMsg>(parser.parse(copy.get(), static_cast<int>(text.size())));
}

// The message written back, or "(null)".
std::string Written(const std::string& text) {
    const auto msg = Parse(text);
    if (msg == nullptr) {
        return "(null)";
    }
    const std::unique_ptr<char[]> out(new char[65536]());
    msg->as_string(out.get());
    return out.get();
}

std::string RequestWith(const std::string& headers) {
    return "PLAY u RTSP/1.0\r\n" + headers + "\r\n";
}

}  // namespace

// Without delimiters a word ends at a blank or control character, never at its first one, and the
// slice of a quoted word keeps the opening quote. With them, lines that go on are joined.
TEST(MimeScanner, Tokens) {
    // clang-format off: short rows side by side
    const std::tuple<const char*, std::string, const char*, int, int> cases[] = {
        {nullptr, " \tRTSP/1.0 200", "RTSP/1.0", ' ', 10},
        {nullptr, "GET-X", "GET", '-', 3},
        {nullptr, "=a b", "=a", ' ', 2},
        {nullptr, "word", "word", 255, 4},
        {nullptr, "a\x01", "a", 1, 1},
        {nullptr, "\r\nx", "", '\n', 2},
        {nullptr, "\n\nx", "", '\n', 1},
        {nullptr, "", "", 255, 0},
        {nullptr, "\"ab\" c", "\"a", ' ', 4},
        {nullptr, "\"a\\\"b\";", "\"a\\\"", ';', 6},
        {nullptr, "\"ab", "\"a", 255, 3},
        {nullptr, "\"", "", 255, 1},
        {";=\n", " a b ;c", "a b ", ';', 6},
        {";=\n", std::string("a\0b", 3), "a", 0, 2},
        {";=\n", "abc", "abc", 255, 3},
        {";=\n", "a\n\rb", "a", '\n', 3},
        {";=\n", "a\rb", "a", '\n', 2},
        {";=\n", "a\r\n b;", "ab", ';', 6},
        {";=\n", "a\n\t \tb\r c\r\n\r\n", "abc", '\n', 11},
        {";=\n", "a\r\n ", "a", 255, 4},
        {";=\n", "\r\n b", "", '\n', 2},
        {";=\n", ";a", "", ';', 1}};
    // clang-format on
    for (const auto& [szDelimiters, text, szToken, nLastChar, nOffset] : cases) {
        CMimeFoldStore store;
        CMimeStream stream(text.data(), static_cast<int>(text.size()));
        CMimeScanner scanner(stream, &store);
        const CMimeToken token = scanner.next_token(szDelimiters);
        EXPECT_EQ(std::string(token.m_conten.value, static_cast<size_t>(token.m_conten.len)),
                  szToken);
        EXPECT_EQ(token.m_lastChar, nLastChar) << text;
        EXPECT_EQ(scanner.offset(), nOffset) << text;
    }
}

TEST(RtspMsgParser, MessagesWrittenBack) {
    const std::pair<const char*, const char*> cases[] = {
        {"\r\n\r\n \tOPTIONS u RTSP/1.0\r\n\r\n", "OPTIONS u RTSP/1.0\r\n\r\n"},
        {"PLAY rtsp://a/b HTTP/1.1\r\n\r\n", "PLAY rtsp://a/b RTSP/1.0\r\n\r\n"},
        {"PLAY u RTSP/2.7 trailing\r\n\r\n", "PLAY u RTSP/2.7\r\n\r\n"},
        {"PLAY u RTSP/x\r\n\r\n", "PLAY u RTSP/1.0\r\n\r\n"},
        {"play u RTSP/1.0\r\n\r\n", "ERROR u RTSP/1.0\r\n\r\n"},
        {"RTSP/x 200 OK\r\n\r\n", "RTSP/0.0 200 OK\r\n\r\n"},
        {"RTSP/1.0 454 Whatever\r\nCSeq: 3\r\n\r\n",
         "RTSP/1.0 454 Session Not Found\r\nCSeq: 3\r\n\r\n"},
        {"RTSP/1.0 999 x\r\n\r\n", ""},  // an unknown status is a message that cannot be written
        {"RTSP/1.0\r\n\r\n", "(null)"},
        {"DESCRIBE rtsp://a/b\r\n\r\n", "(null)"},
        {"\r\n \r\n", "(null)"},
        {"PLAY u RTSP/1.0\r\nA: 1\r\nB: 2", "PLAY u RTSP/1.0\r\nA: 1\r\nB: 2\r\n\r\n"},
        {"PLAY u RTSP/1.0\nA: 1\n\nB: 2\n", "PLAY u RTSP/1.0\r\nA: 1\r\n\r\n"},
        {"PLAY u RTSP/1.0\r\nA: x\r\n\ty\r\n  z\r\nB: 2\r\n\r\n",
         "PLAY u RTSP/1.0\r\nA: xyz\r\nB: 2\r\n\r\n"},
    };
    for (const auto& [szText, szWritten] : cases) {
        EXPECT_EQ(Written(szText), szWritten) << szText;
    }
}

TEST(RtspMsgParser, HeaderLines) {
    const std::pair<const char*, const char*> cases[] = {
        {"Session :  1234 ", "Session : 1234 "},  // blanks before the colon belong to the name
        {"Transport:RTP/AVP; unicast ;client_port=5-6, b",
         "Transport: RTP/AVP;unicast ;client_port=5-6,b"},
        {"Authorization: Digest a=1, b=2", "Authorization: Digest a=1, b=2"},
        {"authorization: a=1, b=2", "authorization: a=1,b=2"},
        {"Location:", "Location: "},
        {"Range: npt=1:00-90.5", "Range: npt=60-90"},
        {"Range: bytes=1-", "Range: "},
        {"range: npt=0-", "range: npt=0-"},
        {"NoColon", "NoColon: "},
        {"RTP-Info: url=a;seq=1;rtptime=2, url=b;seq=3", "RTP-Info: ,"},  // values without fields
        {"RTP-Info: url=a?x=url=c;rtptime=2", "RTP-Info: "},
    };
    for (const auto& [szLine, szWritten] : cases) {
        const std::string written = Written(RequestWith(std::string(szLine) + "\r\n"));
        EXPECT_EQ(written, RequestWith(std::string(szWritten) + "\r\n")) << szLine;
    }
    EXPECT_EQ(Written(RequestWith(": nameless\r\n")), RequestWith(""));
}

TEST(RtspMsgParser, Bodies) {
    // The expected length; -1: no message.
    const std::tuple<std::string, std::string, int> cases[] = {
        {"Content-length: 10", "1234", -1},
        {"Content-length: 10", "12345678901", 10},
        {"Content-length: 3", std::string("a\0b", 3), 3},
        {"Content-length: 2048", std::string(2048, 'b'), 2048},
        {"Content-length: 2049", std::string(2049, 'b'), -1},
        {"Content-length: -5", "12", 0},
        {"Content-length: 99999999999999999999", "12", -1},
        {"Content-length:", "12", 0},
        {"Content-Length: 10", "12", 0}};  // not this spelling
    for (const auto& [length, body, nExpected] : cases) {
        const auto msg = Parse(RequestWith(length + "\r\n") + body);
        ASSERT_EQ(msg != nullptr, nExpected >= 0) << length;
        if (msg != nullptr) {
            ASSERT_EQ(msg->ContentLen(), nExpected) << length;
            const size_t nLen = static_cast<size_t>(nExpected);
            EXPECT_EQ(std::string(msg->Content(), nLen), body.substr(0, nLen));
        }
    }
    // Without a blank line the header block counts as empty: the body starts where the message
    // does.
    const auto msg = Parse("\r\nPLAY u RTSP/1.0\r\nContent-length: 4\r\n");
    EXPECT_EQ(std::string(msg->Content(), 4), "PLAY");
}

// What must not read or write outside its bounds, whatever the answer; the rows with an answer say
// what is kept.
TEST(RtspMsgParser, HostileInput) {
    const auto many = [](const char* szText, int n) {
        std::string all;
        for (int i = 0; i < n; ++i) {
            all += szText;
        }
        return all;
    };
    const auto x = [](size_t n) { return std::string(n, 'x'); };
    const std::tuple<const char*, std::string, std::string> cases[] = {
        {"method of 8000", x(8000) + " u RTSP/1.0\r\n\r\n", "ERROR u RTSP/1.0\r\n\r\n"},
        {"URL of 8000", "PLAY " + x(8000) + " RTSP/1.0\r\n\r\n",
         "PLAY " + x(511) + " RTSP/1.0\r\n\r\n"},
        {"version of 8000", "PLAY u RTSP/1." + std::string(8000, '0') + "\r\n\r\n",
         "PLAY u RTSP/1.0\r\n\r\n"},
        {"code of 8000", "RTSP/1.0 " + x(8000) + " x\r\n\r\n", ""},
        {"reason of 8000", "RTSP/1.0 200 " + x(8000) + "\r\n\r\n", "RTSP/1.0 200 OK\r\n\r\n"},
        {"name of 8000", RequestWith(x(8000) + ": v\r\n"), RequestWith(x(127) + ": v\r\n")},
        {"attribute of 8000", RequestWith("N: " + x(8000) + "\r\n"),
         RequestWith("N: " + x(127) + "\r\n")},
        {"value of 8000", RequestWith("N: a=" + x(8000) + "\r\n"),
         RequestWith("N: a=" + x(255) + "\r\n")},
        {"body behind 300 header lines",
         "PLAY u RTSP/1.0\r\nContent-length: 2\r\n" + many("N: v\r\n", 300) + "\r\nab",
         "PLAY u RTSP/1.0\r\nContent-length: 2\r\n" + many("N: v\r\n", 127) + "\r\nab"},
        {"300 parameters", RequestWith("N: p" + many(";p", 300) + "\r\n"),
         RequestWith("N: p" + many(";p", 63) + "\r\n")},
        {"4000 folds", RequestWith("N: v" + many("\r\n v", 4000) + "\r\n"),
         RequestWith("N: " + std::string(127, 'v') + "\r\n")},
        {"folded start line", "PLAY\r\n u\r\n RTSP/1.0\r\n\r\n", "(null)"},
        {"quoted version never closed", "PLAY u \"RTSP/1.0\r\n\r\n", "PLAY u RTSP/1.0\r\n\r\n"},
        {"backslash at the end", "\"\\", "(null)"},
        {"NUL in the start line", std::string("PLAY\0 u RTSP/1.0\r\n\r\n", 20), "(null)"},
        {"NUL in a header", RequestWith(std::string("A: 1\0B: 2\r\n", 11)),
         RequestWith("A: 1\r\nB: 2\r\n")},
        {"bytes of 255", RequestWith("\xff\xff: \xff;\xff=\xff\r\n"),
         RequestWith("\xff\xff: \xff;\xff=\xff\r\n")},
        {"range of 8000", RequestWith("Range: npt=" + std::string(8000, '9') + "-\r\n"),
         RequestWith("Range: npt=2147483647-\r\n")},
        {"smpte out of range", RequestWith("Range: smpte=999999999999:9:9.9-1:-9:-9.-9\r\n"), "*"},
        {"clock of junk", RequestWith("Range: clock=-9-9T-9Z%n%s-TZ\r\n"), "*"},
        {"RTP-Info of keys", RequestWith("RTP-Info: " + many("url=,;seq=", 500) + "\r\n"), "*"},
        {"formats", RequestWith("N%n%s: %n%s%9999d\r\n"), RequestWith("N%n%s: %n%s%9999d\r\n")},
        {"Content-length twice", RequestWith("Content-length: 1\r\nContent-length: 9999\r\n") + "a",
         RequestWith("Content-length: 1\r\nContent-length: 9999\r\n") + "a"},
    };
    for (const auto& [szWhat, text, expected] : cases) {
        const std::string written = Written(text);
        EXPECT_TRUE(expected == "*" || written == expected) << szWhat << ": " << written;
        // Every way in which the same bytes may be cut short.
        for (size_t n = 1; n < text.size(); n += 1 + n / 16) {
            (void)Parse(text.substr(0, n));
        }
    }
    CRtspMsgParser parser;
    EXPECT_EQ(parser.parse(nullptr, 5), nullptr);
    EXPECT_EQ(parser.parse("x", -5), nullptr);
}
