/* SPDX-License-Identifier: MIT */
/**
 * @file
 * The embeddable RTSP server: the eight functions that a host application calls.
 *
 * Order of calls:
 * 1. RTSPServer_Init.
 * 2. RTSPServer_SetEventCallBack and RTSPServer_SetStreamInfo, in any order, as often as needed.
 * 3. RTSPServer_Start.
 * 4. RTSPServer_SendRealSteam for every access unit.
 * 5. RTSPServer_Stop, then RTSPServer_Release.
 *
 * To change the port or another part of the configuration, call RTSPServer_Stop,
 * RTSPServer_Release, RTSPServer_Init and RTSPServer_Start.
 *
 * There is one server per process. It listens on all IPv4 addresses, not on IPv6.
 *
 * Every function may be called from any thread, and none throws. RTSPServer_Start and
 * RTSPServer_Stop state how long they block. A push takes the time of one send per client that
 * plays the stream. The other functions wait for short locks only: microseconds, or milliseconds
 * during an RTSPServer_Start. If the calling thread is cancelled (pthread_cancel), the call is
 * finished first.
 *
 * Log lines go to standard output. If standard output blocks, for example because it is a pipe that
 * no process reads, every call that prints a line blocks too.
 *
 * @mainpage
 * - rtsps_server_api.h: the server.
 * - cbb.h: the platform layer that the server uses. Hosts may use it, too.
 * - mempool.h: a ring buffer for media frames, which the server does not use.
 * - rtp_random.h: random numbers for RTP values, which the server does not use.
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

/**
 * @name Limits and sizes
 * The library is built with these values. A host cannot change them.
 * @{
 */
/**
 * The most clients that receive media at once. The next RTSPS_MAX_SESSIONS clients are refused:
 * they get normal replies, but no media, and raise no events. Later clients are closed at once.
 */
#define RTSPS_MAX_SESSIONS 128
/** Stack of each client's thread, in bytes; see pRtspServerEventCallBack. */
#define RTSPS_THREAD_STACK_SIZE 262144
/** Size of the prefix before each RTP packet of a push, in bytes; see RTSPServer_SendRealSteam. */
#define RTSPS_UNIT_PREFIX_SIZE 4
/**
 * The most bytes per stream that wait for a slow client over TCP, in addition to the socket buffer
 * of the kernel.
 */
#define RTSPS_PENDING_BUFFER_SIZE 131072
/** The most short pushes in a row that do not end a client; see RTSPServer_SendRealSteam. */
#define RTSPS_MAX_SHORT_PUSHES 20
/** Highest value for tagRtspServerPara.nMaxPort: the last pair is then 65532 and 65533. */
#define RTSPS_MAX_DATA_PORT 65533
/** The most milliseconds that RTSPServer_Stop waits for pauses of the accept thread. */
#define RTSPS_MAX_STOP_PAUSE_MS 100
/** @} */

/**
 * @name Streams of a channel
 * A client selects one by its name in the URL, as in rtsp://host:port/chan1/main/.
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
    RTSPS_AUDIO_STREAM_TYPE_AAC = 33,   /**< described as MP4V-ES: players cannot decode it */
    RTSPS_AUDIO_STREAM_TYPE_UNDEF = 100 /**< no audio; 0 means the same */
} RTSP_SERVER_STREAM_TYPE;

/** The start-up configuration, 108 bytes without gaps. Set all bytes to 0 before the fields. */
typedef struct tagRtspServerPara {
    /** Not 0: INFO lines are printed, too. Errors, warnings and critical lines always are. */
    uint8_t byDbg;
    /** Reserved, zero. */
    uint8_t byRes[15];
    /** Multicast group as dotted text, NUL-terminated. Not used: SETUP refuses multicast. */
    char szMultiAddr[16];
    /** User name, NUL-terminated. Not used: no request is authenticated. */
    char szUserName[32];
    /** Password, NUL-terminated. Not used: no request is authenticated. */
    char szPasswd[32];
    /**
     * TCP port on which clients are accepted, 1 to 65535. RTSPServer_Start does not check it. Only
     * the low 16 bits count. With 0 the system chooses a port, and the host cannot find out which.
     */
    uint32_t nServerPort;
    /**
     * Lowest local port for media over UDP, and for media over separate TCP connections.
     *
     * Each stream of a client uses a pair of ports: an RTP port and the RTCP port above it. The RTP
     * ports are nMinPort, nMinPort + 2 and so on up to nMaxPort. A client with video and audio
     * uses two pairs. Choose an even nMinPort, and an nMaxPort of RTSPS_MAX_DATA_PORT or less. Only
     * the low 16 bits of both count.
     */
    int32_t nMinPort;
    /** Highest RTP port, at most RTSPS_MAX_DATA_PORT; see nMinPort. */
    int32_t nMaxPort;
} tagRtspServerPara, TRtspServerPara;

/** What the host declares about one stream of one channel. 44 bytes, naturally aligned. */
typedef struct tagRtspServerStreamInfo {
    /**
     * RTP payload type of the video, 0 to 127. It must differ from byAudioPayload, because the
     * payload type tells whether a push is video or audio. The video type is compared first. Gaps
     * in the sequence numbers are logged for type 96 only.
     */
    uint8_t byVideoPayload;
    /** RTP payload type of the audio; see byVideoPayload. */
    uint8_t byAudioPayload;
    /**
     * SSRC of the video, host byte order, 1 to 0x7FFFFFFF. The library writes it into every pushed
     * packet.
     *
     * Why not 0x80000000 or more: a sender report over UDP begins with the SSRC. When the top two
     * bits are 10, a player with one socket for RTP and RTCP reads the report as media. Why not 0:
     * the packets carry it, but the reply to SETUP then has no SSRC.
     */
    uint32_t dwVideoSSrc;
    /** SSRC of the audio; see dwVideoSSrc. */
    uint32_t dwAudioSSrc;
    /**
     * Coding of the audio, a RTSP_SERVER_STREAM_TYPE value. In this pair audio comes before video.
     */
    // Kept (hosts): [audio-format-first] the audio format stands before the video format, the
    // reverse of the other pairs.
    uint32_t dwAudioFormat;
    /** Coding of the video, a RTSP_SERVER_STREAM_TYPE value. */
    uint32_t dwVideoFormat;
    /** Reserved, zero. */
    uint32_t res[6];
} tagRtspServerStreamInfo, TRtspServerStreamInfo;

/**
 * What happened to a client. The values never change. Later versions may add values: ignore those
 * that you do not expect.
 */
typedef enum RTSP_SERVER_EVENT {
    RTSPS_EVENT_CONNECTED = 1, /**< it is registered; the first event of a client */
    RTSPS_EVENT_DESCRIBED = 2, /**< DESCRIBE succeeded; nChan and nStreamType are set */
    RTSPS_EVENT_SETUP = 3,     /**< a SETUP succeeded; dwMedia and dwTransport are set */
    RTSPS_EVENT_PLAYING = 4,   /**< it receives pushes from here on: request a key frame */
    RTSPS_EVENT_TORN_DOWN = 5, /**< it sent TEARDOWN, also without an earlier SETUP */
    RTSPS_EVENT_CLOSED = 6     /**< its session has ended; the last event of a client */
} RTSP_SERVER_EVENT;

/** Why a session has ended. */
typedef enum RTSP_SERVER_CLOSE_REASON {
    RTSPS_CLOSE_NONE = 0,             /**< not ended */
    RTSPS_CLOSE_CLIENT_LEFT = 1,      /**< the client closed its connection */
    RTSPS_CLOSE_TEARDOWN = 2,         /**< the client sent TEARDOWN before it left */
    RTSPS_CLOSE_REFUSED = 3,          /**< a request was refused in a way that ends the session */
    RTSPS_CLOSE_TOO_SLOW = 4,         /**< more than RTSPS_MAX_SHORT_PUSHES short pushes in a row */
    RTSPS_CLOSE_CONNECTION_ERROR = 5, /**< an error on the connection, or a lack of memory */
    RTSPS_CLOSE_SERVER_STOPPED = 6    /**< RTSPServer_Stop was called */
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
    RTSPS_TRANSPORT_TCP = 2,        /**< a separate TCP connection per stream */
    RTSPS_TRANSPORT_MULTICAST = 3,  /**< refused at SETUP */
    RTSPS_TRANSPORT_INTERLEAVED = 4 /**< on the RTSP connection */
} RTSP_SERVER_TRANSPORT;

/** What a client was sent. Packets that wait in a buffer for a slow client count as sent. */
typedef struct tagRtspServerTotals {
    uint64_t qwVideoPackets;    /**< RTP packets of video */
    uint64_t qwVideoBytes;      /**< their bytes, RTP headers included, prefixes excluded */
    uint64_t qwAudioPackets;    /**< RTP packets of audio */
    uint64_t qwAudioBytes;      /**< their bytes, counted like qwVideoBytes */
    uint32_t dwShortSends;      /**< short pushes; see RTSPServer_SendRealSteam */
    uint32_t dwLongestShortRun; /**< the most short pushes in a row */
} tagRtspServerTotals, TRtspServerTotals;

/**
 * The data of an event. Later versions may add fields at the end: read only the first dwSize bytes.
 */
typedef struct tagRtspServerEventInfo {
    uint32_t dwSize;               /**< size of this record in bytes */
    int32_t nChan;                 /**< channel; -1 before RTSPS_EVENT_DESCRIBED */
    int32_t nStreamType;           /**< stream; -1 before RTSPS_EVENT_DESCRIBED */
    uint32_t dwMedia;              /**< RTSP_SERVER_MEDIA; set in RTSPS_EVENT_SETUP only */
    uint32_t dwTransport;          /**< RTSP_SERVER_TRANSPORT of the latest SETUP */
    uint32_t dwClientPort;         /**< TCP port of the client's connection, host byte order */
    char szClientAddr[48];         /**< address of the client as text, NUL-terminated */
    uint32_t dwReason;             /**< RTSP_SERVER_CLOSE_REASON; set in RTSPS_EVENT_CLOSED only */
    uint32_t dwReserved;           /**< reserved */
    uint64_t qwConnectedMs;        /**< ms since the client connected; the clock never jumps */
    tagRtspServerTotals stuTotals; /**< set in RTSPS_EVENT_CLOSED only */
} tagRtspServerEventInfo, TRtspServerEventInfo;

/**
 * The event function of the host.
 *
 * It runs on the thread of the client, and the library holds no lock during the call. Only that
 * client and RTSPServer_Stop wait for it. It must not throw.
 *
 * Inside the function RTSPServer_Start and RTSPServer_Stop print an error line and do nothing. All
 * other functions of this header work as usual.
 *
 * The thread has a stack of RTSPS_THREAD_STACK_SIZE bytes. The library uses less than 64 kB of it.
 * The thread-local variables of the process are on the same stack. Do not put large buffers on it.
 *
 * @param[in] nEvent      a RTSP_SERVER_EVENT value.
 * @param[in] nSessionId  id of the client, as in its "Session" header.
 * @param[in] pData       a tagRtspServerEventInfo, valid during the call.
 * @param[in] nLen        size of the record in bytes.
 * @param[in] pUserData   the pointer that was given to RTSPServer_SetEventCallBack.
 */
typedef void (*pRtspServerEventCallBack)(int32_t nEvent, int32_t nSessionId, void* pData,
                                         int32_t nLen, void* pUserData);

/**
 * Initialises the library. Call it before RTSPServer_Start.
 *
 * Calls are counted, and each one needs its own RTSPServer_Release. A call takes the configuration
 * only when the count before it is 0 or less. Other calls increase the count and ignore pPara.
 *
 * From the first call on, the process ignores SIGPIPE.
 *
 * Allowed inside the event function. Does not block.
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
 * The count may fall below 0. One RTSPServer_Release too many makes RTSPServer_Start fail until
 * RTSPServer_Init has been called often enough to bring the count above 0.
 *
 * Allowed inside the event function. Does not block.
 *
 * @return 0 always.
 */
RTSPS_EXPORT int32_t RTSPServer_Release(void);

/**
 * Declares one stream of one channel, or changes its declaration. May be called at any time. A
 * client that requests a stream that was never declared gets 404.
 *
 * The library reads a declaration at DESCRIBE and at SETUP. A change therefore has no effect on
 * clients that play: they keep the payload types and SSRCs of their SETUP. A push with a new
 * payload type does not reach them, and prints one line for each. To apply a change to all clients,
 * call RTSPServer_Stop and RTSPServer_Start: the clients must then connect again.
 *
 * Allowed inside the event function. Does not block.
 *
 * @param[in] nChan        channel number, the N of "chanN" in the URL.
 * @param[in] nStreamType  RTSPS_STREAM_MAIN, RTSPS_STREAM_SUB or RTSPS_STREAM_THIRD. Do not use a
 *                         negative value: all channels share one record for it.
 * @param[in] pPara        not null; copied.
 *
 * @return 0, or -1 when memory for a new record cannot be allocated.
 */
RTSPS_EXPORT int32_t RTSPServer_SetStreamInfo(int32_t nChan, int32_t nStreamType,
                                              tagRtspServerStreamInfo* pPara);

/**
 * Starts to accept clients. Blocks for a few milliseconds. If another thread is in RTSPServer_Stop,
 * it waits for that call first.
 *
 * Inside the event function it prints an error line and fails.
 *
 * @return 0, also when the server is already started, or -1 when
 *   - the count of RTSPServer_Init is not above 0,
 *   - the data ports would include port 65535 (see tagRtspServerPara.nMinPort),
 *   - memory, a socket or a thread is not available,
 *   - it is called inside the event function,
 *   - the server port cannot be bound. errno is then EADDRINUSE (98) for a port in use, and EACCES
 *     (13) for a port that the process may not use.
 */
RTSPS_EXPORT int32_t RTSPServer_Start(void);

/**
 * Stops to accept clients, closes the connections of all registered clients and joins their
 * threads. May be called whether or not the server was started, more than once, and while other
 * threads push.
 *
 * It blocks for a few milliseconds, and for up to RTSPS_MAX_STOP_PAUSE_MS more when the accept
 * thread is in a pause. It also blocks until the event function has returned for every client, with
 * RTSPS_EVENT_CLOSED as the last event of each: hold no lock that the event function needs.
 *
 * Inside the event function it prints an error line and does nothing.
 *
 * Refused clients (see RTSPS_MAX_SESSIONS) keep their connections, without media, until they leave.
 * The thread and the descriptors of each are freed then, also when the server is not started again.
 *
 * @return 0 always.
 */
RTSPS_EXPORT int32_t RTSPServer_Stop(void);

/**
 * Pushes media to every client that plays this stream. The name is spelled "Steam".
 *
 * The buffer is a run of units. A unit is a 4-byte prefix and one complete RTP packet (RFC 3550):
 *
 * @code{.unparsed}
 *      0        1          2       3        4 ...
 *     +--------+----------+-------+--------+-------------------------------+
 *     | '$'    | anything | length of the  | RTP header (12 bytes), then   |
 *     | (0x24) |          | RTP packet, BE | the payload: `length` bytes   |
 *     +--------+----------+-------+--------+-------------------------------+
 * @endcode
 *
 * All units of one push belong to one stream, video or audio: the payload type of the first unit
 * decides. Push whole access units, and put the parameter sets in band before each key frame. The
 * RTP time stamp counts 90000 per second for H.264 and H.265, and 8000 per second for G.711.
 *
 * A push of 4 bytes or less, or with an unknown payload type, prints one line for each client that
 * plays the stream, and is dropped.
 *
 * The call sends on the calling thread and never waits for a client. What the socket of a client
 * does not take is buffered, up to RTSPS_PENDING_BUFFER_SIZE (TCP), or dropped (UDP).
 *
 * A push is short for a client that did not take it whole. More than RTSPS_MAX_SHORT_PUSHES short
 * pushes in a row end the client, and RTSPS_EVENT_CLOSED follows within 50 ms. The rule counts
 * pushes of video and audio together; it does not measure time. A push is also short
 *   - for a client that has set up only the other stream. More than RTSPS_MAX_SHORT_PUSHES such
 *     pushes without one of its own stream in between end this client;
 *   - when nLen cuts off the last unit. The units before it are sent.
 *
 * Several threads may push at the same time, each with its own buffer. The packets of one stream
 * leave in the order of the calls.
 *
 * Allowed inside the event function.
 *
 * @param[in] nChan        as in RTSPServer_SetStreamInfo.
 * @param[in] nStreamType  as in RTSPServer_SetStreamInfo.
 * @param[in,out] pData    the units. The library writes prefixes and SSRCs into the buffer. It does
 *                         not use the buffer after the call.
 * @param[in] nLen         bytes in pData, more than 4.
 *
 * @return 0 always.
 */
RTSPS_EXPORT int32_t RTSPServer_SendRealSteam(int32_t nChan, int32_t nStreamType, void* pData,
                                              int32_t nLen);

/**
 * Do not call it. It was made for recorded media, and sends nothing. A client whose id was given to
 * it keeps its memory, and one of the RTSPS_MAX_SESSIONS slots, until the process ends.
 *
 * Allowed inside the event function. Does not block.
 *
 * @param[in] nSessionId  id of the client.
 * @param[in] pData       not read.
 * @param[in] nLen        not read.
 *
 * @return 0, or -1 when no registered client has this id.
 */
RTSPS_EXPORT int32_t RTSPServer_SendFileStream(int32_t nSessionId, void* pData, int32_t nLen);

/**
 * Sets the event function and its user pointer. Call it before RTSPServer_Start: a client that
 * connects while no function is set never raises an event.
 *
 * As long as a function stays set, each registered client raises one RTSPS_EVENT_CONNECTED first
 * and one RTSPS_EVENT_CLOSED last. Refused clients (see RTSPS_MAX_SESSIONS) raise no event.
 *
 * A call of the earlier function may still run, or just begin, after this call has returned. No
 * call runs after RTSPServer_Stop has returned.
 *
 * Allowed inside the event function. Does not block.
 *
 * @param[in] pCallBack  the function, or null for none.
 * @param[in] pUserData  passed to the function unchanged. Keep the memory that it points to until
 *                       RTSPServer_Stop has returned.
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
