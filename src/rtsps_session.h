// SPDX-License-Identifier: MIT
#ifndef RTSPS_SESSION_H
#define RTSPS_SESSION_H

#include <atomic>
#include <cstdint>
#include <memory>

#include "cbb.h"
#include "rtsp_common.h"
#include "rtsp_header.h"
#include "rtsp_msg_parser.h"
#include "rtsps_event.h"
#include "rtsps_thread_safety.h"
#include "rtsps_trans_ctrl.h"
#include "rtsps_url.h"
#include "transmitter.h"

class CRtspMsg;
class CRtspRequest;
class CRtspResponse;
struct tagRtspServerStreamInfo;

// One connected client: its thread, its protocol state and its media.
//
// Threads: the session's own thread runs the message loop and the handlers. Host threads push media
// through SendRealStream. Callers of the manager use IsRunning, RequestQuit and Close.
//
// Locks, in the order in which they may be taken: m_mutexClose, m_mutexSend, then the transport's.
// m_mutexSend is held for one reply or one push; no call under it waits for the network.
class CRtspSession {
  public:
    // The session stays stopped until Open.
    explicit CRtspSession(unsigned int id);
    // Closes nothing; the owner calls Close first.
    ~CRtspSession();
    CRtspSession(const CRtspSession&) = delete;
    CRtspSession& operator=(const CRtspSession&) = delete;

    int Init() { return 0; }

    // Starts to serve a connected socket. Returns 0, and the session owns the socket; or -1, and
    // the caller still owns it.
    [[nodiscard]] int Open(CBB_SOCK_T sock, const CBB_ADDR_T* client);

    // Requests the end of the session's thread and wakes it, without waiting for it.
    void RequestQuit();

    // Ends the thread, closes the socket and frees the transport. Returns 0. May be called twice,
    // and by two threads at once. It joins the session's own thread, which may therefore call it
    // only after detach_thread.
    int Close();

    // Closes a session that is not running, and returns true. While its thread is, or may soon be,
    // inside the host's event function, only requests its end and returns false.
    bool TryReap();

    // AwaitRegistration is called before Open, when the session is to be registered: its thread
    // then waits for the result. The thread that registers or refuses it reports the result once.
    void AwaitRegistration() { m_events.AwaitRegistration(); }
    void ReportRegistration(bool bRegistered) { m_events.ReportRegistration(bRegistered); }

    // Closes the socket of a session that was never opened; 0.
    int Release();

    bool IsRunning() const { return !m_bQuit.load(std::memory_order_acquire); }
    // Whether its thread has raised its last event. The thread may then still take the manager's
    // mutex before it returns.
    bool HasEnded() const { return m_bEnded.load(std::memory_order_acquire); }
    unsigned int GetSessionId() const { return m_dwSessionId; }

    // Offers a push to this session (see RTSPServer_SendRealSteam for the buffer). Returns the
    // number of bytes that the transport took, 0 when the push is not for this session, or -1 on
    // an error.
    int SendRealStream(int chan, int streamtype, void* data, int len);
    // Sends nothing; 0.
    int SendFileStream(void* data, int len);

    // Finds the first message head or frame in the receive buffer, whose `len` bytes are followed
    // by a NUL. Returns 0 when the first `msgLen` bytes are a message head, 1 when they are an
    // interleaved frame, 2 when more bytes are needed, or -1 for too many bytes without a head.
    static int check_packet(const char* buf, int bufSize, int len, int& msgLen);

    // Passes one parsed message to its handler. Returns the handler's result.
    int proc_rtsp_msg_hook(CRtspMsg* msg);

  private:
    friend struct CRtspSessionProbe;  // the tests' view of the fields

    static constexpr int RECV_BUFFER_SIZE = 8192;
    static constexpr int SEND_BUFFER_SIZE = 1024;  // largest reply, description included, and a NUL

    struct CReceiveBuffer;
    enum class EArrival;

    // Message loop
    static void* process_msg_svc(void* pSession);
    void detach_thread();
    EArrival next_arrival(CReceiveBuffer* pBuffer);
    int wait_readable(int nMilliSec, int* pnError) const;
    bool idle_too_long(int nIdleMs);
    static int receive_size(const CReceiveBuffer& buffer, int nPeeked);
    EArrival receive(CReceiveBuffer* pBuffer);
    EArrival consume(CReceiveBuffer* pBuffer);
    int get_msg_cseq_value(const CRtspMsg* msg);
    int proc_response(CRtspMsg* msg);
    void refresh_status() {}

    // Some members below have no caller. They complete the set of methods and replies.

    // Method handlers: 0 keeps the connection, any other result ends it
    int proc_options(CRtspMsg* msg);
    int proc_describe(CRtspMsg* msg);
    int proc_setup(CRtspMsg* msg);
    int proc_play(CRtspMsg* msg);
    int proc_pause(CRtspMsg* msg);
    int proc_teardown(CRtspMsg* msg);
    int proc_heartbeat(CRtspMsg* msg);
    int proc_unknown_request(CRtspMsg* msg);

    // Steps of DESCRIBE and SETUP
    struct CRefusal;
    struct CSetup;
    CRefusal describe_stream(const CRtspMsg* msg, CRtspResponse* resp);
    CRefusal setup_stream(const CRtspMsg* msg, CSetup* pSetup);
    CRefusal setup_select_stream(CSetup* pSetup);
    CRefusal setup_transport(const CRtspMsg* msg, CSetup* pSetup);
    static void setup_over_rtsp(const CRtspMsg* msg, CSetup* pSetup);
    CRefusal setup_with_ports(const CRtspMsg* msg, CSetup* pSetup, trans_protocol protocol);
    CRefusal setup_open(CSetup* pSetup);
    void reply_to(const CRtspMsg* msg, const CRefusal& refusal);

    // Checks
    int check_authentication(const CRtspMsg* msg);
    int check_req_session_id(const CRtspMsg* msg);
    int check_req_cfg_validity() { return 0; }

    // Status replies: the result of the send
    int send_status(const CRtspMsg* msg, eRTSP_STATUS_CODE_INDEX index);
    int send_response_bad_request(const CRtspMsg* msg);
    int send_response_bad_session_id(const CRtspMsg* msg);
    int send_response_no_support_transport(const CRtspMsg* msg);
    int send_response_internal_server_error(const CRtspMsg* msg);
    int send_response_method_not_valid_in_this_state(const CRtspMsg* msg);
    int send_response_nothis_streaming(const CRtspMsg* msg);
    int send_response_method_not_allowed(const CRtspMsg* msg);
    int send_response_invalid_range(const CRtspMsg* msg);
    int send_response_not_implemented(const CRtspMsg* msg);
    int send_response_no_bandwidth(const CRtspMsg* msg);

    // Send path; 0 or -1. A reply that does not fit SEND_BUFFER_SIZE or is incomplete is not sent:
    // -1. With PLAYS the state becomes PLAY together with the reply, so that the media of a push
    // that arrives during the send follow the reply. Without a sent reply the state does not
    // change.
    enum class EAfterReply { KEEPS_STATE, PLAYS };
    struct CSendText;
    int send_response(const CRtspResponse* resp, EAfterReply after = EAfterReply::KEEPS_STATE);
    int send_sdp_response(const CRtspResponse& resp, const char* body, int bodyLen);
    int send_request(const CRtspRequest* req);
    bool send_text(CSendText* pText, EAfterReply after) EXCLUDES(m_mutexSend);

    // Media
    bool takes_push(int chan, int streamtype) const;
    void end_from_push(RTSP_SERVER_CLOSE_REASON reason) REQUIRES(m_mutexSend);
    int count_short_send() REQUIRES(m_mutexSend);
    tagRtspServerTotals media_totals();

    const char* client_text() const {
        const char* szText = CBB_GetAddrString(&m_clientAddr);
        return szText != nullptr ? szText : "";
    }

    // The fields that every push reads are adjacent, so that a push touches few cache lines.

    // atomic: set by the session's thread, by Close and by a fatal push; read by all
    std::atomic<bool> m_bQuit{true};
    // atomic: the last method that succeeded, or RTSP_ERROR. Written by the session's thread.
    // Storing PLAY publishes the request configuration and the transport to the pushes.
    std::atomic<eRTSP_METHOD_INDEX> m_emRtspStat{RTSP_UNKNOWN};
    CMutex m_mutexSend;  // every write to the client, and the end of its socket
    // Made by the session's thread before its first PLAY, detached under m_mutexSend by Close.
    std::unique_ptr<CTransCtrl> m_pTransCtrl;
    // atomic: written by SETUP, read by pushes; -1 matches no payload type
    std::atomic<int32_t> m_nVideoPT{-1};
    std::atomic<int32_t> m_nAudioPT{-1};
    int32_t m_nSndErrCounter GUARDED_BY(m_mutexSend) = 0;  // short pushes in a row
    // Written by DESCRIBE; read by pushes once they have seen the state PLAY.
    tagRtspRequestCfg m_stuReqCfg{};

    // The other fields.

    // These values switch off session-id checking, the idle limit and authentication (below) for
    // the whole life of a session. Session thread only.
    bool m_bNeedCheckId = false;
    bool m_bEachReqAuthCheck = true;
    bool m_bAuthChecked = false;
    bool m_bUseHeartBeat = false;
    const uint32_t m_dwSessionId;
    int32_t m_nCSeq = 0;              // of the last request that succeeded; session thread only
    int32_t m_nCheckUserPwdMode = 0;  // 0 none, 1 Basic, 2 Digest; session thread only
    uint32_t m_nShortSends GUARDED_BY(m_mutexSend) = 0;  // in total
    uint32_t m_nLongestShortRun GUARDED_BY(m_mutexSend) = 0;
    CSessionEvents m_events;  // each of its fields names the threads that use it
    // atomic: set by the session's thread after its last event, read by sweeps
    std::atomic<bool> m_bEnded{false};
    CBB_HANDLE m_hSrvThread GUARDED_BY(m_mutexClose) = nullptr;
    CMutex m_mutexClose ACQUIRED_BEFORE(m_mutexSend);  // serialises Close
    // atomic: read by the session's thread; closed under m_mutexSend once that thread has ended
    std::atomic<CBB_SOCK_T> m_sockfd{-1};
    // Written by Open before the session's thread starts, and not again; read by all threads.
    CBB_ADDR_T m_serverAddr{};
    CBB_ADDR_T m_clientAddr{};
    // Never changed: multicast is refused, and the transport stores the mode.
    CBB_ADDR_T m_mcastAddr{};
    ETRANS_MODE m_emTransmode = NON_MODE;
    CRtspMsgParser m_parser;  // session thread only
};

#endif
