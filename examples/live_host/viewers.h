// SPDX-License-Identifier: MIT
// Who watches: hears the server's events, prints a line for people, and asks for a key picture when
// a viewer comes that nobody shares the pictures with.
#ifndef LIVE_HOST_VIEWERS_H
#define LIVE_HOST_VIEWERS_H

#include <mutex>
#include <set>

#include "rtsps_server_api.h"

class CViewers {
  public:
    // Makes the descriptor that CueFd() names; -1 there when it could not be made.
    CViewers();
    ~CViewers();
    CViewers(const CViewers&) = delete;
    CViewers& operator=(const CViewers&) = delete;

    // For RTSPServer_SetEventCallBack; the user pointer is the CViewers, which outlives the server.
    static void OnEvent(int32_t nEvent, int32_t nSessionId, void* pData, int32_t nLen,
                        void* pUserData);

    // Becomes readable when a key picture is wanted at once.
    int CueFd() const { return m_cueFd; }
    // Takes the wish back, now that it is known.
    void TakeCue() const;

  private:
    void Plays(int32_t nSessionId);
    void Gone(int32_t nSessionId);

    int m_cueFd;
    std::mutex m_mutex;  // events come on the clients' threads
    std::set<int32_t> m_playing;
};

#endif
