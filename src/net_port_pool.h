// SPDX-License-Identifier: MIT
// The pool of local UDP port pairs that the server lends to its media streams.
#ifndef NET_PORT_POOL_H
#define NET_PORT_POOL_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>

#include "rtsps_thread_safety.h"

// Lends pairs of neighbouring ports, first in, first out. A pair is named by its first port, which
// carries RTP; the port above it carries RTCP. A pair that comes back is lent again only after
// every other free one, so late packets of its last user find nobody.
//
// Any thread may borrow and give back. The server calls with its own lock held, so the order of the
// two is server, then pool.
class CNet_PortPool {
  public:
    using PortQueue = std::deque<uint16_t>;

    // What the queue holds at most; giving back beyond it fails as for lack of memory.
    static constexpr size_t MAX_QUEUED_PORTS = 65536;

    // Makes a pool with the pair starts min, min + 2, min + 4, ... up to the last one not above
    // max (both in host byte order). A start equal to max counts although its RTCP port lies
    // outside the range. min > max makes an empty pool.
    // Returns the pool, which the caller deletes, or null for lack of memory or for a range that
    // would never end: a max of 65535, or of 65534 above an even min.
    [[nodiscard]] static CNet_PortPool* create_new(uint16_t min, uint16_t max);

    virtual ~CNet_PortPool();
    CNet_PortPool(const CNet_PortPool&) = delete;
    CNet_PortPool& operator=(const CNet_PortPool&) = delete;

    // Fills the queue. Takes no lock: it belongs to create_new, before the pool is shared.
    // Returns 0, or -1 for lack of memory or for a range that would never end.
    int32_t crete_port_pairs(uint16_t min, uint16_t max) RTSPS_TSA(no_thread_safety_analysis);

    // Takes the pair that has been free for longest. Returns its first port, or 0 when none is
    // free.
    [[nodiscard]] uint16_t get_port_pair();

    // Puts a pair back by its first port. Neither the range nor double entries are checked.
    // Returns 0, or -1 for port 0, for a full queue and for lack of memory.
    int32_t reuse_port_pair(uint16_t port);

    [[nodiscard]] uint32_t get_max_size() const;  // pairs made by the fill
    [[nodiscard]] uint32_t get_curr_size();       // pairs that are free now

  private:
    CNet_PortPool();

    static std::atomic<uint32_t> m_nRefer;  // atomic: live pools; informational

    // Written by the fill, before the pool is shared, and read without the lock: the ports, the
    // flags and the size.
    uint16_t m_minport;
    uint16_t m_maxport;
    PortQueue m_portqueue GUARDED_BY(m_mutex_lock);
    CMutex m_mutex_lock;
    uint32_t m_bCreated;
    [[maybe_unused]] uint32_t m_bInitMutex;
    uint32_t m_Size;
};

#endif
