// SPDX-License-Identifier: MIT
#include "crowd.h"

#include <sys/socket.h>

#include <chrono>
#include <cstdlib>

#include "rtsps_session_mgr.h"
#include "support/log_capture.h"

namespace {

constexpr uint32_t VIDEO_SSRC = 0x11223344;  // of MakeStreamInfo
constexpr size_t PREFIX = 4;

// Unlike CTestSocket::ConnectTcp, it may fail, because the server is sometimes stopped.
CTestSocket Connected(uint16_t port, int nRecvBuffer = 0) {
    CTestSocket result(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (nRecvBuffer > 0) {
        setsockopt(result.Fd(), SOL_SOCKET, SO_RCVBUF, &nRecvBuffer, sizeof(nRecvBuffer));
    }
    return result.Connect(port) ? std::move(result) : CTestSocket();
}

bool Ok(const std::string& reply) {
    return reply.rfind("RTSP/1.0 200 OK\r\n", 0) == 0;
}

}  // namespace

CPlayer::CPlayer(uint16_t port, int transport, int nRecvBuffer)
    : m_transport(transport), m_client(port, Connected(port, nRecvBuffer)) {
    m_playing = Play();
}

bool CPlayer::Play() {
    if (m_client.Socket().Fd() == -1 || !Ok(m_client.Describe())) {
        return false;
    }
    std::string transport = "RTP/AVP/TCP;unicast;interleaved=0-1";
    if (m_transport == UDP) {
        m_data = CTestSocket::BindUdp();
        transport = "RTP/AVP;unicast;client_port=" + std::to_string(m_data.Port());
    } else if (m_transport == TCP) {
        transport = "RTP/AVP/TCP;unicast;client_port=9";
    }
    const std::string reply = m_client.Setup(0, transport);
    const size_t id = reply.find("Session: ");
    if (!Ok(reply) || id == std::string::npos) {
        return false;
    }
    m_sessionId = static_cast<uint32_t>(strtoul(reply.c_str() + id + 9, nullptr, 10));
    m_serverPort = static_cast<uint16_t>(TransportNumber(reply, "server_port"));
    if (m_transport == UDP && !m_data.Connect(m_serverPort)) {  // ignores datagrams of others
        return false;
    }
    if (m_transport == TCP) {
        m_data = Connected(m_serverPort);
    }
    return Ok(m_client.Play());
}

bool CPlayer::IsPlaying() const {
    // The server accepts one data connection. When it refuses another one, it has accepted ours.
    return m_playing &&
           (m_transport != TCP || WaitUntil([&] { return Connected(m_serverPort).Fd() == -1; }));
}

bool CPlayer::IsRegistered() const {
    CRtspSessionManager* manager = CRtspSessionManager::Instance();
    if (manager->getSession(m_sessionId) == nullptr) {
        return false;
    }
    manager->releaseSession(m_sessionId);
    return true;
}

bool CPlayer::Takes(const std::vector<Bytes>& units) {
    constexpr int LIMIT_MS = 20000;
    for (const Bytes& unit : units) {
        const std::string packet = PacketOf(unit, VIDEO_SSRC);
        std::string got;
        if (m_transport == UDP) {
            got = m_data.Receive(packet.size() + 1, LIMIT_MS);
        } else {
            const CTestSocket& stream = m_transport == TCP ? m_data : m_client.Socket();
            got = stream.ReceiveExactly(PREFIX + packet.size(), LIMIT_MS).erase(0, PREFIX);
        }
        if (got != packet) {
            return false;
        }
    }
    return true;
}

bool CPlayer::Leaves() {
    return Ok(m_client.Ask("TEARDOWN", m_client.Url()));
}

void CMediaSource::Next() {
    m_current.clear();
    for (size_t i = 0; i < m_units; ++i) {
        CTestUnit unit;
        unit.sequence = ++m_sequence;
        unit.payload = m_payload;
        unit.fill = static_cast<uint8_t>(m_sequence);
        m_current.push_back(MakeUnit(unit));
    }
}

int64_t CMediaSource::Push() const {
    Bytes run;
    for (const Bytes& unit : m_current) {
        run.insert(run.end(), unit.begin(), unit.end());
    }
    const auto start = std::chrono::steady_clock::now();
    RTSPServer_SendRealSteam(1, RTSPS_STREAM_MAIN, run.data(), static_cast<int>(run.size()));
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() -
                                                                 start)
        .count();
}

CTroublemakers::CTroublemakers(uint16_t port, const std::vector<EKind>& kinds, uint16_t foreignPort)
    : m_port(port), m_foreignPort(foreignPort) {
    for (const EKind kind : kinds) {
        m_slots.push_back({kind, nullptr});
    }
    m_thread = std::thread([this] { Run(); });
}

CTroublemakers::~CTroublemakers() {
    m_done = true;
    m_thread.join();
}

// Ten rounds per second. A client that does not read stays for two seconds.
void CTroublemakers::Run() {
    constexpr size_t ROUNDS = 10;
    auto next = std::chrono::steady_clock::now();
    for (size_t round = 0; !m_done; ++round) {
        for (size_t i = 0; i < m_slots.size() && !m_done; ++i) {
            CSlot* slot = &m_slots[i];
            const size_t lasts = slot->kind == NEVER_READS ? 2 * ROUNDS : ROUNDS;
            if (slot->player == nullptr || (round + i) % lasts == 0) {
                Replace(slot);
            } else if (slot->kind == NOISE) {
                slot->player->Socket().Send(Noise());
            }
        }
        next += std::chrono::milliseconds(1000 / ROUNDS);
        std::this_thread::sleep_until(next);
    }
}

void CTroublemakers::Replace(CSlot* slot) {
    if (slot->player != nullptr && slot->kind == RESETS) {
        slot->player->Socket().ResetHard();
    } else if (slot->player != nullptr && slot->kind == TEARS_DOWN) {
        slot->player->Socket().Send("TEARDOWN * RTSP/1.0\r\nCSeq: 9\r\n\r\n");
    }
    slot->player.reset();
    if (slot->kind == STOPS_HALFWAY || slot->kind == SETS_UP_TOO_OFTEN) {
        SetUpOnly(slot->kind == STOPS_HALFWAY ? m_random() % 3 : 20);
    } else {
        const int transport = static_cast<int>(m_random() % CPlayer::TRANSPORTS);
        const int nRecvBuffer = slot->kind == NEVER_READS ? 4096 : 0;
        slot->player = std::make_unique<CPlayer>(m_port, transport, nRecvBuffer);
    }
}

void CTroublemakers::SetUpOnly(size_t times) const {
    CTestClient client(m_port, Connected(m_port));
    if (client.Socket().Fd() == -1 || !Ok(client.Describe())) {
        return;
    }
    const std::string transport = "RTP/AVP;unicast;client_port=" + std::to_string(m_foreignPort);
    while (times > 0 && Ok(client.Setup(0, transport))) {
        --times;
    }
}

std::string CTroublemakers::Noise() {
    std::string bytes(m_random() % 3000, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(m_random());
    }
    switch (m_random() % 4) {
        case 0:
            return bytes;
        case 1:
            return "$\x01\x01" + bytes;
        case 2:
            return "OPTIONS * RTSP/1.0\r\nCSeq: 1\r\nX: " + bytes;
        default:
            return "HEARTBEAT * RTSP/1.0\r\nCSeq: 1\r\n\r\nHEARTBEAT * RTSP/1.0\r\nCSeq: 2\r\n\r\n";
    }
}
