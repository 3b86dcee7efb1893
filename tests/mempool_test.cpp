// SPDX-License-Identifier: MIT
#include "mempool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <thread>
#include <tuple>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

// A pool that frees its memory.
class CTestPool : public CMemPool {
  public:
    CTestPool(uint32_t nRing, uint32_t nTail) { EXPECT_TRUE(Init(nRing, nTail)); }
    ~CTestPool() { Release(); }
};

// The length of the oldest record, consumed; -1 when there is none.
int64_t Consume(CMemPool& pool) {
    uint8_t* p = nullptr;
    uint32_t n = 0;
    if (!pool.GetData(&p, &n)) {
        return -1;
    }
    pool.UpdateReadIdx(n);
    return n;
}

TEST(MemPool, RefusesWithATextAndChangesNothing) {
    CTestPool pool(1000, 500);
    const Bytes data(2000);
    const void* p = data.data();
    // Free has to exceed the need. A second length of -1: one piece.
    const std::tuple<uint32_t, int64_t, const char*> rows[] = {
        {0, -1, "invalid input para,dwDataLen = 0"},
        {992, -1, "there is no space,dwDataLen = 992"},
        {0, 0, "invalid input para\n"},
        {500, 492, "there is no space,dwDataLen = 992"},
        {0xFFFFFFFF, 0xFFFFFFFF, "there is no space,dwDataLen = 4294967294"},
        {0xFFFFFFFF, 1, "there is no space,dwDataLen = 0"}};
    for (const auto& [nFirst, nSecond, szText] : rows) {
        testing::internal::CaptureStdout();
        EXPECT_FALSE(nSecond < 0 ? pool.InputData(p, nFirst)
                                 : pool.InputData(p, nFirst, p, static_cast<uint32_t>(nSecond)));
        EXPECT_EQ(testing::internal::GetCapturedStdout(), szText);
        EXPECT_EQ(Consume(pool), -1);
    }
    EXPECT_TRUE(pool.InputData(p, 991));
    EXPECT_EQ(Consume(pool), 991);
    EXPECT_TRUE(pool.InputData(p, 991) && pool.Clear());
    EXPECT_EQ(Consume(pool), -1);
}

// Where each step leaves the next record, how long it may be, and what is free. The last record of
// a lap runs into the tail. Kept: one piece comes back to the front later than the others do, and
// the reader loses what lies behind it.
TEST(MemPool, LapsThroughRingAndTail) {
    CTestPool pool(100, 50);
    // Appends one piece, two, writes in place, or reads a record of that length (-1: none).
    const std::tuple<char, int, ptrdiff_t, uint32_t, uint32_t> rows[] = {
        {'r', -1, 0, 91, 100},  {'2', 40, 48, 43, 52},  {'w', 20, 76, 15, 24},
        {'r', 40, 76, 113, 72}, {'2', 60, 0, 39, 48},   {'r', 20, 0, 67, 76},
        {'r', 60, 0, 91, 100},  {'1', 40, 48, 43, 52},  {'r', 40, 48, 91, 100},
        {'1', 51, 107, 82, 41}, {'r', 51, 107, 84, 93}, {'2', 20, 0, 91, 100},
        {'r', -1, 0, 91, 100},  {'2', 40, 48, 43, 52},  {'r', 40, 48, 91, 100},
        {'w', 43, 99, 90, 49},  {'r', 43, 99, 91, 100}, {'w', 1, 0, 90, 99},
        {'r', 1, 0, 91, 100},   {'2', 40, 48, 43, 52},  {'r', 40, 48, 91, 100},
        {'2', 44, 0, 39, 48},   {'r', 44, 0, 91, 100},  {'1', 91, 99, 0, 1}};
    uint8_t* pBase = nullptr;
    uint32_t n = 0;
    ASSERT_TRUE(pool.GetBuf(&pBase, &n));
    for (const auto& [step, nLen, nNext, nOffered, nFree] : rows) {
        SCOPED_TRACE(testing::Message() << step << " " << nLen);
        Bytes data(static_cast<size_t>(std::max(nLen, 0)));
        std::iota(data.begin(), data.end(), static_cast<uint8_t>(nLen));
        const auto nData = static_cast<uint32_t>(data.size());
        uint8_t* p = nullptr;
        if (step == '1') {
            EXPECT_TRUE(pool.InputData(data.data(), nData));
        } else if (step == '2') {
            EXPECT_TRUE(pool.InputData(data.data(), 1, &data[1], nData - 1));
        } else if (step == 'w') {
            EXPECT_TRUE(pool.GetBuf(&p, &n));
            std::copy(data.begin(), data.end(), p);
            EXPECT_TRUE(pool.UpdateWriteIdx(nData));
        } else if (pool.GetData(&p, &n)) {
            EXPECT_EQ(Bytes(p, p + n), data);
            pool.UpdateReadIdx(n);
        }
        EXPECT_EQ(pool.GetBuf(&p, &n), nOffered > 0);
        EXPECT_EQ(n, nOffered);
        EXPECT_TRUE(nOffered == 0 || p - pBase == nNext);
        EXPECT_EQ(pool.GetSpace(), nFree);
    }
}

TEST(MemPool, CarriesRecordsFromOneThreadToAnother) {
    constexpr uint32_t RECORDS = 50000, MAX_LEN = 300;
    CTestPool pool(2000, MAX_LEN + CMemPool::RECORD_OVERHEAD);
    const auto Length = [](uint32_t i) { return 1 + i * 7919 % MAX_LEN; };

    std::thread writer([&] {
        for (uint32_t i = 0; i < RECORDS; ++i) {
            const Bytes data(Length(i), static_cast<uint8_t>(i));
            const auto nLen = static_cast<uint32_t>(data.size());
            while (!pool.checkWritable(nLen + CMemPool::RECORD_OVERHEAD)) {
                std::this_thread::yield();
            }
            ASSERT_TRUE(pool.InputData(data.data(), nLen / 2, data.data(), nLen - nLen / 2));
        }
    });
    for (uint32_t i = 0; i < RECORDS; ++i) {
        uint8_t* p = nullptr;
        uint32_t n = 0;
        while (!pool.GetData(&p, &n)) {
            std::this_thread::yield();
        }
        EXPECT_EQ(Bytes(p, p + n), Bytes(Length(i), static_cast<uint8_t>(i)));
        pool.UpdateReadIdx(n);
    }
    writer.join();
}

}  // namespace
