// SPDX-License-Identifier: Apache-2.0
#include "engines/embedded/Endpoint.hpp"

#include <utility>

namespace norvane {
namespace embedded {

Endpoint::Endpoint(std::shared_ptr<const mw::EndpointInfo> info) noexcept : _info(std::move(info)) {}

void Endpoint::announce() noexcept {
    if (_announcements.enter()) {
        _peer_sink->announce();
    }
    _announcements.leave();
}

void Endpoint::wait_until_quiet() noexcept {
    _announcements.shut();
    _announcements.wait_until_empty();
}

bool Endpoint::leave_locked() noexcept {
    const bool first_time = !_left;
    _left = true;
    return first_time;
}

}  // namespace embedded
}  // namespace norvane
