// SPDX-License-Identifier: MIT
#ifndef CBB_THREAD_H
#define CBB_THREAD_H

#include <csignal>

// While it lives, the calling thread blocks every asynchronous signal, and a thread created
// meanwhile inherits that. Library threads are created under it: the host's handlers then run on
// the host's threads only. The C library's own signals, as setuid() sends them to all threads,
// still interrupt: a wait that ends with EINTR begins again.
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
