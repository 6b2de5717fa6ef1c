// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/transport/UdpTransport.hpp"

#include <utility>

#include <fastdds/rtps/transport/ChainingTransport.h>
#include <fastdds/rtps/transport/ChainingTransportDescriptor.h>
#include <fastdds/rtps/transport/TransportReceiverInterface.h>

namespace norvane {
namespace fastdds {

namespace {

namespace transport = eprosima::fastdds::rtps;

class UdpTransport final : public transport::ChainingTransport {
public:
    UdpTransport(const transport::ChainingTransportDescriptor& udp, Boxes boxes)
        : ChainingTransport(udp), _boxes(std::move(boxes)) {}

    // As the one below has it after its start: only then are the sizes of its buffers known.
    transport::TransportDescriptorInterface* get_configuration() override { return low_level_transport_->get_configuration(); }

    bool send(rtps::SenderResource* sender, const rtps::octet* message, std::uint32_t length, transport::LocatorsIterator* places,
              transport::LocatorsIterator* end, const std::chrono::steady_clock::time_point& deadline) override {
        if (!_boxes.outbox) {
            return sender->send(message, length, places, end, deadline);
        }
        bool sent = true;
        for (; *places != *end; ++*places) {
            if (IsLocatorSupported(**places)) {
                sent = _boxes.outbox->send(*sender, message, length, **places, deadline) && sent;
            }
        }
        return sent;
    }

    void receive(transport::TransportReceiverInterface* next, const rtps::octet* message, std::uint32_t length,
                 const rtps::Locator_t& local, const rtps::Locator_t& remote) override {
        _boxes.inbox->take_in(message, length, local.port, [&] { next->OnDataReceived(message, length, local, remote); });
    }

private:
    const Boxes _boxes;
};

class UdpTransportDescriptor final : public transport::ChainingTransportDescriptor {
public:
    UdpTransportDescriptor(std::shared_ptr<TransportDescriptorInterface> udp, Boxes boxes)
        : ChainingTransportDescriptor(std::move(udp)), _boxes(std::move(boxes)) {}

    transport::TransportInterface* create_transport() const override { return new UdpTransport(*this, _boxes); }

private:
    const Boxes _boxes;
};

}  // namespace

std::shared_ptr<transport::TransportDescriptorInterface> make_udp_transport(
    std::shared_ptr<transport::TransportDescriptorInterface> udp, const Boxes& boxes) {
    return std::make_shared<UdpTransportDescriptor>(std::move(udp), boxes);
}

}  // namespace fastdds
}  // namespace norvane
