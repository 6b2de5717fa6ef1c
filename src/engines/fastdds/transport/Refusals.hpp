// SPDX-License-Identifier: Apache-2.0
// The datagrams that a participant has refused: how many for each fault, and a log line for the first of each peer address.
//
// Thread rule: any thread at once.
#ifndef NORVANE_ENGINES_FASTDDS_TRANSPORT_REFUSALS_HPP
#define NORVANE_ENGINES_FASTDDS_TRANSPORT_REFUSALS_HPP

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include <fastdds/rtps/common/Locator.h>

#include "engines/fastdds/identity.hpp"
#include "engines/fastdds/transport/WireFault.hpp"

namespace norvane {
namespace fastdds {

class Refusals {
public:
    /// Peer addresses that are named in the log at most: any number can be forged.
    static constexpr std::size_t MOST_ADDRESSES = 32;

    Refusals() = default;
    Refusals(const Refusals&) = delete;
    Refusals& operator=(const Refusals&) = delete;
    /// Logs the counts, if there are any.
    ~Refusals();

    void note(WireFault fault, const rtps::Locator_t& peer) noexcept;

private:
    typedef std::array<std::uint8_t, 16> Address;

    bool is_new(const rtps::Locator_t& peer, bool& is_last) noexcept;

    std::array<std::atomic<std::uint64_t>, WIRE_FAULTS> _counts{};
    std::mutex _mutex;  // a leaf
    std::array<Address, MOST_ADDRESSES> _addresses{};
    std::size_t _address_count = 0;
};

}  // namespace fastdds
}  // namespace norvane

#endif
