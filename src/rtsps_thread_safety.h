// SPDX-License-Identifier: MIT
// Names for clang's thread-safety attributes, and the mutex types that carry them. Other compilers
// see plain std::mutex wrappers.
#ifndef RTSPS_THREAD_SAFETY_H
#define RTSPS_THREAD_SAFETY_H

#include <mutex>

#if defined(__clang__)
#define RTSPS_TSA(x) __attribute__((x))
#else
#define RTSPS_TSA(x)
#endif

#define GUARDED_BY(mutex) RTSPS_TSA(guarded_by(mutex))
#define PT_GUARDED_BY(mutex) RTSPS_TSA(pt_guarded_by(mutex))
#define REQUIRES(...) RTSPS_TSA(requires_capability(__VA_ARGS__))
#define ACQUIRED_BEFORE(...) RTSPS_TSA(acquired_before(__VA_ARGS__))
#define EXCLUDES(...) RTSPS_TSA(locks_excluded(__VA_ARGS__))

// A mutex with the attributes for clang's analysis.
class RTSPS_TSA(capability("mutex")) CMutex {
  public:
    void lock() RTSPS_TSA(acquire_capability()) { m_mutex.lock(); }
    void unlock() RTSPS_TSA(release_capability()) { m_mutex.unlock(); }

  private:
    std::mutex m_mutex;
};

// Holds a CMutex for a scope.
class RTSPS_TSA(scoped_lockable) CLockGuard {
  public:
    explicit CLockGuard(CMutex& mutex) RTSPS_TSA(acquire_capability(mutex)) : m_mutex(mutex) {
        m_mutex.lock();
    }
    ~CLockGuard() RTSPS_TSA(release_capability()) { m_mutex.unlock(); }
    CLockGuard(const CLockGuard&) = delete;
    CLockGuard& operator=(const CLockGuard&) = delete;

  private:
    CMutex& m_mutex;
};

#endif
