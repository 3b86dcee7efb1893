// SPDX-License-Identifier: MIT
// The memory pool against the simplest model, a queue: what goes in comes out, whole and in order.
// Runs with calls after which the pool keeps no order must stay within its memory all the same.
#include <algorithm>
#include <deque>

#include "fuzz_support.h"
#include "mempool.h"

namespace {

bool AppendPieces(CMemPool& pool, const Bytes& record) {
    const auto nLen = static_cast<uint32_t>(record.size());
    const uint8_t* p = record.data();
    const bool bFits = nLen > 0 && pool.checkWritable(nLen + CMemPool::RECORD_OVERHEAD);
    FUZZ_CHECK(pool.InputData(p, nLen / 3, p + nLen / 3, nLen - nLen / 3) == bFits);
    return bFits;
}

bool WriteInPlace(CMemPool& pool, Bytes& record) {
    uint8_t* pRoom = nullptr;
    uint32_t nRoom = 0;
    FUZZ_CHECK(pool.GetBuf(&pRoom, &nRoom) || nRoom == 0);
    record.resize(std::min<size_t>(record.size(), nRoom));
    std::copy(record.begin(), record.end(), pRoom);
    return !record.empty() && pool.UpdateWriteIdx(static_cast<uint32_t>(record.size()));
}

// Kept: a record behind a whole one that ends at the ring's end is lost. The rest is misuse.
void Disorder(CMemPool& pool, const Bytes& record) {
    const auto n = static_cast<uint32_t>(record.size());
    pool.InputData(record.data(), n);
    FUZZ_CHECK(n % 4 != 1 || pool.UpdateWriteIdx(n % 8 == 1 ? n : ~n));
    FUZZ_CHECK(n % 4 != 2 || pool.UpdateReadIdx(n % 8 == 2 ? n : ~n));
    FUZZ_CHECK(n % 8 != 3 || pool.Init(n, n / 2));
}

Bytes Read(CMemPool& pool) {
    uint8_t* p = nullptr;
    uint32_t nLen = 0;
    if (pool.GetData(&p, &nLen)) {
        pool.UpdateReadIdx(nLen);
    }
    return Bytes(p, p + nLen);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    CFuzzInput input(pData, nSize);
    CMemPool pool;
    std::deque<Bytes> waiting;
    const bool bOrdered = input.Byte() % 4 != 0;
    const uint32_t nRing = input.Byte();
    FUZZ_CHECK(pool.Init(nRing, input.Byte()));
    for (uint8_t nFill = 1; !input.Empty(); ++nFill) {
        const int nStep = input.Byte() % 8;
        Bytes record(input.Byte(), nFill);
        if (nStep <= 1 ? AppendPieces(pool, record) : nStep == 2 && WriteInPlace(pool, record)) {
            waiting.push_back(record);
        } else if (nStep == 3 && !bOrdered) {
            Disorder(pool, record);
        } else if (nStep == 4 && nFill % 4 == 0) {
            pool.Clear();
            waiting.clear();
        } else if (nStep >= 4) {
            const Bytes read = Read(pool);
            FUZZ_CHECK(!bOrdered || read == (waiting.empty() ? Bytes() : waiting.front()));
            waiting.erase(waiting.begin(), waiting.begin() + (waiting.empty() ? 0 : 1));
        }
    }
    pool.Release();
    return 0;
}
