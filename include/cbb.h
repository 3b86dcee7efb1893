/* SPDX-License-Identifier: MIT */
/**
 * @file
 * The platform layer: endpoint addresses, sockets, waiting, threads, semaphores, time and text.
 *
 * Groups, in the order of this file:
 * - @ref cbb_addresses "Addresses": endpoints from text and numbers, and back.
 * - @ref cbb_sockets "Sockets": create, connect, accept, options, send, receive.
 * - @ref cbb_waiting "Waiting for descriptors": select and poll.
 * - @ref cbb_threads "Threads": create, wait, priority.
 * - @ref cbb_semaphores "Semaphores": counting semaphores.
 * - @ref cbb_time "Time": sleep, wall clock.
 * - @ref cbb_text "Text": numbers, copies, comparisons, searches.
 *
 * Unless a function says otherwise:
 * - It returns 0 for success and -1 for failure.
 * - When the system refuses a socket or semaphore call, errno holds its error number, which
 *   GetSystemLastError() returns, too. A time-out and a peer that has closed its connection leave
 *   errno as it was. CBB_SemTimedWait and CBB_ConnectWithTimeOut set errno on a time-out, too.
 * - It may be called at any time and from any thread. It keeps no state and does not block.
 * - Pointers must not be null. They belong to the caller and are not kept after the call.
 * - A socket argument (iSockFd) is an open descriptor. The caller owns it: only CBB_CloseSocket
 *   closes it. Several threads may use one socket at once; close it only when no thread uses it.
 *   A call with a descriptor that is not open fails. With -1 and a time-out, the failure comes only
 *   when the time-out is over.
 * - Ports are in host byte order, IPv4 addresses in network byte order.
 * - Time-outs are in milliseconds. Functions with an nTimeOut, and CBB_PollEx, measure them with
 *   the wall clock. Setting the clock forward may shorten a wait. Setting it back makes a wait at
 *   most twice as long; only a wait in CBB_SemTimedWait becomes longer by the whole change.
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

/** The function of a thread. It gets the Params of CBB_Thread_Create; its result is ignored. */
typedef void* (*CBB_THREAD_FUNC)(void*);

/** The handle that stands for no thread: all bits are set. */
#ifdef __cplusplus
#define CBB_INVALID_HANDLE (reinterpret_cast<CBB_HANDLE>(static_cast<intptr_t>(-1)))
#else
#define CBB_INVALID_HANDLE ((CBB_HANDLE)(intptr_t)-1)
#endif

/** The nTimeOut for a wait without limit. Every other value above INT_MAX (24 days) is INT_MAX. */
#define CBB_INFINITE 0xFFFFFFFFu

/** The system's IPv6 socket address. */
typedef struct sockaddr_in6 sockaddr_in6_cbb;

/**
 * One IPv4 or IPv6 endpoint, with the layout of the system's socket addresses: first the family
 * (AF_INET or AF_INET6), then the port in network byte order. Socket calls pass the IPv4 length
 * for AF_INET, and the size of the whole record for every other family.
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
 * IPv4 text may have fewer than four parts, as in "127.1". IPv6 text has rules that differ from the
 * standard function: a leading "::" is not expanded ("::1" gives 1::), missing groups at the end
 * are zero ("1:2" gives 1:2::), and a wrong last character is ignored.
 *
 * @param[in] nFamily  AF_INET or AF_INET6.
 * @param[in] szAddr   the address; null makes the wildcard address.
 * @param[in] nPort    the port.
 * @param[out] pAddr   receives the endpoint.
 *
 * @return 0, or -1 for a null record, another family or a text that is not an address.
 * 255.255.255.255 also gives -1. After -1 for an IPv4 text all bits of the address field are set.
 * Family and port are written on success only.
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
 * Copies raw bytes to the beginning of a record.
 *
 * @param[in] pBytes   the bytes.
 * @param[in] nLength  number of bytes; bytes that do not fit in the record are ignored.
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
 * @return 0, or -1 for a null record and for every family except IPv4.
 */
RTSPS_EXPORT int32_t CBB_GetAddr4Int(const CBB_ADDR_T* pAddr, uint32_t* pAddr4);

/**
 * Reads the IPv6 address field.
 *
 * @param[in] pAddr    the endpoint.
 * @param[out] pAddr6  receives the 16 bytes.
 *
 * @return 0, or -1 for a null or an IPv4 record. Records of every other family are read, also
 * records without a family.
 */
RTSPS_EXPORT int32_t CBB_GetAddr6Int(const CBB_ADDR_T* pAddr, uint8_t* pAddr6);

/**
 * Unpacks a record.
 *
 * @param[in] pAddr   the endpoint.
 * @param[out] pInfo  receives its parts; nReserved is not written.
 *
 * @return 0, or -1 when a pointer is null.
 */
RTSPS_EXPORT int32_t CBB_GetAddrInfo(const CBB_ADDR_T* pAddr, CBB_ADDR_EXP_T* pInfo);

/**
 * Reads the addresses of the two ends of a socket. The peer is read first: when that fails, pLocal
 * is not written.
 *
 * @param[in] iSockFd  the socket.
 * @param[out] pLocal  receives its own end; may be null.
 * @param[out] pPeer   receives the other end; may be null.
 *
 * @return 0, or -1 when both are null or the system refuses.
 */
RTSPS_EXPORT int32_t CBB_GetAddrBySockFd(CBB_SOCK_T iSockFd, CBB_ADDR_T* pLocal, CBB_ADDR_T* pPeer);

/**
 * Reads an IPv4 address of four decimal numbers. Numbers with leading zeros are decimal, too.
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
 * @param[in] nSize    for AF_INET the number of characters WITHOUT the final NUL, so szOut must
 *                     hold nSize + 1 bytes; for AF_INET6 the size of szOut with the NUL.
 *
 * @return szOut, or null when a pointer is null, nSize is 0, the family is another one or the text
 * does not fit. An IPv6 address that ends in an IPv4 address of more than 8 characters
 * ("::ffff:192.168.1.10") cannot be printed, whatever nSize is.
 */
RTSPS_EXPORT const char* CBB_InetNtop(int32_t nFamily, const void* pAddr, char* szOut,
                                      int32_t nSize);

/** @} */
/**
 * @defgroup cbb_sockets Sockets
 * @{
 */

/**
 * Returns the error number of the last system call that failed.
 *
 * @return errno of the calling thread.
 */
RTSPS_EXPORT int GetSystemLastError(void);

/**
 * Makes the whole process ignore SIGPIPE. Sending to a peer that has closed its connection is then
 * an error, and does not end the process.
 *
 * @return 0 always.
 */
RTSPS_EXPORT int32_t CBB_InitNetwork_Inter(void);

/**
 * Does nothing: SIGPIPE stays ignored.
 *
 * @return 0 always.
 */
RTSPS_EXPORT int32_t CBB_FiniNetwork_Inter(void);

/**
 * Creates a socket like the system's socket(), with close-on-exec set. The descriptor is never 0, 1
 * or 2, even when the process has closed its standard streams.
 *
 * @param[in] iDomain    as for socket().
 * @param[in] iType      as for socket().
 * @param[in] iProtocol  as for socket().
 *
 * @return the socket, or -1.
 */
RTSPS_EXPORT CBB_SOCK_T CBB_CreateSocket(int iDomain, int iType, int iProtocol);

/**
 * Closes a socket. Closing does not wake threads that wait on the socket. A close that succeeds
 * leaves errno as it was.
 *
 * @param[in] iSockFd  the socket.
 * @param[in] bForce   not 0: both directions are shut down first. That wakes every thread that
 *                     waits on the socket.
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
 * @param[in] iBackLog  number of connections that may wait to be accepted.
 *
 * @return 0, or -1.
 */
RTSPS_EXPORT int32_t CBB_Listen(CBB_SOCK_T iSockFd, int iBackLog);

/**
 * Accepts one connection, with close-on-exec set. Blocks for nTimeOut at most. The descriptor is
 * never 0, 1 or 2.
 *
 * With a limit, the call waits until the socket is readable and then accepts. If several threads
 * accept on one blocking socket, another thread may take the connection between the two steps. The
 * call then blocks until the next connection, even beyond nTimeOut. Make such a socket
 * non-blocking.
 *
 * @param[in] iSockFd    the listening socket.
 * @param[out] pCBBAddr  receives the peer; may be null.
 * @param[in] nTimeOut   ms. CBB_INFINITE accepts without the wait: it blocks only if the socket
 *                       is blocking.
 *
 * @return the new descriptor, or -1 on a time-out, an error, or a listening socket that was shut
 * down.
 */
RTSPS_EXPORT CBB_SOCK_T CBB_Accept(CBB_SOCK_T iSockFd, CBB_ADDR_T* pCBBAddr, uint32_t nTimeOut);

/**
 * Connects. Blocks for nTimeOut at most. The socket is blocking afterwards, whatever it was before.
 *
 * With a limit, the result is the state of the socket after the wait. An error that the system
 * reports at once, such as "no route", is not read: the result may then be 0.
 *
 * @param[in] iSockFd   the socket.
 * @param[in] pCBBAddr  the peer.
 * @param[in] nTimeOut  ms. CBB_INFINITE connects without the wait, for IPv4 only, and does not
 *                      change the blocking mode.
 *
 * @return 0, or -1 for a null record, a time-out or a failed connection. After a failed connection
 * errno holds the cause. Unless nTimeOut is CBB_INFINITE, one line is printed to standard output.
 * After a time-out errno is EINPROGRESS, and no line is printed.
 */
RTSPS_EXPORT int32_t CBB_ConnectWithTimeOut(CBB_SOCK_T iSockFd, const CBB_ADDR_T* pCBBAddr,
                                            uint32_t nTimeOut);

/**
 * Joins or leaves a multicast group. For an IPv4 group pLocal holds the address of the interface.
 * For an IPv6 group sin6_flowinfo of the group record holds the index of the interface.
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
 * Sets the TTL of an IPv4 socket's unicast or multicast packets.
 *
 * @param[in] iSockFd  the socket.
 * @param[in] iTTL     the TTL.
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
 * @param[out] pTTL    receives the TTL.
 *
 * @return 0, or -1, also when pTTL is null.
 */
RTSPS_EXPORT int32_t CBB_GetTTL(CBB_SOCK_T iSockFd, int* pTTL);

/**
 * Reads the TTL, like CBB_GetTTL. No function reads the type of service.
 *
 * @param[in] iSockFd  the socket.
 * @param[out] pTOS    receives the TTL.
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
 * Sets the time limits of CBB_Send and CBB_Recv. Pass two equal values, in whole seconds.
 *
 * With other values note that each limit is set from the other value: if iRcvTimeO is not 0, the
 * receive limit becomes iSndTimeO; if iSndTimeO is not 0, the send limit becomes iRcvTimeO. A limit
 * is value / 1000 seconds plus value % 1000 MICROseconds.
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
 * @param[in] nTimeOutSec  seconds; closing the socket may then block for that time.
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
 * @param[in] iSndBuffSize  bytes; 0 does not change the send buffer.
 * @param[in] iRcvBuffSize  bytes; 0 does not change the receive buffer.
 *
 * @return 0, or -1 if either setting failed.
 */
RTSPS_EXPORT int32_t CBB_SetBuffSize(CBB_SOCK_T iSockFd, int iSndBuffSize, int iRcvBuffSize);

/**
 * Reads the buffer sizes as the system counts them. On Linux that is twice the value that was set.
 *
 * @param[in] iSockFd        the socket.
 * @param[out] pSndBuffSize  bytes; may be null.
 * @param[out] pRcvBuffSize  bytes; may be null.
 *
 * @return 0, or -1 if either reading failed.
 */
RTSPS_EXPORT int32_t CBB_GetBuffSize(CBB_SOCK_T iSockFd, int* pSndBuffSize, int* pRcvBuffSize);

/**
 * Sends once. Blocks when the socket is blocking.
 *
 * @param[in] iSockFd  the socket.
 * @param[in] pBuf     what is sent.
 * @param[in] iBufLen  bytes in pBuf.
 *
 * @return the number of bytes, or -1, also for a negative length.
 */
RTSPS_EXPORT int32_t CBB_Send(CBB_SOCK_T iSockFd, const void* pBuf, int iBufLen);

/**
 * Receives once. Blocks when the socket is blocking.
 *
 * @param[in] iSockFd  the socket.
 * @param[out] pBuf    receives the bytes.
 * @param[in] iBufLen  room in pBuf, bytes.
 *
 * @return the number of bytes (0: the peer has closed), or -1, also for a negative length.
 */
RTSPS_EXPORT int32_t CBB_Recv(CBB_SOCK_T iSockFd, void* pBuf, int iBufLen);

/**
 * Sends once to an endpoint. Blocks when the socket is blocking.
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
 * Receives once and reports the source. Blocks when the socket is blocking.
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
 * Sends iBufLen bytes, or as many as the socket takes within nTimeOut ms. Blocks for nTimeOut at
 * most, also on a blocking socket. Never raises SIGPIPE.
 *
 * @param[in] iSockFd   the socket.
 * @param[in] pBuf      what is sent.
 * @param[in] iBufLen   bytes in pBuf.
 * @param[in] nTimeOut  ms; 0 sends once, without waiting.
 *
 * @return the number of bytes sent, 0 to iBufLen; never -1. A length of 0 or less gives 0. Fewer
 * bytes than iBufLen mean a time-out or an error.
 */
RTSPS_EXPORT int32_t CBB_Sendn(CBB_SOCK_T iSockFd, const void* pBuf, int iBufLen,
                               uint32_t nTimeOut);

/**
 * Receives exactly iBufCount bytes. Blocks for nTimeOut at most, also on a blocking socket.
 *
 * @param[in] iSockFd    the socket.
 * @param[out] pBuf      receives the bytes.
 * @param[in] iBufCount  number of bytes.
 * @param[in] nTimeOut   ms.
 *
 * @return iBufCount, or fewer, down to 0, after a time-out. -1 when the peer closes or an error
 * occurs first, even if some bytes have arrived. A count of 0 or less gives 0.
 */
RTSPS_EXPORT int32_t CBB_Recvn(CBB_SOCK_T iSockFd, void* pBuf, int iBufCount, uint32_t nTimeOut);

/**
 * Waits for nTimeOut at most and receives once.
 *
 * @param[in] iSockFd   the socket.
 * @param[out] pBuf     receives the bytes.
 * @param[in] iBufLen   room in pBuf, bytes.
 * @param[in] nTimeOut  ms.
 *
 * @return the number of bytes, 1 or more, or -1 for a time-out, a closed peer or an error.
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
 * @return the result of ioctl().
 */
RTSPS_EXPORT int32_t CBB_Ioctl(CBB_SOCK_T iSockFd, unsigned long nRequest, uint32_t* pArg);

/** @} */
/**
 * @defgroup cbb_waiting Waiting for descriptors
 * @{
 */

/**
 * The system's select(). Blocks for *pTimeOut at most.
 *
 * @param[in] iCount        the highest descriptor plus one.
 * @param[in,out] pRead     descriptors to read from; may be null.
 * @param[in,out] pWrite    descriptors to write to; may be null.
 * @param[in,out] pError    descriptors with an exception; may be null.
 * @param[in,out] pTimeOut  null waits without limit. tv_sec has 64 bits on every processor. On
 *                          32-bit processors compile with -D_TIME_BITS=64 -D_FILE_OFFSET_BITS=64;
 *                          CMake and pkg-config pass these flags. CBB_Select does not change the
 *                          value. CBB_SelectEx leaves in it what the system writes (on Linux the
 *                          remaining time), so set it before each call.
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
 * Checks whether a descriptor is in a set.
 *
 * @param[in] iSockFd  the descriptor.
 * @param[in] pSet     the set.
 *
 * @return 1 if it is, else 0; also 0 for a null set and for a descriptor outside 0..FD_SETSIZE-1.
 */
RTSPS_EXPORT int32_t CBB_FdIsSet(CBB_SOCK_T iSockFd, const fd_set* pSet);

/**
 * The system's poll(). Blocks for iTimeO at most.
 *
 * @param[in,out] pFds  the records.
 * @param[in] iFds      number of records.
 * @param[in] iTimeO    ms; a negative value waits without limit.
 *
 * @return the result of poll(): the number of ready descriptors, 0 on a time-out, or -1.
 */
RTSPS_EXPORT int32_t CBB_Poll(struct pollfd* pFds, int iFds, int iTimeO);

/**
 * The system's poll(), repeated when a signal interrupts it.
 *
 * @param[in,out] pFds     the records.
 * @param[in] iFds         number of records.
 * @param[in,out] piTimeO  on entry the limit in ms, on return the remaining time, 0 or more. Null
 *                         or a negative value waits without limit and is not changed.
 *
 * @return as CBB_Poll.
 */
RTSPS_EXPORT int32_t CBB_PollEx(struct pollfd* pFds, int iFds, int* piTimeO);

/** @} */
/**
 * @defgroup cbb_threads Threads
 * @{
 */

/**
 * Starts a thread that must be joined with CBB_Thread_Wait. The thread inherits the scheduling and
 * the signal mask of the calling thread. Priority and SchedPolicy are checked, but not applied, so
 * no privilege is needed.
 *
 * @param[in] StartAddress  the function of the thread.
 * @param[in] Params        passed to StartAddress; may be null.
 * @param[in] StackSize     bytes; 0 for the system's default.
 * @param[in] IsSuspend     ignored; the thread runs at once.
 * @param[in] Priority      must be valid for SchedPolicy: 0 with SCHED_OTHER, 1 to 99 with SCHED_RR
 *                          and SCHED_FIFO.
 * @param[in] SchedPolicy   SCHED_OTHER, SCHED_RR or SCHED_FIFO.
 *
 * @return the thread, or CBB_INVALID_HANDLE when an attribute is refused or no thread can be
 * created.
 */
RTSPS_EXPORT CBB_HANDLE CBB_Thread_Create(CBB_THREAD_FUNC StartAddress, void* Params,
                                          uint32_t StackSize, uint32_t IsSuspend, int Priority,
                                          int SchedPolicy);

/**
 * Starts a detached thread, which cannot be joined.
 *
 * @param[in] StartAddress  the function of the thread.
 * @param[in] Params        passed to StartAddress; may be null.
 * @param[in] StackSize     bytes; 0 for the system's default.
 *
 * @return 1 for success and 0 for failure.
 */
RTSPS_EXPORT int32_t CBB_ThreadDetached_Create(CBB_THREAD_FUNC StartAddress, void* Params,
                                               uint32_t StackSize);

/** Ends the calling thread. In C++ the stack is unwound; a catch-all handler must rethrow. */
RTSPS_EXPORT void CBB_Thread_Exit(void);

/**
 * Waits without limit until a thread has ended, and frees it. Call it once per thread.
 *
 * @param[in] hThread  the thread.
 *
 * @return 0, or -1 at once for CBB_INVALID_HANDLE, null and the calling thread itself.
 */
RTSPS_EXPORT int32_t CBB_Thread_Wait(CBB_HANDLE hThread);

/**
 * Returns the handle of the calling thread.
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
 * Sets the priority of a running thread. Its policy stays the same. May need a privilege.
 *
 * @param[in] hThread    the thread.
 * @param[in] iPriority  must be valid for the policy.
 *
 * @return 0, or -1 for CBB_INVALID_HANDLE, null, or when the system refuses.
 */
RTSPS_EXPORT int32_t CBB_Thread_SetPriority(CBB_HANDLE hThread, int iPriority);

/**
 * Checks whether a policy is SCHED_OTHER, SCHED_RR or SCHED_FIFO. Does not change the thread.
 *
 * @param[in] hThread  the thread.
 * @param[in] iPolicy  the policy.
 *
 * @return 0 if it is, else -1; also -1 for CBB_INVALID_HANDLE.
 */
RTSPS_EXPORT int32_t CBB_Thread_SetSchedPolicy(CBB_HANDLE hThread, int iPolicy);

/** @} */
/**
 * @defgroup cbb_semaphores Semaphores
 * The system's semaphores, private to the process, in the caller's memory. Each function returns -1
 * for a null semaphore.
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
 * Destroys a semaphore. No thread may wait on it.
 *
 * @param[in,out] pSem  the semaphore.
 *
 * @return 0, or -1.
 */
RTSPS_EXPORT int32_t CBB_SemDestroy(sem_t* pSem);

/**
 * Decreases the count by one. Blocks without limit while the count is 0.
 *
 * @param[in,out] pSem  the semaphore.
 *
 * @return 0, or -1 with EINTR when a signal handler interrupted the wait.
 */
RTSPS_EXPORT int32_t CBB_SemWait(sem_t* pSem);

/**
 * Increases the count by one, and wakes one waiting thread.
 *
 * @param[in,out] pSem  the semaphore.
 *
 * @return 0, or -1.
 */
RTSPS_EXPORT int32_t CBB_SemPost(sem_t* pSem);

/**
 * Decreases the count by one. Blocks for nTimeOut at most while the count is 0. The wait ends at a
 * fixed time of the wall clock. Setting the clock back during the wait makes the wait longer by
 * that amount; setting it forward makes it shorter.
 *
 * @param[in,out] pSem  the semaphore.
 * @param[in] nTimeOut  ms; 0 tries once. No value waits without limit.
 *
 * @return 0, or -1. errno is ETIMEDOUT when the count stayed 0 (EAGAIN for nTimeOut 0), and EINTR
 * when a signal handler interrupted the wait.
 */
RTSPS_EXPORT int32_t CBB_SemTimedWait(sem_t* pSem, uint32_t nTimeOut);

/** @} */
/**
 * @defgroup cbb_time Time
 * @{
 */

/**
 * Sleeps. A signal handler ends the sleep early. The number of microseconds is taken modulo 2^32.
 * The longest sleep is therefore 4294967 ms.
 *
 * @param[in] iMilliSec  milliseconds.
 */
RTSPS_EXPORT void CBB_Sleep(int iMilliSec);

/**
 * Sleeps. A signal handler ends the sleep early.
 *
 * @param[in] lMicroSec  microseconds; returns at once for 0 and below.
 */
RTSPS_EXPORT void CBB_USleep(int64_t lMicroSec);

/**
 * Reads the wall clock, which jumps when it is set.
 *
 * @return milliseconds since 1970.
 */
RTSPS_EXPORT uint64_t CBB_GetTimeTick(void);

/**
 * Reads the wall clock, which jumps when it is set.
 *
 * @return microseconds since 1970.
 */
RTSPS_EXPORT uint64_t CBB_TimeNow(void);

/** @} */
/**
 * @defgroup cbb_text Text
 * All functions work on bytes. Only ASCII letters have a case. The locale has no influence.
 * @{
 */

/**
 * Writes a number.
 *
 * @param[out] szOut  must have room for the text and its NUL; 66 bytes are always enough.
 * @param[in] iValue  the number.
 * @param[in] iBase   2 to 36; digits above 9 are lower-case letters.
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
 * Read a number in base 10, like CBB_StrToi32 and CBB_StrToi64.
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
 * Read a number after white space and an optional sign.
 *
 * @param[in] szText  the text.
 * @param[out] ppEnd  receives the first character after the digits, or szText when there is no
 *                    digit; may be null.
 * @param[in] iBase   2 to 16, or 0 for the base that the text names: 16 after "0x", 8 after "0",
 *                    else 10. A digit equal to the base is accepted: "1a" in base 10 is 20.
 *
 * @return the number, or 0 for another base. For a number that is out of range CBB_StrToi32 returns
 * the smallest or largest int, and CBB_StrToi64 returns -1.
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
 * Writes exactly nCount bytes: the text, then NULs. A text of nCount bytes or more is cut, and has
 * NO final NUL.
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
 * @return memory that the caller frees with free(), or null when none can be allocated.
 */
RTSPS_EXPORT char* CBB_Strdup(const char* szText);

/**
 * Copies a text, at most n bytes of it.
 *
 * @param[in] szText  the text.
 * @param[in] n       bytes, without the NUL.
 *
 * @return memory that the caller frees with free(), or null when none can be allocated.
 */
RTSPS_EXPORT char* CBB_Strndup(const char* szText, size_t n);

/**
 * Compares two texts.
 *
 * @param[in] szA  one text.
 * @param[in] szB  the other.
 *
 * @return the difference of the first two bytes that differ, taken as unsigned; 0 for equal texts.
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
 * @return as CBB_Strcmp, of the bytes in upper case.
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
 * Finds a character. The final NUL is found only when the text is empty.
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
 * @param[in] n       number of bytes.
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
 * @param[in] n         number of bytes that must match, NOT the length of the searched text.
 *
 * @return the first position, or null.
 */
RTSPS_EXPORT char* CBB_Strnstr(const char* szText, const char* szNeedle, size_t n);

/**
 * Finds a text in a text without regard to case.
 *
 * @param[in] szHaystack  the text that is searched.
 * @param[in] szNeedle    what is searched for; an empty one is found at the start.
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
