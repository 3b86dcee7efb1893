// SPDX-License-Identifier: MIT
// Pushes the host's media units over all four transports, and compares the received data.
//
// Input: the transport, the size of the filler in units of 256 bytes, the start of the second push
// in units of 16 bytes; then the media units. The filler after them allows units that are larger
// than an input.
#include <fcntl.h>
#include <strings.h>
#include <sys/socket.h>

#include "fuzz_support.h"
#include "rtp_packet.h"
#include "rtsps_trans_ctrl.h"

constexpr uint32_t SSRC = 0x11223344;
constexpr uint8_t CHANNEL = 6;
constexpr size_t LARGEST_DATAGRAM = 65507;
constexpr size_t COMPARED_UNITS = 64;  // these always fit a socket buffer

// Opens a transport. Stores the client's socket, and the server's if the two are a pair.
static void Open(ETRANS_MODE mode, CTransCtrl* pCtrl, int (&fds)[2]) {
    TRANS_INFO info{};
    info.mode = mode;
    info.byTcpFlag = CHANNEL;
    info.dwRtpSSRC = SSRC;
    const char* szClient = mode == MCAST_MODE ? "239.255.77.77" : "127.0.0.1";
    CBB_MakeAddrByString(AF_INET, "127.0.0.1", 0, &info.serverAddr);
    CBB_MakeAddrByString(AF_INET, szClient, 0, &info.clientAddr);
    if (mode == RTPOVERRTSP_MODE) {
        FUZZ_CHECK(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) == 0);
        CBB_SetBuffSize(fds[1], 1 << 20, 0);
    } else {
        fds[0] = CBB_CreateSocket(AF_INET, mode == TCP_MODE ? SOCK_STREAM : SOCK_DGRAM, 0);
        CBB_JoinMultiCastGroup(fds[0], &info.serverAddr, &info.clientAddr);  // fails if it is none
        FUZZ_CHECK(CBB_Bind(fds[0], &info.clientAddr) == 0 &&
                   CBB_GetAddrBySockFd(fds[0], &info.clientAddr, nullptr) == 0);
    }
    info.sockFd = fds[1];
    const timeval limit = {5, 0};
    setsockopt(fds[0], SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    const int listener = dup(fds[0]);  // the number that a listening socket will have
    close(listener);
    pCtrl->SetVideoTransInfo(&info);
    FUZZ_CHECK(pCtrl->Open(nullptr, TRANS_STREAM_VIDEO) == 0);
    if (mode == TCP_MODE) {
        CBB_LingerOn(fds[0], 0);  // a reset at the end, so that no connection stays in TIME_WAIT
        FUZZ_CHECK(CBB_GetAddrBySockFd(listener, &info.serverAddr, nullptr) == 0 &&
                   CBB_ConnectWithTimeOut(fds[0], &info.serverAddr, 5000) == 0);
        // The accept thread closes the listening socket as its last step.
        FUZZ_CHECK(WaitBriefly([listener] { return fcntl(listener, F_GETFD) == -1; }));
    }
}

static void Stamp(ETRANS_MODE mode, uint8_t* pUnit, size_t nUnit) {
    if (mode == RTPOVERRTSP_MODE && strncasecmp(reinterpret_cast<char*>(pUnit), "RTSP", 4) == 0) {
        return;  // is treated as a reply
    }
    if (nUnit >= 4 + RTP_HEADER_SIZE) {
        WriteBe32(pUnit + 4 + RTP_OFFSET_SSRC, SSRC);
    }
    if (mode == TCP_MODE || mode == RTPOVERRTSP_MODE) {
        pUnit[0] = '$';
        pUnit[1] = mode == TCP_MODE ? 0 : CHANNEL;
    }
}

// Pushes units, and compares all visible effects with a second implementation of the rules.
// Returns whether all units were received.
static bool Push(ETRANS_MODE mode, CTransCtrl* pCtrl, int fd, const std::string& text) {
    Bytes pushed(text.begin(), text.end());
    Bytes units = pushed;
    const int nTaken =
        pCtrl->SendStream(pushed.data(), static_cast<int>(pushed.size()), TRANS_STREAM_VIDEO, 0);
    const bool bDatagrams = mode == UDP_MODE || mode == MCAST_MODE;
    size_t nWalked = 0;
    size_t nSent = 0;
    while (units.size() - nWalked >= 4) {
        uint8_t* pUnit = &units[nWalked];
        const size_t nUnit = size_t{ReadBe16(pUnit + 2)} + 4;
        if (nUnit > units.size() - nWalked) {
            break;  // cut off
        }
        Stamp(mode, pUnit, nUnit);
        if (bDatagrams && nUnit - 4 > LARGEST_DATAGRAM) {
            break;
        }
        nWalked += nUnit;
        Bytes sent(pUnit + (bDatagrams ? 4 : 0), pUnit + nUnit);
        if (mode == TCP_MODE) {
            WriteBe16(&sent[2], 0);  // on the wire only
        }
        if (!sent.empty() && ++nSent <= COMPARED_UNITS) {  // an empty datagram is not sent
            Bytes received(sent.size());
            // For a datagram, the result is its whole length.
            const ssize_t n =
                recv(fd, received.data(), received.size(), bDatagrams ? MSG_TRUNC : MSG_WAITALL);
            FUZZ_CHECK(n == static_cast<ssize_t>(sent.size()) && received == sent);
        }
    }
    FUZZ_CHECK(nTaken == static_cast<int>(nWalked) && pushed == units);
    return nSent <= COMPARED_UNITS;
}

void Fuzz(CFuzzInput input) {
    static constexpr ETRANS_MODE MODES[] = {UDP_MODE, TCP_MODE, MCAST_MODE, RTPOVERRTSP_MODE};
    const ETRANS_MODE mode = MODES[input.Byte() % 4];
    const std::string filler(size_t{input.Byte()} * 256, ' ');
    int fds[2] = {-1, -1};
    CTransCtrl ctrl(nullptr);
    Open(mode, &ctrl, fds);
    if (Push(mode, &ctrl, fds[0], input.Text(size_t{input.Byte()} * 16))) {
        Push(mode, &ctrl, fds[0], input.Text() + filler);
    }
    close(fds[0]);
    ctrl.Close();
    close(fds[1]);
}
