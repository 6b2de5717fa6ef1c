// SPDX-License-Identifier: Apache-2.0
// The middleware's end of a writer on the bus. A thread inside `write` while the port is destroyed uses the writer, not the port.
#ifndef NORVANE_ENGINES_EMBEDDED_EMBEDDEDWRITERPORT_HPP
#define NORVANE_ENGINES_EMBEDDED_EMBEDDEDWRITERPORT_HPP

#include <memory>

#include "engines/embedded/Bus.hpp"

namespace norvane {
namespace embedded {

class EmbeddedWriterPort : public mw::WriterPort {
public:
    EmbeddedWriterPort(std::shared_ptr<Bus> bus, std::shared_ptr<Writer> writer) noexcept;
    ~EmbeddedWriterPort() override;

    const mw::EndpointInfo& info() const noexcept override;
    DDS_ReturnCode_t enable(mw::PeerSink& sink) noexcept override;
    DDS_ReturnCode_t write(const mw::WriteRequest& request, DDS_SampleIdentity_t& identity, bool& addressed) noexcept override;
    mw::WriteCounts counts() noexcept override;
    DDS_ReturnCode_t wait_for_acknowledgments(const DDS_Duration_t& max_wait) noexcept override;
    void close() noexcept override;

private:
    const std::shared_ptr<Bus> _bus;
    const std::shared_ptr<Writer> _writer;
};

}  // namespace embedded
}  // namespace norvane

#endif
