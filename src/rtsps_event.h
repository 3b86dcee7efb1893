// SPDX-License-Identifier: MIT
#ifndef RTSPS_EVENT_H
#define RTSPS_EVENT_H

#include <semaphore.h>

#include <atomic>
#include <cstdint>

#include "cbb.h"
#include "rtsps_server_api.h"

// Collects the data of one client's events and raises them.
//
// All events of a session are raised on its own thread, with no lock held. The thread raises no
// event before the manager has decided whether the session is registered. A session never raises an
// event when it was refused, or when no event function was set at its registration.
class CSessionEvents {
  public:
    CSessionEvents();
    ~CSessionEvents();
    CSessionEvents(const CSessionEvents&) = delete;
    CSessionEvents& operator=(const CSessionEvents&) = delete;

    // Called before the session's thread starts, when ReportRegistration will follow.
    void AwaitRegistration() { m_bExpected = true; }
    // Called once, by the registering thread. Ignored without AwaitRegistration.
    void ReportRegistration(bool bRegistered);

    // Session's thread: waits for ReportRegistration, then raises "connected".
    void Begin(uint32_t dwSessionId, const CBB_ADDR_T& client);
    // Session's thread: the stream that the client has described.
    void Describe(int nChan, int nStreamType);
    // Session's thread: a stream was set up.
    void SetUp(uint32_t dwMedia, uint32_t dwTransport);
    void Playing();
    void TornDown();
    // Session's thread, as its last call: raises "closed" with the session's totals.
    void End(const tagRtspServerTotals& totals);

    // Why the session ends; the first reason given counts. Any thread.
    void SetReason(RTSP_SERVER_CLOSE_REASON reason);

    // False when it is certain that this session raises no event. A thread that joins the session's
    // thread then does not wait for the host's event function.
    bool MayRaise() const { return m_bMayRaise.load(std::memory_order_acquire); }

    // Whether the calling thread is inside the host's event function.
    static bool InCallBack();

  private:
    bool raise(RTSP_SERVER_EVENT event, uint32_t dwMedia);

    sem_t m_semDecided;          // posted by the deciding thread, waited for by the session's
    bool m_bExpected = false;    // written before the session's thread exists
    bool m_bRegistered = false;  // synchronised by the semaphore
    // atomic: written by the deciding and by the session's thread, read by the sweep
    std::atomic<bool> m_bMayRaise{false};
    std::atomic<int32_t> m_reason{RTSPS_CLOSE_NONE};  // atomic: written by any thread
    // The session's thread only:
    bool m_bTornDown = false;
    uint32_t m_dwSessionId = 0;
    uint64_t m_nConnectedAtMs = 0;
    tagRtspServerEventInfo m_info{};
};

#endif
