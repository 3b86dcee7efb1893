// SPDX-License-Identifier: MIT
#include "support/log_capture.h"

#include <regex.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <sstream>

namespace {

bool HasLine(const std::string& all, const std::string& line) {
    std::string pattern = std::string("^\\[RTSPS ") + line[0] + "[A-Z]*\\][^ ]* [^ ]* ";
    for (const char c : line.substr(2)) {
        const std::string plain(1, c);
        pattern += c == '#' ? "-?[0-9]+" : isalnum(c) != 0 ? plain : "[" + plain + "]";
    }
    regex_t compiled;
    EXPECT_EQ(regcomp(&compiled, (pattern + "$").c_str(), REG_EXTENDED | REG_NEWLINE), 0) << line;
    const bool has = regexec(&compiled, all.c_str(), 0, nullptr, 0) == 0;
    regfree(&compiled);
    return has;
}

}  // namespace

CLogCapture::CLogCapture(int fd)
    : m_fd(fd), m_saved(dup(fd)), m_file(memfd_create("log", MFD_CLOEXEC)) {
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    fflush(stdout);
    dup2(m_file, m_fd);
}

CLogCapture::~CLogCapture() {
    const std::string text = Text();
    dup2(m_saved, m_fd);
    if (testing::Test::HasFailure()) {
        dprintf(m_fd, "%s", text.c_str());
    }
    close(m_saved);
    close(m_file);
}

std::string CLogCapture::Text() const {
    fflush(stdout);
    std::string text;
    char chunk[4096];
    for (off_t at = 0;;) {
        const ssize_t n = pread(m_file, chunk, sizeof(chunk), at);
        if (n <= 0) {
            return text;
        }
        text.append(chunk, static_cast<size_t>(n));
        at += n;
    }
}

int CLogCapture::Count(const std::string& text) const {
    const std::string all = Text();
    int n = 0;
    for (size_t at = 0; (at = all.find(text, at)) != std::string::npos; ++at) {
        ++n;
    }
    return n;
}

bool CLogCapture::WaitFor(const std::string& text, std::chrono::milliseconds limit) const {
    return WaitUntil([&] { return Has(text); }, limit);
}

testing::AssertionResult CLogCapture::HasLines(const std::string& lines) const {
    std::istringstream wanted(lines);
    for (std::string one; std::getline(wanted, one, '|');) {
        if (!WaitUntil([&] { return HasLine(Text(), one); }, std::chrono::seconds(5))) {
            return testing::AssertionFailure() << "no line " << one;
        }
    }
    return testing::AssertionSuccess();
}
