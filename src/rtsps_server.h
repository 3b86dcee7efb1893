// SPDX-License-Identifier: MIT
#ifndef RTSPS_SERVER_H
#define RTSPS_SERVER_H

#include <cstdint>
#include <map>
#include <memory>

#include "rtsps_server_api.h"
#include "rtsps_thread_safety.h"

class CNet_PortPool;
class CRtspListener;

// The server: configuration, listener, data ports, and the streams that the host has declared.
// Every operation may be called from any thread.
//
// Locks: m_mutexStartStop serialises Start and Stop and is taken before m_Mutex, which guards the
// fields. The port pool's lock is taken inside m_Mutex. Stop never waits while it holds m_Mutex,
// because the accept thread and the session threads, for which it waits, take m_Mutex too.
class CRtspServer {
  public:
    static CRtspServer* Instance();

    CRtspServer(const CRtspServer&) = delete;
    CRtspServer& operator=(const CRtspServer&) = delete;

    int Init(const TRtspServerPara* pPara);
    int Release();
    int Start();
    int Stop();

    int SetStreamInfo(int nChan, int nStreamType, const TRtspServerStreamInfo* pPara);
    // Copies the stored record to `pPara` and returns 0. Without a record, returns -1 and leaves
    // `pPara` unchanged.
    int GetStreamInfo(int nChan, int nStreamType, TRtspServerStreamInfo* pPara);
    int GetPara(TRtspServerPara* pPara);

    // Returns the first port of a free pair, or 0.
    int BorrowDataPort();
    int GivebackDataPort(int port);
    uint32_t FreeDataPorts() const;  // pairs that are free now; 0 when not started

  private:
    template <class T>
    friend class CNeverDestroyed;

    CRtspServer();
    ~CRtspServer();

    const char* create_parts() REQUIRES(m_Mutex);

    CMutex m_mutexStartStop ACQUIRED_BEFORE(m_Mutex);
    mutable CMutex m_Mutex;
    int32_t m_nInitRef GUARDED_BY(m_Mutex) = 0;
    bool m_bStarted GUARDED_BY(m_Mutex) = false;
    std::unique_ptr<CRtspListener> m_pListener GUARDED_BY(m_Mutex);  // null when not started
    std::unique_ptr<CNet_PortPool> m_pPortQueue GUARDED_BY(m_Mutex) PT_GUARDED_BY(m_Mutex);
    TRtspServerPara m_stuPara GUARDED_BY(m_Mutex){};
    std::map<uint64_t, tagRtspServerStreamInfo> m_mapStreamInfo GUARDED_BY(m_Mutex);
};

#endif
