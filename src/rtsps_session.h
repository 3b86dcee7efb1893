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
// Threads: the session's own thread runs the message loop and the handlers; host threads push media
// through SendRealStream; the manager's callers ask IsRunning and call RequestQuit and Close.
//
// Locks, in the order in which they may be taken: m_mutexClose, m_mutexSend, then the transport's.
// m_mutexSend is held for one reply or one push, during which nothing waits for the network.
class CRtspSession {
  public:
    // The session stays stopped until Open.
    explicit CRtspSession(unsigned int id);
    // Closes nothing: Close comes first.
    ~CRtspSession();
    CRtspSession(const CRtspSession&) = delete;
    CRtspSession& operator=(const CRtspSession&) = delete;

    int Init() { return 0; }

    // Starts to serve a connected socket, which is the session's if this succeeds; 0 or -1.
    [[nodiscard]] int Open(CBB_SOCK_T sock, const CBB_ADDR_T* client);

    // Tells the session's thread to end and wakes it, without waiting for it.
    void RequestQuit();

    // Ends the thread, closes the socket, frees the transport; 0. May run twice and in two threads
    // at once. It waits for the session's own thread, so that thread may call it only after
    // detach_thread.
    int Close();

    // Closes a session that is not running, unless its thread is, or may soon be, inside the host's
    // event function: it is then told to end, and the result is false.
    bool TryReap();

    // Before Open: the session is to be registered, and its thread waits for the result. The
    // thread that registers it, or does not, reports that once.
    void AwaitRegistration() { m_events.AwaitRegistration(); }
    void ReportRegistration(bool bRegistered) { m_events.ReportRegistration(bRegistered); }

    // Closes the socket of a session that was never opened; 0.
    int Release();

    bool IsRunning() const { return !m_bQuit.load(std::memory_order_acquire); }
    // Whether its thread has raised its last event. It may still take the manager's mutex, and
    // then returns.
    bool HasEnded() const { return m_bEnded.load(std::memory_order_acquire); }
    unsigned int GetSessionId() const { return m_dwSessionId; }

    // Offers a push to this session (see RTSPServer_SendRealSteam for the buffer). Returns the
    // bytes handed to the transport, 0 when the push is not for this session, -1 on a fault.
    int SendRealStream(int chan, int streamtype, void* data, int len);
    // Sends nothing; 0.
    int SendFileStream(void* data, int len);

    // Framing of the receive buffer, whose `len` bytes are followed by a NUL. 0: `msgLen` bytes
    // are a message head; 1: they are an interleaved frame; 2: incomplete; -1: too much without a
    // head.
    static int check_packet(const char* buf, int bufSize, int len, int& msgLen);

    // Dispatches one parsed message to its handler; the handler's result.
    int proc_rtsp_msg_hook(CRtspMsg* msg);

  private:
    friend struct CRtspSessionProbe;  // the tests' view of the fields

    static constexpr int RECV_BUFFER_SIZE = 8192;
    static constexpr int SEND_BUFFER_SIZE = 1024;  // largest reply, description included, and a NUL

    struct CReceiveBuffer;

    // Message loop
    static void* process_msg_svc(void* pSession);
    void detach_thread();
    void run_message_loop();
    int wait_readable(int nMilliSec, int* pnError) const;
    bool idle_too_long(int nIdleMs);
    static int receive_size(const CReceiveBuffer& buffer, int nPeeked);
    bool receive(CReceiveBuffer* pBuffer);
    bool consume(CReceiveBuffer* pBuffer);
    bool handle_message(const char* buf, int msgLen);
    int get_msg_cseq_value(const CRtspMsg* msg);
    int proc_response(CRtspMsg* msg);
    void refresh_status() {}

    // Some members below have no caller: they are the whole vocabulary of the protocol.

    // Method handlers: 0 keeps the connection, anything else ends it
    int proc_options(CRtspMsg* msg);
    int proc_describe(CRtspMsg* msg);
    int proc_setup(CRtspMsg* msg);
    int proc_play(CRtspMsg* msg);
    int proc_pause(CRtspMsg* msg);
    int proc_teardown(CRtspMsg* msg);
    int proc_heartbeat(CRtspMsg* msg);
    int proc_unknown_request(CRtspMsg* msg);

    // Steps of DESCRIBE and SETUP
    struct CSetup;
    int describe_stream(const CRtspMsg* msg, CRtspResponse* resp);
    int setup_stream(const CRtspMsg* msg, CSetup* pSetup);
    int setup_select_stream(const CRtspMsg* msg, CSetup* pSetup);
    int setup_transport(const CRtspMsg* msg, CSetup* pSetup);
    int setup_over_rtsp(const CRtspMsg* msg, CSetup* pSetup);
    int setup_with_ports(const CRtspMsg* msg, CSetup* pSetup, trans_protocol protocol);
    int setup_open(const CRtspMsg* msg, CSetup* pSetup);

    // Checks
    int check_authentication(const CRtspMsg* msg);
    int check_credentials(const CRtspMsg* msg);
    void refuse_authentication(const CRtspMsg* msg);
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

    // Send path; 0 or -1. A reply that does not fit SEND_BUFFER_SIZE, or lacks a part, is not sent:
    // -1. With PLAYS the session plays from the reply on: media of a push that comes while it is
    // sent follows right after it. A reply that is not sent leaves the state as it was.
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

    // --- What every push looks at, side by side ---

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

    // --- The rest ---

    // Present, and switched off by these values for the whole life of a session: session-id
    // checking, the idle rule, and authentication below. Session thread only.
    bool m_bNeedCheckId = false;
    bool m_bEachReqAuthCheck = true;
    bool m_bAuthChecked = false;
    bool m_bUseHeartBeat = false;
    const uint32_t m_dwSessionId;
    int32_t m_nCSeq = 0;              // of the last request that succeeded; session thread only
    int32_t m_nCheckUserPwdMode = 0;  // 0 none, 1 Basic, 2 Digest; session thread only
    uint32_t m_nShortSends GUARDED_BY(m_mutexSend) = 0;  // in all
    uint32_t m_nLongestShortRun GUARDED_BY(m_mutexSend) = 0;
    CSessionEvents m_events;  // its fields say who uses them
    // atomic: set by the session's thread when only its end is left, read by sweeps
    std::atomic<bool> m_bEnded{false};
    CBB_HANDLE m_hSrvThread GUARDED_BY(m_mutexClose) = nullptr;
    CMutex m_mutexClose ACQUIRED_BEFORE(m_mutexSend);  // one Close at a time
    // atomic: read by the session's thread; closed under m_mutexSend once that thread has ended
    std::atomic<CBB_SOCK_T> m_sockfd{-1};
    // Written by Open before the session's thread starts, and not again; read by all threads.
    CBB_ADDR_T m_serverAddr{};
    CBB_ADDR_T m_clientAddr{};
    // Never changed: multicast is refused, and the transport has the mode.
    CBB_ADDR_T m_mcastAddr{};
    ETRANS_MODE m_emTransmode = NON_MODE;
    CRtspMsgParser m_parser;  // session thread only
};

#endif
