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
    // Returns whether it worked; if not, error is one sentence for people.
    bool Open(const std::string& path, bool bLoop, std::string& error);

    // Fills pData with the next samples, from the beginning again after the last one if it loops.
    // Returns how many; fewer than size only at the end.
    size_t Read(uint8_t* pData, size_t size);

    // Passes over that many samples.
    void Skip(size_t size);

  private:
    struct CFileCloser {
        void operator()(std::FILE* pFile) const { std::fclose(pFile); }
    };

    std::unique_ptr<std::FILE, CFileCloser> m_pFile;
    bool m_bLoop = false;
};

#endif
