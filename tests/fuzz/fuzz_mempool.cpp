// SPDX-License-Identifier: MIT
// Compares the memory pool with a queue: records come out whole and in order. The space that the
// pool reports follows from the lengths. After calls that break the order, the pool must still stay
// within its memory.
#include <deque>

#include "fuzz_support.h"
#include "mempool.h"

// A second implementation of the positions.
struct CPositions {
    uint32_t Next(uint32_t nFrom, size_t nRecord) const {
        const size_t nNext = nFrom + nRecord + CMemPool::RECORD_OVERHEAD;
        return nNext < nRing ? static_cast<uint32_t>(nNext) : 0;
    }
    uint32_t Free() const { return nWrite < nRead ? nRead - nWrite : nRing - (nWrite - nRead); }
    uint32_t Room() const { return Free() + (nWrite > nRead && nRead != 0 ? nTail : 0); }

    uint32_t nRing, nTail, nRead = 0, nWrite = 0;
};

void Fuzz(CFuzzInput input) {
    CMemPool pool;
    std::deque<Bytes> waiting;
    const bool bOrdered = input.Byte() % 4 != 0;
    CPositions at = {input.Byte(), input.Byte()};
    FUZZ_CHECK(pool.Init(at.nRing, at.nTail));
    for (uint8_t nFill = 1; !input.Empty(); ++nFill) {
        const int nStep = input.Byte() % 8;
        Bytes record(input.Byte(), nFill);
        uint8_t* p = record.data();
        auto n = static_cast<uint32_t>(record.size());
        bool bTaken = false;
        if (nStep <= 1) {
            bTaken = n > 0 && pool.checkWritable(n + CMemPool::RECORD_OVERHEAD);
            FUZZ_CHECK(pool.InputData(p, n / 3, p + n / 3, n - n / 3) == bTaken);
        } else if (nStep == 2) {
            FUZZ_CHECK(pool.GetBuf(&p, &n) || n == 0);
            FUZZ_CHECK(!bOrdered || n == std::max(at.Room(), 9U) - 9);
            record.resize(std::min<size_t>(record.size(), n));
            std::copy(record.begin(), record.end(), p);
            n = static_cast<uint32_t>(record.size());
            bTaken = n > 0 && pool.UpdateWriteIdx(n);
        } else if (nStep == 3 && !bOrdered) {
            // Kept: a record after one that ends with the ring is lost. Also misuse of the pool.
            pool.InputData(p, n);
            FUZZ_CHECK(n % 4 != 1 || pool.UpdateWriteIdx(n % 8 == 1 ? n : ~n));
            FUZZ_CHECK(n % 4 != 2 || pool.UpdateReadIdx(n % 8 == 2 ? n : ~n));
            FUZZ_CHECK(n % 8 != 3 || pool.Init(n, n / 2));
        } else if (nStep == 4 && nFill % 4 == 0) {
            pool.Clear();
            waiting.clear();
            at.nRead = at.nWrite;
        } else if (nStep >= 4) {
            const Bytes read = pool.GetData(&p, &n) ? Bytes(p, p + n) : Bytes();
            FUZZ_CHECK(read.empty() || pool.UpdateReadIdx(n));
            at.nRead = read.empty() ? at.nRead : at.Next(at.nRead, read.size());
            FUZZ_CHECK(!bOrdered || read == (waiting.empty() ? Bytes() : waiting.front()));
            waiting.erase(waiting.begin(), waiting.begin() + (waiting.empty() ? 0 : 1));
        }
        waiting.insert(waiting.end(), bTaken ? 1 : 0, record);
        at.nWrite = bTaken ? at.Next(at.nWrite, record.size()) : at.nWrite;
        FUZZ_CHECK(!bOrdered || pool.GetSpace() == at.Free());
    }
    pool.Release();
}
