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
    int nFrames = 25;  // in nFrameSeconds
    int nFrameSeconds = 1;
    bool bLoop = true;
    bool bCue = true;  // jump to a key picture for a viewer who is alone
    int nSeconds = 0;  // 0: until a signal
};

// Returns whether the arguments are right; if not, one line on standard error has said what is
// wrong. mediaDir: where the clip lies that is played when no other is named.
bool ParseArguments(int argc, char** argv, const std::string& mediaDir, CArguments& arguments);

extern const char* const HELP_TEXT;

#endif
