// SPDX-License-Identifier: Apache-2.0
// Large samples over wires of different kinds, on a clock that the test moves.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <vector>

#include "engines/fastdds/transport/Path.hpp"

namespace norvane::test {
namespace {

using fastdds::Path;

constexpr std::int64_t MS = 1000 * 1000, OCTETS = 1024, FRAGMENTS = 1024;
constexpr std::int64_t PERIOD = 10 * MS;  // of heartbeats
constexpr std::int64_t QUEUE = 25 * MS;   // what would wait for longer is lost

// A writer, a wire and a reader.
struct Transfer {
    const std::int64_t delay_ns, fragments_per_ms, loss_percent, silent_until_ns;
    Path path{64 * OCTETS, 4 * FRAGMENTS* OCTETS};
    std::multimap<std::int64_t, std::uint32_t> there{};  // when what arrives: fragments, and 0 for a heartbeat
    std::multimap<std::int64_t, std::vector<std::uint32_t>> back{};
    std::set<std::uint32_t> missing{};
    std::int64_t number = 0, now = 1, free_at = 0, sent = 0;
    unsigned random = 1;

    void put(std::uint32_t what) {
        free_at = std::max(free_at, now);
        random = random * 1103515245U + 12345U;
        if (now >= silent_until_ns && free_at - now <= QUEUE && random / 65536U % 100 >= loss_percent) {
            free_at += what == 0 ? 0 : MS / fragments_per_ms;
            there.emplace(free_at + delay_ns, what);
        }
    }
    void offer(const std::vector<std::uint32_t>& fragments) {
        for (const std::uint32_t fragment : fragments) {
            if (path.send({number, fragment, fragment}, OCTETS, now)) {
                ++sent;
                put(fragment);
            }
            ASSERT_LE(path.on_the_way(), path.window() + OCTETS);
        }
    }
    void take_report(const std::vector<std::uint32_t>& lacks) {
        const std::set<std::uint32_t> set(lacks.begin(), lacks.end());
        const auto fate = [&](std::uint32_t fragment) {
            return fragment - lacks[0] >= Path::TOLD ? Path::Fate::UNKNOWN
                   : set.count(fragment) != 0        ? Path::Fate::MISSING
                                                     : Path::Fate::ARRIVED;
        };
        if (path.ask_again(number, lacks[0], fate, now)) {
            offer(lacks);
        }
    }
    // @return how long the next sample takes.
    std::int64_t run() {
        const std::int64_t start = now;
        std::vector<std::uint32_t> all;
        for (std::uint32_t fragment = 1; fragment <= FRAGMENTS; ++fragment) {
            all.push_back(fragment);
        }
        missing = std::set<std::uint32_t>(all.begin(), all.end());
        ++number;
        offer(all);
        for (std::int64_t heartbeat = now; !missing.empty() && now - start < 20000 * MS; now += MS / 4) {
            if (path.is_heartbeat_due(now) || now >= heartbeat) {
                heartbeat = now + PERIOD;
                put(0);
            }
            for (; !there.empty() && there.begin()->first <= now; there.erase(there.begin())) {
                missing.erase(there.begin()->second);
                if (there.begin()->second == 0 && !missing.empty()) {
                    back.emplace(now + delay_ns,
                                 std::vector<std::uint32_t>(missing.begin(), missing.lower_bound(*missing.begin() + Path::TOLD)));
                }
            }
            for (; !back.empty() && back.begin()->first <= now; back.erase(back.begin())) {
                take_report(back.begin()->second);
            }
        }
        there.clear();
        back.clear();
        path.acknowledge(
            number + 1, [](std::int64_t) { return Path::Fate::UNKNOWN; }, now + delay_ns);
        return now - start;
    }
};

TEST(Path, brings_large_samples_over_a_bad_wire_without_flooding_it) {
    const struct {
        const char* what;
        std::int64_t round_trip_ms, fragments_per_ms, loss_percent, silent_ms, most_ms, most_later_ms, most_sent;
    } cases[] = {
        {"a fast wire", 1, 1024, 0, 0, 15, 10, FRAGMENTS},
        {"a far peer", 100, 10240, 0, 0, 650, 450, FRAGMENTS},
        {"the other side of the world", 400, 10240, 0, 0, 2600, 1800, FRAGMENTS},
        {"losses", 2, 1024, 1, 0, 50, 50, FRAGMENTS * 5 / 4},
        {"many losses", 2, 1024, 10, 0, 150, 150, FRAGMENTS * 5 / 4},
        {"a far peer, losses", 100, 1024, 1, 0, 1000, 800, FRAGMENTS * 5 / 4},
        {"a far peer, many losses", 100, 1024, 10, 0, 1600, 1600, FRAGMENTS * 3 / 2},
        {"a narrow wire", 2, 10, 0, 0, 200, 200, FRAGMENTS * 3 / 2},
        {"a narrow wire to a far peer", 100, 10, 0, 0, 1000, 1000, FRAGMENTS * 3 / 2},
        {"a very narrow wire", 2, 1, 0, 0, 1500, 1500, FRAGMENTS * 2},
        {"silence", 2, 1024, 0, 5000, 6500, 15, FRAGMENTS * 5 / 4},
    };
    for (const auto& wire : cases) {
        Transfer transfer = {wire.round_trip_ms * MS / 2, wire.fragments_per_ms, wire.loss_percent, wire.silent_ms * MS};
        for (std::int64_t most_ms = wire.most_ms; transfer.number < 3; most_ms = wire.most_later_ms) {
            const std::int64_t took_ns = transfer.run();
            EXPECT_GE(most_ms, took_ns / MS) << wire.what << ", sample " << transfer.number;
        }
        EXPECT_GE(wire.most_sent, transfer.sent / 3) << wire.what;
    }
}

}  // namespace
}  // namespace norvane::test
