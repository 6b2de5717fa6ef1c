// SPDX-License-Identifier: Apache-2.0
// A UDP socket that sends, beside those of Fast DDS, which set a time-out for each datagram: one system call instead of two, and a tenth off a small call.
// What it cannot send is for a socket of theirs. Thread rule: any thread at once.
#ifndef NORVANE_ENGINES_FASTDDS_TRANSPORT_SENDSOCKET_HPP
#define NORVANE_ENGINES_FASTDDS_TRANSPORT_SENDSOCKET_HPP

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include <fastdds/rtps/common/Locator.h>

#include "engines/fastdds/identity.hpp"

namespace norvane {
namespace fastdds {

class SendSocket {
public:
    /// Without a descriptor to be had, or the address, it sends nothing.
    /// @param from  IPv4 address of the interface; empty: whichever leads to the place.
    explicit SendSocket(const std::string& from) noexcept;
    ~SendSocket();
    SendSocket(const SendSocket&) = delete;
    SendSocket& operator=(const SendSocket&) = delete;

    /// Blocks while there is no room in the socket's buffer, for a tenth of a second at most.
    /// @param deadline  not longer than this.
    /// @return whether the datagram is on its way. Never to places of another kind than UDPv4, nor to many at once.
    bool send(const std::uint8_t* octets, std::size_t length, const rtps::Locator_t& to,
              const std::chrono::steady_clock::time_point& deadline) noexcept;

private:
    bool wait_for_room(const std::chrono::steady_clock::time_point& deadline) const noexcept;

    int _descriptor;
};

}  // namespace fastdds
}  // namespace norvane

#endif
