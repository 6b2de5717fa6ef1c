// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/writing/Pace.hpp"

#include <algorithm>

#include "platform/FutexWord.hpp"

namespace norvane {
namespace fastdds {

namespace {

// Most octets between two heartbeats: no more than the default receive buffer of a socket.
constexpr std::int64_t MOST_OCTETS_PER_HEARTBEAT = 200 * 1024;
constexpr std::int64_t LEAST_LOOK_PERIOD_NS = 50 * 1000 * 1000;
constexpr std::int64_t HEARTBEATS_PER_LOOK = 5;
// Every reader answers a heartbeat, so the period grows with their number.
constexpr std::int64_t HEARTBEAT_NS_PER_READER = 200 * 1000;
// Requesters of a participant write in turn. With many of them, a period spans several turns of a writer: otherwise their timers
// would cost more than the calls, and timers of Fast DDS much more than that.
constexpr std::int64_t HEARTBEAT_NS_PER_REQUESTER = 200 * 1000;
constexpr std::int64_t FASTDDS_TIMER_NS_PER_REQUESTER = 1000 * 1000;
constexpr std::int64_t LONGEST_FOR_REQUESTERS_NS = 1000 * 1000 * 1000;
// Timers that are due within the same such part of a period run together.
constexpr std::int64_t PARTS_OF_A_PERIOD = 8;
constexpr std::int64_t NACK_MARGIN_NS = 5 * 1000 * 1000;

}  // namespace

void Pace::start(std::int64_t period_ns, std::int64_t nack_ns, bool bounds_octets) noexcept {
    _least_period_ns = _period_ns = period_ns;
    _least_nack_ns = _nack_ns = nack_ns;
    _look_period_ns = LEAST_LOOK_PERIOD_NS;
    _bounds_octets = bounds_octets;
}

bool Pace::adapt(std::int64_t readers, std::int64_t requesters) noexcept {
    const std::int64_t each_ns = _drives_heartbeats ? HEARTBEAT_NS_PER_REQUESTER : FASTDDS_TIMER_NS_PER_REQUESTER;
    const std::int64_t period_ns =
        std::max({_least_period_ns, readers * HEARTBEAT_NS_PER_READER, std::min(requesters * each_ns, LONGEST_FOR_REQUESTERS_NS)});
    if (period_ns < 2 * _period_ns && 2 * period_ns > _period_ns) {
        return false;
    }
    _period_ns = period_ns;
    _look_period_ns = std::max(LEAST_LOOK_PERIOD_NS, HEARTBEATS_PER_LOOK * period_ns);
    // The answer to a heartbeat may ask for samples sent before it, so the time ends just before the next one.
    _nack_ns = std::max(_least_nack_ns, period_ns - NACK_MARGIN_NS);
    return true;
}

bool Pace::is_heartbeat_due(std::uint32_t octets, std::int64_t on_the_way, std::int64_t window) noexcept {
    const std::int64_t quarter = std::max<std::int64_t>(window / 4, 1);
    _octets_since_heartbeat += octets;
    if (on_the_way % quarter != 0 && !(_bounds_octets && _octets_since_heartbeat >= MOST_OCTETS_PER_HEARTBEAT)) {
        return false;
    }
    _octets_since_heartbeat = 0;
    return true;
}

std::int64_t Pace::start_timer(std::int64_t now_ns) noexcept {
    _timer_runs = true;
    _next_look_ns = now_ns + _look_period_ns;
    return _drives_heartbeats ? round_up(now_ns + _period_ns / 2) : _next_look_ns;
}

Pace::Due Pace::run_timer(std::int64_t now_ns, std::int64_t on_the_way, std::int64_t acknowledged,
                          std::int64_t oldest_sent_ns) noexcept {
    Due due = {false, false, platform::NO_DEADLINE};
    if (now_ns >= _next_look_ns || on_the_way == 0) {
        const bool stands_still = on_the_way != 0 && acknowledged == _acknowledged_at_look;
        if ((!_has_stalled && stands_still) || (_has_stalled && on_the_way == 0)) {
            _has_stalled = !_has_stalled;
            due.progress_changed = true;
        }
        _acknowledged_at_look = acknowledged;
        _next_look_ns = now_ns + _look_period_ns;
    }
    _timer_runs = on_the_way != 0;
    if (!_timer_runs) {
        return due;
    }
    due.next_ns = _next_look_ns;
    if (_drives_heartbeats) {
        _next_heartbeat_ns = std::max(_next_heartbeat_ns, oldest_sent_ns + _period_ns / 2);
        if (now_ns >= _next_heartbeat_ns) {
            due.heartbeat = true;
            _next_heartbeat_ns = now_ns + _period_ns;
        }
        due.next_ns = std::min(due.next_ns, round_up(_next_heartbeat_ns));
    }
    return due;
}

bool Pace::begins_nack_check(std::int64_t now_ns) noexcept {
    if (!_drives_heartbeats || now_ns - _last_nack_check_ns < _nack_ns) {
        return false;
    }
    _last_nack_check_ns = now_ns;
    return true;
}

// @return the end of the part of a period that contains a time, so that the timers of many writers run together.
std::int64_t Pace::round_up(std::int64_t due_ns) const noexcept {
    const std::int64_t part_ns = std::max<std::int64_t>(_period_ns / PARTS_OF_A_PERIOD, 1);
    return due_ns + part_ns - due_ns % part_ns;
}

}  // namespace fastdds
}  // namespace norvane
