// SPDX-License-Identifier: MIT
#ifndef RTSPS_LISTENER_H
#define RTSPS_LISTENER_H

#include <atomic>
#include <cstdint>

#include "cbb.h"

// Accepts clients on one TCP port (IPv4) and creates a session for each. While no client arrives,
// its accept thread sweeps: it closes and removes the sessions that have ended.
//
// Only one thread at a time may call Open or Close (CRtspServer serialises them).
class CRtspListener {
  public:
    CRtspListener() = default;
    ~CRtspListener() = default;  // the owner calls Close first
    CRtspListener(const CRtspListener&) = delete;
    CRtspListener& operator=(const CRtspListener&) = delete;

    // Listens on `port` and starts the accept thread. Returns 0 or -1.
    [[nodiscard]] int Open(int port);
    // Ends the thread and closes the socket. Returns 0.
    int Close();

    bool IsRunning() const { return m_running.load(std::memory_order_acquire) != 0; }
    CBB_SOCK_T GetFd() const { return m_sock.load(std::memory_order_acquire); }

  private:
    struct CArrivals;
    enum class EStart { STARTED, NO_SESSION, NOT_INITIALIZED, NO_THREAD };

    static void* accept_handler_svc(void* pListener);

    int bind_to(int port);
    void close_socket();
    void sweep_when_idle() const;
    bool wait_for_clients(CArrivals* pArrivals) const;
    void take_arrivals(CArrivals* pArrivals, uint32_t nTimeOutMs) const;
    static void prepare_socket(CBB_SOCK_T sock);
    static EStart start_session(CBB_SOCK_T sock, const CBB_ADDR_T& peer);

    std::atomic<uint32_t> m_running{
        0};  // atomic: set by Open, cleared by Close, read by the thread
    std::atomic<CBB_SOCK_T> m_sock{-1};              // atomic: likewise
    CBB_HANDLE m_ThreadListen = CBB_INVALID_HANDLE;  // under the server's m_mutexStartStop
};

#endif
