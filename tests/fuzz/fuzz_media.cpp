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

namespace {

constexpr uint32_t SSRC = 0x11223344;
constexpr uint8_t CHANNEL = 6;
constexpr size_t LARGEST_DATAGRAM = 65507;
constexpr size_t COMPARED_UNITS = 64;  // these always fit a socket buffer

CBB_ADDR_T MakeAddr(const char* szAddr) {
    CBB_ADDR_T addr{};
    CBB_MakeAddrByString(AF_INET, szAddr, 0, &addr);
    return addr;
}

// An open transport, and the socket that receives from it.
class CReceiver {
  public:
    explicit CReceiver(ETRANS_MODE mode) : m_mode(mode) {
        m_info.mode = mode;
        m_info.sockFd = -1;
        m_info.serverAddr = m_info.clientAddr = MakeAddr("127.0.0.1");
        m_info.byTcpFlag = CHANNEL;
        m_info.dwRtpSSRC = SSRC;
        FUZZ_CHECK(mode == RTPOVERRTSP_MODE ? open_pair()
                   : mode == TCP_MODE       ? open_connection()
                                            : open_datagrams());
    }
    ~CReceiver() {
        close(m_fd);  // closed first, with a reset, so that no connection stays in TIME_WAIT
        m_ctrl.Close();
        close(m_info.sockFd);
    }
    CReceiver(const CReceiver&) = delete;
    CReceiver& operator=(const CReceiver&) = delete;

    // Pushes units and compares all visible effects. Returns whether all units were received.
    bool Push(const std::string& text) {
        Bytes units(text.begin(), text.end());
        Bytes after = units;
        std::vector<Bytes> sent;
        const int nTaken = walk(&after, &sent);
        const auto nLen = static_cast<int>(units.size());
        FUZZ_CHECK(m_ctrl.SendStream(units.data(), nLen, TRANS_STREAM_VIDEO, 0) == nTaken);
        FUZZ_CHECK(units == after);
        if (sent.size() > COMPARED_UNITS) {
            return false;
        }
        for (const Bytes& bytes : sent) {
            receive(bytes);
        }
        return true;
    }

  private:
    bool is_datagrams() const { return m_mode == UDP_MODE || m_mode == MCAST_MODE; }
    bool open_ctrl() {
        m_ctrl.SetVideoTransInfo(&m_info);
        return m_ctrl.Open(nullptr, TRANS_STREAM_VIDEO) == 0;
    }
    bool open_pair() {
        int fds[2] = {-1, -1};
        FUZZ_CHECK(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) == 0);
        m_info.sockFd = fds[0];
        m_fd = fds[1];
        return CBB_SetBuffSize(fds[0], 1 << 20, 0) == 0 && open_ctrl();
    }
    bool open_datagrams() {
        m_fd = CBB_CreateSocket(AF_INET, SOCK_DGRAM, 0);
        const CBB_ADDR_T group = MakeAddr("239.255.77.77");
        const bool bGroup = m_mode == MCAST_MODE;
        return CBB_SetBuffSize(m_fd, 0, 1 << 20) == 0 &&
               (!bGroup || CBB_JoinMultiCastGroup(m_fd, &m_info.serverAddr, &group) == 0) &&
               CBB_Bind(m_fd, bGroup ? &group : &m_info.serverAddr) == 0 &&
               CBB_GetAddrBySockFd(m_fd, &m_info.clientAddr, nullptr) == 0 && open_ctrl();
    }
    bool open_connection() {
        m_fd = CBB_CreateSocket(AF_INET, SOCK_STREAM, 0);
        CBB_LingerOn(m_fd, 0);
        const int listener = dup(m_fd);  // the number that the listening socket will have
        close(listener);
        CBB_ADDR_T addr{};
        return open_ctrl() && CBB_GetAddrBySockFd(listener, &addr, nullptr) == 0 &&
               CBB_ConnectWithTimeOut(m_fd, &addr, 5000) == 0 &&
               // The accept thread closes the listening socket as its last step.
               WaitBriefly([listener] { return fcntl(listener, F_GETFD) == -1; });
    }

    // A second implementation of the rules: changes the units as the library does, collects the
    // packets that are sent, and returns the number of bytes taken.
    int walk(Bytes* pUnits, std::vector<Bytes>* pSent) const {
        size_t nTaken = 0;
        while (pUnits->size() - nTaken >= 4) {
            uint8_t* pUnit = pUnits->data() + nTaken;
            const size_t nUnit = size_t{ReadBe16(pUnit + 2)} + 4;
            if (nUnit > pUnits->size() - nTaken) {
                break;  // cut off
            }
            stamp(pUnit, nUnit);
            if (is_datagrams() && nUnit - 4 > LARGEST_DATAGRAM) {
                break;
            }
            nTaken += nUnit;
            if (is_datagrams() && nUnit == 4) {
                continue;  // an empty datagram is not sent
            }
            pSent->emplace_back(pUnit + (is_datagrams() ? 4 : 0), pUnit + nUnit);
            if (m_mode == TCP_MODE) {
                WriteBe16(&pSent->back()[2], 0);  // on the wire only
            }
        }
        return static_cast<int>(nTaken);
    }

    void stamp(uint8_t* pUnit, size_t nUnit) const {
        const bool bInterleaved = m_mode == RTPOVERRTSP_MODE;
        if (bInterleaved && strncasecmp(reinterpret_cast<char*>(pUnit), "RTSP", 4) == 0) {
            return;  // is treated as a reply
        }
        if (nUnit >= 4 + RTP_HEADER_SIZE) {
            WriteBe32(pUnit + 4 + RTP_OFFSET_SSRC, SSRC);
        }
        if (!is_datagrams()) {
            pUnit[0] = '$';
            pUnit[1] = bInterleaved ? CHANNEL : 0;
        }
    }

    void receive(const Bytes& bytes) const {
        const auto nSize = static_cast<int>(bytes.size());
        Bytes received(bytes.size() + 1);
        const int n = is_datagrams() ? CBB_RecvWithTimeOut(m_fd, received.data(), nSize + 1, 5000)
                                     : CBB_Recvn(m_fd, received.data(), nSize, 5000);
        received.resize(bytes.size());
        FUZZ_CHECK(n == nSize && received == bytes);
    }

    const ETRANS_MODE m_mode;
    TRANS_INFO m_info{};
    CTransCtrl m_ctrl{nullptr};
    int m_fd = -1;
};

}  // namespace

void Fuzz(CFuzzInput input) {
    static constexpr ETRANS_MODE MODES[] = {UDP_MODE, TCP_MODE, MCAST_MODE, RTPOVERRTSP_MODE};
    const ETRANS_MODE mode = MODES[input.Byte() % 4];
    const std::string filler(size_t{input.Byte()} * 256, ' ');
    const std::string first = input.Text(size_t{input.Byte()} * 16);
    const std::string second = input.Text() + filler;
    const int nDescriptors = CountDescriptors();
    {
        CReceiver receiver(mode);
        if (receiver.Push(first)) {
            receiver.Push(second);
        }
    }
    FUZZ_CHECK(CountDescriptors() == nDescriptors);
}
