// SPDX-License-Identifier: MIT
#include "faults/interpose.h"

#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/select.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <ctime>
#include <new>

namespace {

const bool g_mainIsLibrary = (t_isLibrary = false);

bool Fails(ECall call) {
    if (!t_isLibrary) {
        return false;
    }
    ++t_calls[call];
    if (++g_scripts[call].calls != g_scripts[call].failing) {
        return false;
    }
    errno = g_scripts[call].error;
    return true;
}

// With 64-bit time on a 32-bit processor, the headers give some functions other names.
constexpr const char* NameOf(const char* name, const char* nameWithTime64) {
    return sizeof(time_t) > sizeof(long) ? nameWithTime64 : name;
}

// Calls the system library's function that a function of this program replaces.
template <class TFunction, class... TArgs>
auto Real(TFunction* /*own*/, const char* name, TArgs... args) {
    return reinterpret_cast<TFunction*>(dlsym(RTLD_NEXT, name))(args...);
}

}  // namespace

extern "C" {

int socket(int domain, int type, int protocol) noexcept {
    return Fails(SOCKET) ? -1 : Real(&socket, "socket", domain, type, protocol);
}

int bind(int fd, const sockaddr* addr, socklen_t size) noexcept {
    return Fails(BIND) ? -1 : Real(&bind, "bind", fd, addr, size);
}

int listen(int fd, int backlog) noexcept {
    return Fails(LISTEN) ? -1 : Real(&listen, "listen", fd, backlog);
}

int accept4(int fd, sockaddr* addr, socklen_t* size, int flags) {
    return Fails(ACCEPT) ? -1 : Real(&accept4, "accept4", fd, addr, size, flags);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attr, void* (*start)(void*),
                   void* param) noexcept {
    return Fails(THREAD) ? errno
                         : Real(&pthread_create, "pthread_create", thread, attr, start, param);
}

int setsockopt(int fd, int level, int name, const void* value, socklen_t size) noexcept {
    if (CMissingOption::Refuses(level, name)) {
        errno = ENOPROTOOPT;
        return -1;
    }
    return Real(&setsockopt, NameOf("setsockopt", "__setsockopt64"), fd, level, name, value, size);
}

int prctl(int option, ...) noexcept {
    if (CMissingOption::Refuses(CMissingOption::PRCTL, option)) {
        errno = EINVAL;
        return -1;
    }
    va_list rest;
    va_start(rest, option);
    const auto value = va_arg(rest, unsigned long);  // PR_SET_NAME takes one
    va_end(rest);
    return Real(&prctl, NameOf("prctl", "__prctl_time64"), option, value);
}

int select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout) {
    if (t_isLibrary && g_skippedWaits > 0) {
        --g_skippedWaits;
        return 0;
    }
    return Real(&select, NameOf("select", "__select64"), count, read, write, except, timeout);
}

// Declared under another name, because the system's header declares the argument as write-only.
int OurPoll(pollfd* fds, nfds_t count, int timeout) __asm__("poll");
int OurPoll(pollfd* fds, nfds_t count, int timeout) {
    if (t_model == nullptr) {
        (void)Fails(POLL);
        return Real(&OurPoll, "poll", fds, count, timeout);
    }
    fds[0].revents = t_model->Poll(fds[0].fd);
    return fds[0].revents != 0 ? 1 : 0;
}

ssize_t send(int fd, const void* data, size_t size, int flags) {
    (void)Fails(SEND);
    return t_model != nullptr ? t_model->Send(fd, static_cast<const char*>(data), size)
                              : Real(&send, "send", fd, data, size, flags);
}

ssize_t sendmsg(int fd, const msghdr* message, int flags) {
    if (t_model != nullptr) {
        return t_model->SendMessage(fd, *message);
    }
    return Fails(SENDMSG) ? -1
                          : Real(&sendmsg, NameOf("sendmsg", "__sendmsg64"), fd, message, flags);
}
}

// The operators for arrays, and those without a size, call these.
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return Fails(NEW) ? nullptr : malloc(size == 0 ? 1 : size);
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

// Called after a constructor that throws.
void operator delete(void* block, const std::nothrow_t& /*tag*/) noexcept {
    free(block);
}
