// SPDX-License-Identifier: MIT
// The bare system calls that the benchmarks compare with, and their helpers.
#ifndef BENCH_WIRE_H
#define BENCH_WIRE_H

#include <cstddef>
#include <cstdint>

constexpr size_t WIRE_PREFIX_SIZE = 4;

inline size_t SizeOfUnit(const uint8_t* pUnit) {
    return WIRE_PREFIX_SIZE + (static_cast<size_t>(pUnit[2]) << 8 | pUnit[3]);
}

// Sockets on 127.0.0.1; -1 on failure. A listening socket does not block. With a buffer size of 0
// the kernel chooses the size.
int ListenTcp(int port, int backlog);
int ConnectTcp(int port, int receiveBuffer = 0);
int ConnectUdp(int port, int sendBuffer);
int BindUdp(int port, int receiveBuffer);

// Send a run of units in as few calls as the kernel allows. A stream needs one call. Datagrams need
// one call for each series of units of one size, which may end with a shorter one.
void SendStream(int fd, const uint8_t* pUnits, size_t nSize);
void SendDatagrams(int fd, const uint8_t* pUnits, size_t nSize);

// Sends the same run with one call per packet. nSkip: bytes of each unit that are not sent.
void SendEach(int fd, const uint8_t* pUnits, size_t nSize, size_t nSkip);

int LocalPort(int fd);
// Reads until the socket is empty. Returns the number of bytes.
size_t DrainSocket(int fd);

#endif
