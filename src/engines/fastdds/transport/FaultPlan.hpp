// SPDX-License-Identifier: Apache-2.0
// The faults that a participant is to inject into what it receives: the value of the property norvane.fastdds.faults, whose
// syntax is in docs/engines.md. Thread rule: plain values.
#ifndef NORVANE_ENGINES_FASTDDS_TRANSPORT_FAULTPLAN_HPP
#define NORVANE_ENGINES_FASTDDS_TRANSPORT_FAULTPLAN_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace norvane {
namespace fastdds {

struct FaultPlan {
    /// Kinds of submessages. Those from DATA to GAP are of the application's endpoints, the next three announce participants,
    /// writers and readers. ALL: datagrams as a whole, whatever is in them.
    enum Kind : std::uint8_t {
        DATA,
        DATA_FRAG,
        HEARTBEAT,
        HEARTBEAT_FRAG,
        ACKNACK,
        NACK_FRAG,
        GAP,
        PARTICIPANT,
        WRITER,
        READER,
        ALL,
        OTHER  ///< Cannot be named: it is lost with its datagram only.
    };
    static constexpr std::size_t KINDS = OTHER;
    /// As the property has it.
    static const char* name_of(std::size_t kind) noexcept;

    std::uint64_t seed = 0;
    std::array<double, KINDS> drop{};  ///< Share that is lost, 0 to 1; so are the other shares.
    std::array<bool, KINDS> first{};   ///< Whether the first one from a writer to a reader (ALL: from a sender) is lost.
    bool gap = false;                  ///< Whether each sample and each fragment is lost once.
    double delayed = 0;
    std::int64_t delay_ns = 0;
    double duplicated = 0;
    double reordered = 0;
    double tampered = 0;
    double bits_per_ns = 0;        ///< 0: no limit.
    std::int64_t queue = 100'000;  ///< Octets that may wait for their turn where the rate is limited.

    /// @param refusal  gets the reason with the remedy, if the result is false. @throws std::bad_alloc
    bool parse(const std::string& text, std::string& refusal);
};

}  // namespace fastdds
}  // namespace norvane

#endif
