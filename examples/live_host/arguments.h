// SPDX-License-Identifier: MIT
// The command line of the example host.
#ifndef LIVE_HOST_ARGUMENTS_H
#define LIVE_HOST_ARGUMENTS_H

#include <cstdint>
#include <string>

#include "nal.h"

struct CArguments {
    bool bHelp = false;
    bool bDebug = false;
    int nPort = 8554;
    int nChannel = 1;
    int nMinDataPort = 20000;
    int nMaxDataPort = 20998;  // 500 pairs
    std::string strVideo;      // "-" is standard input
    std::string strAudio;      // empty: no audio
    std::string strLog;        // empty: standard output
    EVideoCodec emCodec = EVideoCodec::eH264;
    int nFrames = 25;  // per nFrameSeconds
    int nFrameSeconds = 1;
    bool bLoop = true;
    bool bCue = true;  // jump to a key picture when a single viewer starts to play
    int nSeconds = 0;  // 0: run until a signal
};

// Returns whether the arguments are valid; if not, it prints one line with the reason on standard
// error. mediaDir: folder of the clip that is the default for --video.
bool ParseArguments(int argc, char** argv, const std::string& mediaDir, CArguments& arguments);

extern const char* const HELP_TEXT;

#endif
