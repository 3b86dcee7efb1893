// SPDX-License-Identifier: MIT
// What the fuzz targets share. Each is one function over arbitrary bytes, which runs under
// libFuzzer or over stored files (replay_main.cpp).
#ifndef FUZZ_SUPPORT_H
#define FUZZ_SUPPORT_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "rtsps_text.h"

extern "C" int LLVMFuzzerInitialize(int* pArgc, char*** pArgv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize);

// Says what did not hold and ends the process: the input counts as a crash.
[[noreturn]] void FuzzFail(const char* szFile, int nLine, const char* szWhat);
#define FUZZ_CHECK(condition) \
    ((condition) ? static_cast<void>(0) : FuzzFail(__FILE__, __LINE__, #condition))

using Bytes = std::vector<uint8_t>;

// Takes choices and text off the front of an input; a spent one yields zeros and empty texts.
class CFuzzInput {
  public:
    CFuzzInput(const uint8_t* pData, size_t nSize) : m_rest(pData, pData + nSize) {}
    bool Empty() const { return m_nTaken == m_rest.size(); }
    uint8_t Byte() { return Empty() ? uint8_t{0} : static_cast<uint8_t>(m_rest[m_nTaken++]); }
    std::string Text(size_t nMost = std::string::npos) {
        const std::string text = m_rest.substr(m_nTaken, nMost);
        m_nTaken += text.size();
        return text;
    }

  private:
    const std::string m_rest;
    size_t m_nTaken = 0;
};

// The text of a message, header or value, which must fit 256 KiB.
template <class T>
std::string WrittenBy(const T& object) {
    static char s_szText[1 << 18];
    CTextAppender text(s_szText, sizeof(s_szText));
    text.Clear();
    object.append_text(text);
    FUZZ_CHECK(!text.Overflowed());
    return s_szText;
}

int CountDescriptors();

// Waits at most ten seconds; whether the condition held.
bool WaitBriefly(const std::function<bool()>& condition);

#endif
