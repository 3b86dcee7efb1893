// SPDX-License-Identifier: MIT
// Counting semaphores.
#include <ctime>

#include "cbb.h"

namespace {

timespec DeadlineAfter(const timeval& now, uint32_t nMilliSec) {
    constexpr long NANOS_PER_SEC = 1000000000L;
    timespec deadline = {};
    deadline.tv_sec = now.tv_sec + static_cast<time_t>(nMilliSec / 1000);
    deadline.tv_nsec =
        static_cast<long>(now.tv_usec) * 1000L + static_cast<long>(nMilliSec % 1000) * 1000000L;
    if (deadline.tv_nsec >= NANOS_PER_SEC) {
        deadline.tv_sec += 1;
        deadline.tv_nsec %= NANOS_PER_SEC;
    }
    return deadline;
}

}  // namespace

int32_t CBB_SemCreate(sem_t* pSem, uint32_t nInitValue) {
    return pSem == nullptr ? -1 : sem_init(pSem, 0, nInitValue);
}

int32_t CBB_SemDestroy(sem_t* pSem) {
    return pSem == nullptr ? -1 : sem_destroy(pSem);
}

int32_t CBB_SemWait(sem_t* pSem) {
    return pSem == nullptr ? -1 : sem_wait(pSem);
}

int32_t CBB_SemPost(sem_t* pSem) {
    return pSem == nullptr ? -1 : sem_post(pSem);
}

int32_t CBB_SemTimedWait(sem_t* pSem, uint32_t nTimeOut) {
    if (pSem == nullptr) {
        return -1;
    }
    if (nTimeOut == 0) {
        return sem_trywait(pSem);
    }
    timeval now = {};
    gettimeofday(&now, nullptr);
    const timespec deadline = DeadlineAfter(now, nTimeOut);
    return sem_timedwait(pSem, &deadline);
}
