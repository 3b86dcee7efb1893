// SPDX-License-Identifier: MIT
// What the fuzz targets share. Each is one function over arbitrary bytes, which runs under
// libFuzzer or, in ordinary builds, over stored files.
#ifndef FUZZ_SUPPORT_H
#define FUZZ_SUPPORT_H

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "rtsps_text.h"

using Bytes = std::vector<uint8_t>;

// An input. Choices and text are taken off its front; a spent one yields zeros and empty texts.
class CFuzzInput {
  public:
    explicit CFuzzInput(std::string bytes) : m_bytes(std::move(bytes)) {}
    bool Empty() const { return m_nTaken == m_bytes.size(); }
    uint8_t Byte() { return Empty() ? uint8_t{0} : static_cast<uint8_t>(m_bytes[m_nTaken++]); }
    std::string Text(size_t nMost = std::string::npos) {
        const std::string text = m_bytes.substr(m_nTaken, nMost);
        m_nTaken += text.size();
        return text;
    }
    // In memory of exactly its size, so that a sanitizer sees an access beyond it.
    Bytes All() const { return {m_bytes.begin(), m_bytes.end()}; }

  private:
    const std::string m_bytes;
    size_t m_nTaken = 0;
};

// The target. Where a check of it does not hold the process ends, and the input counts as a crash.
void Fuzz(CFuzzInput input);
[[noreturn]] void FuzzFail(const char* szFile, int nLine, const char* szWhat);
#define FUZZ_CHECK(condition) \
    ((condition) ? static_cast<void>(0) : FuzzFail(__FILE__, __LINE__, #condition))

// The text of a message or header.
template <class T>
std::string WrittenBy(const T& object) {
    static char s_szText[1 << 18];
    s_szText[0] = '\0';
    object.as_string(s_szText);
    return s_szText;
}

// Waits ten seconds or a little longer, in most cases for microseconds; whether the condition held.
template <class TCondition>
bool WaitBriefly(TCondition condition) {
    for (int i = 0; i < 100000 && !condition(); ++i) {
        i < 100 ? sched_yield() : usleep(100);
    }
    return condition();
}

int CountDescriptors();

#endif
