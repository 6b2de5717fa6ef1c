// SPDX-License-Identifier: Apache-2.0
// Injects the faults of a plan into the datagrams that arrive at a participant, as if the wire had them.
//
// 1. Whether a fault hits is a function of the seed, the fault, and what it may hit: the n-th datagram of a sender to this
//    participant's discovery or data, or the n-th submessage of a kind from a writer to a reader. Timing of threads and other
//    peers have no part in it, nor has the sender's GUID prefix, which is another in each run.
// 2. The faults of a datagram in their order: all of it is lost; submessages are lost; a bit is flipped; it waits for its turn;
//    it is delayed; it comes twice.
//
// Thread rule: any thread at once. Deliveries are made with no lock held.
#ifndef NORVANE_ENGINES_FASTDDS_TRANSPORT_FAULTINJECTOR_HPP
#define NORVANE_ENGINES_FASTDDS_TRANSPORT_FAULTINJECTOR_HPP

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "engines/fastdds/quirks_2_9/Submessage.hpp"
#include "engines/fastdds/transport/DelayLine.hpp"
#include "engines/fastdds/transport/FaultPlan.hpp"

namespace norvane {
namespace fastdds {

class FaultInjector {
public:
    typedef DelayLine::Delivery Delivery;

    /// Logs a warning: faults are not meant for production.
    explicit FaultInjector(const FaultPlan& plan);
    /// Logs what was injected.
    ~FaultInjector();
    FaultInjector(const FaultInjector&) = delete;
    FaultInjector& operator=(const FaultInjector&) = delete;

    /// A datagram has come. It, or what is left of it, is delivered now, later, twice, or not at all. Memory that is short: it is
    /// lost.
    /// @param port  on which it came: of discovery if even.
    void receive(const std::uint8_t* message, std::uint32_t length, std::uint32_t port, const Delivery& deliver) noexcept;

    /// What is delayed is lost, now and later. When it returns, no delayed datagram is delivered or will be.
    void close() noexcept { _delay_line.close(); }

private:
    /// Counts by key. Bounded: when there are too many, those that were not used lately are forgotten.
    class Counts {
    public:
        /// @return the count before.
        std::uint64_t increment(std::uint64_t key);

    private:
        static constexpr std::size_t MOST = 65'536;

        std::unordered_map<std::uint64_t, std::uint64_t> _recent;
        std::unordered_map<std::uint64_t, std::uint64_t> _earlier;
    };

    struct Totals {
        std::uint64_t datagrams = 0;
        std::uint64_t octets = 0;
        std::uint64_t lost = 0;
        std::uint64_t lost_submessages = 0;
        std::uint64_t delayed = 0;
        std::uint64_t duplicated = 0;
        std::uint64_t tampered = 0;
    };

    struct Fate {
        bool is_lost = false;
        bool is_duplicated = false;
        std::int64_t due_ns = 0;  // 0: at once
    };

    Fate decide(const std::uint8_t* message, std::uint32_t length, std::uint32_t port, std::vector<std::uint8_t>& copy);
    bool lose_submessages_locked(const std::uint8_t* message, std::uint32_t length, std::vector<std::uint8_t>& copy);
    bool is_lost_locked(const Submessage& each, const std::uint8_t* message);
    bool wait_for_turn_locked(std::uint32_t length, std::int64_t& due_ns) noexcept;
    static FaultPlan::Kind kind_of(const Submessage& each) noexcept;

    const FaultPlan _plan;
    const bool _loses_submessages;
    std::mutex _mutex;  // a leaf
    Counts _senders;
    Counts _pairs;
    Counts _samples;  // and fragments, of a plan with gaps
    std::int64_t _free_at_ns = 0;
    Totals _totals;
    DelayLine _delay_line;
};

}  // namespace fastdds
}  // namespace norvane

#endif
