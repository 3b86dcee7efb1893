// SPDX-License-Identifier: MIT
#include "cbb/CBB_Thread.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <cstring>

#include "cbb.h"
#include "support/test_net.h"

namespace {

struct TSeen {
    CBB_HANDLE self = CBB_INVALID_HANDLE;
    int policy = -1;
    sigset_t mask = {};
};

void* Look(void* pParam) {
    TSeen* pSeen = static_cast<TSeen*>(pParam);
    pSeen->self = CBB_Thread_GetSelfId();
    sched_param param = {};
    pthread_getschedparam(pthread_self(), &pSeen->policy, &param);
    pthread_sigmask(SIG_SETMASK, nullptr, &pSeen->mask);
    return pParam;
}

// Whether a thread was created. It has to run with the ordinary policy and to be joined.
bool IsCreated(uint32_t stack, int priority, int policy) {
    TSeen seen;
    const CBB_HANDLE thread = CBB_Thread_Create(Look, &seen, stack, 1, priority, policy);
    const bool isCreated = thread != CBB_INVALID_HANDLE;
    EXPECT_EQ(CBB_Thread_Wait(thread), isCreated ? 0 : -1);
    EXPECT_EQ(seen.self, thread);
    EXPECT_EQ(seen.policy, isCreated ? SCHED_OTHER : -1);
    return isCreated;
}

TEST(CbbThread, CreatesAndJoins) {
    EXPECT_TRUE(IsCreated(0, 0, SCHED_OTHER));
    EXPECT_TRUE(IsCreated(131072, 50, SCHED_RR)) << "inherited, so it needs no privilege";
    EXPECT_FALSE(IsCreated(0, 50, SCHED_OTHER)) << "a priority without its policy";
    EXPECT_FALSE(IsCreated(0, 0, SCHED_RR)) << "a policy without its priority";
    EXPECT_FALSE(IsCreated(1, 0, SCHED_OTHER)) << "a stack too small";
    EXPECT_EQ(CBB_Thread_Wait(CBB_Thread_GetSelfId()), -1) << "a thread that joins itself";
}

TEST(CbbThread, ExitEndsTheThread) {
    bool runsOn = false;
    const auto Exit = [](void* p) -> void* {
        CBB_Thread_Exit();
        *static_cast<bool*>(p) = true;
        return p;
    };
    EXPECT_EQ(CBB_Thread_Wait(CBB_Thread_Create(Exit, &runsOn, 0, 0, 0, 0)), 0);
    EXPECT_FALSE(runsOn);
}

TEST(CbbThread, ChangesScheduling) {
    const CBB_HANDLE self = CBB_Thread_GetSelfId();
    EXPECT_EQ(CBB_Thread_Suspend(self), -2);
    EXPECT_EQ(CBB_Thread_Resume(self), -2);
    EXPECT_EQ(CBB_Thread_SetPriority(self, 0), 0);
    EXPECT_EQ(CBB_Thread_SetPriority(self, 99), -1) << "of the ordinary policy";
    EXPECT_EQ(CBB_Thread_SetSchedPolicy(self, 0), 0);
    EXPECT_EQ(CBB_Thread_SetSchedPolicy(self, 1000), -1);
    EXPECT_EQ(CBB_Thread_SetPriority(CBB_INVALID_HANDLE, 0), -1);
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

// The system rejects a deadline whose fraction is one second or more.
TEST(CbbSemaphore, DeadlineCarriesIntoTheNextSecond) {
    sem_t sem;
    ASSERT_EQ(CBB_SemCreate(&sem, 1), 0);
    EXPECT_EQ(CBB_SemTimedWait(&sem, 4000000000U), 0);
    EXPECT_EQ(CBB_SemTimedWait(&sem, 0), -1);
    EXPECT_EQ(errno, EAGAIN) << "without a deadline";
    const uint64_t nStart = CBB_TimeNow();
    const auto nTimeOut = static_cast<uint32_t>(1020 - nStart / 1000 % 1000);
    EXPECT_EQ(CBB_SemTimedWait(&sem, nTimeOut), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    const uint64_t nWaited = CBB_TimeNow() - nStart;
    const uint64_t nMost = IsPlainBuild() ? nTimeOut * 1000ULL + 900000 : UINT64_MAX;
    EXPECT_TRUE(nWaited >= nTimeOut * 1000ULL && nWaited < nMost) << nWaited;
}

TEST(CbbTime, ALongSleepWrapsToAShortOne) {  // kept
    const uint64_t start = CBB_TimeNow();
    CBB_Sleep(536871912);  // milliseconds, and exactly one second once wrapped
    EXPECT_NEAR(static_cast<double>(start) / 1e6, static_cast<double>(time(nullptr)) - 1, 10);
    const uint64_t slept = CBB_TimeNow() - start;
    EXPECT_TRUE(slept > 900000 && slept < 20000000) << slept;
}

}  // namespace
