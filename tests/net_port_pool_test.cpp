// SPDX-License-Identifier: MIT
#include "net_port_pool.h"

#include <gmock/gmock.h>

#include <memory>
#include <vector>

namespace {

using ::testing::ElementsAreArray;

std::vector<uint16_t> BorrowAll(CNet_PortPool& pool) {
    std::vector<uint16_t> ports;
    while (const uint16_t port = pool.get_port_pair()) {
        ports.push_back(port);
    }
    return ports;
}

// All ports of a new pool.
std::vector<uint16_t> PortsOf(uint16_t min, uint16_t max) {
    const std::unique_ptr<CNet_PortPool> pool(CNet_PortPool::create_new(min, max));
    const std::vector<uint16_t> ports = BorrowAll(*pool);
    EXPECT_EQ(pool->get_max_size(), ports.size());
    EXPECT_EQ(pool->get_curr_size(), 0U);
    return ports;
}

TEST(NetPortPool, FillsFromItsRange) {
    EXPECT_THAT(PortsOf(30000, 30005), ElementsAreArray({30000, 30002, 30004}));
    EXPECT_THAT(PortsOf(30001, 30005), ElementsAreArray({30001, 30003, 30005})) << "stays odd";
    EXPECT_THAT(PortsOf(65531, 65534), ElementsAreArray({65531, 65533})) << "the last ports";
    EXPECT_EQ(PortsOf(30001, 30000).size(), 0U) << "the minimum is above the maximum";
}

TEST(NetPortPool, RefusesRangesThatWouldNeverEnd) {
    EXPECT_EQ(CNet_PortPool::create_new(30001, 65535), nullptr);
    EXPECT_EQ(CNet_PortPool::create_new(65535, 65535), nullptr);
    EXPECT_EQ(CNet_PortPool::create_new(30000, 65534), nullptr);
}

TEST(NetPortPool, LendsFirstInFirstOut) {
    const std::unique_ptr<CNet_PortPool> pool(CNet_PortPool::create_new(40000, 40005));
    EXPECT_EQ(pool->get_port_pair(), 40000);
    EXPECT_EQ(pool->reuse_port_pair(0), -1);
    // A port that is given back twice and a port outside the range are queued too.
    for (const int port : {40000, 40000, 7}) {
        EXPECT_EQ(pool->reuse_port_pair(static_cast<uint16_t>(port)), 0);
    }
    EXPECT_THAT(BorrowAll(*pool), ElementsAreArray({40002, 40004, 40000, 40000, 7}));
}

TEST(NetPortPool, HoldsABoundedNumberOfPorts) {
    const std::unique_ptr<CNet_PortPool> pool(CNet_PortPool::create_new(40000, 40000));
    for (size_t i = 1; i < CNet_PortPool::MAX_QUEUED_PORTS; ++i) {
        ASSERT_EQ(pool->reuse_port_pair(5000), 0);
    }
    EXPECT_EQ(pool->reuse_port_pair(5000), -1);
}

}  // namespace
