// SPDX-License-Identifier: MIT
#ifndef SESSION_PROBE_H
#define SESSION_PROBE_H

#include "rtsps_session.h"

// Access to a session's private fields and steps, for states that no client can reach.
struct CRtspSessionProbe {
    explicit CRtspSessionProbe(CRtspSession& s) : session(s) {}

    CRtspSession& session;
    std::atomic<bool>& bQuit = session.m_bQuit;
    bool& bNeedCheckId = session.m_bNeedCheckId;
    bool& bEachReqAuthCheck = session.m_bEachReqAuthCheck;
    bool& bUseHeartBeat = session.m_bUseHeartBeat;
    int32_t& nCSeq = session.m_nCSeq;
    int32_t& nCheckUserPwdMode = session.m_nCheckUserPwdMode;
    std::atomic<CBB_SOCK_T>& sockfd = session.m_sockfd;
    CBB_ADDR_T& clientAddr = session.m_clientAddr;
    tagRtspRequestCfg& stuReqCfg = session.m_stuReqCfg;
    std::atomic<eRTSP_METHOD_INDEX>& emRtspStat = session.m_emRtspStat;

    bool IdleTooLong(int ms) { return session.idle_too_long(ms); }
};

#endif
