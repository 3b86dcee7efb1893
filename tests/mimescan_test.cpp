// SPDX-License-Identifier: MIT
#include "mimescan.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct CTokenRow {
    const char* why;
    std::string text;
    const char* token;
    int lastChar;
    int offset;
};

void ExpectToken(const char* delimiters, const CTokenRow& row) {
    SCOPED_TRACE(row.why);
    CMimeFoldStore store;
    CMimeStream stream(row.text.data(), static_cast<int>(row.text.size()));
    CMimeScanner scanner(stream, &store);
    const CMimeToken token = scanner.next_token(delimiters);
    EXPECT_EQ(std::string(token.m_conten.value, token.m_conten.value + token.m_conten.len),
              row.token);
    EXPECT_EQ(token.m_lastChar, row.lastChar);
    EXPECT_EQ(scanner.offset(), row.offset);
}

TEST(MimeScanner, Words) {
    constexpr int END = CMimeToken::END_OF_DATA;
    const CTokenRow rows[] = {
        {"a word ends at a separator", "GET-X", "GET", '-', 3},
        {"a word ends with the data", "word", "word", END, 4},
        {"a word ends at a control character", "a\x1f", "a", 0x1f, 1},
        {"a word ends at DEL", "a\x7f", "a", 0x7f, 1},
        {"a word never ends at its first character", "=a=", "=a", '=', 2},
        {"leading blanks are skipped", " \tRTSP/1.0 200", "RTSP/1.0", ' ', 10},
        {"a line end is a token of its own", "\r\nx", "", '\n', 2},
        {"no data", "", "", END, 0},
        {"kept: a quoted slice starts at its quote", "\"ab\" c", "\"a", ' ', 4},
        {"an escaped quote does not end the text", "\"a\\\"b\";", "\"a\\\"", ';', 6},
        {"a quoted text without an end", "\"", "", END, 1},
    };
    for (const CTokenRow& row : rows) {
        ExpectToken(nullptr, row);
    }
}

TEST(MimeScanner, DelimitedTexts) {
    constexpr int END = CMimeToken::END_OF_DATA;
    const CTokenRow rows[] = {
        {"kept: trailing blanks belong to the token", " a b ;c", "a b ", ';', 6},
        {"a NUL is always a delimiter", std::string("a\0b", 3), "a", 0, 2},
        {"a pair of line ends counts once", "a\n\rb", "a", '\n', 3},
        {"a folded line without text", "a\r\n ", "a", END, 4},
        {"kept: an empty token is not folded", "\r\n b", "", '\n', 2},
        {"an empty token", ";a", "", ';', 1},
        {"folded lines are joined without a blank", "a\n\t \tb\r c\r\n\r\n", "abc", '\n', 11},
    };
    for (const CTokenRow& row : rows) {
        ExpectToken(";=\n", row);
    }
}

TEST(MimeScanner, WithoutAStoreAFoldedTokenKeepsItsFirstLine) {
    const std::string text = "ab\r\n c;d";
    CMimeStream stream(text.data(), static_cast<int>(text.size()));
    const CMimeToken token = CMimeScanner(stream).next_token(";");
    EXPECT_EQ(std::string(token.m_conten.value, static_cast<size_t>(token.m_conten.len)), "ab");
    EXPECT_EQ(stream.offset(), 7) << "the other lines are read too";
}

TEST(MimeFoldStore, TakesExactlyItsRoom) {
    CMimeFoldStore store;
    EXPECT_FALSE(store.Append("a", 1)) << "nothing is reserved";
    ASSERT_TRUE(store.Reserve(3) && store.Reserve(100)) << "the first size counts";
    const char* start = store.End();
    EXPECT_TRUE(store.Append("ab", 2));
    EXPECT_FALSE(store.Append("cd", 2));
    EXPECT_TRUE(store.Append("c", 1));
    EXPECT_FALSE(store.Append("d", 1));
    EXPECT_EQ(std::string(start, store.End()), "abc");
    store.Clear();
    EXPECT_FALSE(store.Append("a", 1));
}

TEST(MimeStream, StaysWithinItsBytes) {
    char out[8] = {};
    CMimeStream stream(
        "\xff"
        "bcd",
        3);
    stream.back('x');
    EXPECT_EQ(stream.read(), 255) << "bytes are not negative; nothing to step back to";
    stream.back(-1);
    EXPECT_EQ(stream.peek(), 'b');
    EXPECT_EQ(stream.read(out, 0) + stream.read(out, -1), 0);
    EXPECT_EQ(stream.read(out, 8), 2);
    EXPECT_STREQ(out, "bc");
    EXPECT_EQ(stream.read(), -1);
    EXPECT_EQ(stream.read(out, 1), 0);
    stream.back('c');
    EXPECT_EQ(stream.read(), 'c');
    EXPECT_EQ(CMimeStream("x", -5).length(), 0);
}

}  // namespace
