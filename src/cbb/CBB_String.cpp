// SPDX-License-Identifier: MIT
// String and number helpers. Callers rely on the differences from the standard functions.
#include <cstdlib>
#include <cstring>
#include <limits>

#include "cbb.h"

namespace {

// Protocol text is compared independent of the host's locale.
int ToUpper(char c) {
    return c >= 'a' && c <= 'z' ? c - 'a' + 'A' : static_cast<unsigned char>(c);
}

int ToLower(char c) {
    return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : static_cast<unsigned char>(c);
}

int SameByte(char c) {
    return static_cast<unsigned char>(c);
}

// The difference of the first bytes that differ after `convert`, within at most `n` bytes.
template <typename TConvert>
int32_t Compare(const char* szA, const char* szB, size_t n, TConvert convert) {
    for (; n > 0; --n, ++szA, ++szB) {
        const int nDifference = convert(*szA) - convert(*szB);
        if (nDifference != 0 || *szA == '\0') {
            return nDifference;
        }
    }
    return 0;
}

constexpr size_t NO_LIMIT = std::numeric_limits<size_t>::max();

char* IntegerToText(char* szOut, int64_t lValue, int iBase) {
    if (szOut == nullptr || iBase < 2 || iBase > 36 || (lValue < 0 && iBase != 10)) {
        return nullptr;
    }
    // The magnitude is computed unsigned: the smallest value has no positive counterpart.
    auto nRest = static_cast<uint64_t>(lValue);
    char* p = szOut;
    if (lValue < 0) {
        nRest = 0 - nRest;
        *p++ = '-';
    }
    char digits[std::numeric_limits<uint64_t>::digits];
    size_t nDigits = 0;
    const auto nBase = static_cast<uint64_t>(iBase);
    do {
        digits[nDigits++] = "0123456789abcdefghijklmnopqrstuvwxyz"[nRest % nBase];
        nRest /= nBase;
    } while (nRest > 0);
    while (nDigits > 0) {
        *p++ = digits[--nDigits];
    }
    *p = '\0';
    return szOut;
}

bool IsBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

int DigitValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    const int nLower = ToLower(c);
    return nLower >= 'a' && nLower <= 'z' ? nLower - 'a' + 10 : -1;
}

// Reads the base prefix and returns the base to use; 0 when it is refused.
int ResolveBase(const char** ppText, int iBase) {
    const char* p = *ppText;
    if ((iBase == 0 || iBase == 16) && p[0] == '0' && (p[1] == 'x' || p[1] == 'X')) {
        *ppText = p + 2;
        return 16;
    }
    if (iBase == 0) {
        return *p == '0' ? 8 : 10;
    }
    // Kept (hosts): [number-base-16] bases above 16 are refused here, while CBB_Itoa writes up to
    // base 36.
    return iBase < 2 || iBase > 16 ? 0 : iBase;
}

template <typename T>
T TextToInteger(const char* szText, char** ppEnd, int iBase, T nLowest, T nHighest) {
    const char* p = szText;
    while (IsBlank(*p)) {
        ++p;
    }
    const bool bNegative = *p == '-';
    if (*p == '-' || *p == '+') {
        ++p;
    }
    const int nBase = ResolveBase(&p, iBase);
    T nValue = 0;
    bool bOverflow = false;
    bool bDigits = false;
    // Kept (hosts): [digit-of-the-base] a digit equal to the base is accepted, so "1a" in base 10
    // is 20.
    for (int nDigit = DigitValue(*p); nBase != 0 && nDigit >= 0 && nDigit <= nBase;
         nDigit = DigitValue(*++p)) {
        bDigits = true;
        bOverflow = bOverflow || __builtin_mul_overflow(nValue, nBase, &nValue) ||
                    __builtin_add_overflow(nValue, bNegative ? -nDigit : nDigit, &nValue);
    }
    if (ppEnd != nullptr) {
        // Kept (hosts): [number-end] without digits the end is the start of the text, also after
        // "0x".
        *ppEnd = const_cast<char*>(bDigits ? p : szText);
    }
    if (bOverflow) {
        return bNegative ? nLowest : nHighest;
    }
    return nValue;
}

}  // namespace

char* CBB_Itoa(char* szOut, int iValue, int iBase) {
    return IntegerToText(szOut, iValue, iBase);
}

char* CBB_Ltoa(char* szOut, int64_t lValue, int iBase) {
    return IntegerToText(szOut, lValue, iBase);
}

int32_t CBB_Atoi32(const char* szText) {
    return CBB_StrToi32(szText, nullptr, 10);
}

int64_t CBB_Atoi64(const char* szText) {
    return CBB_StrToi64(szText, nullptr, 10);
}

int32_t CBB_StrToi32(const char* szText, char** ppEnd, int iBase) {
    return TextToInteger<int32_t>(szText, ppEnd, iBase, std::numeric_limits<int32_t>::min(),
                                  std::numeric_limits<int32_t>::max());
}

int64_t CBB_StrToi64(const char* szText, char** ppEnd, int iBase) {
    // Kept (hosts): [overflow-64] an overflow gives -1 on both sides here, and the limits in the
    // 32-bit form.
    return TextToInteger<int64_t>(szText, ppEnd, iBase, -1, -1);
}

char* CBB_Strcpy(char* szDst, const char* szSrc) {
    memcpy(szDst, szSrc, strlen(szSrc) + 1);
    return szDst;
}

char* CBB_Strncpy(char* szDst, const char* szSrc, size_t nCount) {
    if (nCount == 0) {
        return szDst;
    }
    const size_t nLen = strnlen(szSrc, nCount);
    memcpy(szDst, szSrc, nLen);
    memset(szDst + nLen, 0, nCount - nLen);
    return szDst;
}

char* CBB_Strdup(const char* szText) {
    return strdup(szText);
}

char* CBB_Strndup(const char* szText, size_t n) {
    return strndup(szText, n);
}

int32_t CBB_Strcmp(const char* szA, const char* szB) {
    return Compare(szA, szB, NO_LIMIT, SameByte);
}

int32_t CBB_Strncmp(const char* szA, const char* szB, size_t n) {
    return Compare(szA, szB, n, SameByte);
}

int32_t CBB_Strcasecmp(const char* szA, const char* szB) {
    return Compare(szA, szB, NO_LIMIT, ToUpper);
}

int32_t CBB_Strncasecmp(const char* szA, const char* szB, size_t n) {
    return Compare(szA, szB, n, ToUpper);
}

char* CBB_Strchr(const char* szText, int c) {
    // Kept (hosts): [strchr-nul] unlike the standard function, the NUL that ends a non-empty text
    // is not found.
    if (*szText == '\0') {
        return static_cast<char>(c) == '\0' ? const_cast<char*>(szText) : nullptr;
    }
    while (*szText != static_cast<char>(c)) {
        if (*++szText == '\0') {
            return nullptr;
        }
    }
    return const_cast<char*>(szText);
}

char* CBB_Strnchr(const char* szText, int c, size_t n) {
    // Kept (hosts): [strnchr-past-nul] the search does not stop at a NUL; all `n` bytes must be
    // readable.
    return static_cast<char*>(const_cast<void*>(memchr(szText, c, n)));
}

char* CBB_Strstr(const char* szHaystack, const char* szNeedle) {
    return const_cast<char*>(strstr(szHaystack, szNeedle));
}

char* CBB_Strnstr(const char* szText, const char* szNeedle, size_t n) {
    // Kept (hosts): [strnstr-length] `n` is the number of bytes that must match, not the length of
    // the text to search.
    const size_t nLen = strlen(szText);
    for (size_t nStart = 0; n <= nLen && nStart <= nLen - n; ++nStart) {
        // Stops at the needle's NUL: no byte of the text equals it.
        if (strncmp(szText + nStart, szNeedle, n) == 0) {
            return const_cast<char*>(szText + nStart);
        }
    }
    return nullptr;
}

char* CBB_Strcasestr(const char* szHaystack, const char* szNeedle) {
    if (*szNeedle == '\0') {
        return const_cast<char*>(szHaystack);
    }
    const size_t nRest = strlen(szNeedle + 1);
    for (; *szHaystack != '\0'; ++szHaystack) {
        if (ToLower(*szHaystack) == ToLower(*szNeedle) &&
            CBB_Strncasecmp(szHaystack + 1, szNeedle + 1, nRest) == 0) {
            return const_cast<char*>(szHaystack);
        }
    }
    return nullptr;
}
