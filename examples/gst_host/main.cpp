// SPDX-License-Identifier: MIT
// An example of a host: serves what GStreamer pipelines capture and encode.
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "arguments.h"
#include "host.h"

namespace {

// Exit codes.
enum EExit { EXIT_FINE = 0, EXIT_FAILED = 1, EXIT_USAGE = 2 };

}  // namespace

int main(int argc, char** argv) {
    // Line buffering: a program that reads the URLs from a pipe gets them at once.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    CArguments arguments;
    if (!ParseArguments(argc, argv, arguments))
        return EXIT_USAGE;
    CHost host(arguments);
    const bool bFine = host.Run();
    if (!bFine)
        std::fprintf(stderr, "gst_host: %s\n", host.Error().c_str());
    // A driver that hangs while its device is closed must not keep the process alive.
    alarm(2);
    return bFine ? EXIT_FINE : EXIT_FAILED;
}
