// SPDX-License-Identifier: Apache-2.0
// RTPS messages from one participant to one place, joined to a single one: the first whole, of the others what follows their header.
// Any RTPS peer reads it as one message with more submessages. Fast DDS can be built to end each message with a submessage of its own, of statistics,
// and to take for granted that it is the last one: only that of the last message stays. Thread rule: none of its own; its user's lock guards it.
#ifndef NORVANE_ENGINES_FASTDDS_TRANSPORT_DATAGRAM_HPP
#define NORVANE_ENGINES_FASTDDS_TRANSPORT_DATAGRAM_HPP

#include <cstddef>
#include <cstdint>
#include <vector>

namespace norvane {
namespace fastdds {

class Datagram {
public:
    /// @param limit  octets at most.
    explicit Datagram(std::size_t limit) noexcept : _limit(limit) {}

    /// Adds a message. @return false, and nothing has changed, when it does not fit, or would not mean the same behind what is there: encrypted as a
    /// whole, of another participant, of unknown length, or in need of a state that what comes before it changes.
    /// @throws std::bad_alloc  the first time only.
    bool append(const std::uint8_t* message, std::size_t length);
    /// @return whether another message of that many octets would fit.
    bool has_room_for(std::size_t length) const noexcept;

    bool is_empty() const noexcept { return _octets.empty(); }
    std::size_t message_count() const noexcept { return _message_count; }
    const std::vector<std::uint8_t>& octets() const noexcept { return _octets; }
    void clear() noexcept {
        _octets.clear();
        _message_count = 0;
    }

private:
    const std::size_t _limit;
    std::vector<std::uint8_t> _octets;
    std::size_t _message_count = 0;
    std::size_t _end = 0;             // of what stays when another one comes
    bool _names_destination = false;  // the state that a receiver has reached at its end
    bool _has_time = false;
};

}  // namespace fastdds
}  // namespace norvane

#endif
