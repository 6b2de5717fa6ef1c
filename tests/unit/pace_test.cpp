// SPDX-License-Identifier: Apache-2.0
// When a writer sends heartbeats, on a clock that the test moves.
#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <limits>

#include "engines/fastdds/writing/Pace.hpp"

namespace norvane::test {
namespace {

using fastdds::Pace;

constexpr std::int64_t US = 1000;
constexpr std::int64_t MS = 1000 * US;
constexpr std::int64_t NEVER = std::numeric_limits<std::int64_t>::max() / 2;

// Sends a sample every so often, each acknowledged some time later, for a while. @return how many heartbeats the timer sent.
int count_heartbeats(Pace& pace, std::int64_t every_ns, std::int64_t delay_ns, std::int64_t length_ns) {
    std::deque<std::int64_t> sent;
    std::int64_t count = 0, acknowledged = 0, timer_ns = 0, last_ns = -NEVER;
    int heartbeats = 0;
    for (std::int64_t now_ns = 0; now_ns < length_ns; now_ns += 50 * US) {
        for (; !sent.empty() && now_ns - sent.front() >= delay_ns; ++acknowledged) {
            sent.pop_front();
        }
        if (now_ns >= count * every_ns) {
            sent.push_back(now_ns);
            ++count;
        }
        if (!sent.empty() && !pace.timer_runs()) {
            timer_ns = pace.start_timer(now_ns);
        }
        if (pace.timer_runs() && now_ns >= timer_ns) {
            const std::int64_t oldest_ns = sent.empty() ? now_ns : sent.front();
            const Pace::Due due = pace.run_timer(now_ns, static_cast<std::int64_t>(sent.size()), acknowledged, oldest_ns);
            EXPECT_EQ(!sent.empty(), pace.timer_runs());
            EXPECT_LT(now_ns, due.next_ns);
            timer_ns = due.next_ns;
            if (due.heartbeat) {
                EXPECT_LE(pace.period_ns(), now_ns - last_ns);
                EXPECT_LE(pace.period_ns() / 2, now_ns - oldest_ns);
                last_ns = now_ns;
                ++heartbeats;
            }
        }
    }
    return heartbeats;
}

TEST(Pace, sends_heartbeats_only_for_what_is_long_on_the_way) {
    const struct {
        const char* what;
        std::int64_t readers, requesters, every_ns, delay_ns, length_ns;
        int least, most;
        bool stalls;
    } cases[] = {
        {"acknowledged soon", 1, 0, 1 * MS, 2 * MS, 1000 * MS, 0, 0, false},
        {"a little late", 1, 0, 20 * MS, 8 * MS, 1000 * MS, 45, 50, false},
        {"lost", 1, 0, NEVER, NEVER, 100 * MS, 9, 10, true},
        {"lost, many readers", 500, 0, NEVER, NEVER, 1000 * MS, 9, 10, true},
        {"acknowledged late, many requesters", 1, 1000, 20 * MS, 50 * MS, 1000 * MS, 0, 0, false},
        {"lost, many requesters", 1, 1000, NEVER, NEVER, 2000 * MS, 9, 10, true},
        {"lost, very many requesters", 1, 1000 * 1000, NEVER, NEVER, 5000 * MS, 4, 5, false},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        Pace pace(true);
        pace.start(10 * MS, 5 * MS, false);
        pace.adapt(each.readers, each.requesters);
        const int heartbeats = count_heartbeats(pace, each.every_ns, each.delay_ns, each.length_ns);
        EXPECT_LE(each.least, heartbeats);
        EXPECT_GE(each.most, heartbeats);
        EXPECT_EQ(each.stalls, pace.has_stalled());
    }
    Pace looks(false);
    looks.start(10 * MS, 5 * MS, false);
    EXPECT_EQ(0, count_heartbeats(looks, NEVER, NEVER, 1000 * MS)) << "Fast DDS sends them";
    EXPECT_TRUE(looks.has_stalled());
}

TEST(Pace, changes_by_a_factor_of_two) {
    Pace pace(true);
    pace.start(10 * MS, 5 * MS, true);
    const struct {
        std::int64_t requesters, period_ns, nack_ns;
    } steps[] = {{90, 10 * MS, 5 * MS}, {100, 20 * MS, 15 * MS}, {60, 20 * MS, 15 * MS}, {0, 10 * MS, 5 * MS}};
    for (const auto& step : steps) {
        const bool changes = step.period_ns != pace.period_ns();
        EXPECT_EQ(changes, pace.adapt(1, step.requesters)) << step.requesters;
        EXPECT_EQ(step.period_ns, pace.period_ns());
        EXPECT_EQ(step.nack_ns, pace.nack_ns());
    }
    EXPECT_TRUE(pace.begins_nack_check(100 * MS));
    EXPECT_FALSE(pace.begins_nack_check(104 * MS));
    EXPECT_TRUE(pace.begins_nack_check(105 * MS));
}

TEST(Pace, asks_before_the_window_closes_and_before_a_socket_is_full) {
    Pace pace(true);
    pace.start(10 * MS, 5 * MS, true);
    int by_number = 0, by_octets = 0;
    for (int on_the_way = 1; on_the_way < 32; ++on_the_way) {
        by_number += pace.is_heartbeat_due(64, on_the_way, 32) ? 1 : 0;
        by_octets += pace.is_heartbeat_due(100 * 1024, 1, 4096) ? 1 : 0;
    }
    EXPECT_EQ(3, by_number);
    EXPECT_EQ(15, by_octets);
}

}  // namespace
}  // namespace norvane::test
