// SPDX-License-Identifier: MIT
// Waiting for descriptors.
#include <cerrno>

#include "cbb.h"

namespace {

// The wall clock may be set back while a poll waits; that must not make the wait longer.
uint64_t ElapsedSince(uint64_t nStart) {
    const uint64_t nNow = CBB_GetTimeTick();
    return nNow > nStart ? nNow - nStart : 0;
}

int TimeLeft(int iTimeO, uint64_t nElapsed) {
    if (iTimeO <= 0 || nElapsed >= static_cast<uint64_t>(iTimeO)) {
        return 0;
    }
    return iTimeO - static_cast<int>(nElapsed);
}

}  // namespace

int32_t CBB_Select(int iCount, fd_set* pRead, fd_set* pWrite, fd_set* pError,
                   const struct timeval* pTimeOut) {
    if (pTimeOut == nullptr) {
        return select(iCount, pRead, pWrite, pError, nullptr);
    }
    timeval timeOut = *pTimeOut;  // select writes the remaining time to its argument
    return select(iCount, pRead, pWrite, pError, &timeOut);
}

int32_t CBB_SelectEx(int iCount, fd_set* pRead, fd_set* pWrite, fd_set* pError,
                     struct timeval* pTimeOut) {
    return select(iCount, pRead, pWrite, pError, pTimeOut);
}

int32_t CBB_FdIsSet(CBB_SOCK_T iSockFd, const fd_set* pSet) {
    if (pSet == nullptr || iSockFd < 0 || iSockFd >= FD_SETSIZE) {
        return 0;
    }
    return FD_ISSET(iSockFd, pSet) ? 1 : 0;
}

int32_t CBB_Poll(struct pollfd* pFds, int iFds, int iTimeO) {
    return poll(pFds, static_cast<nfds_t>(iFds), iTimeO);
}

int32_t CBB_PollEx(struct pollfd* pFds, int iFds, int* piTimeO) {
    if (piTimeO == nullptr || *piTimeO < 0) {  // for poll, every negative time is unlimited
        int nResult = 0;
        do {
            nResult = CBB_Poll(pFds, iFds, -1);
        } while (nResult < 0 && errno == EINTR);
        return nResult;
    }
    for (;;) {
        const uint64_t nStart = CBB_GetTimeTick();
        const int nResult = CBB_Poll(pFds, iFds, *piTimeO);
        const bool bInterrupted = nResult < 0 && errno == EINTR;
        // After a time-out the remaining time is 0, also when the clock was set back.
        *piTimeO = nResult == 0 ? 0 : TimeLeft(*piTimeO, ElapsedSince(nStart));
        if (!bInterrupted) {
            return nResult;
        }
    }
}
