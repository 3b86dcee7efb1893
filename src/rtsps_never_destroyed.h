// SPDX-License-Identifier: MIT
#ifndef RTSPS_NEVER_DESTROYED_H
#define RTSPS_NEVER_DESTROYED_H

#include <new>

// Storage for a process-wide object whose destructor must not run at exit: a host that leaves main
// without stopping the server still has threads that use it.
template <class T>
class CNeverDestroyed {
  public:
    CNeverDestroyed() { new (m_storage) T(); }
    ~CNeverDestroyed() = default;
    CNeverDestroyed(const CNeverDestroyed&) = delete;
    CNeverDestroyed& operator=(const CNeverDestroyed&) = delete;

    T* Get() { return std::launder(static_cast<T*>(static_cast<void*>(m_storage))); }

  private:
    alignas(T) unsigned char m_storage[sizeof(T)];
};

#endif
