// SPDX-License-Identifier: Apache-2.0
// UDP of Fast DDS, with an outbox on the way out and an inbox on the way in. It adds nothing to what goes over the wire but that several messages may
// share a datagram. Thread rule: Fast DDS's own.
#ifndef NORVANE_ENGINES_FASTDDS_TRANSPORT_UDPTRANSPORT_HPP
#define NORVANE_ENGINES_FASTDDS_TRANSPORT_UDPTRANSPORT_HPP

#include <memory>

#include <fastdds/rtps/transport/TransportDescriptorInterface.h>

#include "engines/fastdds/quirks_2_9/Inbox.hpp"
#include "engines/fastdds/transport/Outbox.hpp"

namespace norvane {
namespace fastdds {

/// The two ends of a participant's transport that the participant keeps.
struct Boxes {
    std::shared_ptr<Outbox> outbox;  ///< Closed before the participant is removed; null: nothing waits.
    std::shared_ptr<Inbox> inbox;
};

/// @param udp  what really sends and receives.
/// @throws std::bad_alloc
std::shared_ptr<eprosima::fastdds::rtps::TransportDescriptorInterface> make_udp_transport(
    std::shared_ptr<eprosima::fastdds::rtps::TransportDescriptorInterface> udp, const Boxes& boxes);

}  // namespace fastdds
}  // namespace norvane

#endif
