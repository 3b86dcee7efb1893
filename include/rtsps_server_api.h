/* SPDX-License-Identifier: MIT */
/*
 * The embeddable RTSP server: eight functions that a host application drives it with.
 *
 * Order of calls: RTSPServer_Init; then RTSPServer_SetEventCallBack and RTSPServer_SetStreamInfo in
 * any order and as often as needed; RTSPServer_Start; RTSPServer_SendRealSteam for every access
 * unit; at the end RTSPServer_Stop and RTSPServer_Release.
 *
 * Every function may be called from any thread. None throws. Diagnostics go to standard output.
 */
#ifndef RTSPS_SERVER_API_H
#define RTSPS_SERVER_API_H

#include <stdint.h>

#ifndef RTSPS_EXPORT
#define RTSPS_EXPORT __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* How many clients may be registered at once. A client beyond them gets its replies, but no media. */
#define RTSPS_MAX_SESSIONS 128

/* Bytes in front of each RTP packet of a push; see RTSPServer_SendRealSteam. */
#define RTSPS_UNIT_PREFIX_SIZE 4

/* The streams of a channel, as a client names them in its URL: rtsp://host:port/chan1/main/ */
#define RTSPS_STREAM_MAIN 0
#define RTSPS_STREAM_SUB 1
#define RTSPS_STREAM_THIRD 2

/* What a stream carries. */
typedef enum RTSP_SERVER_STREAM_TYPE {
    RTSPS_VIDEO_STREAM_TYPE_UNDEF = 0,   /* described as MP4V-ES */
    RTSPS_VIDEO_STREAM_TYPE_H264 = 1,    /* RFC 6184, 90 kHz */
    RTSPS_VIDEO_STREAM_TYPE_H265 = 2,    /* RFC 7798, 90 kHz */
    RTSPS_AUDIO_STREAM_TYPE_G711A = 32,  /* PCMA, RFC 3551, 8 kHz */
    RTSPS_AUDIO_STREAM_TYPE_AAC = 33,    /* described as MP4V-ES: no player finds AAC in it */
    RTSPS_AUDIO_STREAM_TYPE_UNDEF = 100  /* no audio; 0 means the same */
} RTSP_SERVER_STREAM_TYPE;

/* The start-up configuration. Zero the record, then set what is needed. 108 bytes, no gaps. */
typedef struct tagRtspServerPara {
    /* Non-zero prints INFO lines beside errors, warnings and critical lines. Default 0. */
    uint8_t byDbg;
    /* Reserved, zero. */
    uint8_t byRes[15];
    /* Multicast group as dotted text, NUL-terminated. Kept, not used: SETUP refuses multicast. */
    char szMultiAddr[16];
    /* User name and password, NUL-terminated. Kept, not used: no request is authenticated. */
    char szUserName[32];
    char szPasswd[32];
    /* TCP port on which clients are accepted, IPv4, 1 to 65535. */
    uint32_t nServerPort;
    /* Local ports for RTP and RTCP over UDP, and for clients that fetch media over a TCP connection
     * of its own. A stream borrows a pair: an RTP port, counted from nMinPort in steps of 2 up to
     * nMaxPort, and the RTCP port above it. A client with video and audio takes two pairs. Keep
     * nMinPort even and nMaxPort at 65533 or below; only the low 16 bits count. */
    int32_t nMinPort;
    int32_t nMaxPort;
} tagRtspServerPara, TRtspServerPara;

/* What the host declares about one stream of one channel. 44 bytes, naturally aligned. */
typedef struct tagRtspServerStreamInfo {
    /* RTP payload types, 0 to 127. A push is taken as video or audio by them, so the two differ;
     * video is compared first. Sequence gaps are reported for type 96 only. */
    uint8_t byVideoPayload;
    uint8_t byAudioPayload;
    /* SSRCs, host byte order. They replace whatever a pushed packet carries. */
    uint32_t dwVideoSSrc;
    uint32_t dwAudioSSrc;
    /* RTSP_SERVER_STREAM_TYPE values. Audio stands before video here, unlike in the other pairs. */
    uint32_t dwAudioFormat;
    uint32_t dwVideoFormat;
    /* Reserved, zero. */
    uint32_t res[6];
} tagRtspServerStreamInfo, TRtspServerStreamInfo;

/* The host's event function; see RTSPServer_SetEventCallBack. */
typedef void (*pRtspServerEventCallBack)(int32_t nEvent, int32_t nSessionId, void* pData,
                                         int32_t nLen, void* pUserData);

/*
 * Initialises the library. Call it before RTSPServer_Start. Calls are counted: only the first one
 * takes the configuration, and each wants its RTSPServer_Release.
 *
 * The process ignores SIGPIPE from here on.
 *
 * pPara  in, not null; copied, so it may be freed after the call.
 *
 * Returns 0 always.
 */
RTSPS_EXPORT int32_t RTSPServer_Init(tagRtspServerPara* pPara);

/*
 * Takes back one RTSPServer_Init. It stops nothing: call RTSPServer_Stop first. Stream information
 * stays registered.
 *
 * Returns 0 always.
 */
RTSPS_EXPORT int32_t RTSPServer_Release(void);

/*
 * Declares, or declares anew, one stream of one channel. May be called at any time; a client reads
 * the record at DESCRIBE and at SETUP, so a change reaches clients that set up after it. A stream
 * that was never declared is answered with 404.
 *
 * nChan        channel number, the N of "chanN" in the URL.
 * nStreamType  RTSPS_STREAM_MAIN, RTSPS_STREAM_SUB or RTSPS_STREAM_THIRD. A negative value
 *              erases the channel from the key: all channels share one record for it.
 * pPara        in, not null; copied.
 *
 * Returns 0 always.
 */
RTSPS_EXPORT int32_t RTSPServer_SetStreamInfo(int32_t nChan, int32_t nStreamType,
                                              tagRtspServerStreamInfo* pPara);

/*
 * Starts to accept clients. Blocks for a moment only, longer while another thread is in
 * RTSPServer_Stop.
 *
 * Returns 0, also when the server is already started, or -1 when
 *   - RTSPServer_Init was not called,
 *   - memory or a thread is not to be had, or the range of data ports never ends
 *     (see tagRtspServerPara.nMaxPort),
 *   - the server port cannot be bound.
 */
RTSPS_EXPORT int32_t RTSPServer_Start(void);

/*
 * Stops to accept clients and ends every registered one: their connections are closed, their
 * threads joined. May be called whether or not the server was started, twice, and while other
 * threads push. Takes milliseconds, also with 128 clients.
 *
 * A client that was beyond RTSPS_MAX_SESSIONS keeps its connection, without media.
 *
 * Returns 0 always.
 */
RTSPS_EXPORT int32_t RTSPServer_Stop(void);

/*
 * Pushes media to every client that plays this stream. "Steam" is the function's name.
 *
 * The buffer is a run of units, each a 4-byte prefix and one complete RTP packet (RFC 3550):
 *
 *      0        1          2       3        4 ...
 *     +--------+----------+-------+--------+-------------------------------+
 *     | '$'    | anything | length of the  | RTP header (12 bytes), then   |
 *     | (0x24) |          | RTP packet, BE | the payload: `length` bytes   |
 *     +--------+----------+-------+--------+-------------------------------+
 *
 * All units of one push are of one kind, video or audio: the payload type of the first decides.
 * Push whole access units, with parameter sets in band before each key frame. An empty unit, one
 * that is cut off by nLen, or an unknown payload type is a log line and costs the host nothing else.
 *
 * The call sends on the calling thread and never waits for a client: what a client's socket does
 * not take is buffered up to 128 KiB (TCP) or dropped (UDP), and a client with more than 20 short
 * pushes in a row is ended. Pushes from several threads are allowed if each pushes a buffer of its
 * own; the packets of one stream then leave in the order of the calls.
 *
 * nChan, nStreamType  as in RTSPServer_SetStreamInfo.
 * pData  in and out: the library writes prefixes and SSRCs into it. The host's again after the call.
 * nLen   bytes in pData, above 4.
 *
 * Returns 0 always.
 */
RTSPS_EXPORT int32_t RTSPServer_SendRealSteam(int32_t nChan, int32_t nStreamType, void* pData,
                                              int32_t nLen);

/*
 * The entry for recorded media. It sends nothing. A client that was addressed with it once keeps
 * its memory and its place among RTSPS_MAX_SESSIONS until the process ends.
 *
 * nSessionId  id of the client.
 * pData, nLen not read.
 *
 * Returns 0, or -1 when no client has this id.
 */
RTSPS_EXPORT int32_t RTSPServer_SendFileStream(int32_t nSessionId, void* pData, int32_t nLen);

/*
 * Stores the host's event function and its user pointer. No event is defined yet.
 *
 * pCallBack  the function, or null for none.
 * pUserData  passed back unchanged; the host's.
 *
 * Returns 0 always.
 */
RTSPS_EXPORT int32_t RTSPServer_SetEventCallBack(pRtspServerEventCallBack pCallBack,
                                                 void* pUserData);

#ifdef __cplusplus
}
static_assert(sizeof(tagRtspServerPara) == 108, "the record is part of the binary interface");
static_assert(sizeof(tagRtspServerStreamInfo) == 44, "the record is part of the binary interface");
#else
_Static_assert(sizeof(tagRtspServerPara) == 108, "the record is part of the binary interface");
_Static_assert(sizeof(tagRtspServerStreamInfo) == 44, "the record is part of the binary interface");
#endif

#endif
