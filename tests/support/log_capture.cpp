// SPDX-License-Identifier: MIT
#include "support/log_capture.h"

#include <regex.h>
#include <sys/mman.h>
#include <sys/stat.h>
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
    struct stat status {};
    fstat(m_file, &status);
    std::string text(static_cast<size_t>(status.st_size), '\0');
    EXPECT_EQ(pread(m_file, text.data(), text.size(), 0), status.st_size);
    return text;
}

int CLogCapture::Count(const std::string& text) const {
    const std::string all = Text();
    int n = 0;
    for (size_t at = 0; (at = all.find(text, at)) != std::string::npos; ++at) {
        ++n;
    }
    return n;
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
