// SPDX-License-Identifier: Apache-2.0
// A number that nobody outside the process knows: mixed into hashes, it keeps a peer from choosing what collides.
#ifndef NORVANE_PLATFORM_SECRET_HPP
#define NORVANE_PLATFORM_SECRET_HPP

#include <cstdint>

namespace norvane {
namespace platform {

/// @return the same number each time, chosen anew for each process.
std::uint64_t process_secret() noexcept;

}  // namespace platform
}  // namespace norvane

#endif
