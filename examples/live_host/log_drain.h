// SPDX-License-Identifier: MIT
// Redirects a descriptor, usually standard output, so that a slow console or slow flash memory does
// not delay the threads that print. The descriptor becomes the input of a pipe. One thread empties
// the pipe into a bounded buffer; a second thread writes the buffer to its destination. Lines that
// do not fit are dropped, and one line in the log reports their number. This class uses no other
// part of the example.
#ifndef LIVE_HOST_LOG_DRAIN_H
#define LIVE_HOST_LOG_DRAIN_H

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

class CLogDrain {
  public:
    // Bytes that may wait, in addition to one line and one write.
    static constexpr size_t CAPACITY = 64 * 1024;
    // How long Close() waits for the destination.
    static constexpr std::chrono::milliseconds FLUSH_TIME{1000};

    CLogDrain() = default;
    ~CLogDrain() { Close(); }
    CLogDrain(const CLogDrain&) = delete;
    CLogDrain& operator=(const CLogDrain&) = delete;

    // Redirects the descriptor fd to the end of a file, or to a terminal or named pipe. The path
    // may be /dev/stdout, the present standard output. Call it once, before other threads print.
    // Returns whether it succeeded; if not, error is the message to print.
    bool Open(const std::string& path, std::string& error, int fd = STDOUT_FILENO);

    // Undoes the redirection and writes the waiting lines, within FLUSH_TIME. One line on standard
    // error reports the number of remaining lines. Call it when other threads no longer print.
    void Close();

  private:
    void Collect();
    void Store(const char* pData, size_t size);
    void StoreLine();
    void WriteOut();
    bool Take(std::string& chunk);
    size_t Write(const std::string& chunk);
    bool TimeIsOver();
    void ReportDropped();

    int m_fd = -1;             // the redirected descriptor; -1: none
    int m_savedFd = -1;        // its destination before
    int m_pipeFd = -1;         // the read end of the pipe
    int m_stopFd = -1;         // eventfd: the collector empties the pipe and ends
    int m_destinationFd = -1;  // does not block, unless it is a file
    std::thread m_collector;
    std::thread m_writer;
    std::string m_line;  // the collector only: a line whose end has not arrived

    std::mutex m_mutex;  // guards the fields below
    std::condition_variable m_changed;
    std::string m_waiting;
    // Dropped lines that the log does not report yet. It reports them when half of the capacity is
    // free again. Until then all further lines are dropped too: one gap instead of many.
    size_t m_nDropped = 0;
    bool m_bCollected = false;  // the collector has ended
    std::chrono::steady_clock::time_point m_deadline = std::chrono::steady_clock::time_point::max();
};

#endif
