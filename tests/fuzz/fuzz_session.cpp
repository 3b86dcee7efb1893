// SPDX-License-Identifier: MIT
// Sends a byte stream, in arbitrary pieces, to a session on a pair of sockets. Every reply must be
// well formed. The session must end when the client disconnects, and leave nothing open.
//
// Input: the bytes that the client sends, with three marks. 0xFF ends a piece, which the session
// receives separately. 0xFE does the same, and then the host pushes media. 0xFD sends the next byte
// as it is.
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <set>
#include <sstream>
#include <string_view>

#include "fuzz_support.h"
#include "rtsps_server.h"
#include "rtsps_session.h"

struct CRtspSessionProbe {
    static CBB_ADDR_T& ServerAddr(CRtspSession& session) { return session.m_serverAddr; }
};

namespace {

constexpr unsigned int SESSION_ID = 305419896;
constexpr size_t LARGEST_REPLY = 1024;
constexpr std::string_view NAMES =
    ",CSeq,Public,Content-Type,Content-Length,Session,Transport,Connection,";
const int g_nFirstPort = 20000 + getpid() % 10000 * 2;
const int g_nLastPort = g_nFirstPort + 2 * 23;

// The host's units for video and audio. After the prefix, all bytes are the payload type.
const std::string PREFIX("$\0\0\x3C", 4);
const std::string UNITS[] = {PREFIX + std::string(60, 96), PREFIX + std::string(60, 8)};

// The server, for its stream records and its data ports; no client connects to it.
bool StartServer() {
    TRtspServerPara para{};
    para.byDbg = 1;
    para.nMinPort = g_nFirstPort;
    para.nMaxPort = g_nLastPort;
    TRtspServerStreamInfo info{
        96, 8, 1, 2, RTSPS_AUDIO_STREAM_TYPE_G711A, RTSPS_VIDEO_STREAM_TYPE_H264, {}};
    return RTSPServer_Init(&para) == 0 && RTSPServer_SetStreamInfo(1, 0, &info) == 0 &&
           RTSPServer_SetStreamInfo(1, 1, &info) == 0 && RTSPServer_Start() == 0;
}

// Every pair must be back. Failed requests also give back the client's port numbers, which are
// ignored here.
void CollectPorts() {
    std::set<int> free;
    for (int n = -1; n != 0; n = CRtspServer::Instance()->BorrowDataPort()) {
        free.insert(n);
    }
    for (int n = g_nFirstPort; n <= g_nLastPort; n += 2) {
        FUZZ_CHECK(free.count(n) == 1);
        CRtspServer::Instance()->GivebackDataPort(n);
    }
}

// Checks the reply at the beginning of `bytes` and returns its length.
size_t CheckReply(std::string_view bytes) {
    const size_t nHead = bytes.find("\r\n\r\n");
    FUZZ_CHECK(nHead < LARGEST_REPLY);
    std::istringstream head(std::string(bytes.substr(0, nHead + 2)));
    std::string line;
    std::getline(head, line);
    const std::string code = line.substr(9, 3);
    const auto* pStatus = get_rtsp_status_map(get_rtsp_status_index(code.c_str()));
    FUZZ_CHECK(pStatus != nullptr && line == "RTSP/1.0 " + code + " " + pStatus->msg + "\r");
    size_t nReply = nHead + 4;
    while (std::getline(head, line)) {
        const std::string name = line.substr(0, line.find(": "));
        FUZZ_CHECK(NAMES.find("," + name + ",") != NAMES.npos);
        FUZZ_CHECK(line.find_first_of(std::string("\r\0", 2)) == line.size() - 1);
        FUZZ_CHECK(name != "Session" || line == "Session: " + std::to_string(SESSION_ID) + "\r");
        nReply += name == "Content-Length" ? std::stoul(line.substr(name.size() + 2)) : 0;
    }
    FUZZ_CHECK(nReply <= bytes.size() && nReply < LARGEST_REPLY);
    FUZZ_CHECK(nReply == nHead + 4 || bytes.find("v=0\r\n") == nHead + 4);
    return nReply;
}

// Sends the input to a session. Returns what the session sends.
std::string Talk(CFuzzInput input) {
    int fds[2] = {-1, -1};
    FUZZ_CHECK(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) == 0);
    CBB_ADDR_T addr{};
    CBB_MakeAddrByString(AF_INET, "127.0.0.1", 0, &addr);
    CRtspSession session(SESSION_ID);
    FUZZ_CHECK(session.Open(fds[0], &addr) == 0);
    // A pair of sockets has no address for data ports. The address is not read before a SETUP.
    CRtspSessionProbe::ServerAddr(session) = addr;
    std::string answers, piece;
    const auto Receive = [&] {
        char bytes[4096];
        ssize_t n = 0;
        while ((n = recv(fds[1], bytes, sizeof(bytes), MSG_DONTWAIT)) > 0) {
            answers.append(bytes, static_cast<size_t>(n));
        }
    };
    while (!input.Empty() && session.IsRunning()) {
        const uint8_t c = input.Byte();
        if (c < 0xFE) {
            piece += static_cast<char>(c == 0xFD ? input.Byte() : c);
        }
        if ((c >= 0xFE || input.Empty()) && !piece.empty()) {
            FUZZ_CHECK(CBB_Sendn(fds[1], piece.data(), static_cast<int>(piece.size()), 0) > 0);
            FUZZ_CHECK(WaitBriefly([&] {  // until all is received
                int nUnread = 0;
                ioctl(fds[0], FIONREAD, &nUnread);
                return nUnread == 0 || !session.IsRunning();
            }));
            piece.clear();
        }
        Receive();
        // Interleaved only: the ports that an input names may be in use on this machine.
        if (c == 0xFE && answers.find("server_port=") == answers.npos) {
            for (std::string unit : UNITS) {
                session.SendRealStream(1, 0, unit.data(), static_cast<int>(unit.size()));
            }
        }
    }
    shutdown(fds[1], SHUT_WR);
    FUZZ_CHECK(WaitBriefly([&] { return !session.IsRunning(); }));
    session.Close();
    Receive();
    close(fds[1]);
    return answers;
}

}  // namespace

void Fuzz(CFuzzInput input) {
    static const bool s_bStarted = StartServer();
    const int nDescriptors = CountDescriptors();
    const std::string answers = Talk(std::move(input));
    FUZZ_CHECK(s_bStarted && CountDescriptors() == nDescriptors);
    CollectPorts();
    for (std::string_view rest = answers; !rest.empty();) {
        if (rest[0] == '$') {
            const std::string& unit = UNITS[rest[4] == 8 ? 1 : 0];
            FUZZ_CHECK(rest.substr(16, unit.size() - 16) == unit.substr(16));  // after the SSRC
            rest.remove_prefix(unit.size());
        } else {
            rest.remove_prefix(CheckReply(rest));
        }
    }
}
