// SPDX-License-Identifier: MIT
#ifndef CBB_THREAD_H
#define CBB_THREAD_H

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

#endif
