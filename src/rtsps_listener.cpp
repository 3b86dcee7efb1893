// SPDX-License-Identifier: MIT
#include "rtsps_listener.h"

#include <netinet/tcp.h>
#include <sys/prctl.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <new>

#include "cbb/CBB_Thread.h"
#include "rtsps_debug.h"
#include "rtsps_session.h"
#include "rtsps_session_mgr.h"
#include "rtsps_thread_stack.h"

namespace {

constexpr int LISTEN_BACKLOG = 24;
constexpr uint32_t ACCEPT_TIMEOUT_MS = 5000;
constexpr int REFUSAL_PAUSE_MS = 50;
// For one client the accept thread pauses once in CanTakeSession, and then either in AddSession or
// after the refusal.
constexpr int ROOM_PAUSES_MS =
    CRtspSessionManager::ROOM_PAUSES * CRtspSessionManager::ROOM_PAUSE_MS;
static_assert(ROOM_PAUSES_MS + std::max(ROOM_PAUSES_MS, REFUSAL_PAUSE_MS) ==
              RTSPS_MAX_STOP_PAUSE_MS);
constexpr uint32_t ARRIVAL_GAP_MS = 1;
constexpr std::chrono::milliseconds GATHER_LIMIT(10);

constexpr int RTSP_SEND_BUFFER_SIZE = 1048576;
constexpr int RTSP_RECV_BUFFER_SIZE = 262144;

constexpr int KEEPALIVE_IDLE_SEC = 10;
constexpr int KEEPALIVE_INTERVAL_SEC = 5;
constexpr int KEEPALIVE_PROBES = 3;

void SetIntOption(CBB_SOCK_T sock, int nLevel, int nName, int nValue) {
    setsockopt(sock, nLevel, nName, &nValue, sizeof(nValue));
}

}  // namespace

int CRtspListener::Open(int port) {
    const CBB_SOCK_T sock = CBB_CreateSocket(AF_INET, SOCK_STREAM, 0);
    if (sock == -1) {
        RTSPS_LOG(ERROR, "CreateSocket failed ");
        return -1;
    }
    m_sock.store(sock, std::memory_order_release);
    if (bind_to(port) != 0) {
        const int nError = GetSystemLastError();
        RTSPS_LOG(ERROR, "bind %d failed,errno %d", port, nError);
        close_socket();
        return -1;
    }
    if (CBB_Listen(sock, LISTEN_BACKLOG) != 0) {
        RTSPS_LOG(ERROR, "Listen failed ");
        close_socket();
        return -1;
    }
    m_running.store(1, std::memory_order_release);
    RTSPS_LOG(INFO, "Thread_Create, the port is [%d]", port);
    {
        const CBlockSignals block;
        m_ThreadListen = CBB_Thread_Create(accept_handler_svc, this, THREAD_STACK_SIZE, 0, 0, 0);
    }
    if (m_ThreadListen == CBB_INVALID_HANDLE) {
        RTSPS_LOG(ERROR, "create data thread failed ");
        close_socket();
        m_running.store(0, std::memory_order_release);
        return -1;
    }
    return 0;
}

int CRtspListener::bind_to(int port) {
    CBB_ADDR_T addr{};
    // Kept (hosts): [server-port-16-bits] only the low 16 bits of the port count: 70000 is port
    // 4464.
    CBB_MakeAddrByString(AF_INET, nullptr, static_cast<uint16_t>(port), &addr);
    CBB_SetReuseAddr(GetFd(), 1);
    CBB_SetBuffSize(GetFd(), RTSP_SEND_BUFFER_SIZE, RTSP_RECV_BUFFER_SIZE);
    // A client that disconnects between poll and accept must not block the thread.
    CBB_SetNonBlock(GetFd(), 1);
    return CBB_Bind(GetFd(), &addr);
}

int CRtspListener::Close() {
    m_running.store(0, std::memory_order_release);
    if (GetFd() != -1) {
        CBB_ShutDown(GetFd(), SHUT_RDWR);  // wakes the accept thread; close would not
    }
    if (m_ThreadListen != CBB_INVALID_HANDLE) {
        CBB_Thread_Wait(m_ThreadListen);
        m_ThreadListen = CBB_INVALID_HANDLE;
    }
    close_socket();
    return 0;
}

void CRtspListener::close_socket() {
    const CBB_SOCK_T sock = m_sock.exchange(-1, std::memory_order_acq_rel);
    if (sock != -1) {
        CBB_CloseSocket(sock, 0);
    }
}

// Accepted connections that have no session yet, in the order of their arrival.
struct CRtspListener::CArrivals {
    struct CClient {
        CBB_SOCK_T sock;
        CBB_ADDR_T peer;
    };

    ~CArrivals() {
        for (; nCount > 0; --nCount) {
            CBB_CloseSocket(entries[(nFirst + nCount - 1) % CAPACITY].sock, 0);
        }
    }

    CClient TakeFirst() {
        const CClient first = entries[nFirst];
        nFirst = (nFirst + 1) % CAPACITY;
        --nCount;
        return first;
    }

    static constexpr size_t CAPACITY = RTSPS_MAX_SESSIONS;
    CClient entries[CAPACITY] = {};
    size_t nFirst = 0;
    size_t nCount = 0;
};

void* CRtspListener::accept_handler_svc(void* pListener) {
    prctl(PR_SET_NAME, "rtsps_accept");
    auto* pSelf = static_cast<CRtspListener*>(pListener);
    while (pSelf->IsRunning()) {
        try {
            CArrivals arrivals;
            if (!pSelf->wait_for_clients(&arrivals)) {
                pSelf->sweep_when_idle();
            }
            while (arrivals.nCount > 0 && pSelf->IsRunning()) {
                pSelf->take_arrivals(&arrivals, 0);
                const CArrivals::CClient client = arrivals.TakeFirst();
                prepare_socket(client.sock);
                RTSPS_LOG(INFO, "the client connect is arrive!!!!!!!");
                RTSPS_LOG(INFO, "Client : family [%s]",
                          CBB_GetAddrType(&client.peer) == AF_INET ? "AF_INET" : "AF_INET6");
                RTSPS_LOG(INFO, "port [%d]", CBB_GetAddrPort(&client.peer));
                const EStart start = start_session(client.sock, client.peer);
                if (start == EStart::STARTED) {
                    continue;
                }
                if (start == EStart::NO_SESSION) {
                    RTSPS_LOG(WARN, "New CRtspSession ERROR!!!!!");
                } else if (start == EStart::NOT_INITIALIZED) {
                    RTSPS_LOG(ERROR, "Error!!! Server can not process more client!!");
                } else {
                    RTSPS_LOG(ERROR, "Open thread to process msg ERROR!!");
                }
                CBB_CloseSocket(client.sock, 0);
                CBB_Sleep(REFUSAL_PAUSE_MS);
            }
        } catch (...) {
            CBB_Sleep(REFUSAL_PAUSE_MS);  // lack of memory must not end the accept thread
        }
    }
    return nullptr;
}

void CRtspListener::sweep_when_idle() const {
    if (IsRunning()) {
        // Kept (operators): [sweep-when-idle] there is no sweep while clients keep arriving.
        // Ended sessions keep their connection and their slot until the next sweep.
        CRtspSessionManager::Instance()->DelExceptionSession();
        CBB_Sleep(REFUSAL_PAUSE_MS);
    }
}

// Many clients may connect at the same time, for example after a power failure. The kernel's listen
// queue is short; it drops connections that do not fit, and a dropped client tries again after a
// second. So this function empties the queue first. The sessions, whose threads compete for the
// processors, are created when no client arrives within ARRIVAL_GAP_MS, when RTSPS_MAX_SESSIONS
// have arrived, or after GATHER_LIMIT.
bool CRtspListener::wait_for_clients(CArrivals* pArrivals) const {
    take_arrivals(pArrivals, ACCEPT_TIMEOUT_MS);
    const auto end = std::chrono::steady_clock::now() + GATHER_LIMIT;
    size_t nBefore = 0;
    while (pArrivals->nCount > nBefore && std::chrono::steady_clock::now() < end) {
        nBefore = pArrivals->nCount;
        take_arrivals(pArrivals, ARRIVAL_GAP_MS);
    }
    return pArrivals->nCount > 0;
}

// Accepts all clients that have arrived. When none has, waits up to `nTimeOutMs` for the first.
void CRtspListener::take_arrivals(CArrivals* pArrivals, uint32_t nTimeOutMs) const {
    for (; pArrivals->nCount < CArrivals::CAPACITY; nTimeOutMs = 0) {
        CBB_ADDR_T peer{};
        const CBB_SOCK_T sock = CBB_Accept(GetFd(), &peer, nTimeOutMs);
        if (sock == -1) {
            return;
        }
        const size_t nAt = (pArrivals->nFirst + pArrivals->nCount) % CArrivals::CAPACITY;
        pArrivals->entries[nAt] = {sock, peer};
        ++pArrivals->nCount;
    }
}

void CRtspListener::prepare_socket(CBB_SOCK_T sock) {
    SetIntOption(sock, SOL_SOCKET, SO_KEEPALIVE, 1);
    SetIntOption(sock, IPPROTO_TCP, TCP_KEEPIDLE, KEEPALIVE_IDLE_SEC);
    SetIntOption(sock, IPPROTO_TCP, TCP_KEEPINTVL, KEEPALIVE_INTERVAL_SEC);
    SetIntOption(sock, IPPROTO_TCP, TCP_KEEPCNT, KEEPALIVE_PROBES);
    CBB_SetNoDelay(sock, 1);
    CBB_SetNonBlock(sock, 1);
    CBB_SetBuffSize(sock, RTSP_SEND_BUFFER_SIZE, RTSP_RECV_BUFFER_SIZE);
}

// With STARTED, a session owns the socket now.
CRtspListener::EStart CRtspListener::start_session(CBB_SOCK_T sock, const CBB_ADDR_T& peer) {
    CRtspSessionManager* pManager = CRtspSessionManager::Instance();
    const uint32_t dwId = pManager->GenerateSessionId();
    std::unique_ptr<CRtspSession> pSession;
    if (pManager->CanTakeSession()) {
        pSession.reset(new (std::nothrow) CRtspSession(dwId));
    }
    if (pSession == nullptr) {
        return EStart::NO_SESSION;
    }
    if (pSession->Init() != 0) {
        return EStart::NOT_INITIALIZED;
    }
    pSession->AwaitRegistration();
    if (pSession->Open(sock, &peer) != 0) {
        pSession->Release();
        return EStart::NO_THREAD;
    }
    pManager->AddSession(pSession.release());  // the manager owns it, also when it is refused
    return EStart::STARTED;
}
