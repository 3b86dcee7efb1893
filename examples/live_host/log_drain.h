// SPDX-License-Identifier: MIT
// Redirects a descriptor, usually standard output, so that a slow console or slow flash memory does
// not delay the threads that print. The descriptor becomes the input of a pipe. One thread empties
// the pipe into a bounded buffer; a second thread writes the buffer to its destination. Lines that
// find no room are dropped, and one line in the log says how many. This class uses no other part of
// the example.
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
    // Bytes that may wait, besides one line and one write.
    static constexpr size_t CAPACITY = 64 * 1024;
    // How long Close() waits for the destination.
    static constexpr std::chrono::milliseconds FLUSH_TIME{1000};

    CLogDrain() = default;
    ~CLogDrain() { Close(); }
    CLogDrain(const CLogDrain&) = delete;
    CLogDrain& operator=(const CLogDrain&) = delete;

    // Redirects the descriptor fd to a file, which is appended to, or to a terminal or named pipe.
    // The path may be /dev/stdout: what standard output is at this moment. Call it once, before
    // other threads print. Returns whether it worked; if not, error is one sentence for people.
    bool Open(const std::string& path, std::string& error, int fd = STDOUT_FILENO);

    // Undoes the redirection and writes what waits, within FLUSH_TIME. Whatever remains is counted
    // in one line on standard error. Call it when other threads no longer print.
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

    int m_fd = -1;             // what is redirected; -1: nothing
    int m_savedFd = -1;        // where it led before
    int m_pipeFd = -1;         // end of the pipe that is read
    int m_stopFd = -1;         // eventfd: read what is in the pipe and end
    int m_destinationFd = -1;  // does not block, unless it is a file
    std::thread m_collector;
    std::thread m_writer;
    std::string m_line;  // the collector's: a line whose end has not arrived

    std::mutex m_mutex;  // guards what follows
    std::condition_variable m_changed;
    std::string m_waiting;
    // Lines that no line in the log has reported. Until one does, when half of the capacity is free
    // again, all further lines are dropped too: one gap instead of many.
    size_t m_nDropped = 0;
    bool m_bCollected = false;  // nothing follows
    std::chrono::steady_clock::time_point m_deadline = std::chrono::steady_clock::time_point::max();
};

#endif
