/* SPDX-License-Identifier: MIT */
/**
 * @file
 * The platform layer: endpoint addresses, sockets, waiting, threads, semaphores, time and text.
 *
 * Unless a function says otherwise:
 * - it returns 0 for success and -1 for failure; after a socket or semaphore call that the system
 *   refused, the system's error number is in errno, which GetSystemLastError() returns too. A
 *   time-out and a peer that has closed set no errno: it keeps an older value. Only
 *   CBB_SemTimedWait sets it on a time-out;
 * - it may be called at any time and from any thread, keeps no state, and does not block;
 * - pointers must not be null, belong to the caller, and are not kept after the call;
 * - ports are in host byte order, IPv4 addresses in network byte order;
 * - time-outs are in milliseconds. They are measured with the wall clock: setting it forward may
 *   shorten a wait, setting it back costs one more round of the wait at most. CBB_SemTimedWait is
 *   the exception.
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

/** A socket descriptor; -1 is none. */
typedef int CBB_SOCK_T;

/** A thread; CBB_INVALID_HANDLE is none. */
typedef void* CBB_HANDLE;

/** A thread's function: takes the Params it was created with; its result is dropped. */
typedef void* (*CBB_THREAD_FUNC)(void*);

/** The handle with all bits set: there is no thread. */
#ifdef __cplusplus
#define CBB_INVALID_HANDLE (reinterpret_cast<CBB_HANDLE>(static_cast<intptr_t>(-1)))
#else
#define CBB_INVALID_HANDLE ((CBB_HANDLE)(intptr_t)-1)
#endif

/** An nTimeOut without limit. Any other nTimeOut above INT_MAX counts as INT_MAX (24 days). */
#define CBB_INFINITE 0xFFFFFFFFu

/** The system's IPv6 socket address. */
typedef struct sockaddr_in6 sockaddr_in6_cbb;

/**
 * One IPv4 or IPv6 endpoint, laid out as the system's socket addresses: the family (AF_INET or
 * AF_INET6) first, then the port in network byte order. Socket calls pass the IPv4 length for
 * AF_INET and the size of the whole record for every other family.
 */
typedef struct tagCBB_ADDR_T {
    /** The endpoint. */
    union {
        struct sockaddr_in sin4; /**< IPv4 */
        sockaddr_in6_cbb sin6;   /**< IPv6 */
    } SA;
} CBB_ADDR_T;

/** The parts of an endpoint, unpacked. */
typedef struct tagCBB_ADDR_EXP_T {
    int32_t iAf; /**< address family */
    /** The address. */
    union {
        uint32_t nAddr4;    /**< IPv4, network byte order */
        uint8_t nAddr6[16]; /**< any other family */
    } ADDR;
    uint16_t nPort;     /**< host byte order */
    uint16_t nReserved; /**< never written */
} CBB_ADDR_EXP_T;

/**
 * @defgroup cbb_addresses Addresses
 * @{
 */

/**
 * Makes an endpoint from text.
 *
 * IPv4 text may use the shorter classic forms ("127.1"). IPv6 text is read by rules of its own: a
 * leading "::" is not expanded ("::1" gives 1::), missing groups at the end are zero ("1:2" gives
 * 1:2::), and a wrong last character is ignored.
 *
 * @param[in] nFamily  AF_INET or AF_INET6.
 * @param[in] szAddr   the address; null makes the wildcard address.
 * @param[in] nPort    the port.
 * @param[out] pAddr   receives the endpoint.
 *
 * @return 0, or -1 for a null record, another family or a text that is no address. 255.255.255.255
 * counts as no address. After -1 for an IPv4 text the address field holds all ones; family and
 * port are written on success only.
 */
RTSPS_EXPORT int32_t CBB_MakeAddrByString(int32_t nFamily, const char* szAddr, uint16_t nPort,
                                          CBB_ADDR_T* pAddr);

/**
 * Makes an IPv4 endpoint.
 *
 * @param[in] nAddr   the address, network byte order.
 * @param[in] nPort   the port.
 * @param[out] pAddr  receives the endpoint.
 *
 * @return 0, or -1 for a null record only.
 */
RTSPS_EXPORT int32_t CBB_MakeAddr4ByInt(uint32_t nAddr, uint16_t nPort, CBB_ADDR_T* pAddr);

/**
 * Makes an IPv6 endpoint.
 *
 * @param[in] pAddr6  16 address bytes.
 * @param[in] nPort   the port.
 * @param[out] pAddr  receives the endpoint.
 *
 * @return 0, or -1 for a null record only.
 */
RTSPS_EXPORT int32_t CBB_MakeAddr6ByInt(const uint8_t* pAddr6, uint16_t nPort, CBB_ADDR_T* pAddr);

/**
 * Copies raw bytes over the beginning of a record.
 *
 * @param[in] pBytes   the bytes.
 * @param[in] nLength  how many; what is longer than the record is cut.
 * @param[out] pAddr   the record.
 *
 * @return 0, or -1, with nothing written, when a pointer is null or nLength is 0.
 */
RTSPS_EXPORT int32_t CBB_MakeAddr(const void* pBytes, uint32_t nLength, CBB_ADDR_T* pAddr);

/**
 * Sets the port.
 *
 * @param[in,out] pAddr  the endpoint.
 * @param[in] nPort      the port.
 *
 * @return 0, or -1 for a null record.
 */
RTSPS_EXPORT int32_t CBB_SetAddrPort(CBB_ADDR_T* pAddr, uint16_t nPort);

/**
 * Reads the family.
 *
 * @param[in] pAddr  the endpoint.
 *
 * @return the family, or -1 for a null record.
 */
RTSPS_EXPORT int32_t CBB_GetAddrType(const CBB_ADDR_T* pAddr);

/**
 * Prints the address without the port.
 *
 * @param[in] pAddr  the endpoint.
 *
 * @return the text, or null for a null record, another family or an IPv6 address that CBB_InetNtop
 * cannot print. The text belongs to the calling thread and is valid until that thread's next call.
 */
RTSPS_EXPORT const char* CBB_GetAddrString(const CBB_ADDR_T* pAddr);

/**
 * Reads the port.
 *
 * @param[in] pAddr  the endpoint.
 *
 * @return the port, or 0 for a null record.
 */
RTSPS_EXPORT uint16_t CBB_GetAddrPort(const CBB_ADDR_T* pAddr);

/**
 * Reads the IPv4 address.
 *
 * @param[in] pAddr    the endpoint.
 * @param[out] pAddr4  receives the address, network byte order.
 *
 * @return 0, or -1 unless the record is IPv4.
 */
RTSPS_EXPORT int32_t CBB_GetAddr4Int(const CBB_ADDR_T* pAddr, uint32_t* pAddr4);

/**
 * Reads the IPv6 address field.
 *
 * @param[in] pAddr    the endpoint.
 * @param[out] pAddr6  receives the 16 bytes.
 *
 * @return 0, or -1 for a null or an IPv4 record; every other family is read, also that of a record
 * without one.
 */
RTSPS_EXPORT int32_t CBB_GetAddr6Int(const CBB_ADDR_T* pAddr, uint8_t* pAddr6);

/**
 * Unpacks a record.
 *
 * @param[in] pAddr   the endpoint.
 * @param[out] pInfo  receives its parts; nReserved is left alone.
 *
 * @return 0, or -1 when a pointer is null.
 */
RTSPS_EXPORT int32_t CBB_GetAddrInfo(const CBB_ADDR_T* pAddr, CBB_ADDR_EXP_T* pInfo);

/**
 * Fills in the two ends of a socket. The peer is asked first: when that fails, pLocal is not
 * filled.
 *
 * @param[in] iSockFd  the socket.
 * @param[out] pLocal  receives its own end; may be null.
 * @param[out] pPeer   receives the other end; may be null.
 *
 * @return 0, or -1 when both are null or the system refuses.
 */
RTSPS_EXPORT int32_t CBB_GetAddrBySockFd(CBB_SOCK_T iSockFd, CBB_ADDR_T* pLocal, CBB_ADDR_T* pPeer);

/**
 * Reads a dotted quad; leading zeros are decimal.
 *
 * @param[in] szText   the text.
 * @param[out] pAddr4  receives 4 bytes, network byte order.
 *
 * @return 0, or -1, with nothing written, when a pointer is null or the text is anything else.
 */
RTSPS_EXPORT int32_t CBB_InetPton(const char* szText, void* pAddr4);

/**
 * Prints an address.
 *
 * @param[in] nFamily  AF_INET or AF_INET6.
 * @param[in] pAddr    4 bytes for AF_INET, 16 for AF_INET6, network byte order.
 * @param[out] szOut   receives the text.
 * @param[in] nSize    for AF_INET the characters WITHOUT the terminating NUL, so szOut must hold
 *                     nSize + 1 bytes; for AF_INET6 the size of szOut, NUL included.
 *
 * @return szOut, or null when a pointer is null, nSize is 0, the family is another one or the text
 * does not fit. An IPv6 address with an embedded IPv4 address whose dotted form is longer than 8
 * characters ("::ffff:192.168.1.10") never fits.
 */
RTSPS_EXPORT const char* CBB_InetNtop(int32_t nFamily, const void* pAddr, char* szOut,
                                      int32_t nSize);

/** @} */
/**
 * @defgroup cbb_sockets Sockets
 * @{
 */

/**
 * Tells why the system refused.
 *
 * @return errno of the calling thread.
 */
RTSPS_EXPORT int GetSystemLastError(void);

/**
 * Makes the whole process ignore SIGPIPE, so that sending to a peer that has gone is an error and
 * not the end of the process.
 *
 * @return 0 always.
 */
RTSPS_EXPORT int32_t CBB_InitNetwork_Inter(void);

/**
 * Does nothing; the signal stays ignored.
 *
 * @return 0 always.
 */
RTSPS_EXPORT int32_t CBB_FiniNetwork_Inter(void);

/**
 * Creates a socket as the system's socket() does, close-on-exec. The descriptor is never 0, 1 or
 * 2, also when the process has closed its standard streams.
 *
 * @param[in] iDomain    as for socket().
 * @param[in] iType      as for socket().
 * @param[in] iProtocol  as for socket().
 *
 * @return the socket, or -1.
 */
RTSPS_EXPORT CBB_SOCK_T CBB_CreateSocket(int iDomain, int iType, int iProtocol);

/**
 * Closes a socket. Closing alone wakes nobody. A close that succeeds leaves errno as it was.
 *
 * @param[in] iSockFd  the socket.
 * @param[in] bForce   not 0: both directions are shut down first, which wakes every thread that
 *                     waits on it.
 *
 * @return 0, or -1.
 */
RTSPS_EXPORT int32_t CBB_CloseSocket(CBB_SOCK_T iSockFd, int bForce);

/**
 * Shuts a socket down.
 *
 * @param[in] iSockFd  the socket.
 * @param[in] iHow     SHUT_RD, SHUT_WR or SHUT_RDWR.
 *
 * @return 0, or -1.
 */
RTSPS_EXPORT int32_t CBB_ShutDown(CBB_SOCK_T iSockFd, int iHow);

/**
 * Binds to an endpoint.
 *
 * @param[in] iSockFd   the socket.
 * @param[in] pCBBAddr  the endpoint.
 *
 * @return 0, or -1 for a null record or when the system refuses.
 */
RTSPS_EXPORT int32_t CBB_Bind(CBB_SOCK_T iSockFd, const CBB_ADDR_T* pCBBAddr);

/**
 * Starts listening.
 *
 * @param[in] iSockFd   the socket.
 * @param[in] iBackLog  how many connections may wait to be accepted.
 *
 * @return 0, or -1.
 */
RTSPS_EXPORT int32_t CBB_Listen(CBB_SOCK_T iSockFd, int iBackLog);

/**
 * Takes one connection, close-on-exec; blocks for nTimeOut at most. The descriptor is never 0, 1
 * or 2.
 *
 * @param[in] iSockFd    the listening socket.
 * @param[out] pCBBAddr  receives the peer, or null.
 * @param[in] nTimeOut   ms. CBB_INFINITE accepts directly: it blocks if the socket does.
 *
 * With a limit, the call waits until the socket is readable and then accepts. If several threads
 * accept on one blocking socket, another thread may take the connection between the two steps: the
 * call then blocks until the next connection, beyond nTimeOut. Make such a socket non-blocking.
 *
 * @return the new descriptor, or -1 on a time-out, an error, or a listening socket that was shut
 * down.
 */
RTSPS_EXPORT CBB_SOCK_T CBB_Accept(CBB_SOCK_T iSockFd, CBB_ADDR_T* pCBBAddr, uint32_t nTimeOut);

/**
 * Connects; blocks for nTimeOut at most. The socket is blocking afterwards, whatever it was before.
 * With a limit, an error that the system reports at once (no route, for example) is not seen: the
 * result is what the socket says after the wait.
 *
 * @param[in] iSockFd   the socket.
 * @param[in] pCBBAddr  the peer.
 * @param[in] nTimeOut  ms. CBB_INFINITE connects directly, for IPv4 only, and leaves the blocking
 *                      mode alone.
 *
 * @return 0, or -1 for a null record, a time-out or a failed connection. A failed connection leaves
 * its cause in errno and, unless nTimeOut is CBB_INFINITE, prints one line to standard output.
 */
RTSPS_EXPORT int32_t CBB_ConnectWithTimeOut(CBB_SOCK_T iSockFd, const CBB_ADDR_T* pCBBAddr,
                                            uint32_t nTimeOut);

/**
 * Joins or leaves a multicast group. The group's family decides: for IPv4 the interface is the one
 * with pLocal's address, for IPv6 the one whose index is in the group record's sin6_flowinfo.
 *
 * @param[in] iSockFd          the socket.
 * @param[in] pLocal           the interface, for IPv4.
 * @param[in] pMcastGroupAddr  the group.
 *
 * @return 0, or -1 for a null record, another family, or when the system refuses.
 * @{
 */
RTSPS_EXPORT int32_t CBB_JoinMultiCastGroup(CBB_SOCK_T iSockFd, const CBB_ADDR_T* pLocal,
                                            const CBB_ADDR_T* pMcastGroupAddr);
RTSPS_EXPORT int32_t CBB_LeaveMultiCastGroup(CBB_SOCK_T iSockFd, const CBB_ADDR_T* pLocal,
                                             const CBB_ADDR_T* pMcastGroupAddr);
/** @} */

/**
 * Sets the blocking mode.
 *
 * @param[in] iSockFd  the socket.
 * @param[in] bYesNo   not 0 makes the descriptor non-blocking, 0 blocking.
 *
 * @return 0, or -1.
 */
RTSPS_EXPORT int32_t CBB_SetNonBlock(CBB_SOCK_T iSockFd, int bYesNo);

/**
 * Sets the hops of an IPv4 socket's unicast or multicast packets.
 *
 * @param[in] iSockFd  the socket.
 * @param[in] iTTL     the number of hops.
 *
 * @return 0, or -1.
 * @{
 */
RTSPS_EXPORT int32_t CBB_SetTTL(CBB_SOCK_T iSockFd, int iTTL);
RTSPS_EXPORT int32_t CBB_SetMultiCastTTL(CBB_SOCK_T iSockFd, int iTTL);
/** @} */

/**
 * Sets the type-of-service byte of an IPv4 socket's packets.
 *
 * @param[in] iSockFd  the socket.
 * @param[in] iTOS     the byte.
 *
 * @return 0, or -1.
 */
RTSPS_EXPORT int32_t CBB_SetTOS(CBB_SOCK_T iSockFd, int iTOS);

/**
 * Reads the TTL of unicast packets.
 *
 * @param[in] iSockFd  the socket.
 * @param[out] pTTL    receives the number of hops.
 *
 * @return 0, or -1, also when pTTL is null.
 */
RTSPS_EXPORT int32_t CBB_GetTTL(CBB_SOCK_T iSockFd, int* pTTL);

/**
 * Reads the TTL, too; there is no way to read the type of service.
 *
 * @param[in] iSockFd  the socket.
 * @param[out] pTOS    receives the number of hops.
 *
 * @return 0, or -1, also when pTOS is null.
 */
RTSPS_EXPORT int32_t CBB_GetTOS(CBB_SOCK_T iSockFd, int* pTOS);

/**
 * Sets SO_REUSEADDR.
 *
 * @param[in] iSockFd  the socket.
 * @param[in] bReuse   not 0 turns it on.
 *
 * @return 0, or -1.
 */
RTSPS_EXPORT int32_t CBB_SetReuseAddr(CBB_SOCK_T iSockFd, int bReuse);

/**
 * Sets the time limits of plain sends and receives. The values cross over: iRcvTimeO not 0 sets
 * the receive limit to iSndTimeO, iSndTimeO not 0 sets the send limit to iRcvTimeO. A limit is
 * value / 1000 seconds plus value % 1000 MICROseconds. Pass equal values, in whole seconds.
 *
 * @param[in] iSockFd    the socket.
 * @param[in] iSndTimeO  ms, but see above.
 * @param[in] iRcvTimeO  ms, but see above.
 *
 * @return 0, or -1 if either setting failed.
 */
RTSPS_EXPORT int32_t CBB_SetTimeOut(CBB_SOCK_T iSockFd, int iSndTimeO, int iRcvTimeO);

/**
 * Turns SO_LINGER off.
 *
 * @param[in] iSockFd  the socket.
 *
 * @return 0, or -1.
 */
RTSPS_EXPORT int32_t CBB_LingerOff(CBB_SOCK_T iSockFd);

/**
 * Turns SO_LINGER on.
 *
 * @param[in] iSockFd      the socket.
 * @param[in] nTimeOutSec  seconds: closing may then block for that long.
 *
 * @return 0, or -1.
 */
RTSPS_EXPORT int32_t CBB_LingerOn(CBB_SOCK_T iSockFd, uint16_t nTimeOutSec);

/**
 * Sets TCP_NODELAY.
 *
 * @param[in] iSockFd   the socket.
 * @param[in] bNoDelay  not 0 turns it on.
 *
 * @return 0, or -1.
 */
RTSPS_EXPORT int32_t CBB_SetNoDelay(CBB_SOCK_T iSockFd, int bNoDelay);

/**
 * Allows sending to broadcast addresses.
 *
 * @param[in] iSockFd  the socket.
 *
 * @return 0, or -1.
 */
RTSPS_EXPORT int32_t CBB_BroadCast(CBB_SOCK_T iSockFd);

/**
 * Sets the buffer sizes.
 *
 * @param[in] iSockFd       the socket.
 * @param[in] iSndBuffSize  bytes; 0 leaves that buffer alone.
 * @param[in] iRcvBuffSize  bytes; 0 leaves that buffer alone.
 *
 * @return 0, or -1 if either setting failed.
 */
RTSPS_EXPORT int32_t CBB_SetBuffSize(CBB_SOCK_T iSockFd, int iSndBuffSize, int iRcvBuffSize);

/**
 * Reads the buffer sizes as the system counts them (Linux: twice what was set).
 *
 * @param[in] iSockFd        the socket.
 * @param[out] pSndBuffSize  bytes; may be null.
 * @param[out] pRcvBuffSize  bytes; may be null.
 *
 * @return 0, or -1 if either reading failed.
 */
RTSPS_EXPORT int32_t CBB_GetBuffSize(CBB_SOCK_T iSockFd, int* pSndBuffSize, int* pRcvBuffSize);

/**
 * One send. It blocks when the socket does.
 *
 * @param[in] iSockFd  the socket.
 * @param[in] pBuf     what is sent.
 * @param[in] iBufLen  bytes in pBuf.
 *
 * @return the number of bytes, or -1, also for a negative length.
 */
RTSPS_EXPORT int32_t CBB_Send(CBB_SOCK_T iSockFd, const void* pBuf, int iBufLen);

/**
 * One receive. It blocks when the socket does.
 *
 * @param[in] iSockFd  the socket.
 * @param[out] pBuf    receives the bytes.
 * @param[in] iBufLen  room in pBuf, bytes.
 *
 * @return the number of bytes (0: the peer has closed), or -1, also for a negative length.
 */
RTSPS_EXPORT int32_t CBB_Recv(CBB_SOCK_T iSockFd, void* pBuf, int iBufLen);

/**
 * One send to an endpoint. It blocks when the socket does.
 *
 * @param[in] iSockFd   the socket.
 * @param[in] pBuf      what is sent.
 * @param[in] iBufLen   bytes in pBuf.
 * @param[in] pCBBAddr  the endpoint.
 *
 * @return the number of bytes, or -1, also for a negative length and a null record.
 */
RTSPS_EXPORT int32_t CBB_SendTo(CBB_SOCK_T iSockFd, const void* pBuf, int iBufLen,
                                const CBB_ADDR_T* pCBBAddr);

/**
 * One receive that tells the source. It blocks when the socket does.
 *
 * @param[in] iSockFd    the socket.
 * @param[out] pBuf      receives the bytes.
 * @param[in] iBufLen    room in pBuf, bytes.
 * @param[out] pCBBAddr  receives the source; may be null.
 *
 * @return the number of bytes, or -1, also for a negative length.
 */
RTSPS_EXPORT int32_t CBB_RecvFrom(CBB_SOCK_T iSockFd, void* pBuf, int iBufLen,
                                  CBB_ADDR_T* pCBBAddr);

/**
 * Sends all of iBufLen bytes within nTimeOut ms, or as many as go; blocks for no longer, whatever
 * the socket's mode. Never raises SIGPIPE.
 *
 * @param[in] iSockFd   the socket.
 * @param[in] pBuf      what is sent.
 * @param[in] iBufLen   bytes in pBuf.
 * @param[in] nTimeOut  ms. With 0 it sends once what the socket takes now.
 *
 * @return the number of bytes sent, 0 to iBufLen, never -1; 0 for a length of 0 and below. Fewer
 * than iBufLen mean a time-out or an error: what was sent cannot be taken back.
 */
RTSPS_EXPORT int32_t CBB_Sendn(CBB_SOCK_T iSockFd, const void* pBuf, int iBufLen,
                               uint32_t nTimeOut);

/**
 * Receives exactly iBufCount bytes within nTimeOut ms; blocks for no longer, whatever the socket's
 * mode.
 *
 * @param[in] iSockFd    the socket.
 * @param[out] pBuf      receives the bytes.
 * @param[in] iBufCount  how many.
 * @param[in] nTimeOut   ms.
 *
 * @return iBufCount, or fewer (0 too) when the time is over, or -1 when the peer closes or an error
 * comes first, even if some bytes had arrived; 0 for a count of 0 and below.
 */
RTSPS_EXPORT int32_t CBB_Recvn(CBB_SOCK_T iSockFd, void* pBuf, int iBufCount, uint32_t nTimeOut);

/**
 * Waits at most nTimeOut ms and receives once.
 *
 * @param[in] iSockFd   the socket.
 * @param[out] pBuf     receives the bytes.
 * @param[in] iBufLen   room in pBuf, bytes.
 * @param[in] nTimeOut  ms.
 *
 * @return the number of bytes, 1 or more; -1 for everything else: time-out, peer closed, error.
 */
RTSPS_EXPORT int32_t CBB_RecvWithTimeOut(CBB_SOCK_T iSockFd, void* pBuf, int iBufLen,
                                         uint32_t nTimeOut);

/**
 * The system's ioctl() for requests that take an unsigned 32-bit argument.
 *
 * @param[in] iSockFd   the socket.
 * @param[in] nRequest  as for ioctl().
 * @param[in,out] pArg  its argument.
 *
 * @return what ioctl() does.
 */
RTSPS_EXPORT int32_t CBB_Ioctl(CBB_SOCK_T iSockFd, unsigned long nRequest, uint32_t* pArg);

/** @} */
/**
 * @defgroup cbb_waiting Waiting for descriptors
 * @{
 */

/**
 * The system's select(); blocks for *pTimeOut at most.
 *
 * @param[in] iCount        the highest descriptor plus one.
 * @param[in,out] pRead     descriptors to read from; may be null.
 * @param[in,out] pWrite    descriptors to write to; may be null.
 * @param[in,out] pError    descriptors with an exception; may be null.
 * @param[in,out] pTimeOut  null waits without limit. Its tv_sec has 64 bits on every processor: on
 *                          32-bit ones compile with -D_TIME_BITS=64 -D_FILE_OFFSET_BITS=64, which
 *                          CMake and pkg-config do for you. CBB_Select leaves it alone;
 * CBB_SelectEx leaves in it what the system does (Linux: the time not slept), so set it again
 * before each call.
 *
 * @return the number of ready descriptors, 0 on a time-out, or -1.
 * @{
 */
RTSPS_EXPORT int32_t CBB_Select(int iCount, fd_set* pRead, fd_set* pWrite, fd_set* pError,
                                const struct timeval* pTimeOut);
RTSPS_EXPORT int32_t CBB_SelectEx(int iCount, fd_set* pRead, fd_set* pWrite, fd_set* pError,
                                  struct timeval* pTimeOut);
/** @} */

/**
 * Tells whether a descriptor is in a set.
 *
 * @param[in] iSockFd  the descriptor.
 * @param[in] pSet     the set.
 *
 * @return 1 if so; 0 if not, for a null set, or outside 0..FD_SETSIZE-1.
 */
RTSPS_EXPORT int32_t CBB_FdIsSet(CBB_SOCK_T iSockFd, const fd_set* pSet);

/**
 * The system's poll(); blocks for iTimeO at most.
 *
 * @param[in,out] pFds  the records.
 * @param[in] iFds      how many.
 * @param[in] iTimeO    ms, negative without limit.
 *
 * @return what poll() does: the number of ready descriptors, 0 on a time-out, or -1.
 */
RTSPS_EXPORT int32_t CBB_Poll(struct pollfd* pFds, int iFds, int iTimeO);

/**
 * poll() that goes on after an interruption by a signal.
 *
 * @param[in,out] pFds     the records.
 * @param[in] iFds         how many.
 * @param[in,out] piTimeO  in, the limit in ms; out, what is left of it, 0 or more. Null or below 0:
 *                         no limit, and the value is left alone.
 *
 * @return what poll() does.
 */
RTSPS_EXPORT int32_t CBB_PollEx(struct pollfd* pFds, int iFds, int* piTimeO);

/** @} */
/**
 * @defgroup cbb_threads Threads
 * @{
 */

/**
 * Starts a thread that must be joined with CBB_Thread_Wait. The thread inherits its creator's
 * scheduling, whatever is asked for, so no privilege is needed, and the creator's signal mask, too.
 *
 * @param[in] StartAddress  its function.
 * @param[in] Params        handed to StartAddress, may be null.
 * @param[in] StackSize     bytes, 0 for the system's default.
 * @param[in] IsSuspend     ignored, the thread runs at once.
 * @param[in] Priority      must suit SchedPolicy: 0 with SCHED_OTHER, 1 to 99 with SCHED_RR and
 *                          SCHED_FIFO.
 * @param[in] SchedPolicy   a policy that the system knows.
 *
 * @return the thread, or CBB_INVALID_HANDLE when an attribute is refused or no thread is to be had.
 */
RTSPS_EXPORT CBB_HANDLE CBB_Thread_Create(CBB_THREAD_FUNC StartAddress, void* Params,
                                          uint32_t StackSize, uint32_t IsSuspend, int Priority,
                                          int SchedPolicy);

/**
 * Starts a thread that nobody joins.
 *
 * @param[in] StartAddress  its function.
 * @param[in] Params        handed to StartAddress, may be null.
 * @param[in] StackSize     bytes, 0 for the system's default.
 *
 * @return 1 for success and 0 for failure.
 */
RTSPS_EXPORT int32_t CBB_ThreadDetached_Create(CBB_THREAD_FUNC StartAddress, void* Params,
                                               uint32_t StackSize);

/** Ends the calling thread. In C++ the stack is unwound; a catch-all handler must rethrow. */
RTSPS_EXPORT void CBB_Thread_Exit(void);

/**
 * Waits without limit until a thread has ended, and frees it; once per thread.
 *
 * @param[in] hThread  the thread.
 *
 * @return 0, or -1 at once for CBB_INVALID_HANDLE, null and the calling thread itself.
 */
RTSPS_EXPORT int32_t CBB_Thread_Wait(CBB_HANDLE hThread);

/**
 * Tells which thread this is.
 *
 * @return the calling thread.
 */
RTSPS_EXPORT CBB_HANDLE CBB_Thread_GetSelfId(void);

/**
 * Not supported.
 *
 * @param[in] hThread  not read.
 *
 * @return -2 always.
 * @{
 */
RTSPS_EXPORT int32_t CBB_Thread_Suspend(CBB_HANDLE hThread);
RTSPS_EXPORT int32_t CBB_Thread_Resume(CBB_HANDLE hThread);
/** @} */

/**
 * Sets the priority within the running thread's policy; may need a privilege.
 *
 * @param[in] hThread    the thread.
 * @param[in] iPriority  must suit the policy.
 *
 * @return 0, or -1 for CBB_INVALID_HANDLE, null, or when the system refuses.
 */
RTSPS_EXPORT int32_t CBB_Thread_SetPriority(CBB_HANDLE hThread, int iPriority);

/**
 * Tells whether a policy is one that the system knows; the running thread is not changed.
 *
 * @param[in] hThread  the thread.
 * @param[in] iPolicy  the policy.
 *
 * @return 0 if so, -1 if not and for CBB_INVALID_HANDLE.
 */
RTSPS_EXPORT int32_t CBB_Thread_SetSchedPolicy(CBB_HANDLE hThread, int iPolicy);

/** @} */
/**
 * @defgroup cbb_semaphores Semaphores
 * The system's, private to the process, in the caller's memory. All return -1 for a null semaphore.
 * @{
 */

/**
 * Initialises a semaphore.
 *
 * @param[out] pSem       the semaphore.
 * @param[in] nInitValue  its count.
 *
 * @return 0, or -1.
 */
RTSPS_EXPORT int32_t CBB_SemCreate(sem_t* pSem, uint32_t nInitValue);

/**
 * Destroys a semaphore that nobody waits on any more.
 *
 * @param[in,out] pSem  the semaphore.
 *
 * @return 0, or -1.
 */
RTSPS_EXPORT int32_t CBB_SemDestroy(sem_t* pSem);

/**
 * Takes one from the count; blocks without limit.
 *
 * @param[in,out] pSem  the semaphore.
 *
 * @return 0, or -1; with EINTR when a signal handler ran.
 */
RTSPS_EXPORT int32_t CBB_SemWait(sem_t* pSem);

/**
 * Adds one to the count, which wakes one waiter.
 *
 * @param[in,out] pSem  the semaphore.
 *
 * @return 0, or -1.
 */
RTSPS_EXPORT int32_t CBB_SemPost(sem_t* pSem);

/**
 * Takes one from the count; blocks for at most nTimeOut ms of the wall clock. The wait ends at a
 * point in time: setting the clock back during the wait makes it longer by that amount, setting the
 * clock forward makes it shorter.
 *
 * @param[in,out] pSem  the semaphore.
 * @param[in] nTimeOut  ms; 0 tries once. There is no value for "without limit".
 *
 * @return 0, or -1 with ETIMEDOUT (EAGAIN for nTimeOut 0) when the count stayed 0, or with EINTR.
 */
RTSPS_EXPORT int32_t CBB_SemTimedWait(sem_t* pSem, uint32_t nTimeOut);

/** @} */
/**
 * @defgroup cbb_time Time
 * @{
 */

/**
 * Sleeps; a signal handler ends the sleep early. The milliseconds times 1000 are taken modulo 2^32,
 * so it is good for 4294967 ms at most.
 *
 * @param[in] iMilliSec  milliseconds.
 */
RTSPS_EXPORT void CBB_Sleep(int iMilliSec);

/**
 * Sleeps; a signal handler ends the sleep early.
 *
 * @param[in] lMicroSec  microseconds; returns at once for 0 and below.
 */
RTSPS_EXPORT void CBB_USleep(int64_t lMicroSec);

/**
 * Reads the wall clock: it jumps when it is set.
 *
 * @return milliseconds since 1970.
 */
RTSPS_EXPORT uint64_t CBB_GetTimeTick(void);

/**
 * Reads the wall clock: it jumps when it is set.
 *
 * @return microseconds since 1970.
 */
RTSPS_EXPORT uint64_t CBB_TimeNow(void);

/** @} */
/**
 * @defgroup cbb_text Text
 * Byte by byte, ASCII letters only, whatever the locale.
 * @{
 */

/**
 * Writes a number.
 *
 * @param[out] szOut  must have room for it (66 bytes are always enough).
 * @param[in] iValue  the number.
 * @param[in] iBase   2 to 36, digits above 9 in lower case.
 *
 * @return szOut, or null for a null buffer, another base, or a negative value in a base other than
 * 10.
 */
RTSPS_EXPORT char* CBB_Itoa(char* szOut, int iValue, int iBase);

/**
 * Writes a number.
 *
 * @param[out] szOut  as for CBB_Itoa.
 * @param[in] lValue  the number.
 * @param[in] iBase   as for CBB_Itoa.
 *
 * @return as CBB_Itoa.
 */
RTSPS_EXPORT char* CBB_Ltoa(char* szOut, int64_t lValue, int iBase);

/**
 * CBB_StrToi32 and CBB_StrToi64 in base 10 without an end.
 *
 * @param[in] szText  the text.
 *
 * @return the number.
 * @{
 */
RTSPS_EXPORT int32_t CBB_Atoi32(const char* szText);
RTSPS_EXPORT int64_t CBB_Atoi64(const char* szText);
/** @} */

/**
 * Read a number behind white space and an optional sign.
 *
 * @param[in] szText  the text.
 * @param[out] ppEnd  receives the first character behind the digits, or szText when there is none;
 *                    may be null.
 * @param[in] iBase   2 to 16, or 0 to take it from the text ("0x" 16, "0" 8, else 10). A digit
 *                    equal to the base is accepted ("1a" in base 10 is 20).
 *
 * @return the number; 0 for another base. Out of range, the 32-bit form returns the smallest or
 * largest int, the 64-bit form -1.
 * @{
 */
RTSPS_EXPORT int32_t CBB_StrToi32(const char* szText, char** ppEnd, int iBase);
RTSPS_EXPORT int64_t CBB_StrToi64(const char* szText, char** ppEnd, int iBase);
/** @} */

/**
 * Copies a text with its NUL.
 *
 * @param[out] szDst  must have room for it.
 * @param[in] szSrc   the text.
 *
 * @return szDst.
 */
RTSPS_EXPORT char* CBB_Strcpy(char* szDst, const char* szSrc);

/**
 * Writes exactly nCount bytes: the text, then NULs. A text of nCount bytes and more is cut and NOT
 * terminated.
 *
 * @param[out] szDst  must have room for nCount bytes.
 * @param[in] szSrc   the text.
 * @param[in] nCount  bytes.
 *
 * @return szDst.
 */
RTSPS_EXPORT char* CBB_Strncpy(char* szDst, const char* szSrc, size_t nCount);

/**
 * Copies a text.
 *
 * @param[in] szText  the text.
 *
 * @return memory that the caller frees with free(), or null when there is none.
 */
RTSPS_EXPORT char* CBB_Strdup(const char* szText);

/**
 * Copies a text, at most n bytes of it.
 *
 * @param[in] szText  the text.
 * @param[in] n       bytes, without the NUL.
 *
 * @return memory that the caller frees with free(), or null when there is none.
 */
RTSPS_EXPORT char* CBB_Strndup(const char* szText, size_t n);

/**
 * Compares two texts.
 *
 * @param[in] szA  one text.
 * @param[in] szB  the other.
 *
 * @return the difference of the first bytes that differ (unsigned), 0 for none.
 */
RTSPS_EXPORT int32_t CBB_Strcmp(const char* szA, const char* szB);

/**
 * Compares at most the first n bytes of two texts.
 *
 * @param[in] szA  one text.
 * @param[in] szB  the other.
 * @param[in] n    bytes.
 *
 * @return as CBB_Strcmp.
 */
RTSPS_EXPORT int32_t CBB_Strncmp(const char* szA, const char* szB, size_t n);

/**
 * Compares two texts without regard to case.
 *
 * @param[in] szA  one text.
 * @param[in] szB  the other.
 *
 * @return as CBB_Strcmp, of the upper-cased bytes.
 */
RTSPS_EXPORT int32_t CBB_Strcasecmp(const char* szA, const char* szB);

/**
 * Compares at most the first n bytes of two texts without regard to case.
 *
 * @param[in] szA  one text.
 * @param[in] szB  the other.
 * @param[in] n    bytes.
 *
 * @return as CBB_Strcasecmp.
 */
RTSPS_EXPORT int32_t CBB_Strncasecmp(const char* szA, const char* szB, size_t n);

/**
 * Finds a character. The NUL is found in an empty text only.
 *
 * @param[in] szText  the text.
 * @param[in] c       the character.
 *
 * @return its first position, or null.
 */
RTSPS_EXPORT char* CBB_Strchr(const char* szText, int c);

/**
 * Finds a character among n bytes; does not stop at a NUL.
 *
 * @param[in] szText  the bytes.
 * @param[in] c       the character.
 * @param[in] n       how many bytes.
 *
 * @return its first position, or null.
 */
RTSPS_EXPORT char* CBB_Strnchr(const char* szText, int c, size_t n);

/**
 * Finds a text in a text.
 *
 * @param[in] szHaystack  the text that is searched.
 * @param[in] szNeedle    what is searched for.
 *
 * @return the first position of szNeedle, or null.
 */
RTSPS_EXPORT char* CBB_Strstr(const char* szHaystack, const char* szNeedle);

/**
 * Finds where n bytes equal the first n bytes of szNeedle.
 *
 * @param[in] szText    the text that is searched.
 * @param[in] szNeedle  what is searched for.
 * @param[in] n         bytes that must match, NOT the length of the text that is searched.
 *
 * @return the first position, or null.
 */
RTSPS_EXPORT char* CBB_Strnstr(const char* szText, const char* szNeedle, size_t n);

/**
 * Finds a text in a text without regard to case.
 *
 * @param[in] szHaystack  the text that is searched.
 * @param[in] szNeedle    what is searched for; an empty one is found at once.
 *
 * @return the first position of szNeedle, or null.
 */
RTSPS_EXPORT char* CBB_Strcasestr(const char* szHaystack, const char* szNeedle);

/** @} */

#ifdef __cplusplus
}
static_assert(sizeof(CBB_ADDR_T) == 28, "CBB_ADDR_T is passed to the system with this size");
#else
_Static_assert(sizeof(CBB_ADDR_T) == 28, "CBB_ADDR_T is passed to the system with this size");
#endif

#ifdef __GLIBC_PREREQ
#if __GLIBC_PREREQ(2, 34) && defined(__TIMESIZE) && __TIMESIZE == 32 && !defined(__USE_TIME_BITS64)
#error "compile with -D_TIME_BITS=64 -D_FILE_OFFSET_BITS=64, as the library is"
#endif
#endif

#endif
