// SPDX-License-Identifier: Apache-2.0
#include "engines/embedded/EmbeddedReaderPort.hpp"

#include <utility>

namespace norvane {
namespace embedded {

EmbeddedReaderPort::EmbeddedReaderPort(std::shared_ptr<Bus> bus, std::shared_ptr<Reader> reader) noexcept
    : _bus(std::move(bus)), _reader(std::move(reader)) {}

// A reader that was never enabled still holds its reserved GUID.
EmbeddedReaderPort::~EmbeddedReaderPort() { _bus->remove(_reader); }

const mw::EndpointInfo& EmbeddedReaderPort::info() const noexcept { return *_reader->info(); }

DDS_ReturnCode_t EmbeddedReaderPort::enable(mw::SampleSink& sink) noexcept {
    _reader->open(sink);
    return _bus->add(_reader);
}

void EmbeddedReaderPort::room_freed() noexcept {
    // Older samples first: a writer with a backlog for the reader refuses newer samples until the backlog is sent.
    if (_reader->debtors().load() != 0) {
        _bus->send_backlogs(_reader);
    } else {
        _reader->signal_room();
    }
}

void EmbeddedReaderPort::close() noexcept { _bus->remove(_reader); }

}  // namespace embedded
}  // namespace norvane
