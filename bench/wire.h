// SPDX-License-Identifier: MIT
// The bare calls that the benchmarks compare with, and what goes with them.
#ifndef BENCH_WIRE_H
#define BENCH_WIRE_H

#include <cstddef>
#include <cstdint>

constexpr size_t WIRE_PREFIX_SIZE = 4;

inline size_t SizeOfUnit(const uint8_t* pUnit) {
    return WIRE_PREFIX_SIZE + (static_cast<size_t>(pUnit[2]) << 8 | pUnit[3]);
}

// On 127.0.0.1; -1 when it fails. A listening socket does not block. A receive buffer of 0 is the
// kernel's choice.
int ListenTcp(int port, int backlog);
int ConnectTcp(int port, int receiveBuffer = 0);
int ConnectUdp(int port, int sendBuffer);
int BindUdp(int port, int receiveBuffer);

// A run of units in as few calls as the kernel allows: one for a stream; with datagrams one for
// each series of one size and a shorter last one.
void SendStream(int fd, const uint8_t* pUnits, size_t nSize);
void SendDatagrams(int fd, const uint8_t* pUnits, size_t nSize);

// The same run, a packet a call. nSkip: bytes of each unit that are not sent.
void SendEach(int fd, const uint8_t* pUnits, size_t nSize, size_t nSkip);

int LocalPort(int fd);
// Reads until nothing is left; the bytes.
size_t DrainSocket(int fd);

#endif
