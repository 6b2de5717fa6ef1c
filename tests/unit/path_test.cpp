// SPDX-License-Identifier: Apache-2.0
// A large sample over wires of different kinds, on a clock that the test moves.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <set>
#include <vector>

#include "engines/fastdds/transport/Path.hpp"

TEST(Path, brings_a_large_sample_over_a_bad_wire_without_flooding_it) {
    constexpr std::int64_t MS = 1000 * 1000, OCTETS = 1024, FRAGMENTS = 1024, BUFFER = 4 * FRAGMENTS * OCTETS;
    const struct {
        const char* what;
        std::int64_t window, round_trip_ms, fragments_per_ms, loss_percent, silent_ms, most_ms, most_sent;
    } cases[] = {
        {"a fast wire", 64 * OCTETS, 1, FRAGMENTS, 0, 0, 15, FRAGMENTS},
        {"a far peer", 64 * OCTETS, 50, FRAGMENTS, 0, 0, 350, FRAGMENTS},
        {"losses", 64 * OCTETS, 2, FRAGMENTS, 10, 0, 400, FRAGMENTS * 5 / 4},
        {"a narrow wire", BUFFER, 2, 40, 0, 0, 400, FRAGMENTS * 3},
        {"silence", 64 * OCTETS, 2, FRAGMENTS, 0, 5000, 7000, FRAGMENTS * 5 / 4},
    };
    for (const auto& wire : cases) {
        norvane::fastdds::Path path(wire.window, BUFFER);
        std::vector<std::uint32_t> wanted(FRAGMENTS);
        std::iota(wanted.begin(), wanted.end(), 1U);
        std::set<std::uint32_t> missing(wanted.begin(), wanted.end());
        std::int64_t now = 0, answer = 100 * MS, sent = 0;
        for (unsigned random = 1; !missing.empty() && now < 10000 * MS; now += MS) {
            std::int64_t queued = 0;
            for (const std::uint32_t fragment : wanted) {
                bool asked = false;
                if (path.send({1, fragment, fragment}, OCTETS, now, asked)) {
                    ++sent;
                    random = random * 1103515245U + 12345U;
                    const bool is_heard = now >= wire.silent_ms * MS && ++queued <= wire.fragments_per_ms;
                    missing.erase(is_heard && random / 65536U % 100 >= wire.loss_percent ? fragment : 0);
                }
                answer = asked ? std::min(answer, now + wire.round_trip_ms * MS) : answer;
                ASSERT_LE(path.on_the_way(), path.window() + OCTETS) << wire.what;
            }
            wanted.clear();
            if (now >= answer && !missing.empty()) {
                answer = now + 100 * MS;  // the periodic heartbeat's
                wanted.assign(missing.begin(), missing.lower_bound(*missing.begin() + norvane::fastdds::Path::TOLD));
                const auto up_to = [&](std::uint32_t last) {
                    return static_cast<std::uint32_t>(std::upper_bound(wanted.begin(), wanted.end(), last) - wanted.begin());
                };
                if (!path.ask_again(1, wanted[0], up_to, now)) {
                    wanted.clear();
                }
            }
        }
        EXPECT_TRUE(missing.empty() && now <= wire.most_ms * MS && sent <= wire.most_sent)
            << wire.what << ": " << now / MS << " ms, " << sent;
    }
}
