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
// carries RTP; the port above it carries RTCP. A pair that is given back is lent again only after
// every other free pair, so that late packets for one client do not reach the next.
//
// Any thread may borrow and give back ports. The server calls with its own lock held, so the lock
// order is server, then pool.
class CNet_PortPool {
  public:
    using PortQueue = std::deque<uint16_t>;

    // The largest number of queued ports. reuse_port_pair fails when the queue is full.
    static constexpr size_t MAX_QUEUED_PORTS = 65536;

    // Creates a pool whose pairs start at min, min + 2, min + 4 and so on, up to max (host byte
    // order). A pair may start at max itself, although its RTCP port is then outside the range.
    // min > max gives an empty pool.
    // Returns the pool, which the caller deletes. Returns null when memory runs out, and for a
    // range that the fill cannot end: a max of 65535, or a max of 65534 with an even min.
    [[nodiscard]] static CNet_PortPool* create_new(uint16_t min, uint16_t max);

    virtual ~CNet_PortPool();
    CNet_PortPool(const CNet_PortPool&) = delete;
    CNet_PortPool& operator=(const CNet_PortPool&) = delete;

    // Fills the queue. Takes no lock: create_new calls it before the pool is shared.
    // Returns 0, or -1 when memory runs out and for a range that the fill cannot end.
    int32_t crete_port_pairs(uint16_t min, uint16_t max) RTSPS_TSA(no_thread_safety_analysis);

    // Takes the pair that has been free the longest. Returns its first port, or 0 when none is
    // free.
    [[nodiscard]] uint16_t get_port_pair();

    // Gives a pair back by its first port. Checks neither the range nor double entries.
    // Returns 0, or -1 for port 0, for a full queue and when memory runs out.
    int32_t reuse_port_pair(uint16_t port);

    [[nodiscard]] uint32_t get_max_size() const;  // pairs made by the fill
    [[nodiscard]] uint32_t get_curr_size();       // pairs that are free now

  private:
    CNet_PortPool();

    static std::atomic<uint32_t> m_nRefer;  // atomic: live pools; informational

    // The fill writes the ports, the flags and the size before the pool is shared; they are read
    // without the lock.
    uint16_t m_minport;
    uint16_t m_maxport;
    PortQueue m_portqueue GUARDED_BY(m_mutex_lock);
    CMutex m_mutex_lock;
    uint32_t m_bCreated;
    [[maybe_unused]] uint32_t m_bInitMutex;
    uint32_t m_Size;
};

#endif
