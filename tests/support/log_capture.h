// SPDX-License-Identifier: MIT
#ifndef LOG_CAPTURE_H
#define LOG_CAPTURE_H

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

// Polls a condition until it holds or the limit has passed. Returns whether it held.
template <class TCondition>
bool WaitUntil(TCondition condition, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// Redirects one of the process's output descriptors into a file while it exists. If a check fails
// during that time, the text is written to the descriptor at the end.
class CLogCapture {
  public:
    explicit CLogCapture(int fd = 1);
    ~CLogCapture();
    CLogCapture(const CLogCapture&) = delete;
    CLogCapture& operator=(const CLogCapture&) = delete;

    std::string Text() const;  // everything written so far
    bool Has(const std::string& text) const { return Text().find(text) != std::string::npos; }
    int Count(const std::string& text) const;
    // Waits until all of these log lines were written, in any order. '|' separates the lines.
    // Each is the first letter of the level, a blank, and the text after file, line and function,
    // in which '#' matches any number.
    testing::AssertionResult HasLines(const std::string& lines) const;
    // Waits until the text was written.
    bool WaitFor(const std::string& text) const {
        return WaitUntil([&] { return Has(text); });
    }

  private:
    int m_fd;
    int m_saved;
    int m_file;
};

#endif
