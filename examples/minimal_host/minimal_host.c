/* SPDX-License-Identifier: MIT */
/* minimal_host FILE [PORT]: serves an H.264 file (Annex B, one slice per picture) in a loop. */
#include <rtsps_server_api.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <threads.h>

#define RTP_HEADER_SIZE 12
#define HEADERS_SIZE (RTSPS_UNIT_PREFIX_SIZE + RTP_HEADER_SIZE)
#define MAX_NAL_SIZE 65000

static volatile sig_atomic_t stopped;

static void stop(int number) {
    (void)number;
    stopped = 1;
}

/* Pushes one NAL unit as one RTP packet. The time stamp counts at 90 kHz. */
static void push(const uint8_t* nal, size_t size, int marker, uint32_t timestamp) {
    static uint8_t unit[HEADERS_SIZE + MAX_NAL_SIZE];
    static uint16_t sequence;
    size_t packet = RTP_HEADER_SIZE + size;

    unit[0] = '$';
    unit[2] = (uint8_t)(packet >> 8);
    unit[3] = (uint8_t)packet;
    unit[4] = 0x80; /* RTP version 2 */
    unit[5] = (uint8_t)(marker << 7 | 96);
    unit[6] = (uint8_t)(sequence >> 8);
    unit[7] = (uint8_t)sequence;
    unit[8] = (uint8_t)(timestamp >> 24);
    unit[9] = (uint8_t)(timestamp >> 16);
    unit[10] = (uint8_t)(timestamp >> 8);
    unit[11] = (uint8_t)timestamp; /* the library writes the SSRC, bytes 12 to 15 */
    memcpy(unit + HEADERS_SIZE, nal, size);
    RTSPServer_SendRealSteam(1, RTSPS_STREAM_MAIN, unit, (int32_t)(HEADERS_SIZE + size));
    sequence++;
}

/* Returns the position of the next start code, 0 0 1, or the size if there is none. */
static size_t find_start_code(const uint8_t* data, size_t at, size_t size) {
    while (at + 3 <= size && memcmp(data + at, "\0\0\1", 3) != 0)
        at++;
    return at + 3 <= size ? at : size;
}

/* Pushes all NAL units, 25 pictures per second. Returns 0, or -1 for data that it cannot play. */
static int play(const uint8_t* data, size_t size) {
    static uint32_t timestamp;
    const struct timespec interval = {.tv_nsec = 40000000};
    size_t next = find_start_code(data, 0, size);
    int result = -1;

    while (next < size && !stopped) {
        size_t begin = next + 3;
        next = find_start_code(data, begin, size);
        size_t end = next;
        while (end > begin && data[end - 1] == 0)
            end--; /* zeros before a start code do not belong to the NAL unit */
        if (end == begin || end - begin > MAX_NAL_SIZE)
            return -1;
        int type = data[begin] & 0x1F;
        int picture = type == 1 || type == 5;
        push(data + begin, end - begin, picture, timestamp);
        if (picture) {
            timestamp += 3600;
            thrd_sleep(&interval, NULL);
            result = 0;
        }
    }
    return result;
}

int main(int argc, char** argv) {
    static uint8_t data[8 << 20];
    tagRtspServerPara para = {.nServerPort = 8554, .nMinPort = 20000, .nMaxPort = 20998};
    tagRtspServerStreamInfo info = {.byVideoPayload = 96,
                                    .dwVideoSSrc = 0x1234567,
                                    .dwVideoFormat = RTSPS_VIDEO_STREAM_TYPE_H264};
    if (argc < 2) {
        fprintf(stderr, "usage: minimal_host FILE [PORT]\n");
        return 2;
    }
    FILE* file = fopen(argv[1], "rb");
    if (file == NULL) {
        perror(argv[1]);
        return 2;
    }
    size_t size = fread(data, 1, sizeof(data), file);
    fclose(file);
    if (argc > 2)
        para.nServerPort = (uint32_t)strtoul(argv[2], NULL, 10);
    signal(SIGINT, stop);
    if (RTSPServer_Init(&para) != 0 || RTSPServer_SetStreamInfo(1, RTSPS_STREAM_MAIN, &info) != 0 ||
        RTSPServer_Start() != 0) {
        fprintf(stderr, "the server does not start\n");
        return 1;
    }
    printf("rtsp://127.0.0.1:%u/chan1/main/\n", para.nServerPort);
    while (!stopped && play(data, size) == 0)
        continue;
    RTSPServer_Stop();
    RTSPServer_Release();
    if (!stopped)
        fprintf(stderr, "%s: no picture, or a NAL unit above %d bytes\n", argv[1], MAX_NAL_SIZE);
    return stopped ? 0 : 1;
}
