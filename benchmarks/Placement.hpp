// SPDX-License-Identifier: Apache-2.0
// Which processor a thread runs on.
#ifndef BENCH_PLACEMENT_HPP
#define BENCH_PLACEMENT_HPP

#include <pthread.h>
#include <sched.h>

#include <stdexcept>

namespace bench {

enum class Placement {
    FREE,   ///< Threads run where the kernel puts them. It often puts two threads that wake each other on one core.
    APART,  ///< Each thread is confined to a core of its own, so every wake-up crosses.
};

/// @return the processors that the calling thread may use.
inline cpu_set_t allowed_processors() {
    cpu_set_t allowed;
    if (pthread_getaffinity_np(pthread_self(), sizeof allowed, &allowed) != 0) {
        throw std::runtime_error("the allowed processors could not be read");
    }
    return allowed;
}

/// Confines a thread to one processor.
/// @param which  counts from 0 among `allowed`.
inline void confine(pthread_t thread, const cpu_set_t& allowed, int which) {
    cpu_set_t chosen;
    CPU_ZERO(&chosen);
    for (int processor = 0; processor < CPU_SETSIZE; ++processor) {
        if (CPU_ISSET(processor, &allowed) && which-- == 0) {
            CPU_SET(processor, &chosen);
        }
    }
    if (pthread_setaffinity_np(thread, sizeof chosen, &chosen) != 0) {
        throw std::runtime_error("a thread could not be confined to one processor");
    }
}

}  // namespace bench

#endif
