// SPDX-License-Identifier: Apache-2.0
// When a reliable writer sends heartbeats, and when it checks what has been acknowledged. It decides; the writer acts.
//
// Invariants:
// 1. Every time is passed in by the caller. Nothing here reads a clock, sleeps or sends.
// 2. The period is that of the QoS, or longer in proportion to the readers of the writer and to the requesters of its participant.
//    It changes by a factor of two or more, or not at all.
// 3. Heartbeats of the timer are at least a period apart. None is sent while every sample on the way is younger than half a period.
// 4. The timer runs while a sample is on the way. It stops with the first run that finds none.
//
// Thread rule: under the mutex of the writer's RTPS writer.
#ifndef NORVANE_ENGINES_FASTDDS_WRITING_PACE_HPP
#define NORVANE_ENGINES_FASTDDS_WRITING_PACE_HPP

#include <cstdint>

namespace norvane {
namespace fastdds {

class Pace {
public:
    /// What a writer does after a run of its timer.
    struct Due {
        bool heartbeat;
        bool progress_changed;  ///< `has_stalled` has changed.
        std::int64_t next_ns;   ///< When to run the timer again; NO_DEADLINE: not before the next sample.
    };

    /// @param drives_heartbeats  whether the timer sends heartbeats. If not, a timer of Fast DDS does.
    explicit Pace(bool drives_heartbeats) noexcept : _drives_heartbeats(drives_heartbeats) {}
    Pace(const Pace&) = delete;
    Pace& operator=(const Pace&) = delete;

    /// Sets the shortest times, from the QoS. Precedes every other call.
    /// @param nack_ns  samples sent less than that ago are not sent again.
    /// @param bounds_octets  whether a heartbeat is also due after a number of octets.
    void start(std::int64_t period_ns, std::int64_t nack_ns, bool bounds_octets) noexcept;

    bool drives_heartbeats() const noexcept { return _drives_heartbeats; }
    std::int64_t period_ns() const noexcept { return _period_ns; }
    std::int64_t nack_ns() const noexcept { return _nack_ns; }
    /// @return whether no acknowledgement came between two checks although samples are missing. Until all have arrived.
    bool has_stalled() const noexcept { return _has_stalled; }

    /// Adapts the period. @param requesters  of the participant if the writer is that of one of them; otherwise 0.
    /// @return whether `period_ns` and `nack_ns` have changed.
    bool adapt(std::int64_t readers, std::int64_t requesters) noexcept;

    /// A sample has been sent, and is on the way. @param window  samples on the way at most.
    /// @return whether a heartbeat is due at once, so that acknowledgements come before the window is full, and readers' receive
    ///         buffers do not overflow.
    bool is_heartbeat_due(std::uint32_t octets, std::int64_t on_the_way, std::int64_t window) noexcept;

    bool timer_runs() const noexcept { return _timer_runs; }
    /// Starts the timer, which must not run. @return when to run it.
    std::int64_t start_timer(std::int64_t now_ns) noexcept;
    /// The timer runs; acknowledgements have been taken in.
    /// @param oldest_sent_ns  when the oldest sample on the way was sent; any value if there is none.
    Due run_timer(std::int64_t now_ns, std::int64_t on_the_way, std::int64_t acknowledged, std::int64_t oldest_sent_ns) noexcept;

    /// A heartbeat is about to be sent. @return whether samples sent before may be sent again from here on: once in `nack_ns` at
    /// most.
    bool begins_nack_check(std::int64_t now_ns) noexcept;

private:
    std::int64_t round_up(std::int64_t due_ns) const noexcept;

    const bool _drives_heartbeats;
    bool _bounds_octets = false;
    bool _has_stalled = false;
    bool _timer_runs = false;
    std::int64_t _least_period_ns = 0;
    std::int64_t _least_nack_ns = 0;
    std::int64_t _period_ns = 0;
    std::int64_t _nack_ns = 0;
    std::int64_t _look_period_ns = 0;  // between two checks for progress
    std::int64_t _next_look_ns = 0;
    std::int64_t _next_heartbeat_ns = 0;  // none of the timer before that
    std::int64_t _last_nack_check_ns = 0;
    std::int64_t _octets_since_heartbeat = 0;
    std::int64_t _acknowledged_at_look = 0;
};

}  // namespace fastdds
}  // namespace norvane

#endif
