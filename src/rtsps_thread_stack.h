// SPDX-License-Identifier: MIT
#ifndef RTSPS_THREAD_STACK_H
#define RTSPS_THREAD_STACK_H

#include <cstdint>

#include "rtsps_server_api.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define RTSPS_SANITIZED
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define RTSPS_SANITIZED
#endif

// The stack of session threads and of the accept thread. A host that locks its memory needs the
// whole stack of each client in RAM, so it is smaller than the system's default of several
// megabytes. Sanitizers need larger frames.
#ifdef RTSPS_SANITIZED
constexpr uint32_t THREAD_STACK_SIZE = 8 * RTSPS_THREAD_STACK_SIZE;
#else
constexpr uint32_t THREAD_STACK_SIZE = RTSPS_THREAD_STACK_SIZE;
#endif

#endif
