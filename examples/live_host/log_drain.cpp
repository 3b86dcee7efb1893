// SPDX-License-Identifier: MIT
#include "log_drain.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>

namespace {

using CClock = std::chrono::steady_clock;

constexpr size_t READ_SIZE = 4096;
constexpr size_t WRITE_SIZE = 4096;
constexpr size_t MAX_LINE = 4096;  // a longer line is split
constexpr int POLL_MS = 50;        // interval of the checks for the end of FLUSH_TIME

size_t LineEnds(const std::string& text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

void CloseIfOpen(int& fd) {
    if (fd >= 0)
        close(fd);
    fd = -1;
}

// Blocks all signals for threads that are started while it exists. They never run the host's signal
// handlers, and their write to a pipe without a reader is an error that does not end the process.
class CSignalsBlocked {
  public:
    CSignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    ~CSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    CSignalsBlocked(const CSignalsBlocked&) = delete;
    CSignalsBlocked& operator=(const CSignalsBlocked&) = delete;

  private:
    sigset_t m_before;
};

}  // namespace

bool CLogDrain::Open(const std::string& path, std::string& error, int fd) {
    // Also /dev/stdout is opened again, so that O_NONBLOCK affects no other process.
    m_destinationFd =
        open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0644);
    int ends[2] = {-1, -1};
    const bool made = m_destinationFd >= 0 && pipe2(ends, O_CLOEXEC) == 0 &&
                      fcntl(ends[0], F_SETFL, O_NONBLOCK) == 0 &&
                      (m_stopFd = eventfd(0, EFD_CLOEXEC)) >= 0 &&
                      (m_savedFd = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) >= 0;
    m_pipeFd = ends[0];
    std::fflush(stdout);
    if (!made || dup2(ends[1], fd) < 0) {
        error = path + ": " + std::strerror(errno);
        for (int* pFd : {&m_destinationFd, &m_pipeFd, &m_stopFd, &m_savedFd, &ends[1]})
            CloseIfOpen(*pFd);
        return false;
    }
    CloseIfOpen(ends[1]);
    m_fd = fd;
    const CSignalsBlocked blocked;
    m_collector = std::thread(&CLogDrain::Collect, this);
    m_writer = std::thread(&CLogDrain::WriteOut, this);
    return true;
}

void CLogDrain::Close() {
    if (m_fd < 0)
        return;
    std::fflush(stdout);
    dup2(m_savedFd, m_fd);
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_deadline = CClock::now() + FLUSH_TIME;
    }
    const uint64_t one = 1;
    // The eventfd ends the collector, because a child process may keep the pipe open.
    if (write(m_stopFd, &one, sizeof(one)) < 0)
        std::perror("eventfd");
    m_collector.join();
    m_writer.join();
    if (m_nDropped > 0)
        std::fprintf(stderr, "The log ended with %zu lines unwritten\n", m_nDropped);
    for (int* pFd : {&m_destinationFd, &m_pipeFd, &m_stopFd, &m_savedFd})
        CloseIfOpen(*pFd);
    m_fd = -1;
}

// The first thread. It waits for its input only, so the pipe never fills up.
void CLogDrain::Collect() {
    for (bool stopping = false; !stopping;) {
        pollfd events[] = {{m_pipeFd, POLLIN, 0}, {m_stopFd, POLLIN, 0}};
        poll(events, std::size(events), -1);
        stopping = events[1].revents != 0;
        char data[READ_SIZE];
        ssize_t size = 0;
        while ((size = read(m_pipeFd, data, sizeof(data))) > 0)
            Store(data, static_cast<size_t>(size));
    }
    StoreLine();
    const std::lock_guard<std::mutex> guard(m_mutex);
    ReportDropped();
    m_bCollected = true;
    m_changed.notify_one();
}

void CLogDrain::Store(const char* pData, size_t size) {
    for (const char* pEnd = pData + size; pData < pEnd;) {
        const auto* pNewline =
            static_cast<const char*>(std::memchr(pData, '\n', static_cast<size_t>(pEnd - pData)));
        const char* pStop = pNewline != nullptr ? pNewline + 1 : pEnd;
        m_line.append(pData, pStop);
        pData = pStop;
        if (pNewline != nullptr || m_line.size() >= MAX_LINE)
            StoreLine();
    }
}

void CLogDrain::StoreLine() {
    if (m_line.empty())
        return;
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (m_waiting.size() <= CAPACITY / 2)
        ReportDropped();
    if (m_nDropped > 0 || m_waiting.size() + m_line.size() > CAPACITY)
        ++m_nDropped;
    else
        m_waiting += m_line;
    m_line.clear();
    m_changed.notify_one();
}

void CLogDrain::ReportDropped() {
    if (m_nDropped == 0)
        return;
    m_waiting += "... " + std::to_string(m_nDropped) + " lines of the log were dropped here\n";
    m_nDropped = 0;
}

// The second thread.
void CLogDrain::WriteOut() {
    std::string chunk;
    while (Take(chunk)) {
        const size_t written = Write(chunk);
        if (written < chunk.size()) {
            const std::lock_guard<std::mutex> guard(m_mutex);
            m_nDropped += LineEnds(chunk.substr(written));
        }
    }
}

// Waits for text. Returns false when all text is written, or after FLUSH_TIME.
bool CLogDrain::Take(std::string& chunk) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return !m_waiting.empty() || m_bCollected; });
    if (m_waiting.empty())
        return false;
    if (m_bCollected && CClock::now() >= m_deadline) {
        m_nDropped += LineEnds(m_waiting);
        return false;
    }
    chunk = m_waiting.substr(0, WRITE_SIZE);
    m_waiting.erase(0, chunk.size());
    return true;
}

// Returns the number of bytes written: fewer than all after an error, or after FLUSH_TIME.
size_t CLogDrain::Write(const std::string& chunk) {
    size_t written = 0;
    while (written < chunk.size()) {
        const ssize_t size = write(m_destinationFd, chunk.data() + written, chunk.size() - written);
        if (size >= 0) {
            written += static_cast<size_t>(size);
            continue;
        }
        if (errno != EAGAIN || TimeIsOver())
            break;
        pollfd destination = {m_destinationFd, POLLOUT, 0};
        poll(&destination, 1, POLL_MS);
    }
    return written;
}

bool CLogDrain::TimeIsOver() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return CClock::now() >= m_deadline;
}
