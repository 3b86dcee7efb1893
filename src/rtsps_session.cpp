// SPDX-License-Identifier: MIT
// The life of a session, its message loop and its send path.
#include "rtsps_session.h"

#include <pthread.h>
#include <sys/prctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <new>
#include <vector>

#include "cbb/CBB_Thread.h"
#include "rtp_packet.h"
#include "rtsp_msg.h"
#include "rtsps_debug.h"
#include "rtsps_session_mgr.h"
#include "rtsps_text.h"
#include "rtsps_thread_stack.h"

namespace {

constexpr int POLL_INTERVAL_MS = 3000;
constexpr int IDLE_LIMIT_MS = 30000;
// Kept (clients): [frames-below-8] a frame on a higher channel is treated as the beginning of a
// request, although SETUP accepts such channels.
constexpr unsigned char INTERLEAVED_CHANNELS = 8;
constexpr size_t CSEQ_SIZE = 16;
constexpr char HEAD_END[] = "\r\n\r\n";
constexpr int HEAD_END_SIZE = sizeof(HEAD_END) - 1;

// The length of the interleaved frame (RFC 2326, section 10.12) at the beginning of the data, its
// 4-byte prefix included. While the prefix is incomplete, the length of the prefix. 0 when the data
// do not begin with a frame.
int FrameLength(const char* data, int len) {
    const auto* pBytes = reinterpret_cast<const uint8_t*>(data);
    if (len < 1 || pBytes[0] != '$' || (len > 1 && pBytes[1] >= INTERLEAVED_CHANNELS)) {
        return 0;
    }
    return len < RTP_PREFIX_SIZE ? RTP_PREFIX_SIZE : UnitSize(pBytes);
}

// The length of the message head at the beginning of the NUL-terminated data, its empty line
// included. 0 while the empty line is missing.
//
// Kept (clients): [nul-in-head] bytes after a NUL are not searched. A head with a NUL never ends,
// and is dropped when it is too long.
int HeadLength(const char* data) {
    const char* pEnd = CBB_Strstr(data, HEAD_END);
    return pEnd == nullptr ? 0 : static_cast<int>(pEnd - data) + HEAD_END_SIZE;
}

}  // namespace

// The received bytes, and the number of bytes that are not consumed yet. Their position is
// explained at consume. A NUL follows the received bytes.
struct CRtspSession::CReceiveBuffer {
    char data[RECV_BUFFER_SIZE + 1] = {};
    int nHeld = 0;
    int nMsgLen = 0;    // of the message that has arrived
    int nReceived = 0;  // the result of a receive that failed
    int nError = 0;     // the system's error number after a wait or receive that failed
};

// The result of a step of the message loop. All but NOTHING and MESSAGE end the session.
enum class CRtspSession::EArrival { NOTHING, MESSAGE, STOPPED, SELECT_FAILED, RECEIVE_FAILED };

CRtspSession::CRtspSession(unsigned int id) : m_dwSessionId(id) {}

CRtspSession::~CRtspSession() = default;

int CRtspSession::Open(CBB_SOCK_T sock, const CBB_ADDR_T* client) {
    if (client == nullptr) {
        RTSPS_LOG(ERROR, "invalid input para");
        return -1;
    }
    m_sockfd = sock;
    m_clientAddr = *client;
    CBB_GetAddrBySockFd(sock, &m_serverAddr, nullptr);
    RTSPS_LOG(INFO, "Coming Addr[%s], ConnectFD [%d]", client_text(), sock);

    const CLockGuard guard(m_mutexClose);
    m_bQuit = false;
    CBB_HANDLE hThread = nullptr;
    {
        const CBlockSignals block;
        hThread = CBB_Thread_Create(process_msg_svc, this, THREAD_STACK_SIZE, 0, 0, 0);
    }
    if (hThread == nullptr || hThread == CBB_INVALID_HANDLE) {
        RTSPS_LOG(ERROR, "create process_msg_svc! error!, FD[%d]", sock);
        m_sockfd = -1;  // not closed: the caller owns the socket again
        m_bQuit = true;
        return -1;
    }
    m_hSrvThread = hThread;
    return 0;
}

void CRtspSession::RequestQuit() {
    m_events.SetReason(RTSPS_CLOSE_SERVER_STOPPED);  // a session that has ended keeps its reason
    m_bQuit = true;
    const CLockGuard guard(m_mutexSend);  // the descriptor is closed under it
    const CBB_SOCK_T sock = m_sockfd;
    if (sock != -1) {
        CBB_ShutDown(sock, SHUT_RDWR);  // wakes the thread's wait; close would not
    }
}

int CRtspSession::Close() {
    const CLockGuard guard(m_mutexClose);
    RequestQuit();
    if (m_hSrvThread != nullptr) {
        CBB_Thread_Wait(m_hSrvThread);
        m_hSrvThread = nullptr;
    }
    std::unique_ptr<CTransCtrl> pTransCtrl;
    {
        const CLockGuard send(m_mutexSend);
        pTransCtrl = std::move(m_pTransCtrl);
        const CBB_SOCK_T sock = m_sockfd.exchange(-1);
        if (sock != -1) {
            CBB_CloseSocket(sock, 0);
        }
    }
    if (pTransCtrl != nullptr) {
        pTransCtrl->Close();
    }
    return 0;
}

bool CRtspSession::TryReap() {
    if (m_events.MayRaise() && !HasEnded()) {
        RequestQuit();
        return false;
    }
    Close();
    return true;
}

int CRtspSession::Release() {
    const CBB_SOCK_T sock = m_sockfd.exchange(-1);
    if (sock != -1) {
        CBB_CloseSocket(sock, 0);
    }
    return 0;
}

void* CRtspSession::process_msg_svc(void* pSession) {
    prctl(PR_SET_NAME, "rtsps_process_msg_svc");  // cut to 15 characters by the kernel
    if (pSession == nullptr) {
        RTSPS_LOG(ERROR, "pSession is NULL");
        return nullptr;
    }
    auto* pSelf = static_cast<CRtspSession*>(pSession);
    pSelf->m_events.Begin(pSelf->m_dwSessionId, pSelf->m_clientAddr);
    try {
        CReceiveBuffer buffer;
        EArrival arrival = EArrival::MESSAGE;
        while (arrival == EArrival::MESSAGE) {
            arrival = pSelf->next_arrival(&buffer);
            if (arrival == EArrival::SELECT_FAILED) {
                RTSPS_LOG(ERROR, "select failed,errno %d", buffer.nError);
            } else if (arrival == EArrival::RECEIVE_FAILED) {
                RTSPS_LOG(ERROR, "Recvn ,nRecvlen [%d]! left [%d]! fd[%d],errno[%d]",
                          buffer.nReceived, RECV_BUFFER_SIZE - buffer.nHeld, pSelf->m_sockfd.load(),
                          buffer.nError);
            } else if (arrival == EArrival::MESSAGE) {
                RTSPS_LOG(INFO, "fd[%d], len = [%d],\npRecvBuf:\n[%s]", pSelf->m_sockfd.load(),
                          buffer.nMsgLen, buffer.data);
                const std::unique_ptr<CRtspMsg> msg(
                    pSelf->m_parser.parse(buffer.data, buffer.nMsgLen));
                if (msg == nullptr) {
                    RTSPS_LOG(ERROR, "parse pMsg Error!!!, fd[%d],client[%s]",
                              pSelf->m_sockfd.load(), pSelf->client_text());
                    pSelf->m_events.SetReason(RTSPS_CLOSE_REFUSED);
                    break;
                }
                const int nResult = pSelf->proc_rtsp_msg_hook(msg.get());
                // Kept (clients): [response-ignored] a received response has the result -1, which
                // is ignored.
                if (nResult != 0 && msg->IsRequest()) {
                    break;
                }
            }
        }
    } catch (...) {
        // Memory ran out: this session ends, but not the process.
        pSelf->m_events.SetReason(RTSPS_CLOSE_CONNECTION_ERROR);
    }
    // Kept (clients): [ended-session-waits] the socket and the transport stay open here. The next
    // sweep closes them; until then the client keeps waiting.
    pSelf->m_bQuit = true;
    // Kept (operators): [exit-line] the end of every session is printed, at level CRIT.
    RTSPS_LOG(CRIT, "exit");
    pSelf->m_events.End(pSelf->media_totals());
    pSelf->m_bEnded.store(true, std::memory_order_release);
    if (CRtspSessionManager::Instance()->IsLeftToItsThread(pSelf)) {
        pSelf->detach_thread();
        pSelf->Close();
        delete pSelf;
    }
    return nullptr;
}

// Runs on the session's thread, which then ends without being joined.
void CRtspSession::detach_thread() {
    const CLockGuard guard(m_mutexClose);
    m_hSrvThread = nullptr;
    pthread_detach(pthread_self());
}

// Returns when a message has arrived, or when the session ends.
CRtspSession::EArrival CRtspSession::next_arrival(CReceiveBuffer* pBuffer) {
    int nIdleMs = 0;
    while (!m_bQuit && m_emRtspStat != RTSP_ERROR) {
        const int nReady = wait_readable(POLL_INTERVAL_MS, &pBuffer->nError);
        // cppcheck-suppress oppositeInnerCondition  // another thread sets it during the wait
        if (m_bQuit) {
            break;  // woken to stop: not a receive error
        }
        if (nReady < 0 && pBuffer->nError == EINTR) {
            continue;  // a signal of the C library, for example when the host changes its user id
        }
        if (nReady < 0) {
            m_events.SetReason(RTSPS_CLOSE_CONNECTION_ERROR);
            return EArrival::SELECT_FAILED;
        }
        if (nReady == 0) {
            nIdleMs = nIdleMs > INT_MAX - POLL_INTERVAL_MS ? INT_MAX : nIdleMs + POLL_INTERVAL_MS;
            if (idle_too_long(nIdleMs)) {
                break;
            }
            continue;
        }
        EArrival arrival = receive(pBuffer);
        if (arrival == EArrival::NOTHING) {
            nIdleMs = 0;
            arrival = consume(pBuffer);
        }
        if (arrival != EArrival::NOTHING) {
            return arrival;
        }
    }
    return EArrival::STOPPED;
}

// Waits with select, because operators match the log lines that its results lead to. For a closed
// descriptor select fails with EBADF ("select failed,errno 9"). After an error, or at the end of
// the connection, the descriptor becomes readable, and the receive returns the error number to
// print. poll reports all of these as events without a number.
//
// The bitmap is as large as the descriptor requires: FD_SET would write beyond an fd_set for
// descriptors of 1024 and above.
int CRtspSession::wait_readable(int nMilliSec, int* pnError) const {
    constexpr int WORD_BITS = static_cast<int>(sizeof(fd_mask) * CHAR_BIT);
    const CBB_SOCK_T sock = m_sockfd;
    if (sock < 0) {
        *pnError = EBADF;
        return -1;
    }
    std::vector<fd_mask> bitmap;
    fd_set small;
    fd_mask* pWords = small.fds_bits;
    if (sock < FD_SETSIZE) {
        FD_ZERO(&small);
    } else {
        bitmap.resize(static_cast<size_t>(sock / WORD_BITS) + 1);
        pWords = bitmap.data();
    }
    pWords[sock / WORD_BITS] =
        static_cast<fd_mask>(1UL << static_cast<unsigned int>(sock % WORD_BITS));
    timeval timeout{nMilliSec / 1000, (nMilliSec % 1000) * 1000};
    const int nReady =
        CBB_SelectEx(sock + 1, reinterpret_cast<fd_set*>(pWords), nullptr, nullptr, &timeout);
    *pnError = GetSystemLastError();  // before the bitmap is freed, which may change it
    return nReady;
}

bool CRtspSession::idle_too_long(int nIdleMs) {
    // Kept (operators): [no-idle-limit] the idle limit is switched off for the whole life of a
    // session. A silent client keeps its slot.
    if (!m_bUseHeartBeat || nIdleMs <= IDLE_LIMIT_MS) {
        return false;
    }
    m_emRtspStat = RTSP_ERROR;
    m_events.SetReason(RTSPS_CLOSE_CONNECTION_ERROR);
    RTSPS_LOG(ERROR, "RtspSession in 30s ,close this session,! fd[%d],client[%s]", m_sockfd.load(),
              client_text());
    return true;
}

// Returns how many bytes to receive. The next `nPeeked` bytes are known: they are in the buffer,
// after the held bytes, and also still in the socket.
//
// Clients send the receiver reports of interleaved media and their requests on one connection, so
// one segment may carry both. A receive therefore ends where a frame begins or ends. Without a
// frame, it takes all bytes that have arrived.
int CRtspSession::receive_size(const CReceiveBuffer& buffer, int nPeeked) {
    const int nHeld = buffer.nHeld;
    const int nArrived = nHeld + nPeeked;
    const int nFrame = FrameLength(buffer.data, nArrived);
    if (nFrame > nHeld) {
        return std::min(nFrame, RECV_BUFFER_SIZE) - nHeld;
    }
    const int nHead = HeadLength(buffer.data);
    if (nHead > nHeld && FrameLength(buffer.data + nHead, nArrived - nHead) > 0) {
        return nHead - nHeld;
    }
    return nPeeked;  // not more, because a frame may arrive before the receive
}

CRtspSession::EArrival CRtspSession::receive(CReceiveBuffer* pBuffer) {
    // Kept (clients): [frame-beyond-buffer] a frame longer than the buffer leaves no room, and the
    // receive of 0 bytes then ends the session.
    const int nRoom = RECV_BUFFER_SIZE - pBuffer->nHeld;
    char* pFree = pBuffer->data + pBuffer->nHeld;
    // The peek already reports the end of the stream and errors; the kernel reports an error once.
    int nReceived = static_cast<int>(
        recv(m_sockfd, pFree, static_cast<size_t>(nRoom), MSG_PEEK | MSG_DONTWAIT));
    if (nReceived > 0) {
        pFree[nReceived] = '\0';
        nReceived = CBB_Recv(m_sockfd, pFree, receive_size(*pBuffer, nReceived));
    }
    if (nReceived < 1) {
        pBuffer->nReceived = nReceived;
        pBuffer->nError = GetSystemLastError();
        if (m_bQuit) {
            return EArrival::STOPPED;
        }
        m_emRtspStat = RTSP_ERROR;
        if (nRoom == 0) {
            m_events.SetReason(RTSPS_CLOSE_REFUSED);
        }
        m_events.SetReason(nReceived == 0 ? RTSPS_CLOSE_CLIENT_LEFT : RTSPS_CLOSE_CONNECTION_ERROR);
        return EArrival::RECEIVE_FAILED;
    }
    pBuffer->nHeld += nReceived;
    pBuffer->data[pBuffer->nHeld] = '\0';
    return EArrival::NOTHING;
}

// Takes one message or frame out of the buffer.
//
// Kept (clients): [receive-not-moved] only the count is reduced. The remaining bytes are not moved
// to the front, and the next receive appends after the reduced count. One message per receive
// leaves the buffer empty; after a second message, or a body, the framing is wrong. Frames never
// share a receive, see receive_size.
CRtspSession::EArrival CRtspSession::consume(CReceiveBuffer* pBuffer) {
    pBuffer->nMsgLen = 0;
    const int nFound =
        check_packet(pBuffer->data, RECV_BUFFER_SIZE, pBuffer->nHeld, pBuffer->nMsgLen);
    if (nFound == -1) {
        pBuffer->nHeld = 0;
    } else {
        pBuffer->nHeld -= pBuffer->nMsgLen;
    }
    return nFound == 0 ? EArrival::MESSAGE : EArrival::NOTHING;
}

int CRtspSession::check_packet(const char* buf, int bufSize, int len, int& msgLen) {
    if (len < RTP_PREFIX_SIZE) {
        return 2;
    }
    const int nFrame = FrameLength(buf, len);
    if (nFrame > 0) {
        if (len < nFrame) {
            return 2;
        }
        msgLen = nFrame;
        RTSPS_LOG(INFO, "RTCP packet recv");
        return 1;
    }
    // Kept (clients): [body-not-awaited] the body does not belong to the message. A request that
    // announces one as "Content-length" does not parse and ends its session. After every other
    // request the body is treated as the beginning of the next one.
    const int nHead = HeadLength(buf);
    if (nHead > 0) {
        msgLen = nHead;
        return 0;
    }
    // Kept (clients): [long-head-dropped] more than 4096 bytes without an empty line are dropped,
    // without a reply or a log line.
    return len <= bufSize / 2 ? 2 : -1;
}

int CRtspSession::get_msg_cseq_value(const CRtspMsg* msg) {
    char szCseq[CSEQ_SIZE] = {};
    msg->GetHeaderValue("CSeq", szCseq, sizeof(szCseq));
    m_nCSeq = TextToInt(szCseq);
    return 0;
}

int CRtspSession::proc_response(CRtspMsg* /*msg*/) {
    return 0;
}

// The bytes of a message to send.
struct CRtspSession::CSendText {
    explicit CSendText(const CRtspMsg& msg, const char* szBody = "", int nBodyLen = 0)
        : nLen(msg.as_binary(sz, SEND_BUFFER_SIZE)) {
        if (nLen >= 0 && nBodyLen > 0) {
            CTextAppender text(sz, SEND_BUFFER_SIZE);
            text.Append(szBody);
            nLen = text.Overflowed() ? -1 : nLen + nBodyLen;
        }
    }

    char sz[SEND_BUFFER_SIZE + 1] = {};
    int nLen;        // negative: the message does not fit or is incomplete, and is not sent
    int nError = 0;  // the system's error number after the send
};

int CRtspSession::send_response(const CRtspResponse* resp, EAfterReply after) {
    CSendText text(*resp);
    RTSPS_LOG(INFO, "\n[%s]\n", text.sz);
    if (!send_text(&text, after)) {
        RTSPS_LOG(ERROR, "send_response failed, , fd[%d],errno[%d]", m_sockfd.load(), text.nError);
        return -1;
    }
    return 0;
}

int CRtspSession::send_sdp_response(const CRtspResponse& resp, const char* body, int bodyLen) {
    CSendText text(resp, body, bodyLen);
    RTSPS_LOG(INFO, "\n[%s]\n", text.sz);
    if (!send_text(&text, EAfterReply::KEEPS_STATE)) {
        RTSPS_LOG(WARN, "Send SDP INFO ERROR, , FD[%d]", m_sockfd.load());
        return -1;
    }
    return 0;
}

int CRtspSession::send_request(const CRtspRequest* req) {
    CSendText text(*req);
    RTSPS_LOG(INFO, "\n%s\n", text.sz);
    if (!send_text(&text, EAfterReply::KEEPS_STATE)) {
        RTSPS_LOG(WARN, "send_request ERROR, , FD[%d]", m_sockfd.load());
        return -1;
    }
    return 0;
}

// Sends a message through the transport, or on the connection while there is no transport. The
// state changes under the lock, so a push that sees the state PLAY waits until the reply is sent.
bool CRtspSession::send_text(CSendText* pText, EAfterReply after) {
    const CLockGuard guard(m_mutexSend);
    const eRTSP_METHOD_INDEX before = m_emRtspStat;
    if (after == EAfterReply::PLAYS) {
        m_emRtspStat.store(RTSP_PLAY, std::memory_order_release);
    }
    int nSent = -1;
    if (pText->nLen >= 0) {
        nSent = m_pTransCtrl != nullptr ? m_pTransCtrl->SendMsg(pText->sz, pText->nLen, 0)
                                        : CBB_Sendn(m_sockfd, pText->sz, pText->nLen, 0);
        pText->nError = GetSystemLastError();
    }
    const bool bSent = pText->nLen >= 0 && nSent == pText->nLen;
    if (!bSent && nSent >= 0) {
        m_events.SetReason(RTSPS_CLOSE_CONNECTION_ERROR);
    }
    if (!bSent && after == EAfterReply::PLAYS) {
        m_emRtspStat = before;
    }
    return bSent;
}
