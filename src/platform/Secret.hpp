// SPDX-License-Identifier: Apache-2.0
// A random number that is unknown outside the process. Mixed into hashes, it prevents a peer from choosing keys that collide.
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
