// SPDX-License-Identifier: MIT
// A file or pipe of H.264 or H.265 as a sequence of access units that a decoder can start with.
#ifndef LIVE_HOST_VIDEO_SOURCE_H
#define LIVE_HOST_VIDEO_SOURCE_H

#include <string>

#include "annexb_reader.h"
#include "parameter_sets.h"

class CVideoSource {
  public:
    enum class EState {
        eReady,    // Unit() is the next picture
        eWaiting,  // there is no whole picture yet: poll Fd() for input
        eEnded,    // the end of a source that is not repeated
        eFailed    // see Error()
    };

    // bLoop: start again at the end.
    CVideoSource(EVideoCodec emCodec, bool bLoop);
    ~CVideoSource();
    CVideoSource(const CVideoSource&) = delete;
    CVideoSource& operator=(const CVideoSource&) = delete;

    // path: a file, or "-" for standard input. Returns whether it is open; if not, see Error().
    bool Open(const std::string& path);

    // Looks for the next picture. It never waits for a pipe and reads at most one chunk, so that it
    // returns quickly with any source. The first picture, also after each return to the beginning,
    // is a key picture. Every key picture has its parameter sets.
    EState Fetch();

    // Skips all pictures before the next key picture, which Fetch() returns next. With bDropsUnit,
    // the caller drops Unit(), which then counts as skipped too.
    void SkipToKey(bool bDropsUnit);
    // The number of pictures that SkipToKey has skipped since the last call.
    size_t TakeSkipped();

    const CAccessUnit& Unit() const { return m_unit; }
    int Fd() const { return m_fd; }
    // The message to print, with the name of the source.
    const std::string& Error() const { return m_strError; }

  private:
    EState Read();
    EState Repeat();
    EState Fail(const std::string& what);
    bool IsDecodable();

    const bool m_bLoop;
    std::string m_strName;
    std::string m_strError;
    int m_fd = -1;
    CAnnexBReader m_reader;
    CParameterSets m_sets;
    CAccessUnit m_unit;
    bool m_bWaitForKey = true;
    bool m_bSkipping = false;       // SkipToKey is in progress
    size_t m_nSkippedPictures = 0;  // skipped by SkipToKey
    size_t m_nSkipped = 0;          // bytes of pictures before the first key picture
    std::vector<uint8_t> m_chunk;
};

#endif
