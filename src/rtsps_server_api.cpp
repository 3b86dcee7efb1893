// SPDX-License-Identifier: MIT
#include "rtsps_server_api.h"

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
    // Kept (hosts): [init-result] the result of Init is ignored.
    CRtspServer::Instance()->Init(pPara);
    CRtspSessionManager::Instance()->Init();
    return 0;
}

int32_t RTSPServer_Release(void) {
    CRtspServer::Instance()->Release();
    CRtspSessionManager::Instance()->Release();
    return 0;
}

int32_t RTSPServer_SetStreamInfo(int32_t nChan, int32_t nStreamType,
                                 tagRtspServerStreamInfo* pPara) {
    return CRtspServer::Instance()->SetStreamInfo(nChan, nStreamType, pPara);
}

int32_t RTSPServer_Start(void) {
    if (IsInsideCallBack()) {
        return -1;
    }
    return CRtspServer::Instance()->Start();
}

int32_t RTSPServer_Stop(void) {
    if (IsInsideCallBack()) {
        return 0;
    }
    CRtspServer::Instance()->Stop();
    CRtspSessionManager::Instance()->Close();
    return 0;
}

// Kept (hosts): [sendrealsteam] the name lacks the r of Stream; hosts link against it.
int32_t RTSPServer_SendRealSteam(int32_t nChan, int32_t nStreamType, void* pData, int32_t nLen) {
    return CRtspSessionManager::Instance()->SendRealStream(nChan, nStreamType, pData, nLen);
}

int32_t RTSPServer_SendFileStream(int32_t nSessionId, void* pData, int32_t nLen) {
    return CRtspSessionManager::Instance()->SendFileStream(nSessionId, pData, nLen);
}

int32_t RTSPServer_SetEventCallBack(pRtspServerEventCallBack pCallBack, void* pUserData) {
    return CRtspSessionManager::Instance()->SetEventCallBack(pCallBack, pUserData);
}
