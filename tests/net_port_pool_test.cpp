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

TEST(NetPortPool, FillsFromItsRange) {
    const struct {
        const char* why;
        uint16_t min, max;
        std::vector<uint16_t> ports;
    } rows[] = {
        {"an odd maximum", 30000, 30009, {30000, 30002, 30004, 30006, 30008}},
        {"an odd minimum stays odd", 30001, 30005, {30001, 30003, 30005}},
        {"the minimum is above the maximum", 30001, 30000, {}},
        {"the last ports", 65531, 65534, {65531, 65533}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const std::unique_ptr<CNet_PortPool> pool(CNet_PortPool::create_new(row.min, row.max));
        ASSERT_NE(pool, nullptr);
        EXPECT_EQ(pool->get_max_size(), row.ports.size());
        EXPECT_THAT(BorrowAll(*pool), ElementsAreArray(row.ports));
        EXPECT_EQ(pool->get_curr_size(), 0U);
    }
}

TEST(NetPortPool, RefusesRangesThatWouldNeverEnd) {
    EXPECT_EQ(CNet_PortPool::create_new(30001, 65535), nullptr);
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
