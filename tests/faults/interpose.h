// SPDX-License-Identifier: MIT
// Faults on demand. This program's own definitions of some system calls and of operator new come
// before those of the libraries; unless a test asks for more, they do the same.
#ifndef INTERPOSE_H
#define INTERPOSE_H

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>

// Counted, and made to fail, in the library only: on all threads but the main one, and there
// inside a CInLibrary. MALLOC and SENDMSG are never made to fail; sanitized builds do not see the
// first.
enum class ECall { SOCKET, BIND, LISTEN, ACCEPT, THREAD, NEW, MALLOC, SENDMSG, CALLS };

int CallsInLibrary(ECall call);  // so far

struct CPinned {
    CPinned() = default;
    CPinned(const CPinned&) = delete;
    CPinned& operator=(const CPinned&) = delete;
};

struct CInLibrary : CPinned {
    CInLibrary();
    ~CInLibrary();
};

// While it lives, the nth call from now on fails, and so do those that follow, `times` in all.
class CFailingCall : CPinned {
  public:
    CFailingCall(ECall call, int nth, int error, int times = 1);
    ~CFailingCall();
    bool HasFailed() const;

  private:
    ECall m_call;
    int m_first;
};

// While it lives, it stands for the network behind all sockets that the current thread writes to.
class CSocketModel : CPinned {
  public:
    CSocketModel();
    virtual ~CSocketModel();
    virtual short Poll(int fd) = 0;  // the events; 0: the time is over
    virtual ssize_t Send(int fd, const char* data, size_t size) = 0;
    virtual ssize_t SendMessage(int fd, const msghdr& message) = 0;
};

// The wall clock of the process, while it lives. A thread that has just polled a model finds it one
// millisecond later.
struct CWallClock : CPinned {
    ~CWallClock();
    void StandAt(int64_t sec);
    void Jump(int64_t sec);
};

#endif
