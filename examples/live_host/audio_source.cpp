// SPDX-License-Identifier: MIT
#include "audio_source.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

bool CAudioSource::Open(const std::string& path, bool bLoop, std::string& error) {
    struct stat info = {};
    if (stat(path.c_str(), &info) != 0) {
        error = path + ": " + std::strerror(errno);
        return false;
    }
    // An empty file would be read again forever, and a pipe could block the video.
    if (!S_ISREG(info.st_mode) || info.st_size == 0) {
        error = path + ": not a regular file, or empty";
        return false;
    }
    m_pFile.reset(std::fopen(path.c_str(), "rbe"));
    if (!m_pFile)
        error = path + ": " + std::strerror(errno);
    m_bLoop = bLoop;
    return m_pFile != nullptr;
}

size_t CAudioSource::Read(uint8_t* pData, size_t size) {
    size_t got = std::fread(pData, 1, size, m_pFile.get());
    while (m_bLoop && got < size) {
        std::rewind(m_pFile.get());
        const size_t more = std::fread(pData + got, 1, size - got, m_pFile.get());
        if (more == 0)
            break;
        got += more;
    }
    return got;
}

void CAudioSource::Skip(size_t size) {
    uint8_t scratch[1024];
    while (size > 0) {
        const size_t got = Read(scratch, std::min(size, sizeof(scratch)));
        if (got == 0)
            return;
        size -= got;
    }
}
