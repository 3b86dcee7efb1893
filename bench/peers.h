// SPDX-License-Identifier: MIT
// A server in the benchmark's own process, and clients that are plain sockets.
#ifndef BENCH_PEERS_H
#define BENCH_PEERS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "wire.h"

enum class ETransport { eUdp, eInterleaved };

// Serves channel 1, streams main and sub, with H.264 as payload type 96, on any free port of the
// loopback interface. Only one may exist at a time.
class CServer {
  public:
    CServer();
    ~CServer();
    CServer(const CServer&) = delete;
    CServer& operator=(const CServer&) = delete;

    void Stop();
    int Port() const { return m_nPort; }

  private:
    int m_nPort = 0;
    bool m_bRunning = false;
};

// A client that plays, or only connects. On failure the process ends with a message.
class CPeer {
  public:
    explicit CPeer(int nPort, int nReceiveBuffer = 0);
    CPeer(CPeer&& other) noexcept;
    CPeer& operator=(CPeer&& other) = delete;
    ~CPeer();

    std::string Ask(const std::string& method, const std::string& tail, const std::string& headers);
    void Play(ETransport emTransport, const std::string& stream = "main");

    int MediaFd() const { return m_nRtp >= 0 ? m_nRtp : m_fd; }
    size_t Drain() const { return DrainSocket(MediaFd()); }

  private:
    int m_nPort;
    int m_fd = -1;
    int m_nRtp = -1;
    int m_nRtcp = -1;
    int m_nCseq = 0;
    std::string m_stream = "main";
};

std::vector<CPeer> MakePeers(const CServer& server, size_t n, ETransport emTransport,
                             const std::string& stream = "main");

// A typical access unit: packets of equal size, of which the last one is shorter. StampNext
// continues the sequence numbers from call to call.
constexpr size_t PICTURE_PACKETS = 16;
std::vector<uint8_t> MakePicture(size_t nPackets = PICTURE_PACKETS, size_t nPacket = 1212);
void StampFrom(std::vector<uint8_t>& picture, uint16_t& wNext);
void StampNext(std::vector<uint8_t>& picture);

void Push(std::vector<uint8_t>& picture, int nStream = 0, int nChannel = 1);

#endif
