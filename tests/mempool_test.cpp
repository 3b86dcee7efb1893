// SPDX-License-Identifier: MIT
#include "mempool.h"

#include <gtest/gtest.h>

#include <numeric>
#include <thread>
#include <vector>

#include "support/log_capture.h"

namespace {

using Bytes = std::vector<uint8_t>;

// A pool that frees its memory.
class CTestPool : public CMemPool {
  public:
    CTestPool(uint32_t nRing, uint32_t nTail) { EXPECT_TRUE(Init(nRing, nTail)); }
    ~CTestPool() { Release(); }
};

TEST(MemPool, RefusesWithATextAndChangesNothing) {
    CTestPool pool(1000, 500);
    const Bytes data(2000);
    const void* p = data.data();
    const auto onePiece = [&](uint32_t length) {
        const CLogCapture log;
        EXPECT_FALSE(pool.InputData(p, length));
        return log.Text();
    };
    const auto twoPieces = [&](uint32_t first, uint32_t second) {
        const CLogCapture log;
        EXPECT_FALSE(pool.InputData(p, first, p, second));
        return log.Text();
    };
    EXPECT_EQ(onePiece(0), "invalid input para,dwDataLen = 0");
    EXPECT_EQ(onePiece(992), "there is no space,dwDataLen = 992") << "needs more than that";
    EXPECT_EQ(twoPieces(0, 0), "invalid input para\n");
    EXPECT_EQ(twoPieces(500, 492), "there is no space,dwDataLen = 992");
    EXPECT_EQ(twoPieces(0xFFFFFFFF, 0xFFFFFFFF), "there is no space,dwDataLen = 4294967294");
    EXPECT_EQ(twoPieces(0xFFFFFFFF, 1), "there is no space,dwDataLen = 0") << "wraps to 0";
    EXPECT_EQ(pool.GetSpace(), 1000U);
    EXPECT_TRUE(pool.Init(1000, 500)) << "again: the first block is freed";
    const CLogCapture log;
    EXPECT_FALSE(CMemPool().InputData(p, 1)) << "before Init";
}

// Kept: the append of one piece returns to the front of the ring later than the other appends, and
// the reader loses the record after it. The fuzz target covers the other appends.
TEST(MemPool, ARecordAfterOnePieceInTheTailIsLost) {
    CTestPool pool(100, 50);
    Bytes record(51);
    std::iota(record.begin(), record.end(), uint8_t{1});
    uint8_t* data = nullptr;
    uint32_t length = 0;
    for (const uint32_t size : {40U, 51U}) {
        EXPECT_TRUE(pool.InputData(record.data(), size));
        EXPECT_TRUE(pool.GetData(&data, &length));
        EXPECT_EQ(Bytes(data, data + length), Bytes(record.data(), record.data() + size));
        pool.UpdateReadIdx(length);
    }
    EXPECT_EQ(pool.GetSpace(), 93U) << "7 bytes after the end of the ring";
    EXPECT_TRUE(pool.InputData(record.data(), 10, record.data(), 10));
    EXPECT_EQ(pool.GetSpace(), 100U);
    EXPECT_FALSE(pool.GetData(&data, &length));
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
