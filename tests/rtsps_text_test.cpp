// SPDX-License-Identifier: MIT
#include "rtsps_text.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

namespace {

TEST(TextAppender, CutsAtItsCapacityAndSaysSo) {
    const struct {
        const char* why;
        const char* held;
        const char* added;
        bool overflows;
    } rows[] = {{"fills an empty text", "", "1234567", false},
                {"one byte too many", "", "12345678", true},
                {"a full text takes no more", "1234567", "8", true},
                {"fills the room that is left", "123", "4567", false}};
    for (const auto& row : rows) {
        for (const bool formats : {false, true}) {
            SCOPED_TRACE(testing::Message() << row.why << (formats ? ", formatted" : ""));
            char text[8] = {};
            TextCopy(text, row.held);
            CTextAppender appender(text, sizeof(text));
            formats ? appender.AppendFormat("%s", row.added) : appender.Append(row.added);
            EXPECT_STREQ(text, "1234567");
            EXPECT_EQ(appender.Overflowed(), row.overflows);
            EXPECT_EQ(appender.Length(), 7U);
        }
    }
}

TEST(TextAppender, ClearForgetsTheTextAndTheOverflow) {
    char text[4] = "abc";
    CTextAppender appender(text, sizeof(text));
    appender.Append("d");
    ASSERT_TRUE(appender.Overflowed());
    appender.Clear();
    EXPECT_STREQ(text, "");
    EXPECT_EQ(appender.Length(), 0U);
    EXPECT_FALSE(appender.Overflowed());
    appender.Append("xyz");
    EXPECT_STREQ(text, "xyz");
    EXPECT_FALSE(appender.Overflowed());
    CTextAppender none(text, 0);
    none.Clear();
    EXPECT_TRUE(none.Overflowed()) << "no room for the NUL";
    EXPECT_STREQ(text, "xyz");
}

TEST(TextAppender, WritesNothingIntoATextWithoutAnEnd) {
    char text[4] = {'a', 'b', 'c', 'd'};
    CTextAppender appender(text, sizeof(text));
    appender.AppendFormat("%d", 1);
    appender.Append("1");
    EXPECT_TRUE(appender.Overflowed());
    EXPECT_EQ(std::string(text, 4), "abcd");
}

TEST(TextCopy, CutsTerminatesAndSaysSo) {
    char text[4] = {'a', 'b', 'c', 'd'};
    EXPECT_TRUE(TextCopy(text, "abc"));
    EXPECT_FALSE(TextCopy(text, "abcd"));
    EXPECT_STREQ(text, "abc");
    EXPECT_TRUE(TextCopy(text, sizeof(text), "xy\0z", 4)) << "a NUL ends the text";
    EXPECT_STREQ(text, "xy");
    EXPECT_FALSE(TextCopy(text, 0, "x"));
    EXPECT_TRUE(TextCopy(text, 0, ""));
    EXPECT_STREQ(text, "xy");
    EXPECT_TRUE(TextCopySlice(text, "abcdef", 3));
    EXPECT_STREQ(text, "abc");
    for (const int length : {0, -1}) {
        EXPECT_TRUE(TextCopySlice(text, "abcdef", length));
        EXPECT_STREQ(text, "");
    }
    EXPECT_TRUE(TextCopySlice(text, nullptr, 3));
}

TEST(TextToLower, ChangesAsciiLettersOnly) {
    char text[] = "@AMZ[ az\xC4";
    TextToLower(text);
    EXPECT_STREQ(text, "@amz[ az\xC4");
}

TEST(TextToIntPair, ClampsAndCountsWhatItRead) {
    constexpr int UNTOUCHED = -9;
    const struct {
        const char* why;
        const char* text;
        int count, first, second;
    } rows[] = {
        {"no number", "x-1", 0, UNTOUCHED, UNTOUCHED},
        {"empty", "", 0, UNTOUCHED, UNTOUCHED},
        {"another separator", "+6 -7", 1, 6, UNTOUCHED},
        {"nothing after the separator", "6-", 1, 6, UNTOUCHED},
        {"a blank before the second", "6- 7", 2, 6, 7},
        {"a negative second", "6--7", 2, 6, -7},
        {"clamped", "2147483648-1", 2, INT_MAX, 1},
        {"clamped below", "-99999999999999999999", 1, INT_MIN, UNTOUCHED},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        int first = UNTOUCHED;
        int second = UNTOUCHED;
        EXPECT_EQ(TextToIntPair(row.text, &first, &second, '-'), row.count);
        EXPECT_EQ(first, row.first);
        EXPECT_EQ(second, row.second);
    }
}

}  // namespace
