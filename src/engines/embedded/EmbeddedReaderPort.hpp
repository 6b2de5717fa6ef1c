// SPDX-License-Identifier: Apache-2.0
// The middleware's end of a reader on the bus.
#ifndef NORVANE_ENGINES_EMBEDDED_EMBEDDEDREADERPORT_HPP
#define NORVANE_ENGINES_EMBEDDED_EMBEDDEDREADERPORT_HPP

#include <memory>

#include "engines/embedded/Bus.hpp"

namespace norvane {
namespace embedded {

class EmbeddedReaderPort : public mw::ReaderPort {
public:
    EmbeddedReaderPort(std::shared_ptr<Bus> bus, std::shared_ptr<Reader> reader) noexcept;
    ~EmbeddedReaderPort() override;

    const mw::EndpointInfo& info() const noexcept override;
    DDS_ReturnCode_t enable(mw::SampleSink& sink) noexcept override;
    void room_freed() noexcept override;
    void close() noexcept override;

private:
    const std::shared_ptr<Bus> _bus;
    const std::shared_ptr<Reader> _reader;
};

}  // namespace embedded
}  // namespace norvane

#endif
