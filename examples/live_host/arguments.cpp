// SPDX-License-Identifier: MIT
#include "arguments.h"

#include <getopt.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <optional>

#include "rtsps_server_api.h"

const char* const HELP_TEXT =
    "Usage: live_host [options]\n"
    "Serves a video file, or video from a pipe, like a live camera. The URLs are\n"
    "rtsp://HOST:PORT/chanN/main/ and .../sub/; both show the same pictures. Ctrl-C stops it.\n"
    "\n"
    "Options, with defaults in parentheses:\n"
    "  --port N              TCP port for clients (8554)\n"
    "  --channel N           the N of chanN in the URLs (1)\n"
    "  --video FILE|-        Annex-B H.264 or H.265; - reads standard input (the project's clip)\n"
    "  --codec h264|h265     codec of --video (h265 for a name in .h265, .265 or .hevc, else "
    "h264)\n"
    "  --audio FILE          raw A-law, 8 kHz, mono (the clip's sound; with --video, no audio)\n"
    "  --no-audio            serve video only\n"
    "  --fps N[/M]           frames per second, for example 30 or 30000/1001 (25)\n"
    "  --loop, --no-loop     at the end of the video, start again or exit (--loop; for a pipe,\n"
    "                        --no-loop)\n"
    "  --no-cue              do not jump to the next key frame when a single viewer starts to "
    "play\n"
    "  --seconds N           exit after N seconds\n"
    "  --data-ports MIN-MAX  UDP ports for media: each client needs two per stream; MIN is even\n"
    "                        (20000-20998)\n"
    "  --log FILE            append standard output to FILE, or to the present standard output "
    "with\n"
    "                        /dev/stdout. A slow destination delays no viewer: lines that do not\n"
    "                        fit the buffer are dropped and counted\n"
    "  --debug               also print the server's INFO lines\n"
    "  --help                print this text\n";

namespace {

constexpr int FIRST_DATA_PORT = 1024;
constexpr int LAST_DATA_PORT = RTSPS_MAX_DATA_PORT;

enum EOption {
    OPT_PORT = 1,
    OPT_CHANNEL,
    OPT_VIDEO,
    OPT_CODEC,
    OPT_AUDIO,
    OPT_NO_AUDIO,
    OPT_FPS,
    OPT_LOOP,
    OPT_NO_LOOP,
    OPT_NO_CUE,
    OPT_SECONDS,
    OPT_DATA_PORTS,
    OPT_LOG,
    OPT_DEBUG,
    OPT_HELP
};

const option OPTIONS[] = {
    {"port", required_argument, nullptr, OPT_PORT},
    {"channel", required_argument, nullptr, OPT_CHANNEL},
    {"video", required_argument, nullptr, OPT_VIDEO},
    {"codec", required_argument, nullptr, OPT_CODEC},
    {"audio", required_argument, nullptr, OPT_AUDIO},
    {"no-audio", no_argument, nullptr, OPT_NO_AUDIO},
    {"fps", required_argument, nullptr, OPT_FPS},
    {"loop", no_argument, nullptr, OPT_LOOP},
    {"no-loop", no_argument, nullptr, OPT_NO_LOOP},
    {"no-cue", no_argument, nullptr, OPT_NO_CUE},
    {"seconds", required_argument, nullptr, OPT_SECONDS},
    {"data-ports", required_argument, nullptr, OPT_DATA_PORTS},
    {"log", required_argument, nullptr, OPT_LOG},
    {"debug", no_argument, nullptr, OPT_DEBUG},
    {"help", no_argument, nullptr, OPT_HELP},
    {nullptr, 0, nullptr, 0},
};

// Options whose effect depends on other options.
struct CExplicitOptions {
    std::optional<EVideoCodec> codec;
    std::optional<bool> loop;
    bool bNoAudio = false;
};

bool UsageError(const char* pWhat) {
    std::fprintf(stderr, "live_host: %s (see --help)\n", pWhat);
    return false;
}

bool ReadNumber(const char* pText, const char* pEnd, int minimum, int maximum, int& number) {
    const auto [pStop, error] = std::from_chars(pText, pEnd, number);
    return error == std::errc() && pStop == pEnd && number >= minimum && number <= maximum;
}

bool ReadNumber(const char* pText, int minimum, int maximum, int& number) {
    return ReadNumber(pText, pText + std::strlen(pText), minimum, maximum, number);
}

bool ReadFrameRate(const char* pText, CArguments& arguments) {
    const char* pSlash = std::strchr(pText, '/');
    if (pSlash == nullptr)
        return ReadNumber(pText, 1, 1000, arguments.nFrames);
    return ReadNumber(pText, pSlash, 1, 1000000, arguments.nFrames) &&
           ReadNumber(pSlash + 1, 1, 1000000, arguments.nFrameSeconds) &&
           arguments.nFrames / 1000 <= arguments.nFrameSeconds;
}

// Refuses ranges with which the server would start, but every SETUP over UDP would fail.
bool ReadDataPorts(const char* pText, CArguments& arguments) {
    const char* pDash = std::strchr(pText, '-');
    int& minimum = arguments.nMinDataPort;
    int& maximum = arguments.nMaxDataPort;
    if (pDash == nullptr || !ReadNumber(pText, pDash, FIRST_DATA_PORT, LAST_DATA_PORT, minimum) ||
        !ReadNumber(pDash + 1, FIRST_DATA_PORT, LAST_DATA_PORT, maximum))
        return UsageError("--data-ports requires MIN-MAX, both from 1024 to 65533");
    if (minimum > maximum)
        return UsageError("--data-ports: MIN is above MAX, so there are no ports");
    return minimum % 2 == 0 || UsageError("--data-ports: MIN must be even, because RTP ports are");
}

bool ReadCodec(const char* pText, CExplicitOptions& given) {
    if (std::strcmp(pText, "h264") == 0)
        given.codec = EVideoCodec::eH264;
    else if (std::strcmp(pText, "h265") == 0)
        given.codec = EVideoCodec::eH265;
    return given.codec.has_value();
}

EVideoCodec CodecByName(const std::string& path) {
    for (const std::string ending : {".h265", ".265", ".hevc"}) {
        if (path.size() > ending.size() &&
            path.compare(path.size() - ending.size(), ending.size(), ending) == 0)
            return EVideoCodec::eH265;
    }
    return EVideoCodec::eH264;
}

bool TakeSwitch(int option, CArguments& arguments, CExplicitOptions& given) {
    switch (option) {
        case OPT_NO_AUDIO:
            given.bNoAudio = true;
            return true;
        case OPT_LOOP:
        case OPT_NO_LOOP:
            given.loop = option == OPT_LOOP;
            return true;
        case OPT_NO_CUE:
            arguments.bCue = false;
            return true;
        case OPT_DEBUG:
            arguments.bDebug = true;
            return true;
        case OPT_HELP:
            arguments.bHelp = true;
            return true;
        default:  // getopt_long has printed the error
            return false;
    }
}

bool TakeOption(int option, const char* pValue, CArguments& arguments, CExplicitOptions& given) {
    switch (option) {
        case OPT_PORT:
            return ReadNumber(pValue, 1, 65535, arguments.nPort) ||
                   UsageError("--port requires a number from 1 to 65535");
        case OPT_CHANNEL:
            return ReadNumber(pValue, 0, 9999, arguments.nChannel) ||
                   UsageError("--channel requires a number from 0 to 9999");
        case OPT_VIDEO:
            arguments.strVideo = pValue;
            return *pValue != '\0' ||
                   UsageError("--video requires a file, or - for standard input");
        case OPT_CODEC:
            return ReadCodec(pValue, given) || UsageError("--codec requires h264 or h265");
        case OPT_AUDIO:
            arguments.strAudio = pValue;
            return *pValue != '\0' || UsageError("--audio requires a file");
        case OPT_LOG:
            arguments.strLog = pValue;
            return *pValue != '\0' || UsageError("--log requires a file");
        case OPT_FPS:
            return ReadFrameRate(pValue, arguments) ||
                   UsageError(
                       "--fps requires a number from 1 to 1000, or a fraction of two numbers");
        case OPT_SECONDS:
            return ReadNumber(pValue, 1, 1000000000, arguments.nSeconds) ||
                   UsageError("--seconds requires a number of at least 1");
        case OPT_DATA_PORTS:
            return ReadDataPorts(pValue, arguments);
        default:
            return TakeSwitch(option, arguments, given);
    }
}

// Sets the defaults that depend on other arguments, and refuses contradictions.
bool ApplyDefaults(const std::string& mediaDir, const CExplicitOptions& given,
                   CArguments& arguments) {
    const bool ownVideo = !arguments.strVideo.empty();
    const bool pipe = arguments.strVideo == "-";
    if (given.codec && !ownVideo)
        return UsageError("--codec requires --video");
    if (given.bNoAudio && !arguments.strAudio.empty())
        return UsageError("--audio and --no-audio contradict each other");
    if (pipe && given.loop.value_or(false))
        return UsageError("--loop requires a file: standard input cannot be read again");
    arguments.bLoop = given.loop.value_or(!pipe);
    arguments.bCue = arguments.bCue && !pipe;  // input from a pipe is live: it cannot jump ahead
    arguments.emCodec = given.codec.value_or(CodecByName(arguments.strVideo));
    if (!ownVideo) {
        arguments.strVideo = mediaDir + "/clip.h264";
        if (!given.bNoAudio && arguments.strAudio.empty())
            arguments.strAudio = mediaDir + "/clip.alaw";
    }
    // Each stream needs a pair of ports; the second pair starts at MIN + 2.
    if (!arguments.strAudio.empty() && arguments.nMaxDataPort < arguments.nMinDataPort + 2)
        return UsageError("--data-ports: too few ports for one client with video and audio");
    return true;
}

}  // namespace

bool ParseArguments(int argc, char** argv, const std::string& mediaDir, CArguments& arguments) {
    CExplicitOptions given;
    for (;;) {
        const int option = getopt_long(argc, argv, "", OPTIONS, nullptr);
        if (option == -1)
            break;
        if (!TakeOption(option, optarg, arguments, given))
            return false;
    }
    if (optind < argc)
        return UsageError("unexpected argument; all options begin with --");
    return ApplyDefaults(mediaDir, given, arguments);
}
