// SPDX-License-Identifier: MIT
#include "cbb/CBB_Thread.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <cstring>
#include <tuple>

#include "cbb.h"

namespace {

struct TSeen {
    CBB_HANDLE self = CBB_INVALID_HANDLE;
    int policy = -1;
    size_t stack = 0;
    sigset_t mask = {};
};

void* Look(void* pParam) {
    TSeen* pSeen = static_cast<TSeen*>(pParam);
    pSeen->self = CBB_Thread_GetSelfId();
    sched_param param = {};
    pthread_getschedparam(pthread_self(), &pSeen->policy, &param);
    pthread_sigmask(SIG_SETMASK, nullptr, &pSeen->mask);
    pthread_attr_t attr;
    pthread_getattr_np(pthread_self(), &attr);
    pthread_attr_getstacksize(&attr, &pSeen->stack);
    pthread_attr_destroy(&attr);
    return pParam;
}

// Round robin needs no privilege, as scheduling is inherited; a priority has to suit its policy.
TEST(CbbThread, CreatesAndJoins) {
    const std::tuple<uint32_t, int, int, bool> rows[] = {
        {0, 0, SCHED_OTHER, true},   {131072, 50, SCHED_RR, true}, {262144, 0, SCHED_OTHER, true},
        {0, 50, SCHED_OTHER, false}, {0, 0, SCHED_RR, false},      {1, 0, SCHED_OTHER, false}};
    for (const auto& [nStack, nPriority, nPolicy, bCreated] : rows) {
        TSeen seen;
        const CBB_HANDLE hThread = CBB_Thread_Create(Look, &seen, nStack, 1, nPriority, nPolicy);
        ASSERT_EQ(hThread != CBB_INVALID_HANDLE, bCreated) << nStack << " " << nPolicy;
        EXPECT_EQ(CBB_Thread_Wait(hThread), bCreated ? 0 : -1);
        EXPECT_EQ(seen.self, hThread);
        EXPECT_EQ(seen.policy, bCreated ? SCHED_OTHER : -1);
        EXPECT_GE(seen.stack, bCreated ? nStack : 0);
        // A sanitizer may round up, but not to the default of megabytes.
        EXPECT_TRUE(nStack == 0 || seen.stack < size_t{1} << 20);
    }
    EXPECT_EQ(CBB_Thread_Wait(CBB_Thread_GetSelfId()), -1);
}

TEST(CbbThread, DetachedThreadsReturnOneForSuccess) {
    sem_t done;
    ASSERT_EQ(CBB_SemCreate(&done, 0), 0);
    const auto Post = [](void* p) {
        return CBB_SemPost(static_cast<sem_t*>(p)) == 0 ? p : nullptr;
    };
    EXPECT_EQ(CBB_ThreadDetached_Create(Post, &done, 131072), 1);
    EXPECT_EQ(CBB_SemTimedWait(&done, 10000), 0);
    EXPECT_EQ(CBB_ThreadDetached_Create(Post, &done, 1), 0);
}

TEST(CbbThread, LibraryThreadsBlockTheHostsSignals) {
    TSeen before, within, after;
    Look(&before);
    {
        const CBlockSignals block;
        EXPECT_EQ(CBB_Thread_Wait(CBB_Thread_Create(Look, &within, 0, 0, 0, 0)), 0);
    }
    Look(&after);
    for (const int nSignal : {SIGTERM, SIGINT, SIGHUP, SIGALRM, SIGCHLD, SIGUSR1, SIGPIPE})
        EXPECT_EQ(sigismember(&within.mask, nSignal), 1) << nSignal;
    for (const int nSignal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS})
        EXPECT_EQ(sigismember(&within.mask, nSignal), 0) << nSignal;
    EXPECT_EQ(memcmp(&after.mask, &before.mask, sizeof(sigset_t)), 0);
}

// A deadline whose fraction is not carried into the seconds is refused by the system.
TEST(CbbSemaphore, DeadlineCarriesIntoTheNextSecond) {
    sem_t sem;
    ASSERT_EQ(CBB_SemCreate(&sem, 1), 0);
    EXPECT_EQ(CBB_SemTimedWait(&sem, 4000000000U), 0);
    const uint64_t nStart = CBB_TimeNow();
    const auto nTimeOut = static_cast<uint32_t>(1020 - nStart / 1000 % 1000);
    EXPECT_EQ(CBB_SemTimedWait(&sem, nTimeOut), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_GE(CBB_TimeNow() - nStart, nTimeOut * 1000ULL);
    CBB_Sleep(4294968);  // kept: wraps to 704 microseconds
    EXPECT_LT(CBB_TimeNow() - nStart, nTimeOut * 1000ULL + 2000000);
}

}  // namespace
