// SPDX-License-Identifier: MIT
#ifndef RTSPS_SESSION_MGR_H
#define RTSPS_SESSION_MGR_H

#include <cstddef>
#include <cstdint>
#include <map>

#include "rtsps_server_api.h"
#include "rtsps_thread_safety.h"

class CRtspSession;

// One entry of a snapshot: the session may be used until its reference is released; after that
// only the id may.
struct tagSessionRef {
    uint32_t dwSessionId;
    CRtspSession* pSession;
};

// A snapshot of the registry, in ascending id order. As large as the registry can be, so that
// taking one allocates nothing and cannot fail.
struct CSessionList {
    tagSessionRef entries[RTSPS_MAX_SESSIONS];
    size_t nCount = 0;

    const tagSessionRef* begin() const { return entries; }
    const tagSessionRef* end() const { return entries + nCount; }
};

// The registry of client sessions. It destroys a session when the last reference is dropped: the
// registry's own and one for every lookup or snapshot entry.
//
// m_Mutex is held for work on the maps, the refused sessions or the event callback, for a log line,
// and for the destruction of a session. Under it, only calls that take no lock and do not wait are
// made to a session. It is never held together with the server's lock, so a session's destructor
// must call neither the manager nor the server.
class CRtspSessionManager {
  public:
    static CRtspSessionManager* Instance();

    // How often AddSession and CanTakeSession pause at a full registry, and for how long.
    static constexpr int ROOM_PAUSES = 10;
    static constexpr int ROOM_PAUSE_MS = 5;

    CRtspSessionManager(const CRtspSessionManager&) = delete;
    CRtspSessionManager& operator=(const CRtspSessionManager&) = delete;

    int Init();
    int Release();

    // A random id that no registered session has; it is not reserved.
    uint32_t GenerateSessionId();

    // Whether AddSession can keep track of one more session. False when the registry is full and so
    // is the list of refused sessions.
    bool CanTakeSession();

    // Registers an open session: 0. When the registry is full: -1, and the session runs on
    // unregistered, without media; its memory is the manager's in both cases.
    int AddSession(CRtspSession* pSession);

    // Take references; null for an unknown id. Give each back with releaseSession.
    CRtspSession* getSession(uint32_t dwSessionId);
    CSessionList getSession();
    void releaseSession(uint32_t dwSessionId);
    void releaseSession(const CRtspSession* pSession);
    void releaseSession(const CSessionList& sessions);

    // Drop the registry's own reference, at most once per session.
    void closeSession(int nSessionId);
    void closeSession(const CSessionList& sessions);

    // The server stops: closes every registered session and removes it, and frees the refused ones
    // that have ended; 0. Refused ones that end later free themselves, until AddSession is called
    // again.
    int Close();
    // Closes and removes one session; its Close() result, or -1 for an unknown id.
    int Close(unsigned int dwSessionId);

    // Closes and removes the sessions whose own thread has ended.
    void DelExceptionSession();

    // The same for a session's own thread, which needs what ended sessions still hold. It joins
    // only threads that wait for no other thread any more, so two of them, or one and Close, never
    // wait for each other.
    // Call it with no lock held.
    void SweepEnded();

    // A session's own thread asks this at its end. True: no sweep will find the session, and its
    // thread has to free it.
    bool IsLeftToItsThread(const CRtspSession* pSession);

    int SendRealStream(int nChan, int nStreamType, void* pData, int nLen);
    int SendFileStream(int nSessionId, void* pData, int nLen);
    int SetEventCallBack(pRtspServerEventCallBack pCallBack, void* pUserData);

    // For the sessions' threads: whether an event function is set, and its call, without a lock.
    bool HasEventCallBack();
    // Returns whether a function was there to call.
    bool RaiseEvent(int nEvent, uint32_t dwSessionId, void* pData, int nLen);

    uint32_t GetCurrSessionNums();
    uint32_t GetMaxsessionNums();

  private:
    template <class T>
    friend class CNeverDestroyed;

    // Who holds a registered session.
    struct CReferences {
        int32_t nCount = 1;
        bool bRegistry = true;   // the registry's own one is among them
        bool bFileData = false;  // one that is never given back, see SendFileStream, is among them
    };

    // Sessions that the full registry refused; they run on until their client leaves.
    struct CRefusedSessions {
        CRtspSession* pSessions[RTSPS_MAX_SESSIONS];
        size_t nCount = 0;
    };

    CRtspSessionManager() = default;
    ~CRtspSessionManager() = default;

    bool is_full() REQUIRES(m_Mutex) { return m_mapSession.size() >= m_maxSessions; }
    bool has_room() REQUIRES(m_Mutex) {
        return !is_full() || m_refused.nCount < RTSPS_MAX_SESSIONS;
    }
    bool register_session(CRtspSession* pSession) REQUIRES(m_Mutex);
    bool sweep_registered();
    void make_room();
    void keep_refused(CRtspSession* pSession);
    void sweep_refused();
    void drop_reference(uint32_t dwSessionId) REQUIRES(m_Mutex);
    void drop_registry_reference(uint32_t dwSessionId) REQUIRES(m_Mutex);

    const uint32_t m_maxSessions = RTSPS_MAX_SESSIONS;
    CMutex m_Mutex;
    int32_t m_nInitRef GUARDED_BY(m_Mutex) = 0;  // informational
    // An id is in both maps or in neither.
    std::map<uint32_t, CRtspSession*> m_mapSession GUARDED_BY(m_Mutex);  // owned
    std::map<uint32_t, CReferences> m_mapRef GUARDED_BY(m_Mutex);
    CRefusedSessions m_refused GUARDED_BY(m_Mutex){};  // owned
    bool m_bStopped GUARDED_BY(m_Mutex) = false;       // no accept thread sweeps
    pRtspServerEventCallBack m_pEventCallBack GUARDED_BY(m_Mutex) = nullptr;
    void* m_pEventUserData GUARDED_BY(m_Mutex) = nullptr;
};

#endif
