/* SPDX-License-Identifier: MIT */
/*
 * The platform layer: endpoint addresses, sockets, waiting, threads, semaphores, time and text.
 *
 * Unless a function says otherwise:
 * - it returns 0 for success and -1 for failure; after a failed socket or semaphore call the
 *   system's error number is in errno, which GetSystemLastError() returns too;
 * - it may be called at any time and from any thread, keeps no state, and does not block;
 * - pointers must not be null, belong to the caller, and are not kept after the call;
 * - ports are in host byte order, IPv4 addresses in network byte order;
 * - time-outs are in milliseconds. They are measured with the wall clock: setting it forward
 *   shortens a wait, setting it back costs one more round of the wait at most.
 */
#ifndef CBB_H
#define CBB_H

#include <netinet/in.h>
#include <poll.h>
#include <semaphore.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>

#ifndef RTSPS_EXPORT
#define RTSPS_EXPORT __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* A socket descriptor; -1 is none. */
typedef int CBB_SOCK_T;

/* A thread; CBB_INVALID_HANDLE is none. */
typedef void* CBB_HANDLE;

/* A thread's function: takes the Params it was created with; its result is dropped. */
typedef void* (*CBB_THREAD_FUNC)(void*);

/* The handle with all bits set: there is no thread. */
#ifdef __cplusplus
#define CBB_INVALID_HANDLE (reinterpret_cast<CBB_HANDLE>(static_cast<intptr_t>(-1)))
#else
#define CBB_INVALID_HANDLE ((CBB_HANDLE)(intptr_t)-1)
#endif

/* An nTimeOut without limit. Any other nTimeOut above INT_MAX counts as INT_MAX (24 days). */
#define CBB_INFINITE 0xFFFFFFFFu

typedef struct sockaddr_in6 sockaddr_in6_cbb;

/*
 * One IPv4 or IPv6 endpoint, laid out as the system's socket addresses: the family (AF_INET or
 * AF_INET6) first, then the port in network byte order. Socket calls pass the IPv4 length for
 * AF_INET and the size of the whole record for every other family.
 */
typedef struct tagCBB_ADDR_T {
    union {
        struct sockaddr_in sin4;
        sockaddr_in6_cbb sin6;
    } SA;
} CBB_ADDR_T;

/* The parts of an endpoint, unpacked. */
typedef struct tagCBB_ADDR_EXP_T {
    int32_t iAf; /* address family */
    union {
        uint32_t nAddr4;    /* IPv4, network byte order */
        uint8_t nAddr6[16]; /* any other family */
    } ADDR;
    uint16_t nPort;     /* host byte order */
    uint16_t nReserved; /* never written */
} CBB_ADDR_EXP_T;

/* ---- Addresses ---- */

/*
 * Makes an endpoint from text.
 * nFamily: AF_INET or AF_INET6. szAddr: the address; null makes the wildcard address.
 * IPv4 text may use the shorter classic forms ("127.1"). IPv6 text is read by rules of its own: a
 * leading "::" is not expanded ("::1" gives 1::), missing groups at the end are zero ("1:2" gives
 * 1:2::), and a wrong last character is ignored.
 * Returns 0, or -1 for a null record, another family or a text that is no address. 255.255.255.255
 * counts as no address. After -1 for an IPv4 text the address field holds all ones; family and
 * port are written on success only.
 */
RTSPS_EXPORT int32_t CBB_MakeAddrByString(int32_t nFamily, const char* szAddr, uint16_t nPort,
                                          CBB_ADDR_T* pAddr);

/* Makes an IPv4 endpoint; nAddr is in network byte order. Returns -1 for a null record only. */
RTSPS_EXPORT int32_t CBB_MakeAddr4ByInt(uint32_t nAddr, uint16_t nPort, CBB_ADDR_T* pAddr);

/* Makes an IPv6 endpoint from 16 address bytes. Returns -1 for a null record only. */
RTSPS_EXPORT int32_t CBB_MakeAddr6ByInt(const uint8_t* pAddr6, uint16_t nPort, CBB_ADDR_T* pAddr);

/*
 * Copies nLength raw bytes over the beginning of a record; what is longer than the record is cut.
 * Returns 0, or -1, with nothing written, when a pointer is null or nLength is 0.
 */
RTSPS_EXPORT int32_t CBB_MakeAddr(const void* pBytes, uint32_t nLength, CBB_ADDR_T* pAddr);

/* Sets the port. Returns -1 for a null record. */
RTSPS_EXPORT int32_t CBB_SetAddrPort(CBB_ADDR_T* pAddr, uint16_t nPort);

/* Returns the family, or -1 for a null record. */
RTSPS_EXPORT int32_t CBB_GetAddrType(const CBB_ADDR_T* pAddr);

/*
 * Returns the address as text without the port, or null for a null record, another family or an
 * IPv6 address that CBB_InetNtop cannot print. The text belongs to the calling thread and is valid
 * until that thread's next call.
 */
RTSPS_EXPORT const char* CBB_GetAddrString(const CBB_ADDR_T* pAddr);

/* Returns the port, or 0 for a null record. */
RTSPS_EXPORT uint16_t CBB_GetAddrPort(const CBB_ADDR_T* pAddr);

/* Stores the IPv4 address in network byte order. Returns -1 unless the record is IPv4. */
RTSPS_EXPORT int32_t CBB_GetAddr4Int(const CBB_ADDR_T* pAddr, uint32_t* pAddr4);

/*
 * Stores the 16 bytes of the IPv6 address field. Returns -1 for a null or an IPv4 record; every
 * other family is read, also that of a record without one.
 */
RTSPS_EXPORT int32_t CBB_GetAddr6Int(const CBB_ADDR_T* pAddr, uint8_t* pAddr6);

/* Unpacks a record; nReserved is left alone. Returns -1 when a pointer is null. */
RTSPS_EXPORT int32_t CBB_GetAddrInfo(const CBB_ADDR_T* pAddr, CBB_ADDR_EXP_T* pInfo);

/*
 * Fills in the two ends of a socket; either record may be null. The peer is asked first: when that
 * fails, pLocal is not filled. Returns -1 when both are null or the system refuses.
 */
RTSPS_EXPORT int32_t CBB_GetAddrBySockFd(CBB_SOCK_T iSockFd, CBB_ADDR_T* pLocal, CBB_ADDR_T* pPeer);

/*
 * Reads a dotted quad into 4 bytes; leading zeros are decimal. Returns -1, with nothing written,
 * when a pointer is null or the text is anything else.
 */
RTSPS_EXPORT int32_t CBB_InetPton(const char* szText, void* pAddr4);

/*
 * Prints an address. pAddr: 4 bytes for AF_INET, 16 for AF_INET6, network byte order.
 * nSize: for AF_INET the characters WITHOUT the terminating NUL, so szOut must hold nSize + 1
 * bytes; for AF_INET6 the size of szOut, NUL included.
 * Returns szOut, or null when a pointer is null, nSize is 0, the family is another one or the text
 * does not fit. An IPv6 address with an embedded IPv4 address whose dotted form is longer than 8
 * characters ("::ffff:192.168.1.10") never fits.
 */
RTSPS_EXPORT const char* CBB_InetNtop(int32_t nFamily, const void* pAddr, char* szOut,
                                      int32_t nSize);

/* ---- Sockets ---- */

/* Returns errno of the calling thread. */
RTSPS_EXPORT int GetSystemLastError(void);

/*
 * Makes the whole process ignore SIGPIPE, so that sending to a peer that has gone is an error and
 * not the end of the process. Always 0.
 */
RTSPS_EXPORT int32_t CBB_InitNetwork_Inter(void);

/* Does nothing; the signal stays ignored. Always 0. */
RTSPS_EXPORT int32_t CBB_FiniNetwork_Inter(void);

/* Creates a socket as the system's socket() does, close-on-exec. Returns it, or -1. */
RTSPS_EXPORT CBB_SOCK_T CBB_CreateSocket(int iDomain, int iType, int iProtocol);

/*
 * Closes a socket; with bForce not 0 both directions are shut down first, which wakes every thread
 * that waits on it. Closing alone wakes nobody. A close that succeeds leaves errno as it was.
 */
RTSPS_EXPORT int32_t CBB_CloseSocket(CBB_SOCK_T iSockFd, int bForce);

/* iHow: SHUT_RD, SHUT_WR or SHUT_RDWR. */
RTSPS_EXPORT int32_t CBB_ShutDown(CBB_SOCK_T iSockFd, int iHow);

/* Binds to an endpoint. Returns -1 for a null record or when the system refuses. */
RTSPS_EXPORT int32_t CBB_Bind(CBB_SOCK_T iSockFd, const CBB_ADDR_T* pCBBAddr);

/* Starts listening; iBackLog connections may wait to be accepted. */
RTSPS_EXPORT int32_t CBB_Listen(CBB_SOCK_T iSockFd, int iBackLog);

/*
 * Takes one connection, close-on-exec, within nTimeOut ms. pCBBAddr: receives the peer, or null.
 * CBB_INFINITE accepts directly: it blocks if the socket does.
 * Returns the new descriptor, or -1 on a time-out, an error, or a listening socket that was shut
 * down.
 */
RTSPS_EXPORT CBB_SOCK_T CBB_Accept(CBB_SOCK_T iSockFd, CBB_ADDR_T* pCBBAddr, uint32_t nTimeOut);

/*
 * Connects within nTimeOut ms. The socket is blocking afterwards, whatever it was before.
 * CBB_INFINITE connects directly, for IPv4 only, and leaves the blocking mode alone. With a limit,
 * an error that the system reports at once (no route, for example) is not seen: the result is what
 * the socket says after the wait.
 * Returns 0, or -1 for a null record, a time-out or a failed connection; the latter prints one line
 * to standard output and leaves its cause in errno.
 */
RTSPS_EXPORT int32_t CBB_ConnectWithTimeOut(CBB_SOCK_T iSockFd, const CBB_ADDR_T* pCBBAddr,
                                            uint32_t nTimeOut);

/*
 * Joins or leaves a multicast group. The group's family decides: for IPv4 the interface is the one
 * with pLocal's address, for IPv6 the one whose index is in the group record's sin6_flowinfo.
 * Returns -1 for a null record, another family, or when the system refuses.
 */
RTSPS_EXPORT int32_t CBB_JoinMultiCastGroup(CBB_SOCK_T iSockFd, const CBB_ADDR_T* pLocal,
                                            const CBB_ADDR_T* pMcastGroupAddr);
RTSPS_EXPORT int32_t CBB_LeaveMultiCastGroup(CBB_SOCK_T iSockFd, const CBB_ADDR_T* pLocal,
                                             const CBB_ADDR_T* pMcastGroupAddr);

/* bYesNo: not 0 makes the descriptor non-blocking, 0 blocking. */
RTSPS_EXPORT int32_t CBB_SetNonBlock(CBB_SOCK_T iSockFd, int bYesNo);

/* Hops of an IPv4 socket's unicast and multicast packets, and its type-of-service byte. */
RTSPS_EXPORT int32_t CBB_SetTTL(CBB_SOCK_T iSockFd, int iTTL);
RTSPS_EXPORT int32_t CBB_SetMultiCastTTL(CBB_SOCK_T iSockFd, int iTTL);
RTSPS_EXPORT int32_t CBB_SetTOS(CBB_SOCK_T iSockFd, int iTOS);

/* Both read the TTL; there is no way to read the type of service. pTOS and pTTL: -1 when null. */
RTSPS_EXPORT int32_t CBB_GetTTL(CBB_SOCK_T iSockFd, int* pTTL);
RTSPS_EXPORT int32_t CBB_GetTOS(CBB_SOCK_T iSockFd, int* pTOS);

/* bReuse: not 0 turns SO_REUSEADDR on. */
RTSPS_EXPORT int32_t CBB_SetReuseAddr(CBB_SOCK_T iSockFd, int bReuse);

/*
 * Sets the time limits of plain sends and receives. The values cross over: iRcvTimeO not 0 sets
 * the receive limit to iSndTimeO, iSndTimeO not 0 sets the send limit to iRcvTimeO. A limit is
 * value / 1000 seconds plus value % 1000 MICROseconds. Pass equal values, in whole seconds.
 * Returns -1 if either setting failed.
 */
RTSPS_EXPORT int32_t CBB_SetTimeOut(CBB_SOCK_T iSockFd, int iSndTimeO, int iRcvTimeO);

/* SO_LINGER off, or on with a number of seconds: closing may then block for that long. */
RTSPS_EXPORT int32_t CBB_LingerOff(CBB_SOCK_T iSockFd);
RTSPS_EXPORT int32_t CBB_LingerOn(CBB_SOCK_T iSockFd, uint16_t nTimeOutSec);

/* bNoDelay: not 0 turns TCP_NODELAY on. */
RTSPS_EXPORT int32_t CBB_SetNoDelay(CBB_SOCK_T iSockFd, int bNoDelay);

/* Allows sending to broadcast addresses. */
RTSPS_EXPORT int32_t CBB_BroadCast(CBB_SOCK_T iSockFd);

/* Buffer sizes in bytes; 0 leaves that buffer alone. Returns -1 if either setting failed. */
RTSPS_EXPORT int32_t CBB_SetBuffSize(CBB_SOCK_T iSockFd, int iSndBuffSize, int iRcvBuffSize);

/*
 * Buffer sizes in bytes as the system counts them (Linux: twice what was set); either pointer may
 * be null. Returns -1 if either reading failed.
 */
RTSPS_EXPORT int32_t CBB_GetBuffSize(CBB_SOCK_T iSockFd, int* pSndBuffSize, int* pRcvBuffSize);

/*
 * One send or receive. They block when the socket does. They return the number of bytes (0 from
 * CBB_Recv: the peer has closed), or -1, also for a negative length. CBB_SendTo refuses a null
 * record; CBB_RecvFrom stores the source in its record, which may be null.
 */
RTSPS_EXPORT int32_t CBB_Send(CBB_SOCK_T iSockFd, const void* pBuf, int iBufLen);
RTSPS_EXPORT int32_t CBB_Recv(CBB_SOCK_T iSockFd, void* pBuf, int iBufLen);
RTSPS_EXPORT int32_t CBB_SendTo(CBB_SOCK_T iSockFd, const void* pBuf, int iBufLen,
                                const CBB_ADDR_T* pCBBAddr);
RTSPS_EXPORT int32_t CBB_RecvFrom(CBB_SOCK_T iSockFd, void* pBuf, int iBufLen,
                                  CBB_ADDR_T* pCBBAddr);

/*
 * Sends all of iBufLen bytes within nTimeOut ms, or as many as go; blocks for no longer, whatever
 * the socket's mode. With nTimeOut 0 it sends once what the socket takes now. Never raises SIGPIPE.
 * Returns the number of bytes sent, 0 to iBufLen, never -1; 0 for a length of 0 and below. Fewer
 * than iBufLen mean a time-out or an error: what was sent cannot be taken back.
 */
RTSPS_EXPORT int32_t CBB_Sendn(CBB_SOCK_T iSockFd, const void* pBuf, int iBufLen,
                               uint32_t nTimeOut);

/*
 * Receives exactly iBufCount bytes within nTimeOut ms; blocks for no longer, whatever the socket's
 * mode.
 * Returns iBufCount, or fewer (0 too) when the time is over, or -1 when the peer closes or an error
 * comes first, even if some bytes had arrived; 0 for a count of 0 and below.
 */
RTSPS_EXPORT int32_t CBB_Recvn(CBB_SOCK_T iSockFd, void* pBuf, int iBufCount, uint32_t nTimeOut);

/*
 * Waits at most nTimeOut ms and receives once.
 * Returns the number of bytes, 1 or more; -1 for everything else: time-out, peer closed, error.
 */
RTSPS_EXPORT int32_t CBB_RecvWithTimeOut(CBB_SOCK_T iSockFd, void* pBuf, int iBufLen,
                                         uint32_t nTimeOut);

/* The system's ioctl() for requests that take an unsigned 32-bit argument. */
RTSPS_EXPORT int32_t CBB_Ioctl(CBB_SOCK_T iSockFd, unsigned long nRequest, uint32_t* pArg);

/* ---- Waiting for descriptors ---- */

/*
 * The system's select(); iCount is the highest descriptor plus one, every pointer may be null, a
 * null time-out waits without limit. CBB_Select leaves *pTimeOut alone; CBB_SelectEx leaves in it
 * what the system does (Linux: the time not slept), so set it anew before each call.
 * They return the number of ready descriptors, 0 on a time-out, or -1.
 */
RTSPS_EXPORT int32_t CBB_Select(int iCount, fd_set* pRead, fd_set* pWrite, fd_set* pError,
                                const struct timeval* pTimeOut);
RTSPS_EXPORT int32_t CBB_SelectEx(int iCount, fd_set* pRead, fd_set* pWrite, fd_set* pError,
                                  struct timeval* pTimeOut);

/* 1 if the descriptor is in the set; 0 if not, for a null set, or outside 0..FD_SETSIZE-1. */
RTSPS_EXPORT int32_t CBB_FdIsSet(CBB_SOCK_T iSockFd, const fd_set* pSet);

/* The system's poll(): iFds records, iTimeO in ms, negative without limit. */
RTSPS_EXPORT int32_t CBB_Poll(struct pollfd* pFds, int iFds, int iTimeO);

/*
 * poll() that goes on after an interruption by a signal.
 * piTimeO: in, the limit in ms; out, what is left of it, 0 or more. Null or below 0: no limit, and
 * the value is left alone. Returns what poll() does.
 */
RTSPS_EXPORT int32_t CBB_PollEx(struct pollfd* pFds, int iFds, int* piTimeO);

/* ---- Threads ---- */

/*
 * Starts a thread that must be joined with CBB_Thread_Wait.
 * Params: handed to StartAddress, may be null. StackSize: bytes, 0 for the system's default.
 * IsSuspend: ignored, the thread runs at once. Priority, SchedPolicy: must suit each other
 * (0 with SCHED_OTHER, 1 to 99 with SCHED_RR and SCHED_FIFO); the thread inherits its creator's
 * scheduling all the same, so no privilege is needed. The thread inherits the creator's signal
 * mask, too.
 * Returns the thread, or CBB_INVALID_HANDLE when an attribute is refused or no thread is to be had.
 */
RTSPS_EXPORT CBB_HANDLE CBB_Thread_Create(CBB_THREAD_FUNC StartAddress, void* Params,
                                          uint32_t StackSize, uint32_t IsSuspend, int Priority,
                                          int SchedPolicy);

/* Starts a thread that nobody joins. Returns 1 for success and 0 for failure. */
RTSPS_EXPORT int32_t CBB_ThreadDetached_Create(CBB_THREAD_FUNC StartAddress, void* Params,
                                               uint32_t StackSize);

/* Ends the calling thread. In C++ the stack is unwound; a catch-all handler must rethrow. */
RTSPS_EXPORT void CBB_Thread_Exit(void);

/*
 * Waits without limit until a thread has ended, and frees it; once per thread.
 * Returns -1 at once for CBB_INVALID_HANDLE, null and the calling thread itself.
 */
RTSPS_EXPORT int32_t CBB_Thread_Wait(CBB_HANDLE hThread);

/* Returns the calling thread. */
RTSPS_EXPORT CBB_HANDLE CBB_Thread_GetSelfId(void);

/* Not supported: always -2. */
RTSPS_EXPORT int32_t CBB_Thread_Suspend(CBB_HANDLE hThread);
RTSPS_EXPORT int32_t CBB_Thread_Resume(CBB_HANDLE hThread);

/*
 * Sets the priority within the running thread's policy; may need a privilege.
 * Returns -1 for CBB_INVALID_HANDLE, null, or when the system refuses.
 */
RTSPS_EXPORT int32_t CBB_Thread_SetPriority(CBB_HANDLE hThread, int iPriority);

/*
 * Tells whether a policy is one that the system knows; the running thread is not changed.
 * Returns 0 if so, -1 if not and for CBB_INVALID_HANDLE.
 */
RTSPS_EXPORT int32_t CBB_Thread_SetSchedPolicy(CBB_HANDLE hThread, int iPolicy);

/* ---- Semaphores: the system's, private to the process, in the caller's memory ---- */

/* Initialises a semaphore with a count. Like all of these, returns -1 for a null semaphore. */
RTSPS_EXPORT int32_t CBB_SemCreate(sem_t* pSem, uint32_t nInitValue);

/* Destroys a semaphore that nobody waits on any more. */
RTSPS_EXPORT int32_t CBB_SemDestroy(sem_t* pSem);

/* Takes one from the count; blocks without limit. -1 with EINTR when a signal handler ran. */
RTSPS_EXPORT int32_t CBB_SemWait(sem_t* pSem);

/* Adds one to the count, which wakes one waiter. */
RTSPS_EXPORT int32_t CBB_SemPost(sem_t* pSem);

/*
 * Takes one from the count; blocks for at most nTimeOut ms, 0 tries once. There is no value for
 * "without limit".
 * Returns -1 with ETIMEDOUT (EAGAIN for nTimeOut 0) when the count stayed 0, or with EINTR.
 */
RTSPS_EXPORT int32_t CBB_SemTimedWait(sem_t* pSem, uint32_t nTimeOut);

/* ---- Time ---- */

/*
 * Sleeps; a signal handler ends the sleep early. The milliseconds times 1000 are taken modulo 2^32,
 * so CBB_Sleep is good for 4294967 ms at most. CBB_USleep returns at once for 0 and below.
 */
RTSPS_EXPORT void CBB_Sleep(int iMilliSec);
RTSPS_EXPORT void CBB_USleep(long lMicroSec);

/* Milliseconds and microseconds since 1970, by the wall clock: they jump when it is set. */
RTSPS_EXPORT uint64_t CBB_GetTimeTick(void);
RTSPS_EXPORT uint64_t CBB_TimeNow(void);

/* ---- Text: byte by byte, ASCII letters only, whatever the locale ---- */

/*
 * Writes a number; szOut must have room for it (66 bytes are always enough).
 * iBase: 2 to 36, digits above 9 in lower case. Returns szOut, or null for a null buffer, another
 * base, or a negative value in a base other than 10.
 */
RTSPS_EXPORT char* CBB_Itoa(char* szOut, int iValue, int iBase);
RTSPS_EXPORT char* CBB_Ltoa(char* szOut, long lValue, int iBase);

/* CBB_StrToi32 and CBB_StrToi64 in base 10 without an end. */
RTSPS_EXPORT int32_t CBB_Atoi32(const char* szText);
RTSPS_EXPORT int64_t CBB_Atoi64(const char* szText);

/*
 * Read a number behind white space and an optional sign.
 * iBase: 2 to 16, or 0 to take it from the text ("0x" 16, "0" 8, else 10). A digit equal to the
 * base is accepted ("1a" in base 10 is 20). ppEnd: receives the first character behind the digits,
 * or szText when there is none; may be null.
 * They return the number; 0 for another base. Out of range, the 32-bit form returns the smallest or
 * largest int, the 64-bit form -1.
 */
RTSPS_EXPORT int32_t CBB_StrToi32(const char* szText, char** ppEnd, int iBase);
RTSPS_EXPORT int64_t CBB_StrToi64(const char* szText, char** ppEnd, int iBase);

/* Copies a text with its NUL; szDst must have room for it. Returns szDst. */
RTSPS_EXPORT char* CBB_Strcpy(char* szDst, const char* szSrc);

/*
 * Writes exactly nCount bytes: the text, then NULs. A text of nCount bytes and more is cut and NOT
 * terminated. Returns szDst.
 */
RTSPS_EXPORT char* CBB_Strncpy(char* szDst, const char* szSrc, size_t nCount);

/* Copy a text, of the second at most n bytes, to memory that the caller frees with free(). Null
 * when there is no memory. */
RTSPS_EXPORT char* CBB_Strdup(const char* szText);
RTSPS_EXPORT char* CBB_Strndup(const char* szText, size_t n);

/*
 * Compare two texts, or at most their first n bytes; the "case" forms without regard to case.
 * They return the difference of the first bytes that differ (unsigned; upper-cased in the "case"
 * forms), 0 for none.
 */
RTSPS_EXPORT int32_t CBB_Strcmp(const char* szA, const char* szB);
RTSPS_EXPORT int32_t CBB_Strncmp(const char* szA, const char* szB, size_t n);
RTSPS_EXPORT int32_t CBB_Strcasecmp(const char* szA, const char* szB);
RTSPS_EXPORT int32_t CBB_Strncasecmp(const char* szA, const char* szB, size_t n);

/* First position of a character, or null. The NUL is found in an empty text only. */
RTSPS_EXPORT char* CBB_Strchr(const char* szText, int c);

/* First position of a character among n bytes, or null; does not stop at a NUL. */
RTSPS_EXPORT char* CBB_Strnchr(const char* szText, int c, size_t n);

/* First position of szNeedle, or null. */
RTSPS_EXPORT char* CBB_Strstr(const char* szHaystack, const char* szNeedle);

/*
 * First position where n bytes equal the first n bytes of szNeedle, or null. n is NOT the length
 * of the text that is searched.
 */
RTSPS_EXPORT char* CBB_Strnstr(const char* szText, const char* szNeedle, size_t n);

/* First position of szNeedle without regard to case, or null; an empty needle is found at once. */
RTSPS_EXPORT char* CBB_Strcasestr(const char* szHaystack, const char* szNeedle);

#ifdef __cplusplus
}
static_assert(sizeof(CBB_ADDR_T) == 28, "CBB_ADDR_T is passed to the system with this size");
#else
_Static_assert(sizeof(CBB_ADDR_T) == 28, "CBB_ADDR_T is passed to the system with this size");
#endif

#endif
