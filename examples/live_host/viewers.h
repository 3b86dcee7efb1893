// SPDX-License-Identifier: MIT
// The viewers of the host. Handles the server's events and prints a line for each viewer. Requests
// a key picture when a viewer starts to play and is the only one.
#ifndef LIVE_HOST_VIEWERS_H
#define LIVE_HOST_VIEWERS_H

#include <mutex>
#include <set>

#include "rtsps_server_api.h"

class CViewers {
  public:
    // Creates the descriptor that CueFd() returns; -1 when it could not be created.
    CViewers();
    ~CViewers();
    CViewers(const CViewers&) = delete;
    CViewers& operator=(const CViewers&) = delete;

    // For RTSPServer_SetEventCallBack; the user pointer is the CViewers, which outlives the server.
    static void OnEvent(int32_t nEvent, int32_t nSessionId, void* pData, int32_t nLen,
                        void* pUserData);

    // Becomes readable when a viewer needs a key picture at once.
    int CueFd() const { return m_cueFd; }
    // Resets CueFd() after the caller has read the request.
    void TakeCue() const;

  private:
    void Plays(int32_t nSessionId);
    void Gone(int32_t nSessionId);

    int m_cueFd;
    std::mutex m_mutex;  // events come on the clients' threads
    std::set<int32_t> m_playing;
};

#endif
