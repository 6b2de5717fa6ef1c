// SPDX-License-Identifier: Apache-2.0
// A transport of Fast DDS that sends through an outbox. It adds nothing to what goes over the wire but that several messages may share a datagram.
// Thread rule: Fast DDS's own.
#ifndef NORVANE_ENGINES_FASTDDS_BATCHINGTRANSPORT_HPP
#define NORVANE_ENGINES_FASTDDS_BATCHINGTRANSPORT_HPP

#include <memory>

#include <fastdds/rtps/transport/TransportDescriptorInterface.h>

#include "engines/fastdds/Outbox.hpp"

namespace norvane {
namespace fastdds {

/// @param below   what really sends and receives.
/// @param outbox  closed before the participant is removed.
/// @throws std::bad_alloc
std::shared_ptr<eprosima::fastdds::rtps::TransportDescriptorInterface> make_batching_transport(
    std::shared_ptr<eprosima::fastdds::rtps::TransportDescriptorInterface> below, std::shared_ptr<Outbox> outbox);

}  // namespace fastdds
}  // namespace norvane

#endif
