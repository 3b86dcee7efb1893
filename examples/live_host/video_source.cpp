// SPDX-License-Identifier: MIT
#include "video_source.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr size_t CHUNK_SIZE = 64 * 1024;

// A stream fails when more bytes than this come before the first picture that can be decoded.
constexpr size_t MAX_SKIPPED = 16 * 1024 * 1024;

}  // namespace

CVideoSource::CVideoSource(EVideoCodec emCodec, bool bLoop)
    : m_bLoop(bLoop), m_reader(emCodec), m_sets(emCodec), m_chunk(CHUNK_SIZE) {}

CVideoSource::~CVideoSource() {
    if (m_fd > STDIN_FILENO)
        close(m_fd);
}

bool CVideoSource::Open(const std::string& path) {
    m_strName = path == "-" ? "standard input" : path;
    m_fd = path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat info = {};
    if (m_fd < 0 || fstat(m_fd, &info) != 0) {
        Fail(std::strerror(errno));
        return false;
    }
    if (S_ISDIR(info.st_mode)) {
        Fail(std::strerror(EISDIR));
        return false;
    }
    return true;
}

CVideoSource::EState CVideoSource::Fetch() {
    bool hasRead = false;
    for (;;) {
        EState state = EState::eReady;
        switch (m_reader.Take(m_unit)) {
            case CAnnexBReader::EResult::eReady:
                if (IsDecodable())
                    return EState::eReady;
                m_nSkipped += m_unit.Size();
                if (m_nSkipped > MAX_SKIPPED)
                    return Fail("no key frame; is --codec right?");
                break;
            case CAnnexBReader::EResult::eNeedData:
                state = hasRead ? EState::eWaiting : Read();
                hasRead = true;
                break;
            case CAnnexBReader::EResult::eEnd:
                state = Repeat();
                break;
            case CAnnexBReader::EResult::eNoStream:
                return Fail("not an Annex-B stream: no start code at its beginning");
            case CAnnexBReader::EResult::eTooLarge:
                return Fail("no end of a picture within 4 MiB; is --codec right?");
        }
        if (state != EState::eReady)
            return state;
    }
}

// Polls first, because O_NONBLOCK on standard input would affect every process that shares it.
CVideoSource::EState CVideoSource::Read() {
    pollfd input = {m_fd, POLLIN, 0};
    if (poll(&input, 1, 0) == 0)
        return EState::eWaiting;
    const ssize_t size = read(m_fd, m_chunk.data(), m_chunk.size());
    if (size > 0)
        m_reader.Append(m_chunk.data(), static_cast<size_t>(size));
    else if (size == 0)
        m_reader.End();
    else if (errno == EAGAIN)
        return EState::eWaiting;
    else if (errno != EINTR)
        return Fail(std::strerror(errno));
    return EState::eReady;
}

CVideoSource::EState CVideoSource::Repeat() {
    if (m_bWaitForKey && !m_bSkipping)
        return Fail("no key frame with its parameter sets; is --codec right?");
    if (!m_bLoop)
        return EState::eEnded;
    if (lseek(m_fd, 0, SEEK_SET) != 0)
        return Fail("cannot be read again; use --no-loop");
    m_reader.Restart();
    m_bWaitForKey = true;
    m_nSkipped = 0;
    return EState::eReady;
}

CVideoSource::EState CVideoSource::Fail(const std::string& what) {
    m_strError = m_strName + ": " + what;
    return EState::eFailed;
}

bool CVideoSource::IsDecodable() {
    const bool complete = m_sets.Complete(m_unit);
    if (m_bWaitForKey && m_unit.IsKey() && complete) {
        m_bWaitForKey = false;
        m_bSkipping = false;
    }
    if (m_bSkipping)
        ++m_nSkippedPictures;
    return !m_bWaitForKey;
}

void CVideoSource::SkipToKey(bool bDropsUnit) {
    m_nSkippedPictures += bDropsUnit ? 1 : 0;
    m_bWaitForKey = true;
    m_bSkipping = true;
    m_nSkipped = 0;
}

size_t CVideoSource::TakeSkipped() {
    const size_t skipped = m_nSkippedPictures;
    m_nSkippedPictures = 0;
    return skipped;
}
