// SPDX-License-Identifier: MIT
/// @file
/// A ring of variable-length records between one writer thread and one reader thread, for media
/// frames that must not cost an allocation each. Stands alone: the server does not use it.
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
/// and the data. It never wraps, so that the reader gets it in one piece: the last record of a lap
/// runs on into the tail behind the ring, and the next one starts at the front.
///
/// One writer thread and one reader thread may work at once without a lock; more on either side
/// need a lock of the caller's around that side. Init() and Release() need both sides to be idle.
/// No function blocks or throws, and only Init() allocates. Lengths are in bytes.
class RTSPS_EXPORT CMemPool {
  public:
    /// What a record takes beyond its data.
    static constexpr uint32_t RECORD_OVERHEAD = 8;

    /// Makes a pool without memory; see Init().
    CMemPool() = default;
    /// Does not free the memory; see Release().
    ~CMemPool() = default;
    CMemPool(const CMemPool&) = delete;
    CMemPool& operator=(const CMemPool&) = delete;

    /// Allocates the memory of the pool, about twice the ring and the tail. An earlier Init() is
    /// undone as by Release(). The positions stay where they were, so that a pool which has been in
    /// use wants a Clear().
    ///
    /// @param[in] dwRingLen  bounds what may wait unread.
    /// @param[in] dwTailLen  the room behind the ring for the last record of a lap: make it the
    ///                       largest record and its 8 bytes. The pool does not check that; with a
    ///                       smaller one a large record is refused more often.
    ///
    /// @return true, or false for lack of memory.
    bool Init(uint32_t dwRingLen, uint32_t dwTailLen);

    /// Frees the memory, and with it all unread records.
    /// @return true.
    bool Release();

    /// @name Writer
    /// @{

    /// Appends one record with a copy of the data.
    ///
    /// A record that ends at the ring's length or up to 7 bytes after it leaves the write
    /// position there, where the reader does not look, and the record appended after it is lost.
    /// Writers who cannot live with that use the other two ways to append.
    ///
    /// @param[in] pData      the data; the caller's, not kept.
    /// @param[in] dwDataLen  its length.
    ///
    /// @return true, or false, with the pool unchanged and a text on standard output, when there is
    /// no data (or a null pointer to it) or no room for it.
    bool InputData(const void* pData, uint32_t dwDataLen);

    /// Appends one record made of two pieces, back to back. A null piece leaves its bytes as they
    /// were; either length may be 0, but not both.
    ///
    /// @param[in] pFirst       the first piece, or null; the caller's, not kept.
    /// @param[in] dwFirstLen   its length.
    /// @param[in] pSecond      the second piece, or null; the caller's, not kept.
    /// @param[in] dwSecondLen  its length.
    ///
    /// @return as for one piece, but a null piece is no error.
    bool InputData(const void* pFirst, uint32_t dwFirstLen, const void* pSecond,
                   uint32_t dwSecondLen);

    /// Offers the free room for a record that is written in place, committed by UpdateWriteIdx().
    ///
    /// @param[out] ppBuf   the room; the pool's.
    /// @param[out] pdwLen  how much may be written there.
    ///
    /// @return true, or false with `*pdwLen` set to 0 when there is no room.
    bool GetBuf(uint8_t** ppBuf, uint32_t* pdwLen);

    /// Commits what was written in place as one record.
    ///
    /// @param[in] dwLen  its length, not more than GetBuf() offered.
    ///
    /// @return true, or false when the pool has no memory.
    bool UpdateWriteIdx(uint32_t dwLen);

    /// Tells whether there is room now.
    ///
    /// @param[in] dwNeeded  for how much, the 8 bytes of the record included.
    ///
    /// @return true if so.
    bool checkWritable(uint32_t dwNeeded) const;

    /// @}
    /// @name Reader
    /// @{

    /// Offers the oldest record without consuming it.
    ///
    /// @param[out] ppBuf   its data, which stay valid until UpdateReadIdx(). They may be changed in
    ///                     place.
    /// @param[out] pdwLen  their length.
    ///
    /// @return true, or false when there is nothing to read.
    bool GetData(uint8_t** ppBuf, uint32_t* pdwLen);

    /// Consumes the oldest record.
    ///
    /// @param[in] dwLen  the length that GetData() reported.
    ///
    /// @return true.
    bool UpdateReadIdx(uint32_t dwLen);

    /// Drops all unread records. Moves the read position, so it is the reader's.
    /// @return true.
    bool Clear();

    /// @}
    /// @name Either side
    /// @{

    /// Tells how much of the ring is free.
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
