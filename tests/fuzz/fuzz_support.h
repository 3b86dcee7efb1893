// SPDX-License-Identifier: MIT
// Shared by the fuzz targets. A target is one function with arbitrary bytes as its input. It runs
// under libFuzzer or, in ordinary builds, with stored files.
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

// An input. Choices and text are taken from its front. An empty input yields zeros and empty texts.
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
    // In memory of exactly its size, so that a sanitizer finds an access beyond it.
    Bytes All() const { return {m_bytes.begin(), m_bytes.end()}; }

  private:
    const std::string m_bytes;
    size_t m_nTaken = 0;
};

// The target. When one of its checks fails, the process ends, and the input counts as a crash.
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

// Waits for a condition, for about ten seconds at most. Returns whether it held.
template <class TCondition>
bool WaitBriefly(TCondition condition) {
    for (int i = 0; i < 100000 && !condition(); ++i) {
        i < 100 ? sched_yield() : usleep(100);
    }
    return condition();
}

int CountDescriptors();

#endif
