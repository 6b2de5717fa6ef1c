// SPDX-License-Identifier: Apache-2.0
#include "platform/Clock.hpp"

#include <ctime>

#include "platform/FutexWord.hpp"

namespace norvane {
namespace platform {

namespace {

constexpr std::int64_t NANOSECONDS = 1000000000;

std::int64_t read_ns(clockid_t clock) noexcept {
    timespec now;
    clock_gettime(clock, &now);
    return static_cast<std::int64_t>(now.tv_sec) * NANOSECONDS + now.tv_nsec;
}

}  // namespace

std::int64_t monotonic_ns() noexcept { return read_ns(CLOCK_MONOTONIC); }

DDS_Time_t current_time() noexcept {
    static const std::int64_t OFFSET_NS = read_ns(CLOCK_REALTIME) - read_ns(CLOCK_MONOTONIC);
    const std::int64_t now = monotonic_ns() + OFFSET_NS;
    return {now / NANOSECONDS, static_cast<DDS_UnsignedLong>(now % NANOSECONDS)};
}

std::int64_t deadline_after(const DDS_Duration_t& duration) noexcept {
    if (duration == DDS_DURATION_INFINITE) {
        return NO_DEADLINE;
    }
    return monotonic_ns() + static_cast<std::int64_t>(duration.sec) * NANOSECONDS + duration.nanosec;
}

}  // namespace platform
}  // namespace norvane
