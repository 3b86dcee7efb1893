// SPDX-License-Identifier: MIT
// The layout of the records that hosts share with the library, on every processor. A change here
// breaks hosts that are already built. All checks are made by the compiler.
#include <cstddef>
#include <ctime>

#include "cbb.h"
#include "mempool.h"
#include "rtp_random.h"
#include "rtsps_server_api.h"

namespace {

#define AT(offset, record, field) \
    static_assert(offsetof(record, field) == (offset), #record "." #field " has moved")
#define SIZE(size, type) static_assert(sizeof(type) == (size), #type " has another size")

AT(0, tagRtspServerPara, byDbg);
AT(1, tagRtspServerPara, byRes);
AT(16, tagRtspServerPara, szMultiAddr);
AT(32, tagRtspServerPara, szUserName);
AT(64, tagRtspServerPara, szPasswd);
AT(96, tagRtspServerPara, nServerPort);
AT(100, tagRtspServerPara, nMinPort);
AT(104, tagRtspServerPara, nMaxPort);
SIZE(108, tagRtspServerPara);

AT(0, tagRtspServerStreamInfo, byVideoPayload);
AT(1, tagRtspServerStreamInfo, byAudioPayload);
AT(4, tagRtspServerStreamInfo, dwVideoSSrc);
AT(8, tagRtspServerStreamInfo, dwAudioSSrc);
AT(12, tagRtspServerStreamInfo, dwAudioFormat);
AT(16, tagRtspServerStreamInfo, dwVideoFormat);
AT(20, tagRtspServerStreamInfo, res);
SIZE(44, tagRtspServerStreamInfo);

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

AT(0, CBB_ADDR_T, SA.sin4.sin_family);
AT(2, CBB_ADDR_T, SA.sin4.sin_port);
AT(4, CBB_ADDR_T, SA.sin4.sin_addr);
AT(8, CBB_ADDR_T, SA.sin6.sin6_addr);
SIZE(28, CBB_ADDR_T);

AT(0, CBB_ADDR_EXP_T, iAf);
AT(4, CBB_ADDR_EXP_T, ADDR);
AT(20, CBB_ADDR_EXP_T, nPort);
AT(22, CBB_ADDR_EXP_T, nReserved);
SIZE(24, CBB_ADDR_EXP_T);

// CBB_Select and CBB_SelectEx take a timeval.
SIZE(8, time_t);
SIZE(16, timeval);

// Hosts create these objects themselves.
SIZE(32, CMemPool);
SIZE(24, RTPRdm);
SIZE(4, RTSP_SERVER_STREAM_TYPE);
SIZE(4, RTSP_SERVER_EVENT);
SIZE(4, RTSP_SERVER_CLOSE_REASON);
SIZE(4, RTSP_SERVER_MEDIA);
SIZE(4, RTSP_SERVER_TRANSPORT);

}  // namespace
