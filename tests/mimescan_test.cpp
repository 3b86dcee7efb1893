// SPDX-License-Identifier: MIT
// rtsp_msg_parser_test.cpp covers the tokens of messages.
#include "mimescan.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(MimeScanner, WithoutAStoreAFoldedTokenKeepsItsFirstLine) {
    const std::string text = "ab\r\n c;d";
    CMimeStream stream(text.data(), static_cast<int>(text.size()));
    const CMimeToken token = CMimeScanner(stream).next_token(";");
    EXPECT_EQ(std::string(token.m_conten.value, static_cast<size_t>(token.m_conten.len)), "ab");
    EXPECT_EQ(stream.offset(), 7) << "the other lines are read too";
}

TEST(MimeScanner, ALineEndIsNoWord) {
    CMimeStream stream("\n", 1);
    EXPECT_FALSE(CMimeScanner(stream).next_token(nullptr).hasValue());
}

TEST(MimeFoldStore, TakesExactlyItsRoom) {
    CMimeFoldStore store;
    EXPECT_FALSE(store.Append("a", 1)) << "nothing is reserved";
    ASSERT_TRUE(store.Reserve(3) && store.Reserve(100)) << "the first size counts";
    const char* start = store.End();
    EXPECT_TRUE(store.Append("ab", 2));
    EXPECT_FALSE(store.Append("cd", 2));
    EXPECT_TRUE(store.Append("c", 1));
    EXPECT_EQ(std::string(start, store.End()), "abc");
    store.Clear();
    EXPECT_FALSE(store.Append("a", 1));
}

TEST(MimeStream, StaysWithinItsBytes) {
    char out[8] = {};
    const std::string text =
        "\xff"
        "bcd";
    CMimeStream stream(text.data(), 3);
    stream.back('x');
    EXPECT_EQ(stream.read(), 255) << "bytes are not negative; nothing to step back to";
    EXPECT_EQ(stream.read(out, -1), 0);
    EXPECT_EQ(stream.read(out, 1), 1);
    EXPECT_EQ(stream.read(out + 1, 7), 1);
    EXPECT_STREQ(out, "bc");
    EXPECT_EQ(stream.read(), -1);
    EXPECT_EQ(CMimeStream("x", -5).length(), 0);
}

}  // namespace
