// SPDX-License-Identifier: MIT
// Threads.
#include "CBB_Thread.h"

#include <pthread.h>

#include <initializer_list>

#include "cbb.h"

namespace {

CBB_HANDLE ToHandle(pthread_t thread) {
    return reinterpret_cast<CBB_HANDLE>(thread);
}

pthread_t ToThread(CBB_HANDLE hThread) {
    return reinterpret_cast<pthread_t>(hThread);
}

// A zeroed record holds a null handle; joining it would crash in the system's library.
bool IsThread(CBB_HANDLE hThread) {
    return hThread != CBB_INVALID_HANDLE && hThread != nullptr;
}

class CThreadAttr {
  public:
    CThreadAttr() : m_bValid(pthread_attr_init(&m_attr) == 0) {}
    ~CThreadAttr() {
        if (m_bValid) {
            pthread_attr_destroy(&m_attr);
        }
    }
    CThreadAttr(const CThreadAttr&) = delete;
    CThreadAttr& operator=(const CThreadAttr&) = delete;

    [[nodiscard]] bool Valid() const { return m_bValid; }
    [[nodiscard]] pthread_attr_t* Get() { return &m_attr; }

    [[nodiscard]] bool SetPolicy(int iPolicy) {
        return pthread_attr_setschedpolicy(&m_attr, iPolicy) == 0;
    }
    [[nodiscard]] bool SetStackSize(uint32_t nSize) {
        return nSize == 0 || pthread_attr_setstacksize(&m_attr, nSize) == 0;
    }
    [[nodiscard]] bool SetPriority(int iPriority) {
        sched_param param = {};
        param.sched_priority = iPriority;
        return pthread_attr_setschedparam(&m_attr, &param) == 0;
    }
    [[nodiscard]] bool SetDetached() {
        return pthread_attr_setdetachstate(&m_attr, PTHREAD_CREATE_DETACHED) == 0;
    }

  private:
    pthread_attr_t m_attr;
    bool m_bValid;
};

}  // namespace

CBlockSignals::CBlockSignals() {
    sigset_t blocked;
    sigfillset(&blocked);
    // These signals report a fault of the thread itself. While one is blocked, such a fault ends
    // the process without a call to the host's handler.
    for (const int nSignal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS}) {
        sigdelset(&blocked, nSignal);
    }
    sigemptyset(&m_previous);
    pthread_sigmask(SIG_SETMASK, &blocked, &m_previous);
}

CBlockSignals::~CBlockSignals() {
    pthread_sigmask(SIG_SETMASK, &m_previous, nullptr);
}

CDelayCancellation::CDelayCancellation() {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_nPrevious);
}

CDelayCancellation::~CDelayCancellation() {
    pthread_setcancelstate(m_nPrevious, nullptr);
}

CBB_HANDLE CBB_Thread_Create(CBB_THREAD_FUNC StartAddress, void* Params, uint32_t StackSize,
                             uint32_t /*IsSuspend*/, int Priority, int SchedPolicy) {
    // Kept (hosts): [thread-scheduling-inherited] the thread inherits the scheduling of its
    // creator: policy and priority are checked but not applied, and need no privilege. The policy
    // is set first because it decides which priorities are valid.
    CThreadAttr attr;
    if (!attr.Valid() || !attr.SetPolicy(SchedPolicy) || !attr.SetStackSize(StackSize) ||
        !attr.SetPriority(Priority)) {
        return CBB_INVALID_HANDLE;
    }
    pthread_t thread = {};
    if (pthread_create(&thread, attr.Get(), StartAddress, Params) != 0) {
        return CBB_INVALID_HANDLE;
    }
    return ToHandle(thread);
}

int32_t CBB_ThreadDetached_Create(CBB_THREAD_FUNC StartAddress, void* Params, uint32_t StackSize) {
    // Kept (hosts): [detached-result] 1 is success and 0 failure, unlike in the other functions.
    CThreadAttr attr;
    pthread_t thread = {};
    const bool bCreated = attr.Valid() && attr.SetDetached() && attr.SetStackSize(StackSize) &&
                          pthread_create(&thread, attr.Get(), StartAddress, Params) == 0;
    return bCreated ? 1 : 0;
}

void CBB_Thread_Exit(void) {
    pthread_exit(nullptr);
}

int32_t CBB_Thread_Wait(CBB_HANDLE hThread) {
    return IsThread(hThread) && pthread_join(ToThread(hThread), nullptr) == 0 ? 0 : -1;
}

CBB_HANDLE CBB_Thread_GetSelfId(void) {
    return ToHandle(pthread_self());
}

// Kept (hosts): [thread-suspend] suspending is not supported: -2 here and from CBB_Thread_Resume,
// and CBB_Thread_Create ignores IsSuspend.
int32_t CBB_Thread_Suspend(CBB_HANDLE /*hThread*/) {
    return -2;
}

int32_t CBB_Thread_Resume(CBB_HANDLE /*hThread*/) {
    return -2;
}

int32_t CBB_Thread_SetPriority(CBB_HANDLE hThread, int iPriority) {
    if (!IsThread(hThread)) {
        return -1;
    }
    int nPolicy = 0;
    sched_param param = {};
    if (pthread_getschedparam(ToThread(hThread), &nPolicy, &param) != 0) {
        return -1;
    }
    param.sched_priority = iPriority;
    return pthread_setschedparam(ToThread(hThread), nPolicy, &param) == 0 ? 0 : -1;
}

int32_t CBB_Thread_SetSchedPolicy(CBB_HANDLE hThread, int iPolicy) {
    // Kept (hosts): [thread-policy-checked] the policy is only checked; the thread does not change.
    CThreadAttr attr;
    return hThread != CBB_INVALID_HANDLE && attr.Valid() && attr.SetPolicy(iPolicy) ? 0 : -1;
}
