// SPDX-License-Identifier: MIT
// All code that handles text of unknown size uses these functions: bounded copies, bounded
// appending, number reading that cannot overflow, and byte-wise big-endian access.
#ifndef RTSPS_TEXT_H
#define RTSPS_TEXT_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <limits>

// Appends text to a NUL-terminated buffer and never writes outside it. Text that does not fit is
// cut, and Overflowed() then stays true, so that a caller can check once, at the end.
class CTextAppender {
  public:
    // Continues the NUL-terminated text that `szBuf` already holds; `nCapacity` counts the NUL.
    CTextAppender(char* szBuf, size_t nCapacity);

    void Append(const char* szText);
    void Append(const char* pText, size_t nLen);
    void AppendFormat(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    void Clear();  // empties the text and resets Overflowed()

    [[nodiscard]] size_t Length() const { return m_nLength; }
    [[nodiscard]] bool Overflowed() const { return m_bOverflow; }

    // For callers that guarantee a large enough buffer but do not pass its size.
    static constexpr size_t UNBOUNDED = std::numeric_limits<size_t>::max() / 2;

  private:
    char* m_szBuf;
    size_t m_nCapacity;
    size_t m_nLength;
    bool m_bOverflow = false;
};

// Copies `nLen` bytes of text (stopping early at a NUL) into a fixed buffer, cutting what does not
// fit; the result is always terminated. Returns false when something was cut.
bool TextCopy(char* szDst, size_t nDstSize, const char* pSrc, size_t nLen);
bool TextCopy(char* szDst, size_t nDstSize, const char* szSrc);

template <size_t N>
bool TextCopy(char (&szDst)[N], const char* szSrc) {
    return TextCopy(szDst, N, szSrc);
}

// The same for a slice from a scanner: null, or a length of 0 or less, is an empty text.
template <size_t N>
bool TextCopySlice(char (&szDst)[N], const char* pSrc, int nLen) {
    const bool bEmpty = pSrc == nullptr || nLen <= 0;
    return TextCopy(szDst, N, bEmpty ? "" : pSrc, bEmpty ? 0 : static_cast<size_t>(nLen));
}

// Lower-cases ASCII letters in place, independent of the host's locale.
void TextToLower(char* szText);

// Like `atoi` and `strtol`, but defined for every text. They read leading blanks, a sign and
// digits, and clamp the number to the range of the type. Without a digit the result is 0.
int TextToInt(const char* szText);
long TextToLong(const char* szText);

// Reads "%d-%d", or the same with another separator. Returns how many of the two numbers were read
// and leaves the others untouched.
int TextToIntPair(const char* szText, int* pFirst, int* pSecond, char cSeparator = '-');

// Big-endian access at any alignment.
inline uint16_t ReadBe16(const uint8_t* p) {
    return static_cast<uint16_t>((p[0] << 8) | p[1]);
}
inline uint32_t ReadBe32(const uint8_t* p) {
    return (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[1]) << 16) |
           (static_cast<uint32_t>(p[2]) << 8) | static_cast<uint32_t>(p[3]);
}
inline void WriteBe16(uint8_t* p, uint16_t n) {
    p[0] = static_cast<uint8_t>(n >> 8);
    p[1] = static_cast<uint8_t>(n & 0xFF);
}
inline void WriteBe32(uint8_t* p, uint32_t n) {
    p[0] = static_cast<uint8_t>(n >> 24);
    p[1] = static_cast<uint8_t>((n >> 16) & 0xFF);
    p[2] = static_cast<uint8_t>((n >> 8) & 0xFF);
    p[3] = static_cast<uint8_t>(n & 0xFF);
}

#endif
