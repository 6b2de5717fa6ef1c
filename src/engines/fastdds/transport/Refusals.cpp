// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/transport/Refusals.hpp"

#include <algorithm>
#include <sstream>
#include <string>

#include "middleware/Log.hpp"

namespace norvane {
namespace fastdds {

namespace {

using mw::LogPart;

std::string text_of_address(const rtps::Locator_t& peer) {
    std::ostringstream text;
    text << peer;  // kind:[address]:port
    return text.str();
}

}  // namespace

Refusals::~Refusals() {
    for (std::size_t fault = 0; fault < _counts.size(); ++fault) {
        const std::uint64_t count = _counts[fault].load();
        if (count != 0) {
            mw::log_notice<LogPart::ENGINE>("Refusals::~Refusals", [&] {
                return std::to_string(count) + " datagrams were refused: " + text_of(static_cast<WireFault>(fault));
            });
        }
    }
}

void Refusals::note(WireFault fault, const rtps::Locator_t& peer) noexcept {
    _counts[static_cast<std::size_t>(fault)].fetch_add(1, std::memory_order_relaxed);
    bool is_last = false;
    if (is_new(peer, is_last)) {
        mw::log_warning<LogPart::ENGINE>("Refusals::note", [&] {
            return "a datagram from " + text_of_address(peer) +
                   " is refused, and further ones from that address will be without a " + "line: " + text_of(fault) +
                   (is_last ? ". No more addresses are named" : "");
        });
    }
}

bool Refusals::is_new(const rtps::Locator_t& peer, bool& is_last) noexcept {
    Address address;
    std::copy(std::begin(peer.address), std::end(peer.address), address.begin());
    const std::lock_guard<std::mutex> lock(_mutex);
    const auto end = _addresses.begin() + static_cast<std::ptrdiff_t>(_address_count);
    if (_address_count == MOST_ADDRESSES || std::find(_addresses.begin(), end, address) != end) {
        return false;
    }
    *end = address;
    is_last = ++_address_count == MOST_ADDRESSES;
    return true;
}

}  // namespace fastdds
}  // namespace norvane
