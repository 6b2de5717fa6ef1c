// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/BatchingTransport.hpp"

#include <utility>

#include <fastdds/rtps/transport/ChainingTransport.h>
#include <fastdds/rtps/transport/ChainingTransportDescriptor.h>
#include <fastdds/rtps/transport/TransportReceiverInterface.h>

namespace norvane {
namespace fastdds {

namespace {

namespace transport = eprosima::fastdds::rtps;

class BatchingTransport final : public transport::ChainingTransport {
public:
    BatchingTransport(const transport::ChainingTransportDescriptor& below, std::shared_ptr<Outbox> outbox)
        : ChainingTransport(below), _outbox(std::move(outbox)) {}

    // As the one below has it after its start: only then are the sizes of its buffers known.
    transport::TransportDescriptorInterface* get_configuration() override { return low_level_transport_->get_configuration(); }

    bool send(rtps::SenderResource* sender, const rtps::octet* message, std::uint32_t length, transport::LocatorsIterator* places,
              transport::LocatorsIterator* end, const std::chrono::steady_clock::time_point& deadline) override {
        bool sent = true;
        for (; *places != *end; ++*places) {
            if (IsLocatorSupported(**places)) {
                sent = _outbox->send(*sender, message, length, **places, deadline) && sent;
            }
        }
        return sent;
    }

    void receive(transport::TransportReceiverInterface* next, const rtps::octet* message, std::uint32_t length,
                 const rtps::Locator_t& local, const rtps::Locator_t& remote) override {
        next->OnDataReceived(message, length, local, remote);
    }

private:
    const std::shared_ptr<Outbox> _outbox;
};

class BatchingTransportDescriptor final : public transport::ChainingTransportDescriptor {
public:
    BatchingTransportDescriptor(std::shared_ptr<TransportDescriptorInterface> below, std::shared_ptr<Outbox> outbox)
        : ChainingTransportDescriptor(std::move(below)), _outbox(std::move(outbox)) {}

    transport::TransportInterface* create_transport() const override { return new BatchingTransport(*this, _outbox); }

private:
    const std::shared_ptr<Outbox> _outbox;
};

}  // namespace

std::shared_ptr<transport::TransportDescriptorInterface> make_batching_transport(
    std::shared_ptr<transport::TransportDescriptorInterface> below, std::shared_ptr<Outbox> outbox) {
    return std::make_shared<BatchingTransportDescriptor>(std::move(below), std::move(outbox));
}

}  // namespace fastdds
}  // namespace norvane
