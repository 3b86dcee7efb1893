// SPDX-License-Identifier: MIT
#include "rtsps_text.h"

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

CTextAppender::CTextAppender(char* szBuf, size_t nCapacity)
    : m_szBuf(szBuf), m_nCapacity(nCapacity), m_nLength(strnlen(szBuf, nCapacity)) {
    if (m_nLength == m_nCapacity) {  // no terminator inside the buffer: nothing may be appended
        m_bOverflow = true;
    }
}

void CTextAppender::Append(const char* szText) {
    Append(szText, strlen(szText));
}

void CTextAppender::Append(const char* pText, size_t nLen) {
    const size_t nRoom = m_nCapacity > m_nLength ? m_nCapacity - m_nLength - 1 : 0;
    const size_t nTaken = nLen < nRoom ? nLen : nRoom;
    if (nTaken < nLen) {
        m_bOverflow = true;
    }
    if (m_nLength < m_nCapacity) {
        memmove(m_szBuf + m_nLength, pText, nTaken);
        m_nLength += nTaken;
        m_szBuf[m_nLength] = '\0';
    }
}

void CTextAppender::AppendFormat(const char* fmt, ...) {
    const size_t nRoom = m_nCapacity - m_nLength;
    va_list args;
    va_start(args, fmt);
    // vsnprintf rejects sizes above INT_MAX, which an unbounded appender would pass.
    const int nWanted =
        nRoom == 0 ? -1
                   : vsnprintf(m_szBuf + m_nLength, nRoom < INT_MAX ? nRoom : INT_MAX, fmt, args);
    va_end(args);
    if (nWanted < 0 || static_cast<size_t>(nWanted) >= nRoom) {
        m_bOverflow = true;
        m_nLength += nRoom == 0 ? 0 : strnlen(m_szBuf + m_nLength, nRoom - 1);
        return;
    }
    m_nLength += static_cast<size_t>(nWanted);
}

void CTextAppender::Clear() {
    m_nLength = 0;
    m_bOverflow = m_nCapacity == 0;
    if (m_nCapacity > 0) {
        m_szBuf[0] = '\0';
    }
}

bool TextCopy(char* szDst, size_t nDstSize, const char* pSrc, size_t nLen) {
    if (nDstSize == 0) {
        return nLen == 0;
    }
    const size_t nText = strnlen(pSrc, nLen);
    const size_t nTaken = nText < nDstSize ? nText : nDstSize - 1;
    memcpy(szDst, pSrc, nTaken);
    szDst[nTaken] = '\0';
    return nTaken == nText;
}

bool TextCopy(char* szDst, size_t nDstSize, const char* szSrc) {
    return TextCopy(szDst, nDstSize, szSrc, strlen(szSrc));
}

void TextToLower(char* szText) {
    for (char* p = szText; *p != '\0'; ++p) {
        if (*p >= 'A' && *p <= 'Z') {
            *p = static_cast<char>(*p - 'A' + 'a');
        }
    }
}

long TextToLong(const char* szText) {
    return strtol(szText, nullptr, 10);  // clamps to LONG_MIN and LONG_MAX by itself
}

int TextToInt(const char* szText) {
    const long n = TextToLong(szText);
    if (n > INT_MAX) {
        return INT_MAX;
    }
    return n < INT_MIN ? INT_MIN : static_cast<int>(n);
}

int TextToIntPair(const char* szText, int* pFirst, int* pSecond, char cSeparator) {
    char* pEnd = nullptr;
    (void)strtol(szText, &pEnd, 10);
    if (pEnd == szText) {
        return 0;
    }
    *pFirst = TextToInt(szText);
    if (*pEnd != cSeparator) {
        return 1;
    }
    const char* szSecond = pEnd + 1;
    (void)strtol(szSecond, &pEnd, 10);
    if (pEnd == szSecond) {
        return 1;
    }
    *pSecond = TextToInt(szSecond);
    return 2;
}
