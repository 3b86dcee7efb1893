// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "cbb.h"

namespace {

TEST(CbbString, WritesNumbers) {
    char out[66];
    EXPECT_STREQ(CBB_Ltoa(out, 0, 16), "0");
    EXPECT_STREQ(CBB_Ltoa(out, -15, 10), "-15");
    EXPECT_STREQ(CBB_Ltoa(out, 35, 36), "z") << "the last digit of the largest base";
    EXPECT_EQ(CBB_Ltoa(out, -1, 16), nullptr) << "a sign in another base";
    EXPECT_EQ(CBB_Ltoa(out, 1, 37), nullptr);
    EXPECT_EQ(CBB_Ltoa(out, 1, 1), nullptr);
    EXPECT_STREQ(CBB_Ltoa(out, 6, 2), "110") << "the smallest base";
    EXPECT_STREQ(CBB_Ltoa(out, INT64_MIN, 10), "-9223372036854775808");
    EXPECT_STREQ(CBB_Itoa(out, INT_MIN, 10), "-2147483648");
}

// Kept: a digit that equals the base counts.
TEST(CbbString, ReadsNumbers) {
    const struct {
        const char* why;
        const char* text;
        int base;
        int32_t as32;
        int64_t as64;
        ptrdiff_t end;
    } rows[] = {
        {"base 0 finds hexadecimal", " 0x1F", 0, 31, 31, 5},
        {"base 10 stops at the x", "0x1F", 10, 0, 0, 1},
        {"base 0 finds octal", "017", 0, 15, 15, 3},
        {"a digit equal to base 10", "1a", 10, 20, 20, 2},
        {"a digit equal to base 2", "12", 2, 4, 4, 2},
        {"base 16 without its prefix", "1F", 16, 31, 31, 2},
        {"base above 16", "012", 17, 0, 0, 0},
        {"negative base", "12", -3, 0, 0, 0},
        {"a prefix without digits", "0x", 0, 0, 0, 0},
        {"a sign without digits", "  -", 10, 0, 0, 0},
        {"every kind of blank", "\t\n\v\f\r +42x", 10, 42, 42, 9},
        {"clamped to 32 bits", "99999999999z", 10, INT_MAX, 99999999999, 11},
        {"the lowest of 64 bits", "-9223372036854775808", 10, INT_MIN, INT64_MIN, 20},
        {"kept: -1 beyond 64 bits", "999999999999999999999999999999", 10, INT_MAX, -1, 30},
        {"kept: -1 below 64 bits", "-999999999999999999999999999999", 10, INT_MIN, -1, 31},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        char* end = nullptr;
        EXPECT_EQ(CBB_StrToi32(row.text, &end, row.base), row.as32);
        EXPECT_EQ(end - row.text, row.end);
        EXPECT_EQ(CBB_StrToi64(row.text, &end, row.base), row.as64);
        EXPECT_EQ(end - row.text, row.end);
    }
    EXPECT_EQ(CBB_Atoi32("-7"), -7);
    EXPECT_EQ(CBB_Atoi64("5000000000"), 5000000000);
}

TEST(CbbString, FindsTexts) {
    EXPECT_STREQ(CBB_Strstr("chan1/main", "main"), "main");
    EXPECT_STREQ(CBB_Strnstr("chan1/main", "main", 4), "main");
    EXPECT_STREQ(CBB_Strnstr("abc", "abcd", 3), "abc");
    EXPECT_STREQ(CBB_Strnstr("abc", "", 0), "abc");
    EXPECT_EQ(CBB_Strnstr("abc", "bc", 3), nullptr) << "kept: a needle shorter than its length";
    EXPECT_STREQ(CBB_Strcasestr("chan1/MAIN", "main"), "MAIN");
    EXPECT_STREQ(CBB_Strcasestr("abc", ""), "abc");
    EXPECT_EQ(CBB_Strcasestr("abc", "abcd"), nullptr);
}

TEST(CbbString, FindsBytes) {
    const char high[] = "a\xff";
    EXPECT_EQ(CBB_Strchr(high, 0xFF), high + 1);
    EXPECT_EQ(CBB_Strchr(high, 0), nullptr);
    const char beyond[2] = {'\0', 'a'};  // an empty text, and a byte that is not searched
    EXPECT_EQ(CBB_Strchr(beyond, 'a'), nullptr);
    EXPECT_EQ(CBB_Strchr(beyond, 0), beyond);
    EXPECT_EQ(CBB_Strnchr(beyond, 'a', 2), beyond + 1);
    EXPECT_EQ(CBB_Strnchr(beyond, 'a', 1), nullptr);
}

TEST(CbbString, CopiesAndCompares) {
    char out[8] = "xxxxxxx";
    EXPECT_STREQ(CBB_Strcpy(out, "abc"), "abc");
    EXPECT_EQ(std::string(CBB_Strncpy(out, "de", 5), 6), std::string("de\0\0\0x", 6));
    EXPECT_EQ(*CBB_Strncpy(out, "f", 0), 'd');
    EXPECT_EQ(CBB_Strncmp("abc", "abd", 2), 0);
    EXPECT_LT(CBB_Strncmp("abc", "abd", 3), 0);
    EXPECT_EQ(CBB_Strcasecmp("aB", "Ab"), 0);
}

}  // namespace
