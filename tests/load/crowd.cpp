// SPDX-License-Identifier: MIT
#include "crowd.h"

#include <algorithm>
#include <random>

namespace {

std::string Noise(std::minstd_rand* random) {
    const std::string starts[] = {
        "", std::string("$\x01\x01"), "OPTIONS * RTSP/1.0\r\nCSeq: 1\r\nX: ",
        "HEARTBEAT * RTSP/1.0\r\nCSeq: 1\r\n\r\nHEARTBEAT * RTSP/1.0\r\nCSeq: 2\r\n\r\n"};
    std::string bytes((*random)() % 3000, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>((*random)());
    }
    return starts[(*random)() % std::size(starts)] + bytes;
}

}  // namespace

CTroublemakers::CTroublemakers(uint16_t port, const std::vector<int>& numbers) {
    for (size_t kind = 0; kind < numbers.size(); ++kind) {
        for (int i = 0; i < numbers[kind]; ++i) {
            m_threads.emplace_back(&CTroublemakers::MakeTrouble, this, port,
                                   static_cast<EKind>(kind), m_threads.size() + 1);
        }
    }
}

CTroublemakers::~CTroublemakers() {
    m_done = true;
    for (std::thread& thread : m_threads) {
        thread.join();
    }
}

void CTroublemakers::MakeTrouble(uint16_t port, EKind kind, unsigned seed) {
    std::minstd_rand random(seed);
    while (!m_done) {
        const auto state = kind == STOPS_HALFWAY
                               ? static_cast<CPlayer::EState>(random() % CPlayer::PLAYING)
                               : CPlayer::PLAYING;
        CPlayer player(port, static_cast<int>(random() % CPlayer::TRANSPORTS), state,
                       kind == NEVER_READS ? 4096 : 0);
        for (int i = 0; i < (kind == NEVER_READS ? 20 : 10) && !m_done; ++i) {
            if (kind == NOISE) {
                player.Socket().Send(Noise(&random));
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        if (kind == RESETS) {
            player.Socket().ResetHard();
        } else if (kind == TEARS_DOWN) {
            player.Socket().Send("TEARDOWN * RTSP/1.0\r\nCSeq: 9\r\n\r\n");
        }
    }
}

std::optional<std::chrono::nanoseconds> PushTo(std::deque<CPlayer>& players, size_t units) {
    static uint16_t sequence = 1;
    const auto pushed = MakeUnits({96, sequence, 0, 1200, static_cast<uint8_t>(sequence)}, units);
    sequence = static_cast<uint16_t>(sequence + units);
    Bytes run = Join(pushed);
    const auto start = std::chrono::steady_clock::now();
    RTSPServer_SendRealSteam(1, RTSPS_STREAM_MAIN, run.data(), static_cast<int>(run.size()));
    const auto time = std::chrono::steady_clock::now() - start;
    const bool isReceived = std::all_of(players.begin(), players.end(), [&](CPlayer& player) {
        return player.Gets(pushed, 20000);
    });
    return isReceived ? std::optional(time) : std::nullopt;
}
