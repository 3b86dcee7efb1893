/* SPDX-License-Identifier: MIT */
/*
 * footprint_host LIBRARY PORT [PRELOAD]: a host whose memory bench/footprint.py reads at each
 * stage. It reports to standard error, and waits for a line of standard input before the next
 * stage. PRELOAD is a library that it loads before the first stage.
 */
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include "rtsps_server_api.h"

static double milliseconds(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)now.tv_sec * 1e3 + (double)now.tv_nsec * 1e-6;
}

static void wait_for_line(void) {
    int c;
    do {
        c = getchar();
    } while (c != '\n' && c != EOF);
}

static void* load(const char* name) {
    void* library = dlopen(name, RTLD_NOW | RTLD_GLOBAL);
    if (library == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        exit(1);
    }
    return library;
}

/* A function of the library. dlsym returns an object pointer, which C does not convert to a
 * function's. */
typedef union {
    void* object;
    int32_t (*call)(void);
    int32_t (*init)(tagRtspServerPara* para);
    int32_t (*set_stream_info)(int32_t channel, int32_t stream, tagRtspServerStreamInfo* info);
} FUNCTION;

static FUNCTION find(void* library, const char* name) {
    FUNCTION found = {.object = dlsym(library, name)};
    if (found.object == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        exit(1);
    }
    return found;
}

int main(int argc, char** argv) {
    tagRtspServerPara para = {.nMinPort = 20000, .nMaxPort = 20998};
    tagRtspServerStreamInfo info = {.byVideoPayload = 96,
                                    .dwVideoSSrc = 0x1234567,
                                    .dwVideoFormat = RTSPS_VIDEO_STREAM_TYPE_H264};
    double begin, loaded;
    void* library;

    if (argc < 3) {
        return 2;
    }
    if (argc > 3) {
        load(argv[3]);
    }
    para.nServerPort = (uint32_t)atoi(argv[2]);
    fprintf(stderr, "bare\n");
    wait_for_line();

    begin = milliseconds();
    library = load(argv[1]);
    loaded = milliseconds();
    find(library, "RTSPServer_Init").init(&para);
    find(library, "RTSPServer_SetStreamInfo").set_stream_info(1, RTSPS_STREAM_MAIN, &info);
    if (find(library, "RTSPServer_Start").call() != 0) {
        return 1;
    }
    fprintf(stderr, "started %.3f %.3f\n", loaded - begin, milliseconds() - loaded);
    wait_for_line();

    begin = milliseconds();
    find(library, "RTSPServer_Stop").call();
    fprintf(stderr, "stopped %.3f\n", milliseconds() - begin);
    find(library, "RTSPServer_Release").call();
    return 0;
}
