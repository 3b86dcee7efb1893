// SPDX-License-Identifier: MIT
// Many clients at the same time: players that check every packet, and clients that do harm.
#ifndef CROWD_H
#define CROWD_H

#include <atomic>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "support/test_net.h"

// Plays the video of channel 1 main over one transport.
class CPlayer {
  public:
    enum ETransport { UDP, TCP, INTERLEAVED };
    static constexpr int TRANSPORTS = 3;

    // Connects and sends every request up to PLAY.
    CPlayer(uint16_t port, int transport, int nRecvBuffer = 0);

    // Waits until the server can send media to this player. Returns whether it can.
    bool IsPlaying() const;
    // Whether the server has registered it; a client that was refused gets no media.
    bool IsRegistered() const;
    // Waits for the units of one push. Returns whether all arrived, in order and unchanged.
    bool Takes(const std::vector<Bytes>& units);
    // Sends TEARDOWN. Returns whether it was answered.
    bool Leaves();
    CTestSocket& Socket() { return m_client.Socket(); }

  private:
    bool Play();

    const int m_transport;
    CTestClient m_client;
    CTestSocket m_data;  // of UDP and TCP
    uint16_t m_serverPort = 0;
    uint32_t m_sessionId = 0;
    bool m_playing = false;
};

// The units of a push. Their sequence numbers continue those of the push before.
class CMediaSource {
  public:
    CMediaSource(size_t units, size_t payload) : m_units(units), m_payload(payload) {}
    void Next();
    const std::vector<Bytes>& Units() const { return m_current; }
    // Pushes them to the server. Returns the microseconds that the push took.
    int64_t Push() const;

  private:
    const size_t m_units;
    const size_t m_payload;
    uint16_t m_sequence = 0;
    std::vector<Bytes> m_current;
};

// Bad clients on a separate thread. Each is replaced by a new one every second or two.
class CTroublemakers {
  public:
    enum EKind {
        NEVER_READS,
        RESETS,
        NOISE,
        TEARS_DOWN,
        STOPS_HALFWAY,
        SETS_UP_TOO_OFTEN,  // so that its own port number, `foreignPort`, joins the server's pool
        KINDS,
    };
    CTroublemakers(uint16_t port, const std::vector<EKind>& kinds, uint16_t foreignPort = 9);
    ~CTroublemakers();
    CTroublemakers(const CTroublemakers&) = delete;
    CTroublemakers& operator=(const CTroublemakers&) = delete;

  private:
    struct CSlot {
        EKind kind;
        std::unique_ptr<CPlayer> player;
    };

    void Run();
    void Replace(CSlot* slot);
    void SetUpOnly(size_t times) const;
    std::string Noise();

    const uint16_t m_port;
    const uint16_t m_foreignPort;
    std::vector<CSlot> m_slots;
    std::minstd_rand m_random{1};
    std::atomic<bool> m_done{false};
    std::thread m_thread;
};

#endif
