// SPDX-License-Identifier: MIT
// Faults on demand. This program's definitions of some system calls and of operator new take
// precedence over those of the libraries. Unless a test requests a fault, they behave the same.
#ifndef INTERPOSE_H
#define INTERPOSE_H

#include <sys/socket.h>

#include <atomic>
#include <cstddef>

// Counted, and made to fail, in the library only: on all threads but the main one, and there
// inside a CInLibrary.
enum ECall { SOCKET, BIND, LISTEN, ACCEPT, THREAD, NEW, POLL, SEND, SENDMSG, CALLS };

struct CScript {
    std::atomic<int> calls{0};    // so far
    std::atomic<int> failing{0};  // which of them
    std::atomic<int> error{0};
};

inline CScript g_scripts[CALLS];
inline thread_local bool t_isLibrary = true;
inline thread_local int t_calls[CALLS] = {};  // of this thread, so far

struct CInLibrary {
    CInLibrary() { t_isLibrary = true; }
    ~CInLibrary() { t_isLibrary = false; }
};

// Makes the nth call from now on fail, while it exists.
class CFailingCall {
  public:
    CFailingCall(ECall call, int nth, int error)
        : m_script(g_scripts[call]), m_failing(m_script.calls + nth) {
        m_script.error = error;
        m_script.failing = m_failing;
    }
    ~CFailingCall() { m_script.failing = 0; }
    bool HasFailed() const { return m_script.calls >= m_failing; }

  private:
    CScript& m_script;
    int m_failing;
};

// The kernel refuses an option of sockets to the library while this object exists. The level PRCTL
// stands for prctl().
class CMissingOption {
  public:
    static constexpr int PRCTL = -1;

    CMissingOption(int level, int name) {
        s_refusals = 0;
        s_name = name;
        s_level = level;
    }
    ~CMissingOption() { s_level = NONE; }
    static bool Refuses(int level, int name) {
        const bool refuses = t_isLibrary && level == s_level && name == s_name;
        s_refusals += refuses ? 1 : 0;
        return refuses;
    }
    static int Refusals() { return s_refusals; }

  private:
    static constexpr int NONE = -2;
    static inline std::atomic<int> s_level{NONE};
    static inline std::atomic<int> s_name{0};
    static inline std::atomic<int> s_refusals{0};
};

// This number of waits of the library in select() end immediately, as after a time-out.
inline std::atomic<int> g_skippedWaits{0};

class CSocketModel;
inline thread_local CSocketModel* t_model = nullptr;

// Replaces the network of all sockets that the current thread writes to, while it exists.
class CSocketModel {
  public:
    CSocketModel() { t_model = this; }
    virtual ~CSocketModel() { t_model = nullptr; }
    virtual short Poll(int fd) = 0;  // the events; 0: a time-out
    virtual ssize_t Send(int /*fd*/, const char* /*data*/, size_t /*size*/) { return -1; }
    virtual ssize_t SendMessage(int /*fd*/, const msghdr& /*message*/) { return -1; }
};

#endif
