// SPDX-License-Identifier: MIT
#include "mempool.h"

#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <random>
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
}

// Misuse that stores a wild length, and a smaller ring under positions of a larger one.
TEST(MemPool, NeverLeadsOutsideItsMemory) {
    const auto ExpectReadable = [](CMemPool& pool) {
        uint8_t* p = nullptr;
        uint32_t n = 0;
        ASSERT_TRUE(pool.GetData(&p, &n));
        EXPECT_LE(std::accumulate(p, p + n, uint64_t{0}), uint64_t{n} * 255);
    };
    CTestPool pool(1000, 100);
    const Bytes data(4000);
    ASSERT_TRUE(pool.InputData(data.data(), 900));
    EXPECT_EQ(Consume(pool), 900);
    EXPECT_TRUE(pool.UpdateWriteIdx(0xFFFFFFFF));
    ExpectReadable(pool);
    pool.UpdateReadIdx(0xFFFFFFFF);
    ASSERT_TRUE(pool.InputData(data.data(), 900) && pool.Clear() && pool.Init(40, 20));
    ASSERT_TRUE(pool.InputData(data.data(), 31));
    ExpectReadable(pool);
}

// The rules of the pool over a plain array, in signed 64-bit arithmetic.
TEST(MemPool, FollowsTheModel) {
    std::minstd_rand random(4711);
    const auto Draw = [&](uint32_t n) { return static_cast<uint32_t>(random() % n); };
    for (int nRun = 0; nRun < 300; ++nRun) {
        const int64_t nRing = 20 + Draw(200), nTail = Draw(100);
        CTestPool pool(static_cast<uint32_t>(nRing), static_cast<uint32_t>(nTail));
        int64_t nRead = 0, nWrite = 0;
        Bytes block(static_cast<size_t>(2 * nRing + nTail + 32));
        uint8_t* pBase = nullptr;  // where data at position 0 lies
        uint32_t n = 0;
        ASSERT_TRUE(pool.GetBuf(&pBase, &n));
        for (int nStep = 0; nStep < 300; ++nStep) {
            const int64_t nFree = nRing - ((nWrite - nRead + nRing) & 0xFFFFFFFF) % nRing;
            const int64_t nRoom = nFree + (nWrite > nRead && nRead != 0 ? nTail : 0);
            const Bytes data(1 + Draw(60), static_cast<uint8_t>(nStep));
            const auto nLen = static_cast<uint32_t>(data.size());
            uint8_t* p = nullptr;
            ASSERT_EQ(pool.GetSpace(), nFree);
            ASSERT_EQ(pool.GetBuf(&p, &n), nRoom > 8);
            ASSERT_EQ(n, nRoom > 8 ? nRoom - 9 : 0);
            ASSERT_TRUE(p == nullptr || p - pBase == nWrite);
            const uint32_t nAction = Draw(5);
            if (nAction < 3 && nLen <= n) {
                if (nAction == 0) {
                    ASSERT_TRUE(pool.InputData(data.data(), nLen));
                } else if (nAction == 1) {
                    ASSERT_TRUE(pool.InputData(data.data(), 1, data.data(), nLen - 1));
                } else {
                    memcpy(p, data.data(), nLen);
                    ASSERT_TRUE(pool.UpdateWriteIdx(nLen));
                }
                memcpy(&block[static_cast<size_t>(nWrite) + 4], &nLen, 4);
                memcpy(&block[static_cast<size_t>(nWrite) + 8], data.data(), nLen);
                // The last record of a lap runs into the tail. Kept: one piece does later.
                nWrite = nWrite + nLen + (nAction == 0 ? 0 : 8) < nRing ? nWrite + nLen + 8 : 0;
            } else if (nAction >= 3) {
                p = nullptr;
                ASSERT_EQ(pool.GetData(&p, &n), nRing - nFree >= 8 || nRead > nWrite);
                if (p != nullptr) {
                    const uint8_t* pHeld = &block[static_cast<size_t>(nRead) + 4];
                    ASSERT_EQ(p - pBase, nRead);
                    ASSERT_EQ(memcmp(pHeld, &n, 4), 0);
                    ASSERT_EQ(memcmp(pHeld + 4, p, n), 0);
                    pool.UpdateReadIdx(n);
                    nRead = nRead + n + 8 < nRing ? nRead + n + 8 : 0;
                }
            }
        }
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
