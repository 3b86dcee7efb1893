// SPDX-License-Identifier: MIT
#include "mimescan.h"

#include <cstring>
#include <new>

namespace {

bool IsBlank(int c) {
    return c == ' ' || c == '\t';
}

bool EndsWord(int c) {
    return c < ' ' || c == 0x7F || strchr(" \t=:;,-", c) != nullptr;
}

// A line feed is never a delimiter: next_delimited handles line ends itself.
//
// Kept (clients): [nul-delimiter] a NUL byte divides a header like a delimiter.
bool IsDelimiter(int c, const char* szDelimiters) {
    if (c == '\0' || c == '\n') {
        return c == '\0';
    }
    // Callers pass one or two delimiters. For these a loop is faster than strchr for every byte.
    for (const char* p = szDelimiters; *p != '\0'; ++p) {
        if (static_cast<unsigned char>(*p) == c) {
            return true;
        }
    }
    return false;
}

}  // namespace

CMimeStream::CMimeStream(const char* buf, int length)
    : m_buf(buf), m_length(length > 0 ? length : 0) {}

int CMimeStream::read() {
    const int c = peek();
    if (c != -1) {
        ++m_offset;
    }
    return c;
}

int CMimeStream::peek() const {
    return m_offset < m_length ? static_cast<unsigned char>(m_buf[m_offset]) : -1;
}

int CMimeStream::read(char* out, int n) {
    const int nLeft = m_length - m_offset;
    const int nTaken = n < nLeft ? n : nLeft;
    if (nTaken <= 0) {
        return 0;
    }
    memcpy(out, ptr(), static_cast<size_t>(nTaken));
    m_offset += nTaken;
    return nTaken;
}

void CMimeStream::back(int c) {
    if (c != -1 && m_offset > 0) {
        --m_offset;
    }
}

bool CMimeFoldStore::Reserve(int nBytes) {
    if (m_buf == nullptr) {
        m_buf.reset(new (std::nothrow) char[static_cast<size_t>(nBytes)]);
        m_size = m_buf == nullptr ? 0 : nBytes;
        m_bOutOfMemory |= m_buf == nullptr;
    }
    return m_buf != nullptr;
}

bool CMimeFoldStore::Append(const char* pText, int nLen) {
    if (nLen > m_size - m_used) {
        return false;
    }
    memcpy(m_buf.get() + m_used, pText, static_cast<size_t>(nLen));
    m_used += nLen;
    return true;
}

void CMimeFoldStore::Clear() {
    m_buf.reset();
    m_size = 0;
    m_used = 0;
    m_bOutOfMemory = false;
}

void CMimeScanner::SkipWS() {
    while (IsBlank(m_input.peek())) {
        m_input.read();
    }
}

CMimeToken CMimeScanner::next_token(const char* szDelimiters) {
    SkipWS();
    return szDelimiters == nullptr ? next_word() : next_delimited(szDelimiters);
}

CMimeToken CMimeScanner::next_word() {
    CMimeToken token;
    token.m_conten.value = m_input.ptr();
    const int c = m_input.read();
    if (c == '\n' || c == '\r') {
        skip_line_end_pair(c);
        token.m_lastChar = CMimeToken::END_OF_LINE;
    } else if (c == -1) {
        token.m_lastChar = CMimeToken::END_OF_DATA;
    } else if (c == '"') {
        read_quoted(token);
    } else {
        token.m_conten.len = 1;
        read_unquoted(token);
    }
    return token;
}

// Kept (clients): [quoted-slice] the slice begins at the opening quote, but its length counts only
// the characters inside the quotes. So `"abc"` gives `"ab`.
void CMimeScanner::read_quoted(CMimeToken& token) {
    for (int c = m_input.read(); c != '"' && c != -1; c = m_input.read()) {
        ++token.m_conten.len;
        if (c == '\\' && m_input.peek() == '"') {
            m_input.read();
            ++token.m_conten.len;
        }
    }
    token.m_lastChar = static_cast<unsigned char>(m_input.peek());
}

void CMimeScanner::read_unquoted(CMimeToken& token) {
    int c = m_input.read();
    while (c != -1 && !EndsWord(c)) {
        ++token.m_conten.len;
        c = m_input.read();
    }
    m_input.back(c);
    token.m_lastChar = static_cast<unsigned char>(c);
}

// Kept (clients): [trailing-blanks] leading blanks are skipped, but trailing blanks belong to the
// token. So "Session :" is not the header "Session".
CMimeToken CMimeScanner::next_delimited(const char* szDelimiters) {
    CMimeToken token;
    token.m_conten.value = m_input.ptr();
    Fold fold = Fold::NONE;
    for (;;) {
        const int c = m_input.read();
        if (c == -1) {
            token.m_lastChar = CMimeToken::END_OF_DATA;
            return token;
        }
        if (IsDelimiter(c, szDelimiters)) {
            token.m_lastChar = c;
            return token;
        }
        if (c != '\n' && c != '\r') {
            take_byte(token, static_cast<char>(c), fold);
            continue;
        }
        skip_line_end_pair(c);
        // Kept (clients): [empty-token-fold] an empty line is not joined with the next one, so that
        // a body may begin with a blank.
        if (!token.hasValue() || !IsBlank(m_input.peek())) {
            token.m_lastChar = CMimeToken::END_OF_LINE;
            return token;
        }
        // Kept (clients): [fold-without-blank] the line end and the blanks after it are removed.
        // RFC 2326 replaces them with one blank.
        SkipWS();
        if (fold == Fold::NONE) {
            fold = begin_join(token) ? Fold::JOINED : Fold::CUT;
        }
    }
}

void CMimeScanner::skip_line_end_pair(int c) {
    if (m_input.peek() == (c == '\n' ? '\r' : '\n')) {
        m_input.read();
    }
}

void CMimeScanner::take_byte(CMimeToken& token, char c, Fold fold) {
    // The text of a single line stays where it was received; only its length grows.
    if (fold == Fold::NONE || (fold == Fold::JOINED && m_pFolded->Append(&c, 1))) {
        ++token.m_conten.len;
    }
}

bool CMimeScanner::begin_join(CMimeToken& token) {
    // This size is enough: all tokens of a stream together are no longer than the stream.
    if (m_pFolded == nullptr || !m_pFolded->Reserve(m_input.length())) {
        return false;
    }
    const char* pJoined = m_pFolded->End();
    if (!m_pFolded->Append(token.m_conten.value, token.m_conten.len)) {
        return false;
    }
    token.m_conten.value = pJoined;
    return true;
}
