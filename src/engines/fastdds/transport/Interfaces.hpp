// SPDX-License-Identifier: Apache-2.0
// The network interfaces of this machine. Thread rule: any thread.
#ifndef NORVANE_ENGINES_FASTDDS_TRANSPORT_INTERFACES_HPP
#define NORVANE_ENGINES_FASTDDS_TRANSPORT_INTERFACES_HPP

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include <fastdds/rtps/common/Locator.h>

#include "engines/fastdds/identity.hpp"

namespace norvane {
namespace fastdds {

struct Interface {
    std::uint32_t address = 0;  ///< IPv4, in network order.
    std::uint32_t mtu = 0;      ///< Largest IP packet in octets; 0: not known.
    bool is_loopback = false;
    bool is_running = false;  ///< It has a carrier.

    bool operator==(const Interface& other) const noexcept {
        return address == other.address && mtu == other.mtu && is_loopback == other.is_loopback && is_running == other.is_running;
    }
};

/// The interfaces that are up and have an IPv4 address, as they were when they were last read.
class Interfaces {
public:
    /// Reads them from the system; empty if it gives none.
    /// @throws std::bad_alloc
    Interfaces();
    Interfaces(const Interfaces&) = delete;
    Interfaces& operator=(const Interfaces&) = delete;

    /// Reads them again. @return whether any has changed.
    /// @throws std::bad_alloc
    bool refresh();
    /// @return whether `refresh` has found a change since they were first read. One relaxed load.
    bool have_changed() const noexcept { return _have_changed.load(std::memory_order_relaxed); }
    /// @return the addresses of those that have a carrier, without the loopback.
    /// @throws std::bad_alloc
    std::vector<std::uint32_t> addresses() const;

    /// @param address  an IPv4 address in dotted notation; any other text is an address that the machine does not have.
    /// @return whether an interface of this machine has it.
    bool have(const std::string& address) const noexcept;
    /// @return whether what is sent to a locator stays on this machine; false for locators other than UDPv4 and shared memory.
    bool reach_within(const rtps::Locator_t& place) const noexcept;
    /// @param addresses  of the interfaces in use; empty: all.
    /// @return the largest UDP payload, in octets, that each of them except the loopback carries in one packet: 1024 to 65500. That
    ///         of Ethernet when the machine has no other interface than the loopback; 0 when `addresses` names the loopback alone.
    std::uint32_t datagram_that_fits(const std::vector<std::string>& addresses) const noexcept;

private:
    std::atomic<bool> _have_changed{false};
    mutable std::mutex _mutex;
    std::vector<Interface> _all;
};

}  // namespace fastdds
}  // namespace norvane

#endif
