// SPDX-License-Identifier: MIT
#ifndef SESSION_PROBE_H
#define SESSION_PROBE_H

#include "rtsps_session.h"

// A session's fields and inner steps, for tests that set up what no client can.
struct CRtspSessionProbe {
    explicit CRtspSessionProbe(CRtspSession& s)
        : session(s),
          bQuit(s.m_bQuit),
          bNeedCheckId(s.m_bNeedCheckId),
          bEachReqAuthCheck(s.m_bEachReqAuthCheck),
          bUseHeartBeat(s.m_bUseHeartBeat),
          nCSeq(s.m_nCSeq),
          nCheckUserPwdMode(s.m_nCheckUserPwdMode),
          sockfd(s.m_sockfd),
          clientAddr(s.m_clientAddr),
          stuReqCfg(s.m_stuReqCfg),
          emRtspStat(s.m_emRtspStat) {}

    CRtspSession& session;
    std::atomic<bool>& bQuit;
    bool& bNeedCheckId;
    bool& bEachReqAuthCheck;
    bool& bUseHeartBeat;
    int32_t& nCSeq;
    int32_t& nCheckUserPwdMode;
    std::atomic<CBB_SOCK_T>& sockfd;
    CBB_ADDR_T& clientAddr;
    tagRtspRequestCfg& stuReqCfg;
    std::atomic<eRTSP_METHOD_INDEX>& emRtspStat;

    bool IdleTooLong(int ms) { return session.idle_too_long(ms); }
};

#endif
