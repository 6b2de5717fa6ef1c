// SPDX-License-Identifier: Apache-2.0
#include "engines/embedded/Endpoint.hpp"

#include <utility>

namespace norvane {
namespace embedded {

Endpoint::Endpoint(std::shared_ptr<const mw::EndpointInfo> info) noexcept : _info(std::move(info)) {}

void Endpoint::announce() noexcept {
    if ((_announcements.fetch_add(1) & CLOSING) == 0) {
        _peer_sink->announce();
    }
    if (_announcements.fetch_sub(1) == (CLOSING | 1U)) {
        platform::wake_all(_announcements);
    }
}

void Endpoint::wait_until_quiet() noexcept {
    _announcements.fetch_or(CLOSING);
    for (std::uint32_t seen = _announcements.load(); seen != CLOSING; seen = _announcements.load()) {
        platform::wait_on(_announcements, seen, platform::NO_DEADLINE);
    }
}

bool Endpoint::leave_locked() noexcept {
    const bool first_time = !_left;
    _left = true;
    return first_time;
}

}  // namespace embedded
}  // namespace norvane
