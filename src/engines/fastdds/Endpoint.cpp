// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/Endpoint.hpp"

#include <exception>

namespace norvane {
namespace fastdds {

void Endpoint::note(const mw::PeerEvent& event) noexcept {
    if (_peer_sink != nullptr && _peer_sink->peer_changed(event)) {
        announce_soon();
    }
}

void Endpoint::note_misfit(const rtps::GUID_t& peer, const mw::PeerEvent& event) noexcept {
    try {
        if (!_misfits.insert(to_guid(peer)).second) {
            return;
        }
    } catch (const std::exception&) {
        // Memory is short: reported twice is better than not at all.
    }
    note(event);
}

void Endpoint::announce() noexcept {
    // Before the listeners run: an event that comes meanwhile queues the endpoint again.
    _queued.store(false);
    if (_announcements.enter()) {
        _peer_sink->announce();
    }
    _announcements.leave();
}

}  // namespace fastdds
}  // namespace norvane
