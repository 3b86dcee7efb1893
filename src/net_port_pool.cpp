// SPDX-License-Identifier: MIT
#include "net_port_pool.h"

#include <new>

#include "rtsps_server_api.h"

namespace {

// The fill counts up in steps of 2 until its counter is above the maximum. In these ranges the
// 16-bit counter wraps to 0 instead.
bool RangeNeverEnds(uint16_t min, uint16_t max) {
    if (min > max || max <= RTSPS_MAX_DATA_PORT) {
        return false;
    }
    return max == UINT16_MAX || min % 2 == 0;
}

}  // namespace

std::atomic<uint32_t> CNet_PortPool::m_nRefer{0};

CNet_PortPool* CNet_PortPool::create_new(uint16_t min, uint16_t max) {
    CNet_PortPool* pPool = nullptr;
    try {
        // The nothrow form covers the object only: the queue's constructor allocates and may throw.
        pPool = new (std::nothrow) CNet_PortPool();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    if (pPool == nullptr) {
        return nullptr;
    }
    if (pPool->crete_port_pairs(min, max) != 0) {
        delete pPool;
        return nullptr;
    }
    return pPool;
}

CNet_PortPool::CNet_PortPool()
    : m_minport(0), m_maxport(0), m_bCreated(0), m_bInitMutex(0), m_Size(0) {
    ++m_nRefer;
}

CNet_PortPool::~CNet_PortPool() {
    --m_nRefer;
}

int32_t CNet_PortPool::crete_port_pairs(uint16_t min, uint16_t max) {
    m_portqueue.clear();
    if (RangeNeverEnds(min, max)) {
        return -1;
    }
    try {
        // Kept (operators): [pool-pairs] an odd minimum gives odd RTP ports. The RTCP port of the
        // last pair may be the maximum plus 1.
        for (uint16_t port = min; max >= port; port = static_cast<uint16_t>(port + 2)) {
            m_portqueue.push_back(port);
            // Kept (operators): [pool-size-adds] a second fill adds to the size of the first,
            // although it empties the queue.
            ++m_Size;
        }
    } catch (const std::bad_alloc&) {
        return -1;
    }
    m_bCreated = 1;
    m_minport = min;
    m_maxport = max;
    return 0;
}

uint16_t CNet_PortPool::get_port_pair() {
    CLockGuard lock(m_mutex_lock);
    if (m_portqueue.empty()) {
        return 0;
    }
    const uint16_t port = m_portqueue.front();
    m_portqueue.pop_front();
    return port;
}

int32_t CNet_PortPool::reuse_port_pair(uint16_t port) {
    if (port == 0) {
        return -1;
    }
    // Kept (operators): [pool-any-port] a port that is given back twice is queued twice. A port
    // outside the range is queued as well.
    CLockGuard lock(m_mutex_lock);
    if (m_portqueue.size() >= MAX_QUEUED_PORTS) {
        return -1;
    }
    try {
        m_portqueue.push_back(port);
    } catch (const std::bad_alloc&) {
        return -1;
    }
    return 0;
}

uint32_t CNet_PortPool::get_max_size() const {
    return m_Size;
}

uint32_t CNet_PortPool::get_curr_size() {
    CLockGuard lock(m_mutex_lock);
    return static_cast<uint32_t>(m_portqueue.size());
}
