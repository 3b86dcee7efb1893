/* SPDX-License-Identifier: MIT */
/**
 * @file
 * The embeddable RTSP server: eight functions that a host application drives it with.
 *
 * Order of calls: RTSPServer_Init; then RTSPServer_SetEventCallBack and RTSPServer_SetStreamInfo in
 * any order and as often as needed; RTSPServer_Start; RTSPServer_SendRealSteam for every access
 * unit; at the end RTSPServer_Stop and RTSPServer_Release. To change the port or another part of
 * the configuration, call RTSPServer_Stop, RTSPServer_Release, RTSPServer_Init, RTSPServer_Start.
 *
 * There is one server per process. It listens on all IPv4 addresses, not on IPv6.
 *
 * Every function may be called from any thread. None throws. Only RTSPServer_Start and
 * RTSPServer_Stop wait for threads, as they say; the others take microseconds, a push one send for
 * each client. Diagnostics go to standard output; a pipe there that nobody reads blocks the calls.
 *
 * @mainpage
 * rtsps_server_api.h is the server. Beside it stand its platform layer, cbb.h, and two classes that
 * a host may use on their own: a ring for media frames, mempool.h, and random numbers for RTP
 * values, rtp_random.h.
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

/** How many clients may be registered at once. A client beyond them gets replies, but no media. */
#define RTSPS_MAX_SESSIONS 128

/** Stack of each client's thread, in bytes; see pRtspServerEventCallBack. */
#define RTSPS_THREAD_STACK_SIZE 262144

/** Bytes in front of each RTP packet of a push; see RTSPServer_SendRealSteam. */
#define RTSPS_UNIT_PREFIX_SIZE 4

/**
 * @name The streams of a channel, as a client names them in its URL: rtsp://host:port/chan1/main/
 * @{
 */
#define RTSPS_STREAM_MAIN 0  /**< main */
#define RTSPS_STREAM_SUB 1   /**< sub */
#define RTSPS_STREAM_THIRD 2 /**< third */
/** @} */

/** What a stream carries. */
typedef enum RTSP_SERVER_STREAM_TYPE {
    RTSPS_VIDEO_STREAM_TYPE_UNDEF = 0,  /**< described as MP4V-ES */
    RTSPS_VIDEO_STREAM_TYPE_H264 = 1,   /**< RFC 6184, 90 kHz */
    RTSPS_VIDEO_STREAM_TYPE_H265 = 2,   /**< RFC 7798, 90 kHz */
    RTSPS_AUDIO_STREAM_TYPE_G711A = 32, /**< PCMA, RFC 3551, 8 kHz */
    RTSPS_AUDIO_STREAM_TYPE_AAC = 33,   /**< described as MP4V-ES: no player finds AAC in it */
    RTSPS_AUDIO_STREAM_TYPE_UNDEF = 100 /**< no audio; 0 means the same */
} RTSP_SERVER_STREAM_TYPE;

/** The start-up configuration. Zero the record, then set what is needed. 108 bytes, no gaps. */
typedef struct tagRtspServerPara {
    /** Non-zero prints INFO lines beside errors, warnings and critical lines. Default 0. */
    uint8_t byDbg;
    /** Reserved, zero. */
    uint8_t byRes[15];
    /** Multicast group as dotted text, NUL-terminated. Stored, not used: SETUP refuses multicast.
     */
    char szMultiAddr[16];
    /** User name, NUL-terminated. Stored, not used: no request is authenticated. */
    char szUserName[32];
    /** Password, NUL-terminated. Stored, not used, like the name. */
    char szPasswd[32];
    /**
     * TCP port on which clients are accepted, 1 to 65535. RTSPServer_Start does not check it: only
     * the low 16 bits count, and with 0 the system chooses a port that the host does not learn.
     */
    uint32_t nServerPort;
    /**
     * Lowest of the local ports for RTP and RTCP over UDP, and for clients that fetch media over a
     * TCP connection of its own. A stream borrows a pair: an RTP port, counted from nMinPort in
     * steps of 2 up to nMaxPort, and the RTCP port above it. A client with video and audio takes
     * two pairs. Keep nMinPort even and nMaxPort at 65533 or below; only the low 16 bits count.
     */
    int32_t nMinPort;
    /** Highest RTP port; see nMinPort. */
    int32_t nMaxPort;
} tagRtspServerPara, TRtspServerPara;

/** What the host declares about one stream of one channel. 44 bytes, naturally aligned. */
typedef struct tagRtspServerStreamInfo {
    /**
     * RTP payload type of the video, 0 to 127. A push is taken as video or audio by the payload
     * types, so the two differ; video is compared first. Sequence gaps are reported for type 96
     * only.
     */
    uint8_t byVideoPayload;
    /** RTP payload type of the audio; see byVideoPayload. */
    uint8_t byAudioPayload;
    /**
     * SSRC of the video, host byte order. The SSRCs replace whatever a pushed packet carries.
     * Choose them below 0x80000000: a sender report over UDP begins with the SSRC, and a player
     * that shares one socket between RTP and RTCP takes it for media when the top bits are 10. Do
     * not choose 0: packets carry it like any other, but the reply to SETUP then names no SSRC.
     */
    uint32_t dwVideoSSrc;
    /** SSRC of the audio; see dwVideoSSrc. */
    uint32_t dwAudioSSrc;
    /**
     * A RTSP_SERVER_STREAM_TYPE value. Audio stands before video here, unlike in the other pairs.
     */
    // Kept (hosts): [audio-format-first] the audio format stands before the video format, the
    // reverse of the other pairs.
    uint32_t dwAudioFormat;
    /** A RTSP_SERVER_STREAM_TYPE value. */
    uint32_t dwVideoFormat;
    /** Reserved, zero. */
    uint32_t res[6];
} tagRtspServerStreamInfo, TRtspServerStreamInfo;

/** What happened to a client. The values are fixed; hosts ignore those that they do not know. */
typedef enum RTSP_SERVER_EVENT {
    RTSPS_EVENT_CONNECTED = 1, /**< it is registered; nothing of it comes before this */
    RTSPS_EVENT_DESCRIBED = 2, /**< it knows the stream; channel and stream are set from here on */
    RTSPS_EVENT_SETUP = 3,     /**< it has set up dwMedia over dwTransport; each time */
    RTSPS_EVENT_PLAYING = 4,   /**< pushes reach it from here on: a key frame is welcome */
    RTSPS_EVENT_TORN_DOWN = 5, /**< it sent TEARDOWN, with media or without */
    RTSPS_EVENT_CLOSED = 6     /**< it is gone; dwReason and stuTotals are set; the last event */
} RTSP_SERVER_EVENT;

/** Why a client is gone. */
typedef enum RTSP_SERVER_CLOSE_REASON {
    RTSPS_CLOSE_NONE = 0,        /**< not closed */
    RTSPS_CLOSE_CLIENT_LEFT = 1, /**< it closed its connection */
    RTSPS_CLOSE_TEARDOWN = 2,    /**< it sent TEARDOWN, then left */
    RTSPS_CLOSE_REFUSED = 3,     /**< it asked for something that ends a session: see the log */
    RTSPS_CLOSE_TOO_SLOW = 4,    /**< more than 20 pushes in a row were not taken whole */
    RTSPS_CLOSE_CONNECTION_ERROR = 5, /**< its connection broke */
    RTSPS_CLOSE_SERVER_STOPPED = 6    /**< RTSPServer_Stop */
} RTSP_SERVER_CLOSE_REASON;

/** Which stream of the description an event is about. */
typedef enum RTSP_SERVER_MEDIA {
    RTSPS_MEDIA_NONE = 0,  /**< none */
    RTSPS_MEDIA_VIDEO = 1, /**< video */
    RTSPS_MEDIA_AUDIO = 2  /**< audio */
} RTSP_SERVER_MEDIA;

/** How the media reach a client. */
typedef enum RTSP_SERVER_TRANSPORT {
    RTSPS_TRANSPORT_NONE = 0,       /**< not set up */
    RTSPS_TRANSPORT_UDP = 1,        /**< UDP */
    RTSPS_TRANSPORT_TCP = 2,        /**< a TCP connection of the stream's own */
    RTSPS_TRANSPORT_MULTICAST = 3,  /**< refused at SETUP */
    RTSPS_TRANSPORT_INTERLEAVED = 4 /**< on the RTSP connection */
} RTSP_SERVER_TRANSPORT;

/** What a client was sent in all. A packet that waits in a buffer for a slow client counts. */
typedef struct tagRtspServerTotals {
    uint64_t qwVideoPackets;    /**< RTP packets of video */
    uint64_t qwVideoBytes;      /**< RTP packets, without prefixes and lower headers */
    uint64_t qwAudioPackets;    /**< RTP packets of audio */
    uint64_t qwAudioBytes;      /**< counted like qwVideoBytes */
    uint32_t dwShortSends;      /**< pushes that were not taken whole */
    uint32_t dwLongestShortRun; /**< the most of them in a row */
} tagRtspServerTotals, TRtspServerTotals;

/** What an event tells. The record grows at its end only: read what lies within dwSize. */
typedef struct tagRtspServerEventInfo {
    uint32_t dwSize;               /**< bytes of this record */
    int32_t nChan;                 /**< channel; -1 before RTSPS_EVENT_DESCRIBED */
    int32_t nStreamType;           /**< stream; -1 before RTSPS_EVENT_DESCRIBED */
    uint32_t dwMedia;              /**< RTSP_SERVER_MEDIA: set with RTSPS_EVENT_SETUP */
    uint32_t dwTransport;          /**< RTSP_SERVER_TRANSPORT of the latest SETUP */
    uint32_t dwClientPort;         /**< TCP port of the client's connection, host byte order */
    char szClientAddr[48];         /**< its address as text, NUL-terminated */
    uint32_t dwReason;             /**< RTSP_SERVER_CLOSE_REASON: set with RTSPS_EVENT_CLOSED */
    uint32_t dwReserved;           /**< reserved */
    uint64_t qwConnectedMs;        /**< milliseconds since it connected; never jumps */
    tagRtspServerTotals stuTotals; /**< set with RTSPS_EVENT_CLOSED */
} tagRtspServerEventInfo, TRtspServerEventInfo;

/**
 * The host's event function.
 *
 * It runs on the client's own thread, with no lock of the library held, and only that client waits
 * for it; it must not throw. RTSPServer_Stop waits for it too, since it ends that thread. From
 * inside it RTSPServer_SendRealSteam, RTSPServer_SetStreamInfo, RTSPServer_SetEventCallBack and
 * RTSPServer_Release work as always; RTSPServer_Start and RTSPServer_Stop do nothing.
 *
 * That thread has a stack of RTSPS_THREAD_STACK_SIZE bytes. The library itself uses less than 64 kB
 * of it, and the thread-local variables of the process are part of it. Keep large buffers off it.
 *
 * @param[in] nEvent      a RTSP_SERVER_EVENT value.
 * @param[in] nSessionId  id of the client, as in its "Session" header.
 * @param[in] pData       a tagRtspServerEventInfo, valid during the call.
 * @param[in] nLen        its size in bytes.
 * @param[in] pUserData   what was registered with the function.
 */
typedef void (*pRtspServerEventCallBack)(int32_t nEvent, int32_t nSessionId, void* pData,
                                         int32_t nLen, void* pUserData);

/**
 * Initialises the library. Call it before RTSPServer_Start. Calls are counted, and each needs its
 * own RTSPServer_Release. A call takes the configuration if the count was 0, so at first and again
 * after as many RTSPServer_Release; otherwise it only counts.
 *
 * The process ignores SIGPIPE from here on.
 *
 * @param[in] pPara  not null; copied, so it may be freed after the call.
 *
 * @return 0 always.
 */
RTSPS_EXPORT int32_t RTSPServer_Init(tagRtspServerPara* pPara);

/**
 * Takes back one RTSPServer_Init. It stops nothing: call RTSPServer_Stop first. Stream information
 * stays registered.
 *
 * The count has no floor. After a call without its RTSPServer_Init the count is negative, and
 * RTSPServer_Start fails until additional RTSPServer_Init have made up for it.
 *
 * @return 0 always.
 */
RTSPS_EXPORT int32_t RTSPServer_Release(void);

/**
 * Declares one stream of one channel, or changes its declaration. May be called at any time. A
 * client's record is read at DESCRIBE and at SETUP, so a change reaches clients that set up after
 * it. A client that plays keeps the payload types and SSRCs of its SETUP: it receives no push of
 * another payload type, and each such push is a log line. RTSPServer_Stop and RTSPServer_Start make
 * all clients connect again. A stream that was never declared is answered with 404.
 *
 * @param[in] nChan        channel number, the N of "chanN" in the URL.
 * @param[in] nStreamType  RTSPS_STREAM_MAIN, RTSPS_STREAM_SUB or RTSPS_STREAM_THIRD. A negative
 *                         value erases the channel from the key: all channels share one record
 *                         for it.
 * @param[in] pPara        not null; copied.
 *
 * @return 0, or -1 when there is no memory for a new record.
 */
RTSPS_EXPORT int32_t RTSPServer_SetStreamInfo(int32_t nChan, int32_t nStreamType,
                                              tagRtspServerStreamInfo* pPara);

/**
 * Starts to accept clients. Blocks for a moment only, longer while another thread is in
 * RTSPServer_Stop. Called from inside the event function it prints an error line and does nothing.
 *
 * @return 0, also when the server is already started, or -1 when
 *   - the count of RTSPServer_Init is not above 0,
 *   - memory or a thread cannot be allocated, or the range of data ports never ends
 *     (see tagRtspServerPara.nMaxPort),
 *   - it is called from inside the event function,
 *   - the server port cannot be bound. errno is then EADDRINUSE (98) for a port in use, and EACCES
 *     (13) for a port that the process may not use.
 */
RTSPS_EXPORT int32_t RTSPServer_Start(void);

/**
 * Stops to accept clients and ends every registered one: their connections are closed, their
 * threads joined. May be called whether or not the server was started, twice, and while other
 * threads push. Takes milliseconds, also with 128 clients; up to 50 ms more after a look for
 * ended clients, 100 ms when a full registry is just being searched; and as long as the event
 * functions take, RTSPS_EVENT_CLOSED of each client included: hold no lock that they need. Called
 * from inside one of them it prints an error line and does nothing.
 *
 * A client that was beyond RTSPS_MAX_SESSIONS keeps its connection, without media, until it leaves.
 * Its thread and its descriptors are freed then, also when the server is not started again.
 *
 * @return 0 always.
 */
RTSPS_EXPORT int32_t RTSPServer_Stop(void);

/**
 * Pushes media to every client that plays this stream. "Steam" is the function's name.
 *
 * The buffer is a run of units, each a 4-byte prefix and one complete RTP packet (RFC 3550):
 *
 * @code{.unparsed}
 *      0        1          2       3        4 ...
 *     +--------+----------+-------+--------+-------------------------------+
 *     | '$'    | anything | length of the  | RTP header (12 bytes), then   |
 *     | (0x24) |          | RTP packet, BE | the payload: `length` bytes   |
 *     +--------+----------+-------+--------+-------------------------------+
 * @endcode
 *
 * All units of one push are of one kind, video or audio: the payload type of the first decides.
 * Push whole access units, with parameter sets in band before each key frame. A push of up to 4
 * bytes, or of an unknown payload type, is a log line for each client that plays the stream. A run
 * whose last unit is cut off by nLen is sent up to there and counts as a short push.
 *
 * The call sends on the calling thread and never waits for a client: what a client's socket does
 * not take is buffered up to 128 KiB (TCP) or dropped (UDP), and a client with more than 20 short
 * pushes in a row is ended; RTSPS_EVENT_CLOSED follows within 50 ms. The rule counts pushes, video
 * and audio together, and not time. For a client that has set up one stream only, pushes of the
 * other count as short: it is ended when more than 20 of them come without one of its own in
 * between. Pushes from several threads are allowed if each pushes a buffer of its own; the packets
 * of one stream then leave in the order of the calls.
 *
 * @param[in] nChan        as in RTSPServer_SetStreamInfo.
 * @param[in] nStreamType  as in RTSPServer_SetStreamInfo.
 * @param[in,out] pData    the library writes prefixes and SSRCs into it. The host's after the call.
 * @param[in] nLen         bytes in pData, above 4.
 *
 * @return 0 always.
 */
RTSPS_EXPORT int32_t RTSPServer_SendRealSteam(int32_t nChan, int32_t nStreamType, void* pData,
                                              int32_t nLen);

/**
 * The entry for recorded media. It sends nothing. A client that was addressed with it once keeps
 * its memory and its place among RTSPS_MAX_SESSIONS until the process ends.
 *
 * @param[in] nSessionId  id of the client.
 * @param[in] pData       not read.
 * @param[in] nLen        not read.
 *
 * @return 0, or -1 when no client has this id.
 */
RTSPS_EXPORT int32_t RTSPServer_SendFileStream(int32_t nSessionId, void* pData, int32_t nLen);

/**
 * Sets the event function and its user pointer. Call it before RTSPServer_Start: a client that
 * connects while no function is set never raises an event. As long as a function stays set, there
 * is one RTSPS_EVENT_CLOSED for every RTSPS_EVENT_CONNECTED, and no event of that client after it.
 * A client beyond RTSPS_MAX_SESSIONS raises no event.
 *
 * After this returns no new call uses the old pair; a call that is on its way may still run.
 *
 * @param[in] pCallBack  the function, or null for none.
 * @param[in] pUserData  passed back unchanged; the host's. Keep what it points to until
 *                       RTSPServer_Stop has returned: no call is under way after that.
 *
 * @return 0 always.
 */
RTSPS_EXPORT int32_t RTSPServer_SetEventCallBack(pRtspServerEventCallBack pCallBack,
                                                 void* pUserData);

#ifdef __cplusplus
}
static_assert(sizeof(tagRtspServerPara) == 108, "the record is part of the binary interface");
static_assert(sizeof(tagRtspServerStreamInfo) == 44, "the record is part of the binary interface");
static_assert(sizeof(tagRtspServerEventInfo) == 128, "the record is part of the binary interface");
#else
_Static_assert(sizeof(tagRtspServerPara) == 108, "the record is part of the binary interface");
_Static_assert(sizeof(tagRtspServerStreamInfo) == 44, "the record is part of the binary interface");
_Static_assert(sizeof(tagRtspServerEventInfo) == 128, "the record is part of the binary interface");
#endif

#endif
