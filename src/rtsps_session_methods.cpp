// SPDX-License-Identifier: MIT
// The replies to the requests, and the session's protocol state.
//
// Kept (clients): [header-order] the headers of a reply are sent in the order in which they are
// appended, and the order differs between methods. Clients match replies byte for byte.
#include <cstring>
#include <new>

#include "rtsp_msg.h"
#include "rtsps_auth.h"
#include "rtsps_debug.h"
#include "rtsps_misc.h"
#include "rtsps_server.h"
#include "rtsps_session.h"
#include "rtsps_session_mgr.h"
#include "rtsps_text.h"

namespace {

constexpr int DESCRIPTION_SIZE = 2048;
constexpr size_t AUTH_VALUE_SIZE = 1024;
constexpr int AUTH_BASIC = 1;
constexpr int AUTH_DIGEST = 2;

// Kept (clients): [options-comma] there is no comma before HEARTBEAT. Clients compare the text.
constexpr char PUBLIC_OPTIONS[] = "OPTIONS, DESCRIBE, SETUP, TEARDOWN, PLAY, PAUSE HEARTBEAT";

// A session id as it stands in "Session" headers. Ids from the manager are below 2^31, so the
// signed form that PAUSE uses reads the same.
struct CSessionIdText {
    explicit CSessionIdText(unsigned int dwId) { snprintf(sz, sizeof(sz), "%u", dwId); }
    explicit CSessionIdText(int nId) { snprintf(sz, sizeof(sz), "%d", nId); }
    char sz[40] = {};
};

const char* UrlOf(const CRtspMsg* msg) {
    const auto* req = dynamic_cast<const CRtspRequest*>(msg);
    return req != nullptr ? req->URL() : nullptr;
}

// When the pool is empty, ended sessions give their ports back, and the pool is tried again. The
// accept thread does not sweep while clients keep arriving. Without the sweep here, a viewer that
// reconnects every few seconds would never get its earlier ports.
int BorrowDataPort() {
    CRtspServer* pServer = CRtspServer::Instance();
    const int nPort = pServer->BorrowDataPort();
    if (nPort != 0) {
        return nPort;
    }
    CRtspSessionManager::Instance()->SweepEnded();
    return pServer->BorrowDataPort();
}

}  // namespace

int CRtspSession::proc_rtsp_msg_hook(CRtspMsg* msg) {
    if (!msg->IsRequest()) {
        proc_response(msg);
        return -1;
    }
    int nResult = 0;
    const eRTSP_METHOD_INDEX method = get_rtsp_method(msg->Method());
    switch (method) {
        case RTSP_SETUP:
            nResult = proc_setup(msg);
            break;
        case RTSP_TEARDOWN:
            nResult = proc_teardown(msg);
            break;
        case RTSP_PLAY:
            nResult = proc_play(msg);
            break;
        case RTSP_PAUSE:
            nResult = proc_pause(msg);
            break;
        case RTSP_DESCRIBE:
            nResult = proc_describe(msg);
            break;
        case RTSP_OPTIONS:
            nResult = proc_options(msg);
            break;
        case RTSP_HEARTBEAT:
            nResult = proc_heartbeat(msg);
            break;
        default:
            RTSPS_LOG(WARN, "unkown rtsp method[%d],client[%s]", method, client_text());
            nResult = send_response_method_not_allowed(msg);
            break;
    }
    if (nResult != 0) {
        m_emRtspStat = RTSP_ERROR;
        m_events.SetReason(RTSPS_CLOSE_REFUSED);
    } else {
        get_msg_cseq_value(msg);
    }
    return nResult;
}

// Kept (clients): [options-open] OPTIONS, HEARTBEAT and TEARDOWN are never authenticated, in any
// mode.
int CRtspSession::proc_options(CRtspMsg* msg) {
    CRtspResponse resp(RTSP_STATUS_200);
    resp.append_cseq(msg);
    resp.append_public_options(PUBLIC_OPTIONS);
    return send_response(&resp);
}

// Why a step of DESCRIBE or SETUP fails: the text that the handler prints (null when the step does
// not fail), and the status that the handler then replies with, if any.
struct CRtspSession::CRefusal {
    const char* szText = nullptr;
    int (CRtspSession::*pReply)(const CRtspMsg* msg) = nullptr;
};

void CRtspSession::reply_to(const CRtspMsg* msg, const CRefusal& refusal) {
    if (refusal.pReply != nullptr) {
        (this->*refusal.pReply)(msg);
    }
}

int CRtspSession::proc_describe(CRtspMsg* msg) {
    CRtspResponse resp(RTSP_STATUS_200);
    const CRtspUrl url(UrlOf(msg));
    // Kept (clients): [describe-once] a second DESCRIBE gets 455 and ends the session. One
    // connection selects one stream.
    if (m_emRtspStat != RTSP_UNKNOWN) {
        RTSPS_LOG(ERROR, "describe timing sequence is illegal");
        send_response_method_not_valid_in_this_state(msg);
        return -1;
    }
    if (!url.IsValid()) {
        RTSPS_LOG(ERROR, " url is invalid");
        send_response_nothis_streaming(msg);
        return -1;
    }
    url.get_req_cfg(&m_stuReqCfg);
    if (check_authentication(msg) < 0) {
        // The 401 was sent, and the client may repeat the request with credentials.
        RTSPS_LOG(ERROR, "check_authentication failed");
        return 0;
    }
    if (check_req_cfg_validity() < 0) {
        RTSPS_LOG(ERROR, "ERROR! check_req_cfg_validity, bad cfg");
        send_response_bad_request(msg);
        m_stuReqCfg = {};
        return -1;
    }
    const CRefusal refusal = describe_stream(msg, &resp);
    if (refusal.szText != nullptr) {
        RTSPS_LOG(ERROR, "%s", refusal.szText);
        reply_to(msg, refusal);
        m_stuReqCfg = {};
        return -1;
    }
    if (m_stuReqCfg.nReqType == 0) {
        RTSPS_LOG(INFO, "reqtype=%d,chan=%d,streamtype=%d", m_stuReqCfg.nReqType, m_stuReqCfg.nChan,
                  m_stuReqCfg.nStreamtype);
    }
    m_emRtspStat = RTSP_DESCRIBE;
    m_events.Describe(m_stuReqCfg.nChan, m_stuReqCfg.nStreamtype);
    return 0;
}

CRtspSession::CRefusal CRtspSession::describe_stream(const CRtspMsg* msg, CRtspResponse* resp) {
    char szSdp[DESCRIPTION_SIZE] = {};
    if (GenerateSdpDescription(&m_stuReqCfg, szSdp, DESCRIPTION_SIZE) < 0) {
        return {"generate_sdp_description failed", &CRtspSession::send_response_nothis_streaming};
    }
    const int nSdp = static_cast<int>(strnlen(szSdp, DESCRIPTION_SIZE));
    resp->append_cseq(msg);
    resp->append("Content-Type", "application/sdp");
    resp->AddHeader("Content-Length", nSdp);
    if (send_sdp_response(*resp, szSdp, nSdp) < 0) {
        return {"send_sdp_response failed "};
    }
    return {};
}

// The data that the steps of one SETUP share.
struct CRtspSession::CSetup {
    explicit CSetup(const char* szUrl) : url(szUrl) {}
    CRtspResponse resp{RTSP_STATUS_200};
    CRtspUrl url;
    tagRtspServerStreamInfo streamInfo{};
    TRANS_INFO transInfo{};
    ETransStreamId streamId = TRANS_STREAM_VIDEO;
    int nServerPort = 0;
    int nClientPort = 0;
};

int CRtspSession::proc_setup(CRtspMsg* msg) {
    tagRtspServerStreamInfo streamInfo{};
    CRtspServer* pServer = CRtspServer::Instance();
    // Kept (clients): [setup-stream-first] the stream is looked up before the state is checked. A
    // SETUP without a DESCRIBE gets 404 when the host has not declared channel 0 main, and 455 when
    // it has.
    if (pServer->GetStreamInfo(m_stuReqCfg.nChan, m_stuReqCfg.nStreamtype, &streamInfo) < 0) {
        RTSPS_LOG(ERROR, "get stream info failed,reqtype[%d],chan[%d],streamtype[%d]",
                  m_stuReqCfg.nReqType, m_stuReqCfg.nChan, m_stuReqCfg.nStreamtype);
        send_response_nothis_streaming(msg);
        return -1;
    }
    // Kept (clients): [setup-payload-types] the payload types are stored before the state is
    // checked, so a refused SETUP changes them too. A refused SETUP ends the session.
    m_nVideoPT = streamInfo.byVideoPayload;
    m_nAudioPT = streamInfo.byAudioPayload;
    const eRTSP_METHOD_INDEX state = m_emRtspStat;
    if (state != RTSP_DESCRIBE && state != RTSP_SETUP) {
        send_response_method_not_valid_in_this_state(msg);
        RTSPS_LOG(ERROR, " bad m_rtspstat : %d", state);
        return -1;
    }
    // Kept (clients): [refusal-of-setup] failed authentication ends the session here and at PLAY
    // and PAUSE, unlike at DESCRIBE.
    if (check_authentication(msg) < 0) {
        RTSPS_LOG(ERROR, "check_authentication");
        return -1;
    }
    CSetup setup(UrlOf(msg));
    setup.streamInfo = streamInfo;
    const CRefusal refusal = setup_stream(msg, &setup);
    if (refusal.szText == nullptr) {
        return 0;
    }
    RTSPS_LOG(ERROR, "%s", refusal.szText);
    reply_to(msg, refusal);
    if (setup.nServerPort != 0) {
        pServer->GivebackDataPort(setup.nServerPort);
    }
    // Kept (operators): [client-port-in-pool] the client's own port number is given to the pool as
    // well.
    if (setup.nClientPort != 0) {
        pServer->GivebackDataPort(setup.nClientPort);
    }
    return -1;
}

CRtspSession::CRefusal CRtspSession::setup_stream(const CRtspMsg* msg, CSetup* pSetup) {
    pSetup->resp.append_session_id(CSessionIdText(m_dwSessionId).sz);
    if (!pSetup->url.IsValid()) {
        return {"set up url invalid.", &CRtspSession::send_response_bad_request};
    }
    CRefusal refusal = setup_select_stream(pSetup);
    if (refusal.szText == nullptr) {
        refusal = setup_transport(msg, pSetup);
    }
    if (refusal.szText == nullptr) {
        refusal = setup_open(pSetup);
    }
    if (refusal.szText != nullptr) {
        return refusal;
    }
    pSetup->resp.SetResponseCode(RTSP_STATUS_200);
    pSetup->resp.append_cseq(msg);
    if (send_response(&pSetup->resp) < 0) {
        return {"send_response failed"};
    }
    m_emRtspStat = RTSP_SETUP;
    static_assert(TRANS_STREAM_VIDEO == int{RTSPS_MEDIA_VIDEO} &&
                      TRANS_STREAM_AUDIO == int{RTSPS_MEDIA_AUDIO} &&
                      UDP_MODE == int{RTSPS_TRANSPORT_UDP} &&
                      TCP_MODE == int{RTSPS_TRANSPORT_TCP} &&
                      RTPOVERRTSP_MODE == int{RTSPS_TRANSPORT_INTERLEAVED},
                  "the events tell the internal numbers");
    m_events.SetUp(static_cast<uint32_t>(pSetup->streamId),
                   static_cast<uint32_t>(pSetup->transInfo.mode));
    return {};
}

// Kept (clients): [setup-channel-ignored] only "streamid=0" or "streamid=1" of the URL counts.
// DESCRIBE has selected channel and stream; those in the URL of a SETUP are ignored.
CRtspSession::CRefusal CRtspSession::setup_select_stream(CSetup* pSetup) {
    const char* szUrl = pSetup->url.get_rtsp_url();
    TRANS_INFO* pInfo = &pSetup->transInfo;
    if (CBB_Strstr(szUrl, "streamid=0") != nullptr) {
        pSetup->streamId = TRANS_STREAM_VIDEO;
        pInfo->dwRtpPT = pSetup->streamInfo.byVideoPayload;
        pInfo->dwRtpSSRC = pSetup->streamInfo.dwVideoSSrc;
    } else if (CBB_Strstr(szUrl, "streamid=1") != nullptr) {
        pSetup->streamId = TRANS_STREAM_AUDIO;
        pInfo->dwRtpPT = pSetup->streamInfo.byAudioPayload;
        pInfo->dwRtpSSRC = pSetup->streamInfo.dwAudioSSrc;
    } else {
        return {"bad streamid ", &CRtspSession::send_response_bad_request};
    }
    pInfo->sockFd = m_sockfd;  // interleaved media of both streams are sent on this connection
    return {};
}

CRtspSession::CRefusal CRtspSession::setup_transport(const CRtspMsg* msg, CSetup* pSetup) {
    const CRtspHeader* pTransport = msg->GetHeader("Transport");
    if (pTransport == nullptr) {
        return {"bad Transport ", &CRtspSession::send_response_bad_request};
    }
    const trans_protocol protocol = CRtspTransport::GetTransProtocol(*pTransport);
    switch (protocol) {
        case protocol_over_rtsp:
            setup_over_rtsp(msg, pSetup);
            return {};
        case protocol_udp:
        case protocol_tcp:
            return setup_with_ports(msg, pSetup, protocol);
        // Kept (clients): [multicast-501] multicast gets 501, not 461, and ends the session.
        case protocol_mcast:
            pSetup->transInfo.mode = MCAST_MODE;
            return {"setup not support mcast", &CRtspSession::send_response_not_implemented};
        default:
            return {"unkown trans protocol", &CRtspSession::send_response_not_implemented};
    }
}

void CRtspSession::setup_over_rtsp(const CRtspMsg* msg, CSetup* pSetup) {
    TRANS_INFO* pInfo = &pSetup->transInfo;
    pInfo->mode = RTPOVERRTSP_MODE;
    pSetup->resp.append_transport(msg, protocol_over_rtsp, pInfo->dwRtpSSRC, 0, 1, nullptr,
                                  &pInfo->byTcpFlag, &pInfo->byTcpRtcpFlag);
}

CRtspSession::CRefusal CRtspSession::setup_with_ports(const CRtspMsg* msg, CSetup* pSetup,
                                                      trans_protocol protocol) {
    TRANS_INFO* pInfo = &pSetup->transInfo;
    pInfo->mode = protocol == protocol_tcp ? TCP_MODE : UDP_MODE;
    pSetup->nClientPort = CRtspTransport::GetClientPort(*msg->GetHeader("Transport"));
    if (pSetup->nClientPort == 0) {
        // Kept (operators): [client-port-text] this is the text for a missing stream id.
        return {"bad streamid ", &CRtspSession::send_response_bad_request};
    }
    pInfo->clientAddr = m_clientAddr;
    CBB_SetAddrPort(&pInfo->clientAddr, static_cast<uint16_t>(pSetup->nClientPort));

    pSetup->nServerPort = BorrowDataPort();
    if (pSetup->nServerPort == 0) {
        return {"ERROR! borrow_data_port Err!!!",
                &CRtspSession::send_response_internal_server_error};
    }
    const auto nRtpPort = static_cast<uint16_t>(pSetup->nServerPort);
    const auto nRtcpPort = static_cast<uint16_t>(pSetup->nServerPort + 1);
    pInfo->serverAddr = m_serverAddr;
    CBB_SetAddrPort(&pInfo->serverAddr, nRtpPort);
    pSetup->resp.append_transport(msg, protocol, pInfo->dwRtpSSRC, nRtpPort, nRtcpPort, nullptr,
                                  nullptr, nullptr);
    return {};
}

CRtspSession::CRefusal CRtspSession::setup_open(CSetup* pSetup) {
    if (m_pTransCtrl == nullptr) {
        std::unique_ptr<CTransCtrl> pTransCtrl(new (std::nothrow) CTransCtrl(this));
        if (pTransCtrl == nullptr) {
            return {"new CTransCtrl failed", &CRtspSession::send_response_internal_server_error};
        }
        pTransCtrl->Init();
        m_pTransCtrl = std::move(pTransCtrl);
    }
    if (pSetup->streamId == TRANS_STREAM_VIDEO) {
        m_pTransCtrl->SetVideoTransInfo(&pSetup->transInfo);
    } else {
        m_pTransCtrl->SetAudioTransInfo(&pSetup->transInfo);
    }
    if (m_pTransCtrl->Open(&m_stuReqCfg, pSetup->streamId) < 0) {
        return {"m_pTransCtrl->Open failed", &CRtspSession::send_response_internal_server_error};
    }
    return {};
}

int CRtspSession::proc_play(CRtspMsg* msg) {
    const CRtspUrl url(UrlOf(msg));  // for its log lines only
    CRtspResponse resp(RTSP_STATUS_200);
    // Kept (clients): [play-without-transport] without a transport the reply is 500 in every state,
    // not 455.
    if (m_pTransCtrl == nullptr) {
        send_response_internal_server_error(msg);
        RTSPS_LOG(ERROR, "m_pTransCtrl == NULL");
        return -1;
    }
    if (check_authentication(msg) < 0) {
        RTSPS_LOG(ERROR, "check_authentication");
        return -1;
    }
    if (check_req_session_id(msg) < 0) {
        RTSPS_LOG(ERROR, "bad SessionId ");
        return 0;
    }
    if (m_emRtspStat != RTSP_SETUP && m_emRtspStat != RTSP_PAUSE) {
        send_response_method_not_valid_in_this_state(msg);
        RTSPS_LOG(ERROR, "rtsp status invalid");
        return -1;
    }
    // Kept (clients): [play-headers] the reply has neither Range nor RTP-Info.
    resp.append_session_id(CSessionIdText(m_dwSessionId).sz);
    resp.append_cseq(msg);
    if (send_response(&resp, EAfterReply::PLAYS) < 0) {
        RTSPS_LOG(ERROR, "send_response failed");
        return -1;
    }
    m_events.Playing();
    return 0;
}

int CRtspSession::proc_pause(CRtspMsg* msg) {
    CRtspResponse resp(RTSP_STATUS_200);
    if (check_req_session_id(msg) != 0) {
        RTSPS_LOG(ERROR, "check_req_session_id failed");
        return 0;
    }
    if (m_emRtspStat != RTSP_PLAY && m_emRtspStat != RTSP_PAUSE) {
        send_response_method_not_valid_in_this_state(msg);
        RTSPS_LOG(WARN, "pause timing sequence is illegal");
        // Kept (clients): [pause-goes-on] the session continues, unlike with the other methods.
        return 0;
    }
    if (m_stuReqCfg.nReqType == 0) {
        // Kept (clients): [pause-live] a live stream is not paused: the reply is 405, and the media
        // continue.
        const int nResult = send_response_method_not_allowed(msg);
        RTSPS_LOG(WARN, "preview mode no support pause!");
        return nResult;
    }
    if (check_authentication(msg) < 0) {
        RTSPS_LOG(ERROR, "check_authentication");
        return -1;
    }
    resp.append_cseq(msg);
    resp.append_session_id(CSessionIdText(static_cast<int>(m_dwSessionId)).sz);
    if (send_response(&resp) < 0) {
        RTSPS_LOG(ERROR, "send_response failed");
        return -1;
    }
    m_emRtspStat = RTSP_PAUSE;
    return 0;
}

int CRtspSession::proc_teardown(CRtspMsg* msg) {
    CRtspResponse resp;
    resp.append_cseq(msg);
    if (check_req_session_id(msg) != 0) {
        RTSPS_LOG(ERROR, "check_req_session_id failed");
        return 0;
    }
    resp.SetResponseCode(RTSP_STATUS_200);
    resp.append_session_id(CSessionIdText(m_dwSessionId).sz);
    // Kept (clients): [teardown-connection] the header is sent, but the connection stays open until
    // the client closes it.
    resp.append_connection("close");
    if (send_response(&resp) < 0) {
        RTSPS_LOG(ERROR, "send_response failed");
        return -1;
    }
    // The state changes before the transport closes, so that a waiting push is dropped whole.
    {
        const CLockGuard guard(m_mutexSend);  // waits for a push in progress
        m_emRtspStat = RTSP_TEARDOWN;
    }
    // Kept (clients): [teardown-lagging] the pending buffer of an interleaved client is dropped
    // here, with the reply above if it is there. A client that reads too slowly never receives its
    // 200.
    if (m_pTransCtrl != nullptr) {
        m_pTransCtrl->Close();
    }
    m_events.TornDown();
    return 0;
}

int CRtspSession::proc_heartbeat(CRtspMsg* msg) {
    CRtspResponse resp;
    if (check_req_session_id(msg) < 0) {
        RTSPS_LOG(ERROR, "check_req_session_id failed");
        return 0;
    }
    resp.SetResponseCode(RTSP_STATUS_200);
    resp.append_cseq(msg);
    if (send_response(&resp) < 0) {
        RTSPS_LOG(ERROR, "send_response failed");
        return -1;
    }
    return 0;
}

int CRtspSession::proc_unknown_request(CRtspMsg* msg) {
    return send_response_bad_request(msg);
}

int CRtspSession::check_req_session_id(const CRtspMsg* msg) {
    // Kept (clients): [session-id-unchecked] the check is switched off: any id passes, and so does
    // a request without one.
    if (!m_bNeedCheckId || CRtspResponse::CheckSessionId(msg, m_dwSessionId) == 0) {
        return 0;
    }
    RTSPS_LOG(ERROR, "BadSessionID!!!, FD[%d]", m_sockfd.load());
    // Kept (clients): [bad-id-goes-on] once the 454 is sent, the result is 0, and the handler
    // continues.
    return send_response_bad_session_id(msg);
}

int CRtspSession::check_authentication(const CRtspMsg* msg) {
    if (m_nCheckUserPwdMode == 0 || m_bAuthChecked) {
        return 0;
    }
    int nResult = -1;
    char szValue[AUTH_VALUE_SIZE] = {};
    msg->GetHeaderValue("Authorization", szValue, sizeof(szValue));
    if (msg->GetHeader("Authorization") == nullptr) {
        RTSPS_LOG(ERROR, "no Header Authorization");
    } else if (m_nCheckUserPwdMode == AUTH_BASIC) {
        nResult = CheckBasicAuth(&m_stuReqCfg, szValue);
    } else if (m_nCheckUserPwdMode == AUTH_DIGEST) {
        nResult = CheckDigestAuth(&m_stuReqCfg, szValue, nullptr);
    } else {
        RTSPS_LOG(ERROR, "unsupported Auth!");
    }
    if (nResult == 0) {
        m_bAuthChecked = !m_bEachReqAuthCheck;
        return 0;
    }
    CRtspResponse resp(RTSP_STATUS_401);
    resp.append_cseq(msg);
    switch (m_nCheckUserPwdMode) {
        case AUTH_BASIC:
            RTSPS_LOG(WARN, "Need Authorization Basic");
            resp.append("WWW-Authenticate", "Basic realm=\"/\"");
            break;
        case AUTH_DIGEST:
            RTSPS_LOG(WARN, "Need Authorization Digest");
            // Kept (clients): [digest-header] the header is not "WWW-Authenticate".
            resp.append("Authorization", "Digest");
            break;
        default:
            RTSPS_LOG(WARN, "m_CheckUserPwdMode ERROR %d", m_nCheckUserPwdMode);
            break;
    }
    send_response(&resp);
    return nResult;
}

int CRtspSession::send_status(const CRtspMsg* msg, eRTSP_STATUS_CODE_INDEX index) {
    CRtspResponse resp;
    resp.append_cseq(msg);
    resp.SetResponseCode(index);
    return send_response(&resp);
}

int CRtspSession::send_response_bad_request(const CRtspMsg* msg) {
    return send_status(msg, RTSP_STATUS_400);
}

int CRtspSession::send_response_bad_session_id(const CRtspMsg* msg) {
    return send_status(msg, RTSP_STATUS_454);
}

int CRtspSession::send_response_no_support_transport(const CRtspMsg* msg) {
    // Kept (operators): [log-454-for-461] the log text names 454, but the reply is 461.
    RTSPS_LOG(WARN, "ERROR!!! RTSP_STATUS_454, FD[%d]", m_sockfd.load());
    return send_status(msg, RTSP_STATUS_461);
}

int CRtspSession::send_response_internal_server_error(const CRtspMsg* msg) {
    RTSPS_LOG(WARN, "ERROR!!! RTSP_STATUS_500, FD[%d]", m_sockfd.load());
    return send_status(msg, RTSP_STATUS_500);
}

int CRtspSession::send_response_method_not_valid_in_this_state(const CRtspMsg* msg) {
    return send_status(msg, RTSP_STATUS_455);
}

int CRtspSession::send_response_nothis_streaming(const CRtspMsg* msg) {
    return send_status(msg, RTSP_STATUS_404);
}

int CRtspSession::send_response_method_not_allowed(const CRtspMsg* msg) {
    RTSPS_LOG(WARN, "RTSP_STATUS_405, FD[%d]", m_sockfd.load());
    return send_status(msg, RTSP_STATUS_405);
}

int CRtspSession::send_response_invalid_range(const CRtspMsg* msg) {
    RTSPS_LOG(WARN, "ERROR!!! RTSP_STATUS_457, FD[%d]", m_sockfd.load());
    return send_status(msg, RTSP_STATUS_457);
}

int CRtspSession::send_response_not_implemented(const CRtspMsg* msg) {
    return send_status(msg, RTSP_STATUS_501);
}

int CRtspSession::send_response_no_bandwidth(const CRtspMsg* msg) {
    RTSPS_LOG(ERROR, " RTSP_STATUS_453, FD[%d]", m_sockfd.load());
    return send_status(msg, RTSP_STATUS_453);
}
