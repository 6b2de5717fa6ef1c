// SPDX-License-Identifier: Apache-2.0
#include "engines/embedded/EmbeddedWriterPort.hpp"

#include <utility>

namespace norvane {
namespace embedded {

EmbeddedWriterPort::EmbeddedWriterPort(std::shared_ptr<Bus> bus, std::shared_ptr<Writer> writer) noexcept
    : _bus(std::move(bus)), _writer(std::move(writer)) {}

// A writer that was never enabled still holds its reserved GUID.
EmbeddedWriterPort::~EmbeddedWriterPort() { _bus->remove(_writer); }

const mw::EndpointInfo& EmbeddedWriterPort::info() const noexcept { return *_writer->info(); }

DDS_ReturnCode_t EmbeddedWriterPort::enable(mw::PeerSink& sink) noexcept {
    _writer->open(sink, _bus);
    return _bus->add(_writer);
}

DDS_ReturnCode_t EmbeddedWriterPort::write(const mw::WriteRequest& request, DDS_SampleIdentity_t& identity,
                                           bool& addressed) noexcept {
    return _writer->write(request, identity, addressed);
}

mw::WriteCounts EmbeddedWriterPort::counts() noexcept { return _writer->counts(); }

DDS_ReturnCode_t EmbeddedWriterPort::wait_for_acknowledgments(const DDS_Duration_t& max_wait) noexcept {
    return _writer->wait_for_acknowledgments(max_wait);
}

void EmbeddedWriterPort::close() noexcept { _bus->remove(_writer); }

}  // namespace embedded
}  // namespace norvane
