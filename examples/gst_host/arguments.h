// SPDX-License-Identifier: MIT
// The command line of the GStreamer host.
#ifndef GST_HOST_ARGUMENTS_H
#define GST_HOST_ARGUMENTS_H

#include <string>
#include <vector>

enum class ESourceKind { eMain, eSub, eAudio };

struct CSourceArgument {
    int nChannel;
    ESourceKind emKind;
    std::string strPipeline;
};

struct CArguments {
    std::vector<CSourceArgument> sources;  // by channel, audio last
    int nPort = 8554;
    int nMinDataPort = 20000;
    int nMaxDataPort = 20998;  // 500 pairs
    int nSeconds = 0;          // 0: until a signal
    bool bRest = false;
};

// Returns whether the arguments are right; if not, one line on standard error has said why. --help
// prints the help and ends the process. GStreamer's own options work too, and initialise it.
bool ParseArguments(int argc, char** argv, CArguments& arguments);

#endif
