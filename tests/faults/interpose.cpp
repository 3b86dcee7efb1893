// SPDX-License-Identifier: MIT
#include "faults/interpose.h"

#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <sys/time.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <new>

namespace {

struct CScript {
    std::atomic<int> calls{0};
    std::atomic<int> first{INT_MAX};  // the calls from first to last - 1 fail
    std::atomic<int> last{INT_MAX};
    std::atomic<int> error{0};
};

constexpr int64_t SECOND = 1000000;

CScript g_scripts[static_cast<size_t>(ECall::CALLS)];
std::atomic<int64_t> g_clockFixed{-1};  // microseconds; -1: it runs
std::atomic<int64_t> g_clockShift{0};
thread_local CSocketModel* t_model = nullptr;
thread_local bool t_hasPolled = false;
thread_local bool t_isTest = false;
const bool g_mainIsTest = (t_isTest = true);

CScript& ScriptOf(ECall call) {
    return g_scripts[static_cast<size_t>(call)];
}

bool Fails(ECall call) {
    if (t_isTest) {
        return false;
    }
    CScript& script = ScriptOf(call);
    const int n = ++script.calls;
    if (n < script.first || n >= script.last) {
        return false;
    }
    errno = script.error;
    return true;
}

// The library's function behind one of this program.
template <class TFunction>
TFunction* Real(TFunction* /*own*/, const char* name) {
    return reinterpret_cast<TFunction*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

CInLibrary::CInLibrary() {
    t_isTest = false;
}

CInLibrary::~CInLibrary() {
    t_isTest = true;
}

int CallsInLibrary(ECall call) {
    return ScriptOf(call).calls;
}

CFailingCall::CFailingCall(ECall call, int nth, int error, int times)
    : m_call(call), m_first(ScriptOf(call).calls + nth) {
    ScriptOf(call).error = error;
    ScriptOf(call).last = m_first + times;
    ScriptOf(call).first = m_first;
}

CFailingCall::~CFailingCall() {
    ScriptOf(m_call).first = INT_MAX;
}

bool CFailingCall::HasFailed() const {
    return ScriptOf(m_call).calls >= m_first;
}

CSocketModel::CSocketModel() {
    t_model = this;
}

CSocketModel::~CSocketModel() {
    t_model = nullptr;
}

CWallClock::~CWallClock() {
    g_clockFixed = -1;
    g_clockShift = 0;
}

void CWallClock::StandAt(int64_t sec) {
    g_clockFixed = sec * SECOND;
}

void CWallClock::Jump(int64_t sec) {
    g_clockShift += sec * SECOND;
}

extern "C" {

int socket(int domain, int type, int protocol) noexcept {
    static const auto real = Real(&socket, "socket");
    return Fails(ECall::SOCKET) ? -1 : real(domain, type, protocol);
}

int bind(int fd, const sockaddr* addr, socklen_t size) noexcept {
    static const auto real = Real(&bind, "bind");
    return Fails(ECall::BIND) ? -1 : real(fd, addr, size);
}

int listen(int fd, int backlog) noexcept {
    static const auto real = Real(&listen, "listen");
    return Fails(ECall::LISTEN) ? -1 : real(fd, backlog);
}

int accept4(int fd, sockaddr* addr, socklen_t* size, int flags) {
    static const auto real = Real(&accept4, "accept4");
    return Fails(ECall::ACCEPT) ? -1 : real(fd, addr, size, flags);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attr, void* (*start)(void*),
                   void* param) noexcept {
    static const auto real = Real(&pthread_create, "pthread_create");
    return Fails(ECall::THREAD) ? errno : real(thread, attr, start, param);
}

int poll(pollfd* fds, nfds_t count, int timeout) {
    static const auto real = Real(&poll, "poll");
    if (t_model == nullptr) {
        return real(fds, count, timeout);
    }
    t_hasPolled = true;
    fds->revents = t_model->Poll(fds->fd);
    return fds->revents != 0 ? 1 : 0;
}

ssize_t send(int fd, const void* data, size_t size, int flags) {
    static const auto real = Real(&send, "send");
    return t_model != nullptr ? t_model->Send(fd, static_cast<const char*>(data), size)
                              : real(fd, data, size, flags);
}

ssize_t sendmsg(int fd, const msghdr* message, int flags) {
    static const auto real = Real(&sendmsg, "sendmsg");
    (void)Fails(ECall::SENDMSG);
    return t_model != nullptr ? t_model->SendMessage(fd, *message) : real(fd, message, flags);
}

int gettimeofday(timeval* tv, void* /*zone*/) noexcept {
    timespec real{};
    clock_gettime(CLOCK_REALTIME, &real);
    int64_t now = g_clockFixed;
    now = now >= 0 ? now : real.tv_sec * SECOND + real.tv_nsec / 1000 + g_clockShift;
    now += t_hasPolled ? 1000 : 0;
    t_hasPolled = false;
    *tv = {now / SECOND, now % SECOND};
    return 0;
}

#if defined(__GLIBC__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
void* __libc_malloc(size_t size);

void* malloc(size_t size) noexcept {
    (void)Fails(ECall::MALLOC);
    return __libc_malloc(size);
}
#endif
}

// The forms for arrays and those without a size come down to these.
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return Fails(ECall::NEW) ? nullptr : malloc(size == 0 ? 1 : size);
}

void* operator new(std::size_t size) {
    void* block = operator new(size, std::nothrow);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void operator delete(void* block) noexcept {
    free(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
    free(block);
}

void operator delete(void* block, const std::nothrow_t& /*tag*/) noexcept {
    free(block);
}
