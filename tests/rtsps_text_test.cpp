// SPDX-License-Identifier: MIT
#include "rtsps_text.h"

#include <gtest/gtest.h>

#include <climits>
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
                {"nothing is not too much for a full text", "1234567", "", false},
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
    appender.Clear();
    EXPECT_FALSE(appender.Overflowed());
    appender.Append("xyz");
    EXPECT_STREQ(text, "xyz");
    CTextAppender none(text, 0);
    none.Clear();
    EXPECT_TRUE(none.Overflowed()) << "no room for the NUL";
    EXPECT_STREQ(text, "xyz");
}

TEST(TextAppender, WritesNothingIntoATextWithoutAnEnd) {
    char text[4] = {'a', 'b', 'c', 'd'};
    CTextAppender appender(text, sizeof(text));
    EXPECT_TRUE(appender.Overflowed());
    appender.AppendFormat("%d", 1);
    appender.Append("1");
    EXPECT_EQ(std::string(text, 4), "abcd");
}

TEST(TextCopy, CutsTerminatesAndSaysSo) {
    char text[4] = {'a', 'b', 'c', 'd'};
    EXPECT_TRUE(TextCopy(text, "abc"));
    EXPECT_FALSE(TextCopy(text, "abcd"));
    EXPECT_STREQ(text, "abc");
    EXPECT_TRUE(TextCopy(text, sizeof(text), "xy\0z", 4)) << "a NUL ends the text";
    EXPECT_FALSE(TextCopy(text, 0, "x"));
    EXPECT_TRUE(TextCopy(text, 0, ""));
    EXPECT_STREQ(text, "xy");
    EXPECT_TRUE(TextCopySlice(text, "abcdef", 3));
    EXPECT_STREQ(text, "abc");
    EXPECT_TRUE(TextCopySlice(text, "abcdef", -1));
    EXPECT_STREQ(text, "");
    EXPECT_TRUE(TextCopySlice(text, nullptr, 3));
}

TEST(TextToLower, ChangesAsciiLettersOnly) {
    char text[] = "@AMZ[ az\xC4";
    TextToLower(text);
    EXPECT_STREQ(text, "@amz[ az\xC4");
}

TEST(TextToIntPair, CountsWhatItRead) {
    int first = 0;
    int second = 0;
    EXPECT_EQ(TextToIntPair("a-1", &first, &second, '-'), 0);
    EXPECT_EQ(TextToIntPair("6-", &first, &second, '-'), 1);
    EXPECT_EQ(TextToIntPair("6-a", &first, &second, '-'), 1);
    EXPECT_EQ(TextToIntPair("6--7", &first, &second, '-'), 2);
    EXPECT_EQ(second, -7);
}

TEST(TextToInt, Clamps) {
    EXPECT_EQ(TextToInt("2147483648"), INT_MAX);
    EXPECT_EQ(TextToInt("-2147483649"), INT_MIN);
}

}  // namespace
