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

// A snapshot of the registry, in ascending id order. It has room for the whole registry, so that
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
// m_Mutex is held for access to the maps, the refused sessions and the callback, and for log lines.
// It is also held for the destruction of a session, whose destructor must therefore call neither
// the manager nor the server: m_Mutex is never held together with the server's lock. Code that
// holds it calls only those session functions that take no lock and do not wait.
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

    // Registers an open session and returns 0. When the registry is full, returns -1, and the
    // session continues unregistered, without media. The manager owns the session in both cases.
    int AddSession(CRtspSession* pSession);

    // Take references; null for an unknown id. Release each with releaseSession.
    CRtspSession* getSession(uint32_t dwSessionId);
    CSessionList getSession();
    void releaseSession(uint32_t dwSessionId);
    void releaseSession(const CRtspSession* pSession);
    void releaseSession(const CSessionList& sessions);

    // Drop the registry's own reference, at most once per session.
    void closeSession(int nSessionId);
    void closeSession(const CSessionList& sessions);

    // Called when the server stops. Closes and removes every registered session, and frees the
    // refused ones that have ended. Returns 0. Refused sessions that end later free themselves,
    // until AddSession is called again.
    int Close();
    // Closes and removes one session; its Close() result, or -1 for an unknown id.
    int Close(unsigned int dwSessionId);

    // Closes and removes the sessions whose own thread has ended.
    void DelExceptionSession();

    // The same for a session's own thread that needs the ports of ended sessions. It joins only
    // threads that no longer wait for another thread, so two callers, or a caller and Close, never
    // wait for each other. Call it with no lock held.
    void SweepEnded();

    // Called by a session's own thread at its end. True: no sweep will find the session, and the
    // thread has to free it.
    bool IsLeftToItsThread(const CRtspSession* pSession);

    int SendRealStream(int nChan, int nStreamType, void* pData, int nLen);
    int SendFileStream(int nSessionId, void* pData, int nLen);
    int SetEventCallBack(pRtspServerEventCallBack pCallBack, void* pUserData);

    // For the sessions' threads: whether an event function is set, and the call to it, with no lock
    // held.
    bool HasEventCallBack();
    // Returns whether a function was set and called.
    bool RaiseEvent(int nEvent, uint32_t dwSessionId, void* pData, int nLen);

    uint32_t GetCurrSessionNums();
    uint32_t GetMaxsessionNums();

  private:
    template <class T>
    friend class CNeverDestroyed;

    // The references to a registered session.
    struct CReferences {
        int32_t nCount = 1;
        bool bRegistry = true;   // the registry's own one is among them
        bool bFileData = false;  // one that is never given back, see SendFileStream, is among them
    };

    // Sessions that were refused because the registry was full. They continue until their client
    // leaves.
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
    bool m_bStopped GUARDED_BY(m_Mutex) = false;       // there is no accept thread that sweeps
    pRtspServerEventCallBack m_pEventCallBack GUARDED_BY(m_Mutex) = nullptr;
    void* m_pEventUserData GUARDED_BY(m_Mutex) = nullptr;
};

#endif
