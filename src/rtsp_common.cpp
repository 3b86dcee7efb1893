// SPDX-License-Identifier: MIT
#include "rtsp_common.h"

#include <cstring>

namespace {

// Kept (operators): [method-table] "ERROR" and the misspelled "UNKNOW" have rows like the methods,
// and three methods have no row. The number that is logged for an unknown method depends on this
// table.
constexpr RTSP_METHOD_MAP s_g_RtspMethodMapTable[] = {
    {RTSP_ERROR, "ERROR"},
    {RTSP_UNKNOWN, "UNKNOW"},
    {RTSP_SETUP, "SETUP"},
    {RTSP_TEARDOWN, "TEARDOWN"},
    {RTSP_PLAY, "PLAY"},
    {RTSP_PAUSE, "PAUSE"},
    {RTSP_RECORD, "RECORD"},
    {RTSP_DESCRIBE, "DESCRIBE"},
    {RTSP_ANNOUNCE, "ANNOUNCE"},
    {RTSP_OPTIONS, "OPTIONS"},
    {RTSP_SET_PARAM, "SET_PARAMETER"},
    {RTSP_GET_PARAM, "GET_PARAMETER"},
    {RTSP_HEARTBEAT, "HEARTBEAT"},
    {RTSP_KEYIFRAME, "KEYIFRAME"},
    {RTSP_SET_VIDEO_PARAM, "SETVIDEOPARAM"},
};

// The reason phrases are sent exactly as they are written here.
constexpr RTSP_STATUS_MAP s_g_RtspStatusMapTable[] = {
    {RTSP_STATUS_100, "100", "Continue"},
    {RTSP_STATUS_200, "200", "OK"},
    {RTSP_STATUS_201, "201", "Created"},
    {RTSP_STATUS_250, "250", "Low On Storage Space"},
    {RTSP_STATUS_300, "300", "Multiple Choices"},
    {RTSP_STATUS_301, "301", "Moved Permanently"},
    {RTSP_STATUS_302, "302", "Moved Temporarily"},
    {RTSP_STATUS_303, "303", "See Other"},
    {RTSP_STATUS_304, "304", "Not Modified"},
    {RTSP_STATUS_305, "305", "Use Proxy"},
    {RTSP_STATUS_400, "400", "Bad Request"},
    {RTSP_STATUS_401, "401", "Unauthorized"},
    {RTSP_STATUS_402, "402", "Payment Required"},
    {RTSP_STATUS_403, "403", "Forbidden"},
    {RTSP_STATUS_404, "404", "Not Found"},
    {RTSP_STATUS_405, "405", "Method Not Allowed"},
    {RTSP_STATUS_406, "406", "Not Acceptable"},
    {RTSP_STATUS_407, "407", "Proxy Authentication Required"},
    {RTSP_STATUS_408, "408", "Request Time-out"},
    {RTSP_STATUS_409, "409", "Conflict"},
    {RTSP_STATUS_410, "410", "Gone"},
    {RTSP_STATUS_411, "411", "Length Required"},
    {RTSP_STATUS_412, "412", "Precondition Failed"},
    {RTSP_STATUS_413, "413", "Request Entity Too Large"},
    {RTSP_STATUS_414, "414", "Request-URI Too Large"},
    {RTSP_STATUS_415, "415", "Unsupported Media Type"},
    {RTSP_STATUS_451, "451", "Parameter Not Understood"},
    {RTSP_STATUS_452, "452", "Conference Not Found"},
    {RTSP_STATUS_453, "453", "Not Enough Bandwidth"},
    {RTSP_STATUS_454, "454", "Session Not Found"},
    {RTSP_STATUS_455, "455", "Method Not Valid In This State"},
    {RTSP_STATUS_456, "456", "Header Field Not Valid For Resource"},
    {RTSP_STATUS_457, "457", "Invalid Range"},
    {RTSP_STATUS_458, "458", "Parameter Is Read-Only"},
    {RTSP_STATUS_459, "459", "Aggregate Operation Not Allowed"},
    {RTSP_STATUS_460, "460", "Only Aggregate Operation Allowed"},
    {RTSP_STATUS_461, "461", "Unsupported Transport"},
    {RTSP_STATUS_462, "462", "Destination Unreachable"},
    {RTSP_STATUS_500, "500", "Internal Server Error"},
    {RTSP_STATUS_501, "501", "Not Implemented"},
    {RTSP_STATUS_502, "502", "Bad Gateway"},
    {RTSP_STATUS_503, "503", "Service Unavailable"},
    {RTSP_STATUS_504, "504", "Gateway Time-out"},
    {RTSP_STATUS_505, "505", "RTSP Version not supported"},
    {RTSP_STATUS_551, "551", "Option not supported"},
};

}  // namespace

const char* get_rtsp_method(eRTSP_METHOD_INDEX index) {
    for (const RTSP_METHOD_MAP& row : s_g_RtspMethodMapTable) {
        if (row.type == index) {
            return row.pDesc;
        }
    }
    return "ERROR";
}

eRTSP_METHOD_INDEX get_rtsp_method(const char* szMethod) {
    if (szMethod == nullptr) {
        return RTSP_UNKNOWN;
    }
    for (const RTSP_METHOD_MAP& row : s_g_RtspMethodMapTable) {
        if (strcmp(row.pDesc, szMethod) == 0) {
            return row.type;
        }
    }
    return RTSP_ERROR;
}

const RTSP_STATUS_MAP* get_rtsp_status_map(eRTSP_STATUS_CODE_INDEX index) {
    for (const RTSP_STATUS_MAP& row : s_g_RtspStatusMapTable) {
        if (row.index == index) {
            return &row;
        }
    }
    return nullptr;
}

eRTSP_STATUS_CODE_INDEX get_rtsp_status_index(const char* szCode) {
    for (const RTSP_STATUS_MAP& row : s_g_RtspStatusMapTable) {
        if (strcmp(row.code, szCode) == 0) {
            return row.index;
        }
    }
    return RTSP_STATUS_UNK;
}
