// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <tuple>

#include "cbb.h"

namespace {

// Where a result points within its text; -1 for null.
ptrdiff_t Offset(const char* pFound, const char* szText) {
    return pFound == nullptr ? -1 : pFound - szText;
}

TEST(CbbString, WritesNumbers) {
    // clang-format off
    const std::tuple<long, int, const char*> rows[] = {
        {0, 10, "0"},      {-15, 10, "-15"},  {35, 36, "z"},
        {-1, 16, nullptr}, {1, 37, nullptr},  {1, 1, nullptr},
        {INT_MAX, 2, "1111111111111111111111111111111"},
        {LONG_MIN, 10, "-9223372036854775808"}};
    // clang-format on
    char szOut[66];
    for (const auto& [nValue, nBase, szText] : rows) {
        EXPECT_STREQ(CBB_Ltoa(szOut, nValue, nBase), szText) << nValue << " base " << nBase;
    }
    EXPECT_STREQ(CBB_Itoa(szOut, INT_MIN, 10), "-2147483648");
}

// Kept: a digit that equals the base counts.
TEST(CbbString, ReadsNumbers) {
    // clang-format off
    const std::tuple<const char*, int, int32_t, int64_t, ptrdiff_t> rows[] = {
        {" 0x1F", 0, 31, 31, 5}, {"0x1F", 10, 0, 0, 1},   {"017", 0, 15, 15, 3},
        {"1a", 10, 20, 20, 2},   {"12", 2, 4, 4, 2},      {"12", 17, 0, 0, 0},
        {"12", -3, 0, 0, 0},     {"0x", 0, 0, 0, 0},      {"  -", 10, 0, 0, 0},
        {"\t\n\v\f\r +42x", 10, 42, 42, 9},
        {"99999999999z", 10, INT_MAX, 99999999999, 11},
        {"-9223372036854775808", 10, INT_MIN, INT64_MIN, 20},
        {"999999999999999999999999999999", 10, INT_MAX, -1, 30},
        {"-999999999999999999999999999999", 10, INT_MIN, -1, 31}};
    // clang-format on
    for (const auto& [szText, nBase, n32, n64, nEnd] : rows) {
        char* pEnd = nullptr;
        EXPECT_EQ(CBB_StrToi32(szText, &pEnd, nBase), n32) << szText;
        EXPECT_EQ(Offset(pEnd, szText), nEnd) << szText << " base " << nBase;
        EXPECT_EQ(CBB_StrToi64(szText, &pEnd, nBase), n64) << szText;
        EXPECT_EQ(Offset(pEnd, szText), nEnd) << szText << " base " << nBase;
    }
}

// Kept: one byte has to match, and a needle that ends before n does not.
TEST(CbbString, Finds) {
    // clang-format off
    const std::tuple<const char*, const char*, size_t, ptrdiff_t, ptrdiff_t, ptrdiff_t> rows[] = {
        {"chan1/main", "main", 4, 6, 6, 6},   {"chan1/MAIN", "main", 4, -1, -1, 6},
        {"abc", "bc", 3, 1, -1, 1},           {"abc", "abcd", 3, -1, 0, -1},
        {"abc", "", 0, 0, 0, 0},              {"", "a", 1, -1, -1, -1}};
    // clang-format on
    for (const auto& [szText, szNeedle, n, nAt, nNAt, nCaseAt] : rows) {
        EXPECT_EQ(Offset(CBB_Strstr(szText, szNeedle), szText), nAt) << szText;
        EXPECT_EQ(Offset(CBB_Strnstr(szText, szNeedle, n), szText), nNAt) << szText << szNeedle;
        EXPECT_EQ(Offset(CBB_Strcasestr(szText, szNeedle), szText), nCaseAt) << szText;
    }
    const char high[] = "a\xff";
    EXPECT_EQ(CBB_Strchr(high, 0xFF), high + 1);
    EXPECT_EQ(CBB_Strchr(high, 0), nullptr);
    const char beyond[2] = {'\0', 'a'};  // an empty text: what lies behind it is not searched
    EXPECT_EQ(CBB_Strchr(beyond, 'a'), nullptr);
    EXPECT_EQ(CBB_Strchr(beyond, 0), beyond);
    EXPECT_EQ(CBB_Strnchr(beyond, 'a', 2), beyond + 1);
    EXPECT_EQ(CBB_Strnchr(beyond, 'a', 1), nullptr);
}

}  // namespace
