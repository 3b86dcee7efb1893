// SPDX-License-Identifier: MIT
// Shared by the tests of the media path: the parameters of one stream, and a pair of stream sockets
// that replaces an RTSP connection.
#ifndef TRANS_INFO_H
#define TRANS_INFO_H

#include <arpa/inet.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "support/test_net.h"
#include "transmitter.h"

inline CBB_ADDR_T MakeAddr(const char* text, uint16_t port) {
    uint8_t bytes[16] = {};
    CBB_ADDR_T addr{};
    if (inet_pton(AF_INET6, text, bytes) == 1) {
        CBB_MakeAddr6ByInt(bytes, port, &addr);
    } else {
        CBB_MakeAddrByString(AF_INET, text, port, &addr);
    }
    return addr;
}

inline TRANS_INFO MakeTransInfo(ETRANS_MODE mode, uint16_t serverPort = 0, uint16_t clientPort = 9,
                                int sockFd = -1) {
    TRANS_INFO info{};
    info.mode = mode;
    info.serverAddr = MakeAddr("127.0.0.1", serverPort);
    info.clientAddr = MakeAddr("127.0.0.1", clientPort);
    info.sockFd = sockFd;
    info.byTcpFlag = 6;
    info.byTcpRtcpFlag = 7;
    info.dwRtpPT = 96;
    info.dwRtpSSRC = 0x11223344;
    return info;
}

struct CSocketPair {
    explicit CSocketPair(int nSendBuffer = 1 << 20) {
        int fds[2] = {-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds), 0);
        server = CTestSocket(fds[0]);
        client = CTestSocket(fds[1]);
        CBB_SetBuffSize(server.Fd(), nSendBuffer, 0);
    }
    // The number of bytes that the client can read.
    size_t Queued() const {
        int n = 0;
        ioctl(client.Fd(), FIONREAD, &n);
        return static_cast<size_t>(n);
    }
    std::string ReadAll() const { return Queued() == 0 ? "" : client.ReceiveExactly(Queued()); }

    CTestSocket server;
    CTestSocket client;
};

// Sends one packet with its prefix and without waiting.
inline int Send(CTransmitter& transmitter, std::string packet) {
    return transmitter.SendPacket(packet.data(), static_cast<int>(packet.size()), 0);
}

inline std::string TextOf(const Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

#endif
