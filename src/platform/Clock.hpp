// SPDX-License-Identifier: Apache-2.0
// The clock of the process: wall time when it was first read, plus a monotonic clock. It does not jump when the wall clock is set.
#ifndef NORVANE_PLATFORM_CLOCK_HPP
#define NORVANE_PLATFORM_CLOCK_HPP

#include <cstdint>

namespace norvane {
namespace platform {

/// @return nanoseconds on the monotonic clock.
std::int64_t monotonic_ns() noexcept;

/// @return nanoseconds since 1970 by the process's clock.
std::int64_t wall_ns() noexcept;

}  // namespace platform
}  // namespace norvane

#endif
