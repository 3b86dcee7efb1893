// SPDX-License-Identifier: MIT
#include "rtsp_msg_parser.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "rtsp_msg.h"

namespace {

// Parses a copy that is exactly as long as the text and gone before the message is used, so that
// the sanitizers see every read beyond the data and every slice that is kept too long.
std::unique_ptr<CRtspMsg> Parse(const std::string& text) {
    const std::vector<char> copy(text.begin(), text.end());
    return std::unique_ptr<CRtspMsg>(
        CRtspMsgParser().parse(copy.data(), static_cast<int>(copy.size())));
}

// The message written back, or "(null)".
std::string Written(const std::string& text) {
    const auto msg = Parse(text);
    std::vector<char> out(65536);
    if (msg != nullptr) {
        msg->as_string(out.data());
    }
    return msg != nullptr ? out.data() : "(null)";
}

std::string RequestWith(const std::string& headers) {
    return "PLAY u RTSP/1.0\r\n" + headers + "\r\n";
}

std::string Many(const std::string& text, int n) {
    return n == 0 ? "" : Many(text, n / 2) + Many(text, n - n / 2 - 1) + text;
}

}  // namespace

// Without delimiters a word ends at a blank or control character, never at its first one, and the
// slice of a quoted word keeps the opening quote. With them, lines that go on are joined.
TEST(MimeScanner, Tokens) {
    // clang-format off
    const std::tuple<const char*, std::string, const char*, int, int> cases[] = {
        {nullptr, "GET-X", "GET", '-', 3},           {nullptr, "word", "word", 255, 4},
        {nullptr, "\r\nx", "", '\n', 2},             {nullptr, "", "", 255, 0},
        {nullptr, "\"ab\" c", "\"a", ' ', 4},        {nullptr, "\"a\\\"b\";", "\"a\\\"", ';', 6},
        {nullptr, "\"", "", 255, 1},                 {";=\n", " a b ;c", "a b ", ';', 6},
        {";=\n", std::string("a\0b", 3), "a", 0, 2}, {";=\n", "a\n\rb", "a", '\n', 3},
        {";=\n", "a\r\n ", "a", 255, 4},             {";=\n", "\r\n b", "", '\n', 2},
        {";=\n", ";a", "", ';', 1},
        {nullptr, " \tRTSP/1.0 200", "RTSP/1.0", ' ', 10},
        {";=\n", "a\n\t \tb\r c\r\n\r\n", "abc", '\n', 11}};
    // clang-format on
    for (const auto& [szDelimiters, text, szToken, nLastChar, nOffset] : cases) {
        CMimeFoldStore store;
        CMimeStream stream(text.data(), static_cast<int>(text.size()));
        CMimeScanner scanner(stream, &store);
        const CMimeToken token = scanner.next_token(szDelimiters);
        EXPECT_EQ(std::string(token.m_conten.value, token.m_conten.value + token.m_conten.len),
                  szToken);
        EXPECT_EQ(token.m_lastChar, nLastChar) << text;
        EXPECT_EQ(scanner.offset(), nOffset) << text;
    }
}

// Long parts are cut, each at its own room.
TEST(RtspMsgParser, MessagesWrittenBack) {
    const std::pair<std::string, std::string> cases[] = {
        {"\r\n\r\n \tOPTIONS u RTSP/1.0\r\n\r\n", "OPTIONS u RTSP/1.0\r\n\r\n"},
        {"PLAY rtsp://a/b HTTP/1.1\r\n\r\n", "PLAY rtsp://a/b RTSP/1.0\r\n\r\n"},
        {"PLAY u RTSP/2.7 trailing\r\n\r\n", "PLAY u RTSP/2.7\r\n\r\n"},
        {"PLAY u RTSP/1." + Many("0", 8000) + "\r\n\r\n", "PLAY u RTSP/1.0\r\n\r\n"},
        {"PLAY u \"RTSP/1.0\r\n\r\n", "PLAY u RTSP/1.0\r\n\r\n"},
        {"play u RTSP/1.0\r\n\r\n", "ERROR u RTSP/1.0\r\n\r\n"},
        {Many("x", 8000) + " u RTSP/1.0\r\n\r\n", "ERROR u RTSP/1.0\r\n\r\n"},
        {"PLAY " + Many("x", 8000) + " RTSP/1.0\r\n\r\n",
         "PLAY " + Many("x", 511) + " RTSP/1.0\r\n\r\n"},
        {"PLAY\r\n u\r\n RTSP/1.0\r\n\r\n", "(null)"},
        {std::string("PLAY\0 u RTSP/1.0\r\n\r\n", 20), "(null)"},
        {"DESCRIBE rtsp://a/b\r\n\r\n", "(null)"},
        {"RTSP/x 200 " + Many("x", 8000) + "\r\n\r\n", "RTSP/0.0 200 OK\r\n\r\n"},
        {"RTSP/1.0 454 Whatever\r\nCSeq: 3\r\n\r\n",
         "RTSP/1.0 454 Session Not Found\r\nCSeq: 3\r\n\r\n"},
        {"RTSP/1.0 999 x\r\n\r\n", ""},  // an unknown status is a message that cannot be written
        {"RTSP/1.0 " + Many("x", 8000) + " x\r\n\r\n", ""},
        {"RTSP/1.0\r\n\r\n", "(null)"},
        {"\r\n", "(null)"},
        {"\"\\", "(null)"},
        {"PLAY u RTSP/1.0\r\nA: 1\r\nB: 2", "PLAY u RTSP/1.0\r\nA: 1\r\nB: 2\r\n\r\n"},
        {"PLAY u RTSP/1.0\nA: 1\n\nB: 2\n", "PLAY u RTSP/1.0\r\nA: 1\r\n\r\n"},
        {RequestWith("Content-length: 2\r\n" + Many("N: v\r\n", 300)) + "ab",
         RequestWith("Content-length: 2\r\n" + Many("N: v\r\n", 127)) + "ab"},
    };
    for (const auto& [text, written] : cases) {
        EXPECT_EQ(Written(text), written) << text.substr(0, 99);
    }
    CRtspMsgParser parser;
    EXPECT_EQ(parser.parse(nullptr, 5), nullptr);
    EXPECT_EQ(parser.parse("x", -5), nullptr);
}

// An empty element ends the list, one without a first token makes no value, an empty token ends the
// value, trailing blanks stay, and quotes protect nothing. Lines that go on are joined.
TEST(RtspMsgParser, HeaderLines) {
    const std::pair<std::string, std::string> cases[] = {
        {"Session :  1234 ", "Session : 1234 "},  // blanks before the colon belong to the name
        {"Transport:RTP/AVP; unicast ;client_port=5-6, b",
         "Transport: RTP/AVP;unicast ;client_port=5-6,b"},
        {"N: a=,;x,b==c;;d", "N: a,b==c"},
        {"N: a,q=\"1, 2\",,b", "N: a,q=\"1,2\""},
        {"Authorization: Digest a=1, b=2", "Authorization: Digest a=1, b=2"},
        {"RTP-Info:\r\nLocation: \t ", "RTP-Info: \r\nLocation: "},
        {"Range: npt=1:00-90.5", "Range: npt=60-90"},
        {"Range: npt=" + Many("9", 8000) + "-", "Range: npt=2147483647-"},
        {"range: npt=0-", "range: npt=0-"},
        {"NoColon%n%s", "NoColon%n%s: "},
        {"RTP-Info: url=a;seq=1;rtptime=2, url=b;seq=3", "RTP-Info: ,"},  // values without fields
        {"RTP-Info: url=a?x=url=c;rtptime=2", "RTP-Info: "},
        {"A: x\r\n\ty\r\n  z\r\nB: \xff;\xff=\xff", "A: xyz\r\nB: \xff;\xff=\xff"},
        {std::string("A: 1\0B: 2", 9), "A: 1\r\nB: 2"},
        {Many("x", 8000) + ": v", Many("x", 127) + ": v"},
        {"N: " + Many("x", 8000), "N: " + Many("x", 127)},
        {"N: v" + Many("\r\n v", 4000), "N: " + Many("v", 127)},
        {"N: a=" + Many("x", 8000), "N: a=" + Many("x", 255)},
        {"N: p" + Many(";p", 300), "N: p" + Many(";p", 63)},
    };
    for (const auto& [line, written] : cases) {
        EXPECT_EQ(Written(RequestWith(line + "\r\n")), RequestWith(written + "\r\n"));
    }
    EXPECT_EQ(Written(RequestWith(": nameless\r\n")), RequestWith(""));
}

TEST(RtspMsgParser, Bodies) {
    // The expected length; -1: no message.
    const std::tuple<std::string, std::string, int> cases[] = {
        {"Content-length: 10", "1234", -1},
        {"Content-length: 10", "12345678901", 10},
        {"Content-length: 3\r\nContent-length: 9999", std::string("a\0b", 3), 3},
        {"Content-length: 2048", Many("b", 2048), 2048},
        {"Content-length: 2049", Many("b", 2049), -1},
        {"Content-length: -5", "12", 0},
        {"Content-length: 99999999999999999999", "12", -1},
        {"Content-length:", "12", 0},
        {"Content-Length: 10", "12", 0}};  // not this spelling
    for (const auto& [length, body, nExpected] : cases) {
        const auto msg = Parse(RequestWith(length + "\r\n") + body);
        ASSERT_EQ(msg == nullptr ? -1 : msg->ContentLen(), nExpected) << length;
        EXPECT_TRUE(msg == nullptr || std::string(msg->Content(), msg->Content() + nExpected) ==
                                          body.substr(0, static_cast<size_t>(nExpected)));
    }
    // Without a blank line the header block counts as empty: the body starts where the message
    // does.
    const auto msg = Parse("\r\nPLAY u RTSP/1.0\r\nContent-length: 4\r\n");
    EXPECT_EQ(std::string(msg->Content(), 4), "PLAY");
}
