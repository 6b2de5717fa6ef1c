// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/quirks_2_9/MovedPeers.hpp"

#include <algorithm>
#include <utility>

#include <fastrtps/utils/IPLocator.h>

namespace norvane {
namespace fastdds {

namespace rtps = eprosima::fastrtps::rtps;

namespace {

bool has(const MovedPeers::Locators& places, const MovedPeers::Locator& place) noexcept {
    return std::find(places.begin(), places.end(), place) != places.end();
}

}  // namespace

std::optional<MovedPeers::Locator> MovedPeers::other_than(const Locators& used, const Locator& place, const Peer& peer) noexcept {
    if (!peer.source) {
        return std::nullopt;
    }
    Locator other = *peer.source;
    other.port = place.port;  // each port is for one kind of messages
    return has(used, other) || !has(peer.announced, other) ? std::nullopt : std::optional<Locator>(other);
}

void MovedPeers::note_new(const Prefix& peer, Locators places) {
    const std::lock_guard<std::mutex> lock(_mutex);
    Peer& known = _peers[peer];
    known = Peer();
    known.used.push_back(std::move(places));
    look_for_moves_locked();
}

void MovedPeers::note(const Prefix& peer, Locators places) {
    const std::lock_guard<std::mutex> lock(_mutex);
    const auto known = _peers.find(peer);
    if (known != _peers.end()) {
        known->second.announced = std::move(places);
        look_for_moves_locked();
    }
}

void MovedPeers::note_endpoint(const Prefix& peer, const Locators& places) {
    const std::lock_guard<std::mutex> lock(_mutex);
    const auto known = _peers.find(peer);
    if (known == _peers.end()) {
        return;
    }
    std::vector<Locators>& used = known->second.used;
    if (used.size() < MOST_LISTS && std::find(used.begin(), used.end(), places) == used.end()) {
        used.push_back(places);
        look_for_moves_locked();
    }
}

void MovedPeers::note_source(const Prefix& peer, const Locator& source) noexcept {
    const std::lock_guard<std::mutex> lock(_mutex);
    const auto known = _peers.find(peer);
    if (known == _peers.end() || (known->second.source && rtps::IPLocator::compareAddress(*known->second.source, source))) {
        return;
    }
    const Locators& announced = known->second.announced;
    if (std::any_of(announced.begin(), announced.end(),
                    [&](const Locator& place) { return rtps::IPLocator::compareAddress(place, source); })) {
        known->second.source = source;
        look_for_moves_locked();
    }
}

void MovedPeers::forget(const Prefix& peer) noexcept {
    const std::lock_guard<std::mutex> lock(_mutex);
    _peers.erase(peer);
    look_for_moves_locked();
}

void MovedPeers::look_for_moves_locked() noexcept {
    const auto has_moved = [](const auto& peer) {
        return std::any_of(peer.second.used.begin(), peer.second.used.end(), [&](const Locators& used) {
            return std::any_of(used.begin(), used.end(),
                               [&](const Locator& place) { return other_than(used, place, peer.second).has_value(); });
        });
    };
    _has_moved.store(std::any_of(_peers.begin(), _peers.end(), has_moved), std::memory_order_relaxed);
}

std::optional<MovedPeers::Locator> MovedPeers::other(const Locator& place) const noexcept {
    if (!_has_moved.load(std::memory_order_relaxed)) {
        return std::nullopt;
    }
    const std::lock_guard<std::mutex> lock(_mutex);
    for (const auto& peer : _peers) {
        for (const Locators& used : peer.second.used) {
            if (has(used, place)) {
                if (const std::optional<Locator> other = other_than(used, place, peer.second)) {
                    return other;
                }
            }
        }
    }
    return std::nullopt;
}

}  // namespace fastdds
}  // namespace norvane
