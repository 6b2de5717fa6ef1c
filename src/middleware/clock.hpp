// SPDX-License-Identifier: Apache-2.0
// The process's clock, and spans of time, in the object API's types. For middleware and engines.
#ifndef NORVANE_MIDDLEWARE_CLOCK_HPP
#define NORVANE_MIDDLEWARE_CLOCK_HPP

#include <cstdint>

#include "norvane/dds/types.hpp"
#include "platform/Clock.hpp"
#include "platform/FutexWord.hpp"

namespace norvane {
namespace mw {

/// @return the time of the process's clock.
inline DDS_Time_t current_time() noexcept {
    constexpr std::int64_t SECOND_NS = 1000000000;
    const std::int64_t now = platform::wall_ns();
    return {now / SECOND_NS, static_cast<DDS_UnsignedLong>(now % SECOND_NS)};
}

/// @return the point on the monotonic clock that comes `duration` from now; NO_DEADLINE when it is infinite; a point in the past
///         when it is negative.
inline std::int64_t deadline_after(const DDS_Duration_t& duration) noexcept {
    constexpr std::int64_t SECOND_NS = 1000000000;
    return duration == DDS_DURATION_INFINITE
               ? platform::NO_DEADLINE
               : platform::monotonic_ns() + static_cast<std::int64_t>(duration.sec) * SECOND_NS + duration.nanosec;
}

/// @return the shorter of two durations; an infinite one is longer than any other.
inline const DDS_Duration_t& shorter(const DDS_Duration_t& left, const DDS_Duration_t& right) noexcept {
    return left.sec < right.sec || (left.sec == right.sec && left.nanosec < right.nanosec) ? left : right;
}

}  // namespace mw
}  // namespace norvane

#endif
