// SPDX-License-Identifier: Apache-2.0
// How long one call may sleep. The clock is first read when the call first sleeps: most calls never do.
// Thread rule: a local of one thread.
#ifndef NORVANE_ENGINES_EMBEDDED_DEADLINE_HPP
#define NORVANE_ENGINES_EMBEDDED_DEADLINE_HPP

#include <cstdint>

#include "middleware/clock.hpp"
#include "norvane/dds/types.hpp"
#include "platform/Clock.hpp"
#include "platform/FutexWord.hpp"

namespace norvane {
namespace embedded {

class Deadline {
public:
    /// @param limit  zero or below: the call may not sleep. Infinite: it may sleep without end.
    explicit Deadline(const DDS_Duration_t& limit) noexcept
        : _limit(limit), _ahead(limit.sec > 0 || (limit.sec == 0 && limit.nanosec > 0)) {}

    /// @return false once it has passed; at first false only when the limit was zero or below.
    bool is_ahead() const noexcept { return _ahead; }

    /// Sleeps while the word holds `seen`, until the deadline at most.
    void sleep(platform::FutexWord& word, std::uint32_t seen) noexcept {
        if (!_started) {
            _deadline_ns = mw::deadline_after(_limit);
            _started = true;
        }
        // A wait on a word that keeps changing never times out, so the clock is checked as well.
        _ahead = platform::wait_on(word, seen, _deadline_ns) && platform::monotonic_ns() < _deadline_ns;
    }

private:
    const DDS_Duration_t _limit;
    bool _ahead;
    bool _started = false;
    std::int64_t _deadline_ns = 0;
};

}  // namespace embedded
}  // namespace norvane

#endif
