// SPDX-License-Identifier: MIT
// A byte stream, in arbitrary pieces, to a whole session over a pair of sockets: whatever it
// answers is well formed, it ends when the client leaves, and it leaves nothing behind.
//
// Input: what the client sends, with three marks. 0xFF ends a piece, which the session receives by
// itself; so does 0xFE, and then the host pushes media; 0xFD sends the next byte as it is.
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <set>

#include "fuzz_support.h"
#include "rtsps_server.h"
#include "rtsps_session.h"

// A pair of sockets has no local address to lend data ports on.
struct CRtspSessionProbe {
    static void SetServerAddr(CRtspSession& session, const CBB_ADDR_T& addr) {
        session.m_serverAddr = addr;
    }
};

namespace {

constexpr unsigned int SESSION_ID = 305419896;
constexpr size_t LARGEST_REPLY = 1024;
constexpr int PORT_PAIRS = 24;
constexpr uint8_t VIDEO = 96;
constexpr uint8_t AUDIO = 8;

// The host's one packet of each kind: the payload type over and over.
Bytes MakeUnit(uint8_t byType) {
    Bytes unit(byType == VIDEO ? 64 : 32, byType);
    WriteBe16(&unit[2], static_cast<uint16_t>(unit.size() - 4));
    return unit;
}

// The server, for its stream records and its data ports; nobody connects to it.
class CHost {
  public:
    CHost() {
        TRtspServerPara para{};
        para.byDbg = 1;
        para.nMinPort = m_nFirstPort;
        para.nMaxPort = m_nFirstPort + 2 * (PORT_PAIRS - 1);
        RTSPServer_Init(&para);
        TRtspServerStreamInfo info{
            VIDEO, AUDIO, 1, 2, RTSPS_AUDIO_STREAM_TYPE_G711A, RTSPS_VIDEO_STREAM_TYPE_H264, {}};
        RTSPServer_SetStreamInfo(1, RTSPS_STREAM_MAIN, &info);
        RTSPServer_SetStreamInfo(1, RTSPS_STREAM_SUB, &info);
        FUZZ_CHECK(RTSPServer_Start() == 0);
    }

    // Every pair must be back. What failed requests gave back of the client's numbers is dropped.
    void CollectPorts() {
        CRtspServer* pServer = CRtspServer::Instance();
        std::set<int> free;
        for (int n = pServer->BorrowDataPort(); n != 0; n = pServer->BorrowDataPort()) {
            free.insert(n);
        }
        for (int n = m_nFirstPort; n < m_nFirstPort + 2 * PORT_PAIRS; n += 2) {
            FUZZ_CHECK(free.count(n) == 1);
            pServer->GivebackDataPort(n);
        }
    }

  private:
    const int m_nFirstPort = 20000 + getpid() % 10000 * 2;
};

// Checks one header of a reply; the length of the body that it announces, if it does.
size_t CheckHeader(const std::string& line) {
    static const std::set<std::string> s_names = {"CSeq",    "Public",    "Content-Type",
                                                  "Session", "Transport", "Connection"};
    const size_t nColon = line.find(": ");
    FUZZ_CHECK(nColon != line.npos && line.find_first_of(std::string("\r\n\0", 3)) == line.npos);
    const std::string name = line.substr(0, nColon);
    const std::string value = line.substr(nColon + 2);
    FUZZ_CHECK(name != "Session" || value == std::to_string(SESSION_ID));
    if (name == "Content-Length") {
        FUZZ_CHECK(value == std::to_string(TextToInt(value.c_str())));
        return static_cast<size_t>(TextToInt(value.c_str()));
    }
    FUZZ_CHECK(s_names.count(name) == 1);
    return 0;
}

// The length of the reply that `bytes` begin with, 0 when it is incomplete.
size_t CheckReply(const std::string& bytes) {
    const size_t nBlank = bytes.find("\r\n\r\n");
    FUZZ_CHECK(std::min(nBlank, bytes.size()) < LARGEST_REPLY);
    if (nBlank == bytes.npos) {
        return 0;
    }
    const auto* pStatus = get_rtsp_status_map(get_rtsp_status_index(bytes.substr(9, 3).c_str()));
    FUZZ_CHECK(pStatus != nullptr);
    const std::string status = std::string("RTSP/1.0 ") + pStatus->code + " " + pStatus->msg;
    size_t nEnd = bytes.find("\r\n");
    FUZZ_CHECK(bytes.substr(0, nEnd) == status);
    size_t nReply = nBlank + 4;
    while (nEnd < nBlank) {
        const size_t nLine = nEnd + 2;
        nEnd = bytes.find("\r\n", nLine);
        nReply += CheckHeader(bytes.substr(nLine, nEnd - nLine));
    }
    FUZZ_CHECK(nReply < LARGEST_REPLY);
    const std::string body = bytes.substr(nBlank + 4, nReply - nBlank - 4);
    FUZZ_CHECK(body.empty() || body.find("v=0\r\n") == 0);
    return nReply <= bytes.size() ? nReply : 0;
}

// The same for a frame, which carries one of the host's packets.
size_t CheckFrame(const std::string& bytes) {
    const Bytes unit = MakeUnit(bytes[3] == 60 ? VIDEO : AUDIO);
    const std::string expected(unit.begin(), unit.end());
    FUZZ_CHECK(bytes.compare(2, 2, expected, 2, 2) == 0);
    if (bytes.size() < expected.size()) {
        return 0;
    }
    FUZZ_CHECK(bytes.compare(4, 8, expected, 4, 8) == 0);  // the SSRC behind it is the stream's
    FUZZ_CHECK(bytes.compare(16, expected.size() - 16, expected, 16) == 0);
    return expected.size();
}

class CClient {
  public:
    CClient() : m_session(SESSION_ID) {
        FUZZ_CHECK(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, m_fds) == 0);
        CBB_ADDR_T addr{};
        CBB_MakeAddrByString(AF_INET, "127.0.0.1", 0, &addr);
        FUZZ_CHECK(m_session.Open(m_fds[0], &addr) == 0);
        CRtspSessionProbe::SetServerAddr(m_session, addr);  // nobody reads it before a SETUP
    }
    ~CClient() { close(m_fds[1]); }
    CClient(const CClient&) = delete;
    CClient& operator=(const CClient&) = delete;

    void Send(const std::string& piece) {
        if (piece.empty() || !m_session.IsRunning()) {
            return;
        }
        const auto nLen = static_cast<int>(piece.size());
        FUZZ_CHECK(CBB_Sendn(m_fds[1], piece.data(), nLen, 0) == nLen);
        FUZZ_CHECK(WaitBriefly([this] {  // until all is received
            int nUnread = 0;
            ioctl(m_fds[0], FIONREAD, &nUnread);
            return nUnread == 0 || !m_session.IsRunning();
        }));
        ++m_nPieces;
        Receive();
    }

    // Interleaved only: the other ports that an input names may be somebody's on this machine.
    void Push() {
        for (const uint8_t byType : {VIDEO, AUDIO}) {
            Bytes unit = MakeUnit(byType);
            if (!m_bPorts) {
                m_session.SendRealStream(1, 0, unit.data(), static_cast<int>(unit.size()));
            }
        }
        Receive();
    }

    void Leave() {
        shutdown(m_fds[1], SHUT_WR);
        FUZZ_CHECK(WaitBriefly([this] { return !m_session.IsRunning(); }));
        m_session.Close();
        Receive();
        FUZZ_CHECK(m_received.empty() && m_nReplies <= m_nPieces);
    }

  private:
    void Receive() {
        char bytes[4096];
        ssize_t n = 0;
        do {
            m_received.append(bytes, static_cast<size_t>(n));
            n = recv(m_fds[1], bytes, sizeof(bytes), MSG_DONTWAIT);
        } while (n > 0);
        m_bPorts = m_bPorts || m_received.find("server_port=") != m_received.npos;
        for (size_t nTaken = 1; nTaken > 0 && m_received.size() >= 4;) {
            const bool bFrame = m_received[0] == '$';
            nTaken = bFrame ? CheckFrame(m_received) : CheckReply(m_received);
            m_received.erase(0, nTaken);
            m_nReplies += !bFrame && nTaken > 0 ? 1 : 0;
        }
    }

    CRtspSession m_session;
    int m_fds[2] = {-1, -1};
    std::string m_received;
    bool m_bPorts = false;
    size_t m_nPieces = 0;
    size_t m_nReplies = 0;
};

void Talk(CFuzzInput input) {
    CClient client;
    for (std::string piece; !input.Empty();) {
        const uint8_t c = input.Byte();
        if (c < 0xFE) {
            piece += static_cast<char>(c == 0xFD ? input.Byte() : c);
        }
        if (c >= 0xFE || input.Empty()) {
            client.Send(piece);
            piece.clear();
        }
        if (c == 0xFE) {
            client.Push();
        }
    }
    client.Leave();
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    static CHost s_host;
    const int nDescriptors = CountDescriptors();
    Talk(CFuzzInput(pData, nSize));
    FUZZ_CHECK(CountDescriptors() == nDescriptors);
    s_host.CollectPorts();
    return 0;
}
