// SPDX-License-Identifier: Apache-2.0
#include "engines/embedded/Reader.hpp"

#include <utility>

namespace norvane {
namespace embedded {

Reader::Reader(std::shared_ptr<const mw::EndpointInfo> info, const mw::ReaderSettings& settings) noexcept
    : Endpoint(std::move(info)), _routed(settings.routed), _route(settings.route) {}

void Reader::open(mw::SampleSink& sink) noexcept {
    _sink = &sink;
    attach(sink);
}

void Reader::signal_room() noexcept {
    _room.fetch_add(1);
    platform::wake_all(_room);
}

}  // namespace embedded
}  // namespace norvane
