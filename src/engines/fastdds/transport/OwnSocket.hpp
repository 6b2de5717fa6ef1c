// SPDX-License-Identifier: Apache-2.0
// A socket beside those of Fast DDS, which have the interfaces and the destinations that were known when they were opened.
// Thread rule: any thread.
#ifndef NORVANE_ENGINES_FASTDDS_TRANSPORT_OWNSOCKET_HPP
#define NORVANE_ENGINES_FASTDDS_TRANSPORT_OWNSOCKET_HPP

#include <cstdint>
#include <mutex>
#include <vector>

#include <fastdds/rtps/common/Locator.h>
#include <fastdds/rtps/network/SenderResource.h>

#include "engines/fastdds/identity.hpp"

namespace norvane {
namespace fastdds {

/// As a sender resource it sends to any unicast place, does not block, and drops what the system does not take.
class OwnSocket final : public rtps::SenderResource {
public:
    OwnSocket();
    ~OwnSocket() override;
    OwnSocket(const OwnSocket&) = delete;
    OwnSocket& operator=(const OwnSocket&) = delete;

    /// Sends to a multicast group through several interfaces. Does not block.
    /// @param addresses  of the interfaces, IPv4 in network order. @return whether any of them has sent it.
    bool send_to_group(const std::uint8_t* message, std::uint32_t length, const rtps::Locator_t& group,
                       const std::vector<std::uint32_t>& addresses) noexcept;

private:
    bool send_to(const std::uint8_t* message, std::uint32_t length, const rtps::Locator_t& place) const noexcept;

    std::mutex _mutex;  // the socket multicasts through one interface at a time
    const int _socket;
};

}  // namespace fastdds
}  // namespace norvane

#endif
