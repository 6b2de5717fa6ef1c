// SPDX-License-Identifier: Apache-2.0
#include "platform/Secret.hpp"

#include <sys/random.h>

#include "platform/Clock.hpp"

namespace norvane {
namespace platform {

namespace {

std::uint64_t choose_secret() noexcept {
    std::uint64_t secret = 0;
    if (getrandom(&secret, sizeof secret, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof secret)) {
        // Early after boot there may be no randomness yet: the clock is better than a constant.
        secret = static_cast<std::uint64_t>(monotonic_ns());
    }
    return secret;
}

}  // namespace

std::uint64_t process_secret() noexcept {
    static const std::uint64_t SECRET = choose_secret();
    return SECRET;
}

}  // namespace platform
}  // namespace norvane
