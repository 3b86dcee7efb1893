// SPDX-License-Identifier: MIT
#ifndef CBB_THREAD_H
#define CBB_THREAD_H

#include <pthread.h>

#include <csignal>

// Blocks every asynchronous signal on the calling thread while the object exists. A thread that is
// created during that time inherits the mask. Library threads are created so, and the host's
// handlers then run on the host's threads only. Signals of the C library, such as those that
// setuid() sends to all threads, still interrupt: after EINTR a wait begins again.
class CBlockSignals {
  public:
    CBlockSignals();
    ~CBlockSignals();
    CBlockSignals(const CBlockSignals&) = delete;
    CBlockSignals& operator=(const CBlockSignals&) = delete;

  private:
    sigset_t m_previous;
};

// Delays a cancellation of the calling thread while the object exists. Otherwise pthread_cancel()
// could end the thread in a send or a log line: some C libraries then release no locks, and no
// code gives back what the thread has borrowed.
class CDelayCancellation {
  public:
    CDelayCancellation();
    ~CDelayCancellation();
    CDelayCancellation(const CDelayCancellation&) = delete;
    CDelayCancellation& operator=(const CDelayCancellation&) = delete;

  private:
    int m_nPrevious = 0;
};

#endif
