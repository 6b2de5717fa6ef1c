// SPDX-License-Identifier: Apache-2.0
// The clock of the process: wall time when it was first read, plus a monotonic clock. It does not jump when the wall clock is set.
#ifndef NORVANE_PLATFORM_CLOCK_HPP
#define NORVANE_PLATFORM_CLOCK_HPP

#include <cstdint>

#include "norvane/dds/types.hpp"

namespace norvane {
namespace platform {

/// @return nanoseconds on the monotonic clock.
std::int64_t monotonic_ns() noexcept;

/// @return the time of the process's clock.
DDS_Time_t current_time() noexcept;

/// @return the point on the monotonic clock that comes `duration` from now; NO_DEADLINE when it is infinite; a point in the past
///         when it is negative.
std::int64_t deadline_after(const DDS_Duration_t& duration) noexcept;

}  // namespace platform
}  // namespace norvane

#endif
