// SPDX-License-Identifier: MIT
#include "mempool.h"

#include <gtest/gtest.h>

#include <algorithm>
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
}

// A pool, and the steps of its writer and its reader. The length of a record determines its bytes.
class CMemPoolLaps : public ::testing::Test {
  protected:
    void SetUp() override {
        uint32_t offered = 0;
        ASSERT_TRUE(m_pool.GetBuf(&m_base, &offered));
    }
    static Bytes Record(uint32_t length) {
        Bytes record(length);
        std::iota(record.begin(), record.end(), static_cast<uint8_t>(length));
        return record;
    }
    void AppendOnePiece(uint32_t length) {
        EXPECT_TRUE(m_pool.InputData(Record(length).data(), length));
    }
    void AppendTwoPieces(uint32_t length) {
        const Bytes record = Record(length);
        EXPECT_TRUE(m_pool.InputData(record.data(), 1, &record[1], length - 1));
    }
    void Read(uint32_t length) {
        uint8_t* data = nullptr;
        uint32_t held = 0;
        ASSERT_TRUE(m_pool.GetData(&data, &held));
        EXPECT_EQ(Bytes(data, data + held), Record(length));
        m_pool.UpdateReadIdx(held);
    }
    // The position and the greatest length of the next record, and the free space.
    void ExpectNext(ptrdiff_t at, uint32_t offered, uint32_t free) {
        uint8_t* room = nullptr;
        uint32_t length = 0;
        EXPECT_TRUE(m_pool.GetBuf(&room, &length));
        EXPECT_EQ(room - m_base, at);
        EXPECT_EQ(length, offered);
        EXPECT_EQ(m_pool.GetSpace(), free);
    }

    CTestPool m_pool{100, 50};
    uint8_t* m_base = nullptr;
};

TEST_F(CMemPoolLaps, TheLastRecordOfALapRunsIntoTheTail) {
    ExpectNext(0, 91, 100);
    AppendTwoPieces(40);
    ExpectNext(48, 43, 52);
    AppendTwoPieces(20);
    ExpectNext(76, 15, 24);
    Read(40);
    ExpectNext(76, 113, 72);
    AppendTwoPieces(60);
    ExpectNext(0, 39, 48);
    Read(20);
    ExpectNext(0, 67, 76);
    Read(60);
    ExpectNext(0, 91, 100);
}

// Kept: the append of one piece returns to the front of the ring later than the other appends, and
// the reader loses the record after it.
TEST_F(CMemPoolLaps, ARecordAfterOnePieceInTheTailIsLost) {
    AppendOnePiece(40);
    Read(40);
    AppendOnePiece(51);
    ExpectNext(107, 82, 41);
    Read(51);
    ExpectNext(107, 84, 93);
    AppendTwoPieces(20);
    ExpectNext(0, 91, 100);
    uint8_t* lost = nullptr;
    uint32_t length = 0;
    EXPECT_FALSE(m_pool.GetData(&lost, &length));
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
