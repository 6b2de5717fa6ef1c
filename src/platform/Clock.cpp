// SPDX-License-Identifier: Apache-2.0
#include "platform/Clock.hpp"

#include <ctime>

namespace norvane {
namespace platform {

namespace {

std::int64_t read_ns(clockid_t clock) noexcept {
    timespec now;
    clock_gettime(clock, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

}  // namespace

std::int64_t monotonic_ns() noexcept { return read_ns(CLOCK_MONOTONIC); }

std::int64_t wall_ns() noexcept {
    static const std::int64_t OFFSET_NS = read_ns(CLOCK_REALTIME) - read_ns(CLOCK_MONOTONIC);
    return monotonic_ns() + OFFSET_NS;
}

}  // namespace platform
}  // namespace norvane
