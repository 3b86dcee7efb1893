// SPDX-License-Identifier: MIT
// Sockets: creating, closing, options, and sending and receiving with a time limit.
#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "cbb.h"

namespace {

constexpr int POLL_FOREVER = -1;

int PollTime(uint32_t nTimeOut) {
    if (nTimeOut == CBB_INFINITE) {
        return POLL_FOREVER;
    }
    return nTimeOut > INT_MAX ? INT_MAX : static_cast<int>(nTimeOut);
}

const sockaddr* SysAddr(const CBB_ADDR_T* pAddr) {
    return reinterpret_cast<const sockaddr*>(pAddr);
}

sockaddr* SysAddr(CBB_ADDR_T* pAddr) {
    return reinterpret_cast<sockaddr*>(pAddr);
}

socklen_t AddrLength(const CBB_ADDR_T* pAddr) {
    return pAddr->SA.sin4.sin_family == AF_INET ? sizeof(sockaddr_in) : sizeof(CBB_ADDR_T);
}

template <typename T>
int32_t SetOption(CBB_SOCK_T iSockFd, int nLevel, int nOption, const T& value) {
    return setsockopt(iSockFd, nLevel, nOption, &value, sizeof(value));
}

int32_t GetIntOption(CBB_SOCK_T iSockFd, int nLevel, int nOption, int* pValue) {
    socklen_t nLength = sizeof(*pValue);
    return getsockopt(iSockFd, nLevel, nOption, pValue, &nLength);
}

int32_t FailWith(int nError) {
    errno = nError;
    return -1;
}

bool WouldBlock() {
    return errno == EAGAIN || errno == EWOULDBLOCK;
}

// A host that has closed its standard streams may still print to their descriptors, and so does the
// log of this library. A socket with one of these numbers would send that text to its peer.
CBB_SOCK_T AboveStandardStreams(CBB_SOCK_T iSockFd) {
    if (iSockFd < 0 || iSockFd > STDERR_FILENO) {
        return iSockFd;
    }
    const CBB_SOCK_T moved = fcntl(iSockFd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    CBB_CloseSocket(iSockFd, 0);
    return moved;
}

enum class EWait { READY, TIMED_OUT, FAILED };

// Waits for one event and reduces the remaining time. A poll that reports only an error or a
// hang-up counts as failed, because each further poll would return at once with the same result.
EWait WaitFor(CBB_SOCK_T iSockFd, short nEvent, int* piTimeO) {
    if (iSockFd < 0 && *piTimeO == POLL_FOREVER) {  // poll ignores it and would wait forever
        errno = EBADF;
        return EWait::FAILED;
    }
    pollfd fds = {iSockFd, nEvent, 0};
    const int nResult = CBB_PollEx(&fds, 1, piTimeO);
    if (nResult == 0) {
        return EWait::TIMED_OUT;
    }
    return nResult > 0 && (fds.revents & nEvent) != 0 ? EWait::READY : EWait::FAILED;
}

int32_t FinishConnect(CBB_SOCK_T iSockFd, uint32_t nTimeOut) {
    int iTimeO = PollTime(nTimeOut);
    pollfd fds = {iSockFd, POLLWRNORM, 0};
    const int nResult = CBB_PollEx(&fds, 1, &iTimeO);
    if (nResult < 0) {
        const int nSystemError = GetSystemLastError();
        printf("CBB_ConnectWithTimeOut select/poll return error, %d, Error\n", nSystemError);
        return FailWith(nSystemError);
    }
    if (nResult == 0 || (fds.revents & POLLWRNORM) == 0) {
        return -1;
    }
    int nError = 0;
    if (GetIntOption(iSockFd, SOL_SOCKET, SO_ERROR, &nError) != 0) {
        nError = errno;
    }
    if (nError != 0) {
        // Kept (hosts): [connect-error-text] this prints the system's error number, not the
        // socket's pending error. Callers find the latter in errno.
        printf("CBB_ConnectWithTimeOut getsockopt !iError return error, %d, Error\n",
               GetSystemLastError());
        return FailWith(nError);
    }
    return 0;
}

int32_t ChangeMembership(CBB_SOCK_T iSockFd, const CBB_ADDR_T* pLocal, const CBB_ADDR_T* pGroup,
                         int nOption4, int nOption6) {
    if (pLocal == nullptr || pGroup == nullptr) {
        return FailWith(EINVAL);
    }
    if (pGroup->SA.sin4.sin_family == AF_INET) {
        ip_mreq request = {};
        request.imr_multiaddr = pGroup->SA.sin4.sin_addr;
        request.imr_interface = pLocal->SA.sin4.sin_addr;
        return SetOption(iSockFd, IPPROTO_IP, nOption4, request);
    }
    if (pGroup->SA.sin4.sin_family == AF_INET6) {
        ipv6_mreq request = {};
        request.ipv6mr_multiaddr = pGroup->SA.sin6.sin6_addr;
        // Kept (hosts): [multicast-interface] the interface index is read from the flow-label word,
        // not from sin6_scope_id.
        request.ipv6mr_interface = pGroup->SA.sin6.sin6_flowinfo;
        return SetOption(iSockFd, IPPROTO_IPV6, nOption6, request);
    }
    return FailWith(EAFNOSUPPORT);
}

}  // namespace

int GetSystemLastError(void) {
    return errno;
}

int32_t CBB_InitNetwork_Inter(void) {
    struct sigaction action = {};
    action.sa_handler = SIG_IGN;
    // Kept (hosts): [sigpipe] the whole process ignores SIGPIPE from now on. CBB_FiniNetwork_Inter
    // does not undo it.
    (void)sigaction(SIGPIPE, &action, nullptr);
    return 0;
}

int32_t CBB_FiniNetwork_Inter(void) {
    return 0;
}

CBB_SOCK_T CBB_CreateSocket(int iDomain, int iType, int iProtocol) {
    return AboveStandardStreams(socket(iDomain, iType | SOCK_CLOEXEC, iProtocol));
}

int32_t CBB_CloseSocket(CBB_SOCK_T iSockFd, int bForce) {
    // Sockets are mostly closed after a failure, and callers read its error number afterwards.
    const int nError = errno;
    if (bForce != 0) {
        (void)shutdown(iSockFd, SHUT_RDWR);
    }
    const int nResult = close(iSockFd);
    if (nResult == 0) {
        errno = nError;
    }
    return nResult;
}

int32_t CBB_ShutDown(CBB_SOCK_T iSockFd, int iHow) {
    return shutdown(iSockFd, iHow);
}

int32_t CBB_Bind(CBB_SOCK_T iSockFd, const CBB_ADDR_T* pCBBAddr) {
    if (pCBBAddr == nullptr) {
        return FailWith(EINVAL);
    }
    return bind(iSockFd, SysAddr(pCBBAddr), AddrLength(pCBBAddr));
}

int32_t CBB_Listen(CBB_SOCK_T iSockFd, int iBackLog) {
    return listen(iSockFd, iBackLog);
}

CBB_SOCK_T CBB_Accept(CBB_SOCK_T iSockFd, CBB_ADDR_T* pCBBAddr, uint32_t nTimeOut) {
    int iTimeO = PollTime(nTimeOut);
    if (iTimeO != POLL_FOREVER && WaitFor(iSockFd, POLLRDNORM, &iTimeO) != EWait::READY) {
        return -1;
    }
    if (pCBBAddr == nullptr) {
        return AboveStandardStreams(accept4(iSockFd, nullptr, nullptr, SOCK_CLOEXEC));
    }
    socklen_t nLength = sizeof(*pCBBAddr);
    return AboveStandardStreams(accept4(iSockFd, SysAddr(pCBBAddr), &nLength, SOCK_CLOEXEC));
}

int32_t CBB_ConnectWithTimeOut(CBB_SOCK_T iSockFd, const CBB_ADDR_T* pCBBAddr, uint32_t nTimeOut) {
    if (pCBBAddr == nullptr) {
        return FailWith(EINVAL);
    }
    if (nTimeOut == CBB_INFINITE) {
        // Kept (hosts): [connect-ipv4-length] the length is always that of IPv4, so an IPv6 connect
        // needs a limited time-out.
        return connect(iSockFd, SysAddr(pCBBAddr), sizeof(sockaddr_in));
    }
    (void)CBB_SetNonBlock(iSockFd, 1);
    // Kept (hosts): [connect-result-unread] the immediate result of connect is ignored. The state
    // of the socket after the wait decides.
    (void)connect(iSockFd, SysAddr(pCBBAddr), AddrLength(pCBBAddr));
    const int32_t nResult = FinishConnect(iSockFd, nTimeOut);
    const int nError = errno;
    // Kept (hosts): [connect-leaves-blocking] the socket is blocking afterwards, also when it was
    // non-blocking before.
    (void)CBB_SetNonBlock(iSockFd, 0);
    errno = nError;
    return nResult;
}

int32_t CBB_JoinMultiCastGroup(CBB_SOCK_T iSockFd, const CBB_ADDR_T* pLocal,
                               const CBB_ADDR_T* pMcastGroupAddr) {
    return ChangeMembership(iSockFd, pLocal, pMcastGroupAddr, IP_ADD_MEMBERSHIP,
                            IPV6_ADD_MEMBERSHIP);
}

int32_t CBB_LeaveMultiCastGroup(CBB_SOCK_T iSockFd, const CBB_ADDR_T* pLocal,
                                const CBB_ADDR_T* pMcastGroupAddr) {
    return ChangeMembership(iSockFd, pLocal, pMcastGroupAddr, IP_DROP_MEMBERSHIP,
                            IPV6_DROP_MEMBERSHIP);
}

int32_t CBB_SetNonBlock(CBB_SOCK_T iSockFd, int bYesNo) {
    const int nFlags = fcntl(iSockFd, F_GETFL, 0);
    if (nFlags < 0) {
        return -1;
    }
    const int nNew = bYesNo != 0 ? nFlags | O_NONBLOCK : nFlags & ~O_NONBLOCK;
    return fcntl(iSockFd, F_SETFL, nNew) < 0 ? -1 : 0;
}

int32_t CBB_SetTTL(CBB_SOCK_T iSockFd, int iTTL) {
    return SetOption(iSockFd, IPPROTO_IP, IP_TTL, iTTL);
}

int32_t CBB_SetMultiCastTTL(CBB_SOCK_T iSockFd, int iTTL) {
    return SetOption(iSockFd, IPPROTO_IP, IP_MULTICAST_TTL, iTTL);
}

int32_t CBB_GetTTL(CBB_SOCK_T iSockFd, int* pTTL) {
    if (pTTL == nullptr) {
        return FailWith(EFAULT);
    }
    // The buffer has the 8 bytes of the length that is passed; the system fills the first four.
    int values[2] = {};
    socklen_t nLength = sizeof(values);
    const int nResult = getsockopt(iSockFd, IPPROTO_IP, IP_TTL, values, &nLength);
    if (nResult == 0) {
        *pTTL = values[0];
    }
    return nResult;
}

int32_t CBB_SetTOS(CBB_SOCK_T iSockFd, int iTOS) {
    return SetOption(iSockFd, IPPROTO_IP, IP_TOS, iTOS);
}

int32_t CBB_GetTOS(CBB_SOCK_T iSockFd, int* pTOS) {
    // Kept (hosts): [tos-reads-ttl] this reads the time to live, not the type of service.
    return CBB_GetTTL(iSockFd, pTOS);
}

int32_t CBB_SetReuseAddr(CBB_SOCK_T iSockFd, int bReuse) {
    return SetOption(iSockFd, SOL_SOCKET, SO_REUSEADDR, bReuse);
}

int32_t CBB_SetTimeOut(CBB_SOCK_T iSockFd, int iSndTimeO, int iRcvTimeO) {
    // Kept (hosts): [time-outs-crossed] each limit is set from the value of the other, and the
    // remaining milliseconds are stored as microseconds. Equal values in whole seconds hide both.
    int32_t nResult = 0;
    if (iRcvTimeO != 0) {
        const timeval timeOut = {iSndTimeO / 1000, iSndTimeO % 1000};
        nResult |= SetOption(iSockFd, SOL_SOCKET, SO_RCVTIMEO, timeOut);
    }
    if (iSndTimeO != 0) {
        const timeval timeOut = {iRcvTimeO / 1000, iRcvTimeO % 1000};
        nResult |= SetOption(iSockFd, SOL_SOCKET, SO_SNDTIMEO, timeOut);
    }
    return nResult;
}

int32_t CBB_LingerOff(CBB_SOCK_T iSockFd) {
    return SetOption(iSockFd, SOL_SOCKET, SO_LINGER, linger{0, 0});
}

int32_t CBB_LingerOn(CBB_SOCK_T iSockFd, uint16_t nTimeOutSec) {
    return SetOption(iSockFd, SOL_SOCKET, SO_LINGER, linger{1, nTimeOutSec});
}

int32_t CBB_SetNoDelay(CBB_SOCK_T iSockFd, int bNoDelay) {
    return SetOption(iSockFd, IPPROTO_TCP, TCP_NODELAY, bNoDelay);
}

int32_t CBB_BroadCast(CBB_SOCK_T iSockFd) {
    return SetOption(iSockFd, SOL_SOCKET, SO_BROADCAST, 1);
}

int32_t CBB_SetBuffSize(CBB_SOCK_T iSockFd, int iSndBuffSize, int iRcvBuffSize) {
    int32_t nResult = 0;
    if (iRcvBuffSize != 0) {
        nResult |= SetOption(iSockFd, SOL_SOCKET, SO_RCVBUF, iRcvBuffSize);
    }
    if (iSndBuffSize != 0) {
        nResult |= SetOption(iSockFd, SOL_SOCKET, SO_SNDBUF, iSndBuffSize);
    }
    return nResult;
}

int32_t CBB_GetBuffSize(CBB_SOCK_T iSockFd, int* pSndBuffSize, int* pRcvBuffSize) {
    int32_t nResult = 0;
    if (pRcvBuffSize != nullptr) {
        nResult |= GetIntOption(iSockFd, SOL_SOCKET, SO_RCVBUF, pRcvBuffSize);
    }
    if (pSndBuffSize != nullptr) {
        nResult |= GetIntOption(iSockFd, SOL_SOCKET, SO_SNDBUF, pSndBuffSize);
    }
    return nResult;
}

int32_t CBB_Send(CBB_SOCK_T iSockFd, const void* pBuf, int iBufLen) {
    // The system would read a negative length as a very large one, here and below.
    if (iBufLen < 0) {
        return FailWith(EINVAL);
    }
    return static_cast<int32_t>(send(iSockFd, pBuf, static_cast<size_t>(iBufLen), 0));
}

int32_t CBB_Recv(CBB_SOCK_T iSockFd, void* pBuf, int iBufLen) {
    if (iBufLen < 0) {
        return FailWith(EINVAL);
    }
    return static_cast<int32_t>(recv(iSockFd, pBuf, static_cast<size_t>(iBufLen), 0));
}

int32_t CBB_SendTo(CBB_SOCK_T iSockFd, const void* pBuf, int iBufLen, const CBB_ADDR_T* pCBBAddr) {
    if (iBufLen < 0 || pCBBAddr == nullptr) {
        return FailWith(EINVAL);
    }
    return static_cast<int32_t>(sendto(iSockFd, pBuf, static_cast<size_t>(iBufLen), 0,
                                       SysAddr(pCBBAddr), AddrLength(pCBBAddr)));
}

int32_t CBB_RecvFrom(CBB_SOCK_T iSockFd, void* pBuf, int iBufLen, CBB_ADDR_T* pCBBAddr) {
    if (iBufLen < 0) {
        return FailWith(EINVAL);
    }
    socklen_t nLength = sizeof(*pCBBAddr);
    return static_cast<int32_t>(recvfrom(iSockFd, pBuf, static_cast<size_t>(iBufLen), 0,
                                         SysAddr(pCBBAddr),
                                         pCBBAddr == nullptr ? nullptr : &nLength));
}

// Kept (hosts): [sendn-never-negative] the result is the number of bytes sent, never -1, also after
// an error. Callers compare it with the length.
int32_t CBB_Sendn(CBB_SOCK_T iSockFd, const void* pBuf, int iBufLen, uint32_t nTimeOut) {
    const char* pData = static_cast<const char*>(pBuf);
    int iTimeO = PollTime(nTimeOut);
    int nSent = 0;
    while (nSent < iBufLen) {
        const EWait wait = WaitFor(iSockFd, POLLWRNORM, &iTimeO);
        if (wait == EWait::FAILED) {
            break;
        }
        if (wait == EWait::READY) {
            // On a blocking socket, a media push would wait here until the client has read it all.
            const ssize_t nResult =
                send(iSockFd, pData + nSent, static_cast<size_t>(iBufLen - nSent),
                     MSG_DONTWAIT | MSG_NOSIGNAL);
            if (nResult < 1 && (nResult == 0 || !WouldBlock())) {
                break;
            }
            nSent += nResult > 0 ? static_cast<int>(nResult) : 0;
        }
        if (iTimeO == 0) {
            break;
        }
    }
    return nSent;
}

// Kept (hosts): [recvn-partial] the result is -1 when the peer closes before the buffer is full,
// also when bytes have been received.
int32_t CBB_Recvn(CBB_SOCK_T iSockFd, void* pBuf, int iBufCount, uint32_t nTimeOut) {
    char* pData = static_cast<char*>(pBuf);
    int iTimeO = PollTime(nTimeOut);
    int nReceived = 0;
    while (nReceived < iBufCount) {
        const EWait wait = WaitFor(iSockFd, POLLRDNORM, &iTimeO);
        if (wait == EWait::FAILED) {
            return -1;
        }
        if (wait == EWait::READY) {
            // Non-blocking for the same reason: the time limit holds on any socket.
            const ssize_t nResult = recv(iSockFd, pData + nReceived,
                                         static_cast<size_t>(iBufCount - nReceived), MSG_DONTWAIT);
            if (nResult < 1 && (nResult == 0 || !WouldBlock())) {
                return -1;
            }
            nReceived += nResult > 0 ? static_cast<int>(nResult) : 0;
        }
        if (iTimeO == 0) {
            break;
        }
    }
    return nReceived;
}

int32_t CBB_RecvWithTimeOut(CBB_SOCK_T iSockFd, void* pBuf, int iBufLen, uint32_t nTimeOut) {
    if (iBufLen < 0) {
        return FailWith(EINVAL);
    }
    int iTimeO = PollTime(nTimeOut);
    if (WaitFor(iSockFd, POLLRDNORM, &iTimeO) != EWait::READY) {
        return -1;
    }
    const ssize_t nResult = recv(iSockFd, pBuf, static_cast<size_t>(iBufLen), MSG_DONTWAIT);
    return nResult < 1 ? -1 : static_cast<int32_t>(nResult);
}

int32_t CBB_Ioctl(CBB_SOCK_T iSockFd, unsigned long nRequest, uint32_t* pArg) {
    return ioctl(iSockFd, nRequest, pArg);
}
