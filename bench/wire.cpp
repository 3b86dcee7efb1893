// SPDX-License-Identifier: MIT
#include "wire.h"

#include <arpa/inet.h>
#include <netinet/udp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#ifndef UDP_SEGMENT
#define UDP_SEGMENT 103
#endif

namespace {

constexpr size_t MAX_SEGMENTS = 64;
constexpr size_t MAX_BYTES = 65000;

sockaddr_in Loopback(int port) {
    sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return addr;
}

void SendSeries(int fd, iovec* pParts, size_t nParts) {
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(uint16_t))] = {};
    msghdr message = {};
    message.msg_iov = pParts;
    message.msg_iovlen = nParts;
    if (nParts > 1) {
        message.msg_control = control;
        message.msg_controllen = sizeof(control);
        cmsghdr* pSegment = CMSG_FIRSTHDR(&message);
        pSegment->cmsg_level = IPPROTO_UDP;
        pSegment->cmsg_type = UDP_SEGMENT;
        pSegment->cmsg_len = CMSG_LEN(sizeof(uint16_t));
        const auto nSegment = static_cast<uint16_t>(pParts[0].iov_len);
        std::memcpy(CMSG_DATA(pSegment), &nSegment, sizeof(nSegment));
    }
    sendmsg(fd, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
}

}  // namespace

int ListenTcp(int port, int backlog) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    const sockaddr_in addr = Loopback(port);
    if (bind(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof(addr)) == 0 &&
        listen(fd, backlog) == 0)
        return fd;
    close(fd);
    return -1;
}

int ConnectTcp(int port, int receiveBuffer) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (receiveBuffer > 0)
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof(receiveBuffer));
    const sockaddr_in addr = Loopback(port);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof(addr)) == 0)
        return fd;
    close(fd);
    return -1;
}

int BindUdp(int port, int receiveBuffer) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof(receiveBuffer));
    const sockaddr_in addr = Loopback(port);
    if (bind(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof(addr)) == 0)
        return fd;
    close(fd);
    return -1;
}

int ConnectUdp(int port, int sendBuffer) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sendBuffer, sizeof(sendBuffer));
    const sockaddr_in addr = Loopback(port);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof(addr)) == 0)
        return fd;
    close(fd);
    return -1;
}

void SendStream(int fd, const uint8_t* pUnits, size_t nSize) {
    send(fd, pUnits, nSize, MSG_DONTWAIT | MSG_NOSIGNAL);
}

void SendDatagrams(int fd, const uint8_t* pUnits, size_t nSize) {
    iovec parts[MAX_SEGMENTS];
    size_t nParts = 0;
    size_t nBytes = 0;
    for (size_t pos = 0; pos < nSize;) {
        const size_t nUnit = SizeOfUnit(pUnits + pos);
        const size_t nPacket = nUnit - WIRE_PREFIX_SIZE;
        if (nParts == MAX_SEGMENTS || nBytes + nPacket > MAX_BYTES ||
            (nParts > 0 &&
             (nPacket > parts[0].iov_len || parts[nParts - 1].iov_len < parts[0].iov_len))) {
            SendSeries(fd, parts, nParts);
            nParts = 0;
            nBytes = 0;
        }
        parts[nParts++] = {const_cast<uint8_t*>(pUnits + pos + WIRE_PREFIX_SIZE), nPacket};
        nBytes += nPacket;
        pos += nUnit;
    }
    if (nParts > 0)
        SendSeries(fd, parts, nParts);
}

void SendEach(int fd, const uint8_t* pUnits, size_t nSize, size_t nSkip) {
    for (size_t pos = 0; pos < nSize; pos += SizeOfUnit(pUnits + pos))
        send(fd, pUnits + pos + nSkip, SizeOfUnit(pUnits + pos) - nSkip,
             MSG_DONTWAIT | MSG_NOSIGNAL);
}

int LocalPort(int fd) {
    sockaddr_in addr = {};
    socklen_t size = sizeof(addr);
    getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &size);
    return ntohs(addr.sin_port);
}

size_t DrainSocket(int fd) {
    static char buffer[1 << 20];
    size_t nBytes = 0;
    for (;;) {
        const ssize_t n = recv(fd, buffer, sizeof(buffer), MSG_DONTWAIT);
        if (n <= 0)
            return nBytes;
        nBytes += static_cast<size_t>(n);
    }
}
