// SPDX-License-Identifier: Apache-2.0
// RTPS messages from one participant to one place, joined to a single message: the first as a whole, of the others what follows the
// header. Every RTPS peer reads it as one message with more submessages. A build of Fast DDS with statistics ends each message with
// a submessage of its own, and expects it to be the last one: only that of the last message is kept. Thread rule: guarded by the
// lock of its user.
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

    /// Adds a message. @return false, with nothing changed, if it does not fit, or would not mean the same there: encrypted as a
    /// whole, of another participant, of unknown length, or dependent on a state that the messages before it change.
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
    std::size_t _end = 0;             // of what is kept when another message follows
    bool _names_destination = false;  // the state of a receiver at its end
    bool _has_time = false;
};

}  // namespace fastdds
}  // namespace norvane

#endif
