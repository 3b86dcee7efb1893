// SPDX-License-Identifier: MIT
// A file of raw G.711 A-law samples.
#ifndef LIVE_HOST_AUDIO_SOURCE_H
#define LIVE_HOST_AUDIO_SOURCE_H

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

class CAudioSource {
  public:
    // Returns whether the file is open; if not, error is the message to print.
    bool Open(const std::string& path, bool bLoop, std::string& error);

    // Copies the next samples to pData; after the last one a loop starts again. Returns how many
    // were copied, which is below size only at the end.
    size_t Read(uint8_t* pData, size_t size);

    // Skips that many samples.
    void Skip(size_t size);

  private:
    struct CFileCloser {
        void operator()(std::FILE* pFile) const { std::fclose(pFile); }
    };

    std::unique_ptr<std::FILE, CFileCloser> m_pFile;
    bool m_bLoop = false;
};

#endif
