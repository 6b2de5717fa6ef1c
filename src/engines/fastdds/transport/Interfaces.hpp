// SPDX-License-Identifier: Apache-2.0
// The network interfaces of this machine. Thread rule: any thread.
#ifndef NORVANE_ENGINES_FASTDDS_TRANSPORT_INTERFACES_HPP
#define NORVANE_ENGINES_FASTDDS_TRANSPORT_INTERFACES_HPP

#include <cstdint>
#include <string>
#include <vector>

#include <fastdds/rtps/common/Locator.h>

#include "engines/fastdds/identity.hpp"

namespace norvane {
namespace fastdds {

struct Interface {
    std::uint32_t address = 0;  ///< IPv4, in network order.
    std::uint32_t mtu = 0;      ///< Octets of an IP packet at most; 0: not known.
    bool is_loopback = false;
};

/// The interfaces that are up and have an IPv4 address, as they were when it was made.
class Interfaces {
public:
    /// @throws std::bad_alloc
    Interfaces();

    /// @return whether this machine has an IPv4 address, written with dots.
    bool have(const std::string& address) const noexcept;
    /// @return whether what is sent to a place stays on this machine.
    bool reach_within(const rtps::Locator_t& place) const noexcept;
    /// @param addresses  of the interfaces in question; empty: all.
    /// @return the octets that a UDP datagram may have so that each of them but the loopback carries it in one packet; that of
    ///         Ethernet when there is no other than the loopback, and 0 when that alone is in question.
    std::uint32_t datagram_that_fits(const std::vector<std::string>& addresses) const noexcept;

private:
    std::vector<Interface> _all;
};

}  // namespace fastdds
}  // namespace norvane

#endif
