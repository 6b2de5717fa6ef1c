// SPDX-License-Identifier: Apache-2.0
// How long an operation may block: std::chrono and DDS_Duration_t alike.
#ifndef NORVANE_TIMEOUT_HPP
#define NORVANE_TIMEOUT_HPP

#include <chrono>
#include <cstdint>

#include "norvane/dds/types.hpp"

namespace norvane {

/// Longest time that an operation may block. Made of any std::chrono::duration, or of a DDS_Duration_t.
///
/// Rounded up to nanoseconds. Zero polls. Infinite from 2,147,483,647 s (68 years) on, so that `duration::max()` never turns into a
/// time-out. Negative, and no number at all: over at once.
/// @par Threads  A plain value.
class Timeout {
public:
    constexpr Timeout(const DDS_Duration_t& duration) noexcept : _duration(duration) {}
    template <class Rep, class Period>
    Timeout(const std::chrono::duration<Rep, Period>& duration) : _duration(converted(duration)) {}

    constexpr operator const DDS_Duration_t&() const noexcept { return _duration; }
    constexpr bool is_infinite() const noexcept { return _duration == DDS_DURATION_INFINITE; }

private:
    template <class Rep, class Period>
    static DDS_Duration_t converted(const std::chrono::duration<Rep, Period>& duration) {
        const double seconds = std::chrono::duration<double>(duration).count();
        if (seconds >= DDS_DURATION_INFINITE.sec) {
            return DDS_DURATION_INFINITE;
        }
        if (!(seconds > INT32_MIN)) {
            return {INT32_MIN, 0};
        }
        return details::normalized_duration(0, std::chrono::ceil<std::chrono::nanoseconds>(duration).count());
    }

    DDS_Duration_t _duration;
};

/// What a call takes at most when nothing else is said. Finite: a program that says nothing must not hang.
inline constexpr Timeout DEFAULT_TIMEOUT = DDS_Duration_t{10, 0};

namespace details {

/// A timeout that has begun to run.
class Deadline {
public:
    typedef std::chrono::steady_clock Clock;

    explicit Deadline(const Timeout& timeout) : _initial(timeout), _time(at(timeout)) {}

    /// @return the timeout as it was given.
    const Timeout& initial() const noexcept { return _initial; }

    bool is_infinite() const noexcept { return _time == Clock::time_point::max(); }
    Clock::time_point time() const noexcept { return _time; }
    /// @return what is left; zero when it is over.
    DDS_Duration_t left() const {
        if (is_infinite()) {
            return DDS_DURATION_INFINITE;
        }
        const std::int64_t nanoseconds = std::chrono::nanoseconds(_time - Clock::now()).count();
        return nanoseconds > 0 ? normalized_duration(0, nanoseconds) : DDS_DURATION_ZERO;
    }

private:
    static Clock::time_point at(const DDS_Duration_t& duration) {
        if (duration == DDS_DURATION_INFINITE) {
            return Clock::time_point::max();
        }
        if (duration.sec < 0) {
            return Clock::now();  // over, but not before those that were over already
        }
        return Clock::now() + std::chrono::seconds(duration.sec) + std::chrono::nanoseconds(duration.nanosec);
    }

    Timeout _initial;
    Clock::time_point _time;
};

}  // namespace details
}  // namespace norvane

#endif
