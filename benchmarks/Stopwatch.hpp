// SPDX-License-Identifier: Apache-2.0
// Wall time and processor time, and the loop that measures the cost of one operation.
#ifndef BENCH_STOPWATCH_HPP
#define BENCH_STOPWATCH_HPP

#include <pthread.h>

#include <chrono>
#include <ctime>

namespace bench {

typedef std::chrono::steady_clock Clock;

inline double ns_since(Clock::time_point start) { return std::chrono::duration<double, std::nano>(Clock::now() - start).count(); }

/// Processor time of one thread of this process, kernel time included, since the thread started.
inline double processor_ns(clockid_t thread_clock) {
    timespec time;
    clock_gettime(thread_clock, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

inline clockid_t processor_clock(pthread_t thread) {
    clockid_t clock = CLOCK_THREAD_CPUTIME_ID;
    pthread_getcpuclockid(thread, &clock);
    return clock;
}

/// Keeps the compiler from dropping or keeping in registers what `place` points at.
inline void observe(const void* place) { asm volatile("" : : "g"(place) : "memory"); }

/// Runs `operation` until `span` is over.
/// @return nanoseconds per operation.
template <class Operation>
double ns_per_call(std::chrono::nanoseconds span, Operation&& operation) {
    constexpr int CALLS_PER_LOOK = 8;  // reading the clock costs about as much as the cheapest operations here
    const double span_ns = static_cast<double>(span.count());
    const Clock::time_point start = Clock::now();
    double calls = 0;
    double elapsed_ns = 0;
    do {
        for (int call = 0; call < CALLS_PER_LOOK; ++call) {
            operation();
        }
        calls += CALLS_PER_LOOK;
        elapsed_ns = ns_since(start);
    } while (elapsed_ns < span_ns);
    return elapsed_ns / calls;
}

/// How long a round measures each of its sides.
constexpr std::chrono::milliseconds ROUND{12};

}  // namespace bench

#endif
