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
    std::vector<CSourceArgument> sources;  // sorted by channel; in a channel, audio is last
    int nPort = 8554;
    int nMinDataPort = 20000;
    int nMaxDataPort = 20998;  // 500 pairs
    int nSeconds = 0;          // 0: run until a signal
    bool bRest = false;
};

// Returns whether the arguments are valid; if not, it prints one line with the reason on standard
// error. --help prints the help and ends the process. GStreamer's own options are accepted too, and
// GStreamer is initialised.
bool ParseArguments(int argc, char** argv, CArguments& arguments);

#endif
