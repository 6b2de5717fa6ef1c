// SPDX-License-Identifier: Apache-2.0
// What is wrong with a datagram from the network. Nothing that has a fault is looked at further, by Fast DDS or by this engine.
//
// A datagram without a fault consists of whole submessages, whose contents lie within them, and whose numbers and ranges are ones
// that a program counts to. It may still lie: about who sent it, and about numbers that could be right.
#ifndef NORVANE_ENGINES_FASTDDS_TRANSPORT_WIREFAULT_HPP
#define NORVANE_ENGINES_FASTDDS_TRANSPORT_WIREFAULT_HPP

#include <cstddef>
#include <cstdint>

namespace norvane {
namespace fastdds {

enum class WireFault : std::uint8_t {
    NONE,
    NO_MESSAGE,  ///< Not an RTPS message of version 2.
    LENGTH,      ///< A submessage leaves the message, is too short for its kind, or does not end where the next one begins.
    PARAMETERS,  ///< The list of parameters before a payload leaves its submessage.
    NUMBER,      ///< A sequence number or a range of them that no writer gets to.
    FRAGMENT,    ///< A fragment that is not one of its sample.
    SIZE,        ///< A fragment of a sample that is too long.
    VENDOR,      ///< A submessage of Fast DDS's own of the wrong size or in the wrong place.
};
constexpr std::size_t WIRE_FAULTS = 8;

/// Octets of a sample that any participant may allow.
constexpr std::uint32_t LARGEST_SAMPLE = 1U << 30;

/// Looks at a datagram, once over its submessages. No allocation. Any thread.
/// @param octets          may be null if there are none.
/// @param largest_sample  octets of a sample in fragments at most. Fast DDS reserves memory for all of it with the first fragment.
WireFault find_wire_fault(const std::uint8_t* octets, std::size_t length, std::uint32_t largest_sample = LARGEST_SAMPLE) noexcept;

/// @return the fault in words, which never end.
const char* text_of(WireFault fault) noexcept;

}  // namespace fastdds
}  // namespace norvane

#endif
