// SPDX-License-Identifier: MIT
/// @file
/// A ring buffer of variable-length records between one writer thread and one reader thread. It
/// carries media frames without one allocation per frame. The server does not use it.
///
/// @code
///     CMemPool pool;
///     if (!pool.Init(1 << 20, 256 * 1024)) { ... }
///     // writer                                   // reader
///     pool.InputData(pFrame, nLen);               uint8_t* p; uint32_t n;
///                                                 if (pool.GetData(&p, &n)) {
///                                                     Use(p, n);
///                                                     pool.UpdateReadIdx(n);
///                                                 }
///     // after both threads have ended
///     pool.Release();
/// @endcode
#ifndef MEMPOOL_H
#define MEMPOOL_H

#include <stdint.h>

#include <atomic>

#ifndef RTSPS_EXPORT
#define RTSPS_EXPORT __attribute__((visibility("default")))
#endif

/// A ring of records. A record is a 32-bit marker, a 32-bit data length (both in host byte order)
/// and the data. A record is always in one piece: when it does not fit before the end of the ring,
/// it continues into the tail, which follows the ring. The next record then starts at the front.
///
/// One writer thread and one reader thread may work at the same time without a lock. Several
/// writers need a lock among themselves, and so do several readers. During Init() and Release() no
/// other function may run. No function throws, and only InputData() may block: it prints when it
/// refuses a record. Only Init() allocates memory. Lengths are in bytes.
class RTSPS_EXPORT CMemPool {
  public:
    /// Bytes that a record needs in addition to its data.
    static constexpr uint32_t RECORD_OVERHEAD = 8;

    /// Makes a pool without memory; see Init().
    CMemPool() = default;
    /// Does not free the memory; see Release().
    ~CMemPool() = default;
    CMemPool(const CMemPool&) = delete;
    CMemPool& operator=(const CMemPool&) = delete;

    /// Allocates the memory of the pool: about twice the ring, and the tail. The memory of an
    /// earlier Init() is freed. The read and write positions do not change: call Clear() after
    /// Init() for a pool that has been in use.
    ///
    /// @param[in] dwRingLen  length of the ring, which limits the unread data.
    /// @param[in] dwTailLen  length of the tail: that of the largest data plus RECORD_OVERHEAD. The
    ///                       pool does not check it. With a shorter tail, large records are refused
    ///                       more often.
    ///
    /// @return true, or false when the memory cannot be allocated.
    bool Init(uint32_t dwRingLen, uint32_t dwTailLen);

    /// Frees the memory. Unread records are lost.
    /// @return true.
    bool Release();

    /// @name Writer
    /// @{

    /// Appends one record with a copy of the data.
    ///
    /// When a record ends exactly at the end of the ring, or up to 7 bytes after it, the next
    /// record is lost. The other two ways to append do not lose records: InputData() with two
    /// pieces, and GetBuf() with UpdateWriteIdx().
    ///
    /// @param[in] pData      the data; not kept after the call.
    /// @param[in] dwDataLen  its length.
    ///
    /// @return true, or false for a null pointer, a length of 0 or a lack of room. The pool is then
    /// unchanged, and one text is printed to standard output.
    bool InputData(const void* pData, uint32_t dwDataLen);

    /// Appends one record that consists of two pieces. One of the lengths may be 0. A null piece
    /// reserves its length, and the bytes there keep their old content.
    ///
    /// @param[in] pFirst       the first piece, or null; not kept after the call.
    /// @param[in] dwFirstLen   its length.
    /// @param[in] pSecond      the second piece, or null; not kept after the call.
    /// @param[in] dwSecondLen  its length.
    ///
    /// @return true, or false for two lengths of 0 or a lack of room. The pool is then unchanged,
    /// and one text is printed to standard output.
    bool InputData(const void* pFirst, uint32_t dwFirstLen, const void* pSecond,
                   uint32_t dwSecondLen);

    /// Returns the free room, for a record that the caller writes in place. UpdateWriteIdx() then
    /// appends the record.
    ///
    /// @param[out] ppBuf   receives the address of the room, which belongs to the pool.
    /// @param[out] pdwLen  receives the number of bytes that may be written there.
    ///
    /// @return true, or false with `*pdwLen` set to 0 when there is no room.
    bool GetBuf(uint8_t** ppBuf, uint32_t* pdwLen);

    /// Appends the bytes that were written in place as one record.
    ///
    /// @param[in] dwLen  their number, at most what GetBuf() returned.
    ///
    /// @return true, or false when the pool has no memory.
    bool UpdateWriteIdx(uint32_t dwLen);

    /// Checks whether there is room for a record.
    ///
    /// @param[in] dwNeeded  length of the data plus RECORD_OVERHEAD.
    ///
    /// @return true if there is.
    bool checkWritable(uint32_t dwNeeded) const;

    /// @}
    /// @name Reader
    /// @{

    /// Returns the oldest record and leaves it in the pool.
    ///
    /// @param[out] ppBuf   receives the address of its data. The data are valid until
    ///                     UpdateReadIdx(), and may be changed in place.
    /// @param[out] pdwLen  receives their length.
    ///
    /// @return true, or false when there is no record.
    bool GetData(uint8_t** ppBuf, uint32_t* pdwLen);

    /// Removes the oldest record.
    ///
    /// @param[in] dwLen  the length that GetData() returned.
    ///
    /// @return true.
    bool UpdateReadIdx(uint32_t dwLen);

    /// Removes all unread records. Only the reader may call it, because it moves the read position.
    /// @return true.
    bool Clear();

    /// @}
    /// @name Either side
    /// @{

    /// Returns how much of the ring is free.
    /// @return the number of bytes.
    uint32_t GetSpace() const;

    /// @}

  private:
    struct TPositions {
        uint32_t dwRead;
        uint32_t dwWrite;
    };
    TPositions Positions() const;
    uint32_t Used(const TPositions& pos) const;
    uint64_t Room(const TPositions& pos) const;
    void PutHeader(uint32_t dwWidx, uint32_t dwLen);
    void AdvanceWrite(uint32_t dwWidx, uint32_t dwLen);

    // Block and lengths: written by Init and Release, which need both sides to be idle.
    uint8_t* m_pBuf = nullptr;
    uint32_t m_dwTailLen = 0;
    uint32_t m_dwRingLen = 0;
    std::atomic<uint32_t> m_dwRidx{0};  // atomic: written by the reader, read by the writer
    std::atomic<uint32_t> m_dwWidx{0};  // atomic: written by the writer, read by the reader
    uint64_t m_nBlockLen = 0;
};

#endif
