// SPDX-License-Identifier: MIT
#include "rtsps_session_mgr.h"

#include <gtest/gtest.h>
#include <sys/time.h>

#include <cstdlib>
#include <functional>
#include <map>

#include "support/log_capture.h"
#include "support/session_probe.h"

namespace {

CRtspSessionManager& Manager() {
    return *CRtspSessionManager::Instance();
}

// A session without a thread. It is running until somebody closes it.
CRtspSession* MakeSession(uint32_t id) {
    auto* session = new CRtspSession(id);
    CRtspSessionProbe(*session).bQuit = false;
    return session;
}

bool IsKnown(uint32_t id) {
    const bool known = Manager().getSession(id) != nullptr;
    Manager().releaseSession(known ? id : 0xFFFFFFFFU);
    return known;
}

TEST(SessionManager, ReferencesDecideWhenASessionIsDestroyed) {
    CRtspSession* session = nullptr;
    CSessionList all;
    const std::map<char, std::function<void()>> steps = {
        {'t', [&] { EXPECT_EQ(Manager().getSession(7), session); }},
        {'T', [&] { all = Manager().getSession(); }},
        {'r', [&] { Manager().releaseSession(7); }},
        {'p', [&] { Manager().releaseSession(session); }},
        {'R', [&] { Manager().releaseSession(all); }},
        {'d', [&] { Manager().closeSession(7); }},
        {'D', [&] { Manager().closeSession(all); }},
        {'c', [&] { EXPECT_EQ(Manager().Close(7U), session == nullptr ? -1 : 0); }},
        {'C', [&] { EXPECT_EQ(Manager().Close(), 0); }},
        {'s', [&] { Manager().DelExceptionSession(); }},
    };
    // What leaves it registered, and the one step that does not. The registry's own reference goes
    // once, whoever drops it.
    const std::pair<std::string, char> rows[] = {
        {"s", 'd'},  {"", 'c'},   {"", 'C'},    {"td", 'r'},   {"TD", 'R'},   {"ttdp", 'p'},
        {"tc", 'r'}, {"tC", 'r'}, {"TCD", 'R'}, {"tTdR", 'p'}, {"tddcs", 'r'}};
    for (const auto& [keep, end] : rows) {
        session = MakeSession(7);
        ASSERT_EQ(Manager().AddSession(session), 0);
        for (const char what : keep) {
            steps.at(what)();
        }
        EXPECT_TRUE(IsKnown(7)) << keep;
        steps.at(end)();
        EXPECT_FALSE(IsKnown(7)) << keep << end;
    }
    session = nullptr;
    for (const char what : std::string("rdRDCcs")) {
        steps.at(what)();  // unknown ids do nothing
    }
}

TEST(SessionManager, SnapshotIsOrderedAndSweepTakesOnlyWhatHasEnded) {
    for (const uint32_t id : {0x80000001U, 5U, 9U, 1U}) {
        EXPECT_EQ(Manager().AddSession(MakeSession(id)), 0);
    }
    CRtspSessionProbe(*Manager().getSession(5)).bQuit = true;
    Manager().releaseSession(5);
    Manager().DelExceptionSession();
    const CSessionList sessions = Manager().getSession();
    std::string ids;
    for (const tagSessionRef& entry : sessions) {
        ids += std::to_string(entry.pSession->GetSessionId()) + " ";
    }
    EXPECT_EQ(ids, "1 9 2147483649 ");
    Manager().releaseSession(sessions);
    Manager().Close();
}

TEST(SessionManager, FullRegistryRefusesUntilSomethingEnds) {
    const CLogCapture log;
    std::vector<CRtspSession*> refused;
    for (uint32_t i = 0; i < 256; ++i) {
        EXPECT_TRUE(Manager().CanTakeSession()) << i;
        CRtspSession* session = MakeSession(i);
        EXPECT_EQ(Manager().AddSession(session), i < 128 ? 0 : -1);
        if (i >= 128) {
            refused.push_back(session);
        }
    }
    EXPECT_TRUE(
        log.HasLines("C m_maxSessions=128, now has 1|C m_maxSessions=128, now has 128|"
                     "W ERROR! add_session,OverSize!!!"));
    EXPECT_FALSE(IsKnown(128) || Manager().CanTakeSession());

    // A refused one has ended: it is freed, and one more may come.
    CRtspSessionProbe(*refused[5]).bQuit = true;
    EXPECT_TRUE(Manager().CanTakeSession());
    refused[5] = MakeSession(2000);
    EXPECT_EQ(Manager().AddSession(refused[5]), -1);
    EXPECT_FALSE(Manager().CanTakeSession());

    // A registered one has ended: a live client gets its place.
    CRtspSessionProbe(*Manager().getSession(77)).bQuit = true;
    Manager().releaseSession(77);
    EXPECT_EQ(Manager().AddSession(MakeSession(2001)), 0);
    EXPECT_TRUE(!IsKnown(77) && IsKnown(2001));

    Manager().Close();
    for (CRtspSession* session : refused) {
        EXPECT_TRUE(session->IsRunning()) << "Close leaves refused ones alone";
        CRtspSessionProbe(*session).bQuit = true;
    }
    Manager().DelExceptionSession();
}

}  // namespace
