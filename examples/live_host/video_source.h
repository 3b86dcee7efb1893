// SPDX-License-Identifier: MIT
// A file or a pipe of H.264 or H.265 as a sequence of access units, each ready to be decoded.
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
        eEnded,    // the end, or of a source that is not to be repeated
        eFailed    // see Error()
    };

    // bLoop: begin again at the end.
    CVideoSource(EVideoCodec emCodec, bool bLoop);
    ~CVideoSource();
    CVideoSource(const CVideoSource&) = delete;
    CVideoSource& operator=(const CVideoSource&) = delete;

    // path: a file, or "-" for standard input. Returns whether it worked; if not, see Error().
    bool Open(const std::string& path);

    // Looks for the next picture. Never waits for a pipe and reads one piece at most, so that the
    // caller stays awake whatever the source is. The first picture handed out, after each return to
    // the beginning too, is a key picture; every key picture has its parameter sets.
    EState Fetch();

    // Passes over everything in front of the next key picture, which Fetch() hands out next. Unit()
    // counts as passed over too when the caller drops it.
    void SkipToKey(bool bDropsUnit);
    // How many pictures were passed over that way since the last call.
    size_t TakeSkipped();

    const CAccessUnit& Unit() const { return m_unit; }
    int Fd() const { return m_fd; }
    // One sentence for people, naming the source.
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
    bool m_bSkipping = false;       // asked to: what is passed over would have been shown
    size_t m_nSkippedPictures = 0;  // of these
    size_t m_nSkipped = 0;          // bytes of pictures in front of the first key picture
    std::vector<uint8_t> m_chunk;
};

#endif
