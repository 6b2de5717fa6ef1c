// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/transport/UdpTransport.hpp"

#include <cstring>
#include <optional>
#include <utility>
#include <vector>

#include <fastdds/rtps/transport/ChainingTransport.h>
#include <fastdds/rtps/transport/ChainingTransportDescriptor.h>
#include <fastdds/rtps/transport/TransportReceiverInterface.h>
#include <fastrtps/utils/IPLocator.h>

#include "engines/fastdds/quirks_2_9/ShortFragment.hpp"
#include "engines/fastdds/quirks_2_9/Submessage.hpp"
#include "engines/fastdds/transport/OwnSocket.hpp"
#include "engines/fastdds/transport/split.hpp"

namespace norvane {
namespace fastdds {

namespace {

namespace transport = eprosima::fastdds::rtps;

// Of the sender's GUID prefix in the header of an RTPS message.
constexpr std::size_t PREFIX_OF_MESSAGE = 8;

class UdpTransport final : public transport::ChainingTransport {
public:
    UdpTransport(const transport::ChainingTransportDescriptor& udp, TransportEnds ends)
        : ChainingTransport(udp), _ends(std::move(ends)) {}

    // Copied after the start of the transport below: only then the sizes of its buffers are known.
    transport::TransportDescriptorInterface* get_configuration() override { return low_level_transport_->get_configuration(); }

    bool send(rtps::SenderResource* sender, const rtps::octet* message, std::uint32_t length, transport::LocatorsIterator* places,
              transport::LocatorsIterator* end, const std::chrono::steady_clock::time_point& deadline) override {
        bool sent = true;
        for (; *places != *end; ++*places) {
            const rtps::Locator_t& place = **places;
            if (!IsLocatorSupported(place)) {
                continue;
            }
            if (rtps::IPLocator::isMulticast(place) && _ends.addresses.empty() && _ends.interfaces->have_changed() &&
                send_to_group(message, length, place)) {
                continue;
            }
            sent = send_to(*sender, message, length, place, deadline) && sent;
            if (const std::optional<rtps::Locator_t> other = _ends.moved_peers->other(place)) {
                sent = send_to(_own_socket, message, length, *other, deadline) || sent;
            }
        }
        return sent;
    }

    void receive(transport::TransportReceiverInterface* next, const rtps::octet* message, std::uint32_t length,
                 const rtps::Locator_t& local, const rtps::Locator_t& remote) override {
        if (_ends.faults) {
            _ends.faults->receive(message, length, local.port,
                                  [this, next, local, remote](const std::uint8_t* octets, std::uint32_t size) {
                                      deliver(*next, octets, size, local, remote);
                                  });
            return;
        }
        deliver(*next, message, length, local, remote);
    }

    // The receivers of what is delayed go with the channels.
    bool CloseInputChannel(const rtps::Locator_t& locator) override {
        if (_ends.faults) {
            _ends.faults->close();
        }
        return ChainingTransport::CloseInputChannel(locator);
    }

private:
    void deliver(transport::TransportReceiverInterface& next, const rtps::octet* message, std::uint32_t length,
                 const rtps::Locator_t& local, const rtps::Locator_t& remote) const {
        const WireFault fault = find_wire_fault(message, length, _ends.largest_sample);
        if (fault != WireFault::NONE) {
            _ends.refusals->note(fault, remote);
            return;
        }
        thread_local std::vector<std::uint8_t> copy;
        thread_local std::vector<std::uint8_t> second_copy;
        const auto take_out = [&](std::uint8_t kind, std::vector<std::uint8_t>& to) {
            copy_without(kind, message, length, to);
            message = to.data();
            length = static_cast<std::uint32_t>(to.size());
        };
        if (!_ends.paths->receive(message, length)) {
            take_out(Submessage::NACK_FRAG, copy);
        }
        if (!_ends.jumps->take_in(message, length)) {
            take_out(Submessage::GAP, second_copy);
        }
        thread_local std::vector<std::uint8_t> roomy_copy;
        if (has_short_fragment(message, length)) {
            copy_with_room_behind(message, length, roomy_copy);
            message = roomy_copy.data();
        }
        if (_ends.inbox->take_in(message, length, local.port, [&] { next.OnDataReceived(message, length, local, remote); })) {
            rtps::GuidPrefix_t sender;
            std::memcpy(sender.value, message + PREFIX_OF_MESSAGE, sizeof sender.value);
            _ends.moved_peers->note_source(sender, remote);
        }
    }

    bool send_to(rtps::SenderResource& sender, const rtps::octet* message, std::uint32_t length, const rtps::Locator_t& place,
                 const std::chrono::steady_clock::time_point& deadline) {
        if (_ends.far_datagram != 0 && length > _ends.far_datagram && !_ends.interfaces->reach_within(place)) {
            thread_local std::vector<std::uint8_t> part;
            bool sent = true;
            if (split(message, length, _ends.far_datagram, part, [&](const std::uint8_t* octets, std::size_t size) {
                    sent = send_datagram(sender, octets, static_cast<std::uint32_t>(size), place, deadline) && sent;
                })) {
                return sent;
            }
        }
        return send_datagram(sender, message, length, place, deadline);
    }

    bool send_to_group(const std::uint8_t* message, std::uint32_t length, const rtps::Locator_t& group) {
        const std::vector<std::uint32_t> addresses = _ends.interfaces->addresses();
        return _own_socket.send_to_group(message, length, group, addresses);
    }

    bool send_datagram(rtps::SenderResource& sender, const rtps::octet* message, std::uint32_t length, const rtps::Locator_t& place,
                       const std::chrono::steady_clock::time_point& deadline) {
        thread_local std::vector<std::uint8_t> copy;
        switch (_ends.paths->send(message, length, place)) {
            case Paths::Verdict::HOLD:
                return true;  // as lost on the wire
            case Paths::Verdict::PASS_WITHOUT_HEARTBEAT:
                copy_without(Submessage::HEARTBEAT, message, length, copy);
                message = copy.data();
                length = static_cast<std::uint32_t>(copy.size());
                break;
            case Paths::Verdict::PASS:
                break;
        }
        return _ends.outbox ? _ends.outbox->send(sender, message, length, place, deadline)
                            : Outbox::send_now(sender, message, length, place, deadline);
    }

    const TransportEnds _ends;
    OwnSocket _own_socket;  // used once addresses have changed, here or there
};

class UdpTransportDescriptor final : public transport::ChainingTransportDescriptor {
public:
    UdpTransportDescriptor(std::shared_ptr<TransportDescriptorInterface> udp, TransportEnds ends)
        : ChainingTransportDescriptor(std::move(udp)), _ends(std::move(ends)) {}

    transport::TransportInterface* create_transport() const override { return new UdpTransport(*this, _ends); }

private:
    const TransportEnds _ends;
};

}  // namespace

std::shared_ptr<transport::TransportDescriptorInterface> make_udp_transport(
    std::shared_ptr<transport::TransportDescriptorInterface> udp, const TransportEnds& ends) {
    return std::make_shared<UdpTransportDescriptor>(std::move(udp), ends);
}

}  // namespace fastdds
}  // namespace norvane
