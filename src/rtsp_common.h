// SPDX-License-Identifier: MIT
// Request methods and status codes of the protocol, and their texts. The lookups read constant
// tables only, so any thread may call them at any time.
#ifndef RTSP_COMMON_H
#define RTSP_COMMON_H

// A request method. It is also used as a session's protocol state: the last method that succeeded.
typedef enum eRTSP_METHOD_INDEX_tag : int {
    RTSP_ERROR = -1,
    RTSP_UNKNOWN = 0,
    RTSP_SETUP = 1,
    RTSP_TEARDOWN = 2,
    RTSP_PLAY = 3,
    RTSP_PAUSE = 4,
    RTSP_RECORD = 5,
    RTSP_DESCRIBE = 6,
    RTSP_ANNOUNCE = 7,
    RTSP_OPTIONS = 8,
    RTSP_SET_PARAM = 9,
    RTSP_GET_PARAM = 10,
    RTSP_RESPONSE = 11,  // marks a parsed message as a response; not a method on the wire
    RTSP_HEARTBEAT = 12,
    RTSP_KEYIFRAME = 13,
    RTSP_SET_VIDEO_PARAM = 14,
    RTSP_RANDOMPLAY = 15,
    RTSP_CHANGERATE = 16,
} eRTSP_METHOD_INDEX;

// One method and its word on the request line (a constant, NUL-terminated text).
typedef struct RTSP_METHOD_MAP_tag {
    eRTSP_METHOD_INDEX type;
    const char* pDesc;
} RTSP_METHOD_MAP;

// A status code; the number is its row in the status table, not the code itself.
typedef enum eRTSP_STATUS_CODE_INDEX_tag : int {
    RTSP_STATUS_UNK = -1,
    RTSP_STATUS_100 = 0,
    RTSP_STATUS_200,
    RTSP_STATUS_201,
    RTSP_STATUS_250,
    RTSP_STATUS_300,
    RTSP_STATUS_301,
    RTSP_STATUS_302,
    RTSP_STATUS_303,
    RTSP_STATUS_304,
    RTSP_STATUS_305,
    RTSP_STATUS_400,
    RTSP_STATUS_401,
    RTSP_STATUS_402,
    RTSP_STATUS_403,
    RTSP_STATUS_404,
    RTSP_STATUS_405,
    RTSP_STATUS_406,
    RTSP_STATUS_407,
    RTSP_STATUS_408,
    RTSP_STATUS_409,
    RTSP_STATUS_410,
    RTSP_STATUS_411,
    RTSP_STATUS_412,
    RTSP_STATUS_413,
    RTSP_STATUS_414,
    RTSP_STATUS_415,
    RTSP_STATUS_451,
    RTSP_STATUS_452,
    RTSP_STATUS_453,
    RTSP_STATUS_454,
    RTSP_STATUS_455,
    RTSP_STATUS_456,
    RTSP_STATUS_457,
    RTSP_STATUS_458,
    RTSP_STATUS_459,
    RTSP_STATUS_460,
    RTSP_STATUS_461,
    RTSP_STATUS_462,
    RTSP_STATUS_500,
    RTSP_STATUS_501,
    RTSP_STATUS_502,
    RTSP_STATUS_503,
    RTSP_STATUS_504,
    RTSP_STATUS_505,
    RTSP_STATUS_551 = 44,
} eRTSP_STATUS_CODE_INDEX;

// One status: its row, its three digits as text and its reason phrase (constant texts).
typedef struct RTSP_STATUS_MAP_tag {
    eRTSP_STATUS_CODE_INDEX index;
    const char* code;
    const char* msg;
} RTSP_STATUS_MAP;

// The word of a method; "ERROR" for a method without a word. Never null.
const char* get_rtsp_method(eRTSP_METHOD_INDEX index);

// The method of a word, compared exactly. RTSP_UNKNOWN for null, RTSP_ERROR for any other word
// that is no method.
eRTSP_METHOD_INDEX get_rtsp_method(const char* szMethod);

// The row of a status, or null when it has none.
const RTSP_STATUS_MAP* get_rtsp_status_map(eRTSP_STATUS_CODE_INDEX index);

// The status of a three-digit code text, compared exactly; RTSP_STATUS_UNK when there is none.
// `szCode` must not be null.
eRTSP_STATUS_CODE_INDEX get_rtsp_status_index(const char* szCode);

#endif
