// SPDX-License-Identifier: MIT
#include "log_drain.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <sstream>

#include "support/log_capture.h"

namespace {

constexpr size_t LINE_SIZE = 100;

// A descriptor to print to, as standard output is, and a pipe as the console: once it is full, it
// takes no more bytes until it is read.
class LogDrain : public testing::Test {
  protected:
    LogDrain() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
        m_console = ends[0];
        std::string error;
        EXPECT_TRUE(m_drain.Open("/proc/self/fd/" + std::to_string(ends[1]), error, m_out))
            << error;
        close(ends[1]);  // the drain has opened it too
    }
    ~LogDrain() override {
        close(m_console);
        close(m_out);
    }

    void PrintNumbers(size_t lines) const {
        for (size_t i = 0; i < lines; ++i) {
            std::string line = std::to_string(i);
            line.resize(LINE_SIZE - 1, '.');
            line += '\n';
            ASSERT_EQ(LINE_SIZE, write(m_out, line.data(), line.size()));
        }
    }

    const int m_out = open("/dev/null", O_WRONLY | O_CLOEXEC);
    int m_console = -1;
    CLogDrain m_drain;
};

TEST_F(LogDrain, DropsAndCountsWholeLinesWhileTheConsoleTakesNothing) {
    constexpr size_t LINES = 20000;  // 2 MB, far more than all buffers hold
    PrintNumbers(LINES);             // would not return if a write waited for the console
    std::string text;
    std::thread reader([&] {
        char data[4096];
        ssize_t size = 0;
        while ((size = read(m_console, data, sizeof(data))) > 0)
            text.append(data, static_cast<size_t>(size));
    });
    m_drain.Close();
    reader.join();
    EXPECT_LT(text.size(), 4 * CLogDrain::CAPACITY);
    std::istringstream lines(text);
    size_t next = 0, step = 0, reports = 0;
    for (std::string line; std::getline(lines, line); next += step) {
        if (std::sscanf(line.c_str(), "... %zu lines of the log were dropped here", &step) == 1) {
            ++reports;
        } else {
            step = 1;
            EXPECT_EQ(LINE_SIZE - 1, line.size());
            EXPECT_EQ(next, std::stoul(line)) << "dropped or out of order";
        }
    }
    EXPECT_EQ(LINES, next);
    EXPECT_GE(reports, 1u);
    EXPECT_LE(reports, 5u) << "one line for each gap";
}

TEST_F(LogDrain, GivesUpAStuckConsoleAndReportsTheRemainingLines) {
    fcntl(m_console, F_SETPIPE_SZ, 4096);
    PrintNumbers(600);
    const CLogCapture errors(2);
    const auto begin = std::chrono::steady_clock::now();
    m_drain.Close();
    EXPECT_GE(std::chrono::steady_clock::now() - begin, CLogDrain::FLUSH_TIME);
    std::string taken(4096, 0);
    taken.resize(static_cast<size_t>(read(m_console, taken.data(), taken.size())));
    const auto lines = 600 - std::count(taken.begin(), taken.end(), '\n');
    EXPECT_EQ("The log ended with " + std::to_string(lines) + " lines unwritten\n", errors.Text());
    EXPECT_EQ(1, write(m_out, "x", 1)) << "the descriptor has its earlier destination again";
}

TEST_F(LogDrain, ReportsWhyItCannotOpen) {
    CLogDrain drain;
    std::string error;
    EXPECT_FALSE(drain.Open("/no/such/folder/log", error, m_out));
    EXPECT_THAT(error, testing::HasSubstr("/no/such/folder/log: No such file or directory"));
}

}  // namespace
