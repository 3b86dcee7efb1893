// SPDX-License-Identifier: MIT
// Compares the memory pool with a queue: records come out whole and in order. After calls that
// break the order, the pool must still stay within its memory.
#include <deque>

#include "fuzz_support.h"
#include "mempool.h"

void Fuzz(CFuzzInput input) {
    CMemPool pool;
    std::deque<Bytes> waiting;
    const bool bOrdered = input.Byte() % 4 != 0;
    const uint32_t nRing = input.Byte();
    FUZZ_CHECK(pool.Init(nRing, input.Byte()));
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
        } else if (nStep >= 4) {
            const Bytes read = pool.GetData(&p, &n) ? Bytes(p, p + n) : Bytes();
            FUZZ_CHECK(read.empty() || pool.UpdateReadIdx(n));
            FUZZ_CHECK(!bOrdered || read == (waiting.empty() ? Bytes() : waiting.front()));
            waiting.erase(waiting.begin(), waiting.begin() + (waiting.empty() ? 0 : 1));
        }
        waiting.insert(waiting.end(), bTaken ? 1 : 0, record);
    }
    pool.Release();
}
