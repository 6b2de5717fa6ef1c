// SPDX-License-Identifier: Apache-2.0
// UDP of Fast DDS, with an outbox for what is sent and an inbox for what is received. On the wire several messages may share a
// datagram, and a message to another machine may be split over several. Thread rule: that of Fast DDS.
#ifndef NORVANE_ENGINES_FASTDDS_TRANSPORT_UDPTRANSPORT_HPP
#define NORVANE_ENGINES_FASTDDS_TRANSPORT_UDPTRANSPORT_HPP

#include <memory>
#include <string>
#include <vector>

#include <fastdds/rtps/transport/TransportDescriptorInterface.h>

#include "engines/fastdds/quirks_2_9/Inbox.hpp"
#include "engines/fastdds/quirks_2_9/MovedPeers.hpp"
#include "engines/fastdds/quirks_2_9/NumberJumps.hpp"
#include "engines/fastdds/transport/FaultInjector.hpp"
#include "engines/fastdds/transport/Interfaces.hpp"
#include "engines/fastdds/transport/Outbox.hpp"
#include "engines/fastdds/transport/Paths.hpp"
#include "engines/fastdds/transport/Refusals.hpp"

namespace norvane {
namespace fastdds {

/// What a participant keeps of its transport. It has an inbox, number jumps, interfaces, moved peers, paths and refusals, or none of them.
struct TransportEnds {
    std::shared_ptr<Outbox> outbox;  ///< Closed before the participant is removed; null: batching is off.
    std::shared_ptr<Inbox> inbox;
    std::shared_ptr<NumberJumps> jumps;
    std::shared_ptr<Interfaces> interfaces;
    std::vector<std::string> addresses;  ///< Of this machine, which alone are used; empty: all.
    std::shared_ptr<MovedPeers> moved_peers;
    std::shared_ptr<Paths> paths;  ///< Refers to the interfaces.
    std::shared_ptr<Refusals> refusals;
    std::shared_ptr<FaultInjector> faults;            ///< Null: what arrives is delivered as it came.
    std::uint32_t largest_sample = 64 * 1024 * 1024;  ///< Octets of a sample at most.
    std::uint32_t far_datagram = 0;                   ///< Octets of a datagram to another machine at most; 0: as long as a message.
};

/// @param udp  does the sending and receiving.
/// @throws std::bad_alloc
std::shared_ptr<eprosima::fastdds::rtps::TransportDescriptorInterface> make_udp_transport(
    std::shared_ptr<eprosima::fastdds::rtps::TransportDescriptorInterface> udp, const TransportEnds& ends);

}  // namespace fastdds
}  // namespace norvane

#endif
