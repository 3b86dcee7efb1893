// SPDX-License-Identifier: MIT
#ifndef RTSPS_EVENT_H
#define RTSPS_EVENT_H

#include <semaphore.h>

#include <atomic>
#include <cstdint>

#include "cbb.h"
#include "rtsps_server_api.h"

// What one client's events tell, and when they are raised.
//
// All events of a session are raised on its own thread, with no lock held. The thread raises
// nothing before the manager has decided whether the session is registered; a refused session, and
// one that found no event function when it was registered, raises nothing at all.
class CSessionEvents {
  public:
    CSessionEvents();
    ~CSessionEvents();
    CSessionEvents(const CSessionEvents&) = delete;
    CSessionEvents& operator=(const CSessionEvents&) = delete;

    // Before the session's thread starts: its registration will be decided.
    void AwaitRegistration() { m_bExpected = true; }
    // Once, from the thread that registers; ignored when nobody expects it.
    void ReportRegistration(bool bRegistered);

    // Session's thread: waits for the decision, then raises "connected".
    void Begin(uint32_t dwSessionId, const CBB_ADDR_T& client);
    // Session's thread: the stream that the client has described.
    void Describe(int nChan, int nStreamType);
    // Session's thread: a stream was set up.
    void SetUp(uint32_t dwMedia, uint32_t dwTransport);
    void Playing();
    void TornDown();
    // Session's thread, last: raises "closed" with the session's totals.
    void End(const tagRtspServerTotals& totals);

    // Why the session ends; the first reason given counts. Any thread.
    void SetReason(RTSP_SERVER_CLOSE_REASON reason);

    // False once it is certain that this session raises no event, so that nobody has to wait for
    // one when its thread is joined.
    bool MayRaise() const { return m_bMayRaise.load(std::memory_order_acquire); }

    // Whether the calling thread is inside the host's event function.
    static bool InCallBack();

  private:
    bool raise(RTSP_SERVER_EVENT event, uint32_t dwMedia);

    sem_t m_semDecided;          // posted by the deciding thread, waited for by the session's
    bool m_bExpected = false;    // written before the session's thread exists
    bool m_bRegistered = false;  // handed over by the semaphore
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
