// SPDX-License-Identifier: MIT
// An example of a host: how a camera's process uses the server, from start to end.
#include <signal.h>
#include <sys/signalfd.h>

#include <cstdio>
#include <random>

#include "arguments.h"
#include "log_drain.h"
#include "media_pump.h"
#include "rtsps_server_api.h"
#include "urls.h"

namespace {

// Exit codes.
enum EExit { EXIT_FINE = 0, EXIT_FAILED = 1, EXIT_USAGE = 2 };

// SIGINT and SIGTERM become input for the pump's poll. Called before the server starts threads,
// which inherit the blocked signals.
int OpenStopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_CLOEXEC);
}

// A random number below 2^31. Over UDP the server's sender reports begin with the SSRC. When its
// top bits are those of RTP version 2, players treat the report as media.
uint32_t RandomSsrc() {
    static std::random_device device;
    return device() & 0x7FFFFFFF;
}

void DeclareStreams(const CArguments& arguments) {
    for (const int stream : {RTSPS_STREAM_MAIN, RTSPS_STREAM_SUB}) {
        TRtspServerStreamInfo info = {};
        info.byVideoPayload = VIDEO_PAYLOAD_TYPE;
        info.byAudioPayload = AUDIO_PAYLOAD_TYPE;
        info.dwVideoSSrc = RandomSsrc();
        info.dwAudioSSrc = RandomSsrc();
        info.dwVideoFormat = arguments.emCodec == EVideoCodec::eH264 ? RTSPS_VIDEO_STREAM_TYPE_H264
                                                                     : RTSPS_VIDEO_STREAM_TYPE_H265;
        info.dwAudioFormat = arguments.strAudio.empty() ? RTSPS_AUDIO_STREAM_TYPE_UNDEF
                                                        : RTSPS_AUDIO_STREAM_TYPE_G711A;
        RTSPServer_SetStreamInfo(arguments.nChannel, stream, &info);
    }
}

bool StartServer(const CArguments& arguments, CViewers& viewers) {
    TRtspServerPara para = {};
    para.byDbg = arguments.bDebug ? 1 : 0;
    para.nServerPort = static_cast<uint32_t>(arguments.nPort);
    para.nMinPort = arguments.nMinDataPort;
    para.nMaxPort = arguments.nMaxDataPort;
    RTSPServer_Init(&para);
    RTSPServer_SetEventCallBack(CViewers::OnEvent, &viewers);
    DeclareStreams(arguments);
    return RTSPServer_Start() == 0;
}

void StopServer() {
    RTSPServer_Stop();
    RTSPServer_Release();
}

void PrintWelcome(const CArguments& arguments) {
    std::printf("Serving %s, %s%s. Open one of:\n",
                arguments.strVideo == "-" ? "standard input" : arguments.strVideo.c_str(),
                arguments.emCodec == EVideoCodec::eH264 ? "H.264" : "H.265",
                arguments.strAudio.empty() ? "" : " and A-law");
    PrintUrls(arguments.nPort, arguments.nChannel);
    std::printf("Ctrl-C stops.\n");
}

int Serve(const CArguments& arguments) {
    std::string error;
    CVideoSource video(arguments.emCodec, arguments.bLoop);
    if (!video.Open(arguments.strVideo)) {
        std::fprintf(stderr, "live_host: %s\n", video.Error().c_str());
        return EXIT_USAGE;
    }
    CAudioSource audio;
    const bool hasAudio = !arguments.strAudio.empty();
    if (hasAudio && !audio.Open(arguments.strAudio, arguments.bLoop, error)) {
        std::fprintf(stderr, "live_host: %s\n", error.c_str());
        return EXIT_USAGE;
    }

    const int stopFd = OpenStopSignals();
    if (stopFd < 0) {
        std::perror("live_host: signalfd");
        return EXIT_FAILED;
    }
    CLogDrain log;  // closed after the server has stopped, when no other thread prints
    if (!arguments.strLog.empty() && !log.Open(arguments.strLog, error)) {
        std::fprintf(stderr, "live_host: %s\n", error.c_str());
        return EXIT_USAGE;
    }
    CViewers viewers;
    if (!StartServer(arguments, viewers)) {
        std::fprintf(stderr, "live_host: cannot serve on TCP port %d; is it in use?\n",
                     arguments.nPort);
        StopServer();
        return EXIT_FAILED;
    }
    PrintWelcome(arguments);
    CMediaPump pump(arguments, video, hasAudio ? &audio : nullptr, stopFd, viewers);
    const bool fine = pump.Run();
    if (!fine)
        std::fprintf(stderr, "live_host: %s\n", video.Error().c_str());
    StopServer();
    return fine ? EXIT_FINE : EXIT_FAILED;
}

}  // namespace

int main(int argc, char** argv) {
    // Line buffering: a program that reads the URLs from a pipe gets them at once.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    CArguments arguments;
    if (!ParseArguments(argc, argv, LIVE_HOST_MEDIA_DIR, arguments))
        return EXIT_USAGE;
    if (arguments.bHelp) {
        std::fputs(HELP_TEXT, stdout);
        return EXIT_FINE;
    }
    return Serve(arguments);
}
