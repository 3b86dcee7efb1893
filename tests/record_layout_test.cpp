// SPDX-License-Identifier: MIT
// Layouts that hosts share with the library and that scripts/abi does not compare: functions pass
// these records as void*, or the system defines the type. The compiler makes all checks.
#include <cstddef>
#include <ctime>

#include "cbb.h"
#include "rtsps_server_api.h"

namespace {

#define AT(offset, record, field) \
    static_assert(offsetof(record, field) == (offset), #record "." #field " has moved")
#define SIZE(size, type) static_assert(sizeof(type) == (size), #type " has another size")

AT(0, tagRtspServerTotals, qwVideoPackets);
AT(8, tagRtspServerTotals, qwVideoBytes);
AT(16, tagRtspServerTotals, qwAudioPackets);
AT(24, tagRtspServerTotals, qwAudioBytes);
AT(32, tagRtspServerTotals, dwShortSends);
AT(36, tagRtspServerTotals, dwLongestShortRun);
SIZE(40, tagRtspServerTotals);

AT(0, tagRtspServerEventInfo, dwSize);
AT(4, tagRtspServerEventInfo, nChan);
AT(8, tagRtspServerEventInfo, nStreamType);
AT(12, tagRtspServerEventInfo, dwMedia);
AT(16, tagRtspServerEventInfo, dwTransport);
AT(20, tagRtspServerEventInfo, dwClientPort);
AT(24, tagRtspServerEventInfo, szClientAddr);
AT(72, tagRtspServerEventInfo, dwReason);
AT(76, tagRtspServerEventInfo, dwReserved);
AT(80, tagRtspServerEventInfo, qwConnectedMs);
AT(88, tagRtspServerEventInfo, stuTotals);
SIZE(128, tagRtspServerEventInfo);

AT(12, tagRtspServerStreamInfo, dwAudioFormat);
AT(16, tagRtspServerStreamInfo, dwVideoFormat);

// CBB_Select and CBB_SelectEx take a timeval.
SIZE(8, time_t);
SIZE(16, timeval);

}  // namespace
