// SPDX-License-Identifier: MIT
#include "rtsps_server_api.h"

#include "cbb/CBB_Thread.h"
#include "rtsps_debug.h"
#include "rtsps_event.h"
#include "rtsps_server.h"
#include "rtsps_session_mgr.h"

namespace {

// Start and Stop may wait for session threads, and the event callback runs on a session thread.
bool IsInsideCallBack() {
    if (!CSessionEvents::InCallBack()) {
        return false;
    }
    RTSPS_LOG(ERROR, "start and stop do nothing inside the event callback");
    return true;
}

}  // namespace

int32_t RTSPServer_Init(tagRtspServerPara* pPara) {
    const CDelayCancellation delay;
    // Kept (hosts): [init-result] the result of Init is ignored.
    CRtspServer::Instance()->Init(pPara);
    CRtspSessionManager::Instance()->Init();
    return 0;
}

int32_t RTSPServer_Release(void) {
    const CDelayCancellation delay;
    CRtspServer::Instance()->Release();
    CRtspSessionManager::Instance()->Release();
    return 0;
}

int32_t RTSPServer_SetStreamInfo(int32_t nChan, int32_t nStreamType,
                                 tagRtspServerStreamInfo* pPara) {
    const CDelayCancellation delay;
    return CRtspServer::Instance()->SetStreamInfo(nChan, nStreamType, pPara);
}

int32_t RTSPServer_Start(void) {
    const CDelayCancellation delay;
    if (IsInsideCallBack()) {
        return -1;
    }
    return CRtspServer::Instance()->Start();
}

int32_t RTSPServer_Stop(void) {
    const CDelayCancellation delay;
    if (IsInsideCallBack()) {
        return 0;
    }
    CRtspServer::Instance()->Stop();
    CRtspSessionManager::Instance()->Close();
    return 0;
}

// Kept (hosts): [sendrealsteam] the name lacks the r of Stream; hosts link against it.
int32_t RTSPServer_SendRealSteam(int32_t nChan, int32_t nStreamType, void* pData, int32_t nLen) {
    const CDelayCancellation delay;
    return CRtspSessionManager::Instance()->SendRealStream(nChan, nStreamType, pData, nLen);
}

int32_t RTSPServer_SendFileStream(int32_t nSessionId, void* pData, int32_t nLen) {
    const CDelayCancellation delay;
    return CRtspSessionManager::Instance()->SendFileStream(nSessionId, pData, nLen);
}

int32_t RTSPServer_SetEventCallBack(pRtspServerEventCallBack pCallBack, void* pUserData) {
    const CDelayCancellation delay;
    return CRtspSessionManager::Instance()->SetEventCallBack(pCallBack, pUserData);
}
