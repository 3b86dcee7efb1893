// SPDX-License-Identifier: MIT
#ifndef RTSPS_TRANS_CTRL_H
#define RTSPS_TRANS_CTRL_H

#include <cstddef>
#include <memory>

#include "rtsps_thread_safety.h"
#include "transmitter.h"

class CRtpSession;
class CRtspSession;
struct tagRtspRequestCfg;
struct tagRtspServerTotals;

enum ETransStreamId : int {
    TRANS_STREAM_VIDEO = 1,
    TRANS_STREAM_AUDIO = 2,
};

// The media side of one client: the video and the audio media session, and the path of the
// client's replies once a transport exists.
//
// Locks: the caller of SendStream and SendMsg holds the session's m_mutexSend; m_mutexMedia is
// taken inside it. Close waits for transmitter threads only after it has released m_mutexMedia.
class CTransCtrl {
  public:
    explicit CTransCtrl(CRtspSession* pRtspSession);
    ~CTransCtrl();
    CTransCtrl(const CTransCtrl&) = delete;
    CTransCtrl& operator=(const CTransCtrl&) = delete;

    int Init() { return 0; }
    int Release() { return 0; }

    // Copy the parameters for the next Open of the stream. Return 0.
    int SetVideoTransInfo(const TRANS_INFO* pInfo);
    int SetAudioTransInfo(const TRANS_INFO* pInfo);

    // Creates and opens the media session of a stream. Returns 0 or -1. An earlier media session of
    // the same stream stays open until Close.
    [[nodiscard]] int Open(const tagRtspRequestCfg* pCfg, ETransStreamId id);

    // Closes all media sessions and gives the data ports back. Returns 0. May be called again.
    int Close();

    // Sends a run of units (4-byte prefix with the big-endian length, RTP packet) to one stream.
    // Writes into `data`, and waits at most `timeout` ms per unit. Returns the number of bytes
    // taken, which is below `len` when a unit was not taken or the run ends inside a unit. Returns
    // -1 on a socket error.
    int SendStream(void* data, int len, ETransStreamId id, int timeout);

    // Stores what SendStream has sent so far, for both streams. The fields for short sends stay
    // unchanged.
    void GetTotals(tagRtspServerTotals* pTotals);

    // Sends the text of a reply. Returns the number of bytes taken, or -1.
    int SendMsg(void* buf, int len, int timeout);

  private:
    // Media sessions that a repeated SETUP replaced. They stay open, since the client may still
    // send there, and are closed with the transport.
    // NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl*): clang's own name, in moving the array
    struct CSupersededSessions {
        static constexpr size_t MAX_KEPT = 16;
        std::unique_ptr<CRtpSession> pSessions[MAX_KEPT];
        size_t nCount = 0;
    };

    struct CStreamTotals {
        uint64_t nPackets = 0;
        uint64_t nBytes = 0;
    };

    // The fields of one media stream, and the name of its session in log lines.
    struct CMediaStream {
        std::unique_ptr<CRtpSession>& pSession;
        TRANS_INFO& stuTransInfo;
        CSupersededSessions& superseded;
        CStreamTotals& totals;
        const char* szSession;
    };

    CMediaStream video() REQUIRES(m_mutexMedia);
    CMediaStream audio() REQUIRES(m_mutexMedia);
    static bool replace_session(const CMediaStream& stream);
    static int send_units(const CMediaStream& stream, uint8_t* pUnits, int len, int timeout);
    static void close_session(std::unique_ptr<CRtpSession> pSession);
    static void close_superseded(CSupersededSessions* pSuperseded);
    static void give_back_port(const TRANS_INFO& info);

    CMutex m_mutexMedia;
    // Null until their stream is opened, and after Close.
    std::unique_ptr<CRtpSession> m_pVideoSession GUARDED_BY(m_mutexMedia)
        PT_GUARDED_BY(m_mutexMedia);
    std::unique_ptr<CRtpSession> m_pAudioSession GUARDED_BY(m_mutexMedia)
        PT_GUARDED_BY(m_mutexMedia);
    CRtspSession* m_pRtspSession GUARDED_BY(m_mutexMedia);  // not owned; null after Close
    CStreamTotals m_videoTotals GUARDED_BY(m_mutexMedia);
    CStreamTotals m_audioTotals GUARDED_BY(m_mutexMedia);
    TRANS_INFO m_stuVideoTransInfo GUARDED_BY(m_mutexMedia){};
    TRANS_INFO m_stuAudioTransInfo GUARDED_BY(m_mutexMedia){};
    CSupersededSessions m_supersededVideo GUARDED_BY(m_mutexMedia);
    CSupersededSessions m_supersededAudio GUARDED_BY(m_mutexMedia);
};

#endif
