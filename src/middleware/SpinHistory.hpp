// SPDX-License-Identifier: Apache-2.0
// Remembers what bridged short waits lately, and decides whether the next wait yields or spins before it sleeps.
//
// A yield helps where the peer waits for the same processor, a spin where it runs on another one. After k fruitless spins in a row,
// 2^k waits do not spin; after k fruitless yields in a row, 2^k times the time of the last one passes without a yield. The history
// belongs to the topic that is waited on: it learns the peers' pace. A pooled wait set serves many topics, and each reader of a topic
// would have to learn the pace anew.
// Thread rule: any thread; a lost update costs one attempt more or less.
#ifndef NORVANE_MIDDLEWARE_SPINHISTORY_HPP
#define NORVANE_MIDDLEWARE_SPINHISTORY_HPP

#include <algorithm>
#include <atomic>
#include <cstdint>

namespace norvane {
namespace mw {

class SpinHistory {
public:
    /// Longest spin. One shorter than a wake-up takes would cost its time and still be followed by the sleep that it should save.
    static constexpr std::int64_t BOUND_NS = 50000;
    /// A longer yield let a busy thread run for its time slice. A peer that answers a queue of requests is back sooner.
    static constexpr std::int64_t LONG_YIELD_NS = 500000;

    /// @return whether this wait should spin; false on a thread that has one processor only.
    bool should_spin() noexcept;
    /// Tells how a spin ended.
    void spun(bool paid_off) noexcept {
        const std::uint32_t failures = paid_off ? 0 : one_more(_spin_failures.load(std::memory_order_relaxed));
        _spin_failures.store(failures, std::memory_order_relaxed);
        if (!paid_off) {
            _to_skip.store(1U << failures, std::memory_order_relaxed);
        }
    }

    /// @param now_ns  of platform::monotonic_ns. @return whether this wait should give the processor away once.
    bool should_yield(std::int64_t now_ns) noexcept;
    /// Tells how a yield ended. A long one is a failure, too, and is paid for by 32 times its time without another, at least.
    void yielded(bool changed, std::int64_t start_ns, std::int64_t end_ns) noexcept {
        const std::int64_t spent_ns = end_ns - start_ns;
        const bool is_long = spent_ns > LONG_YIELD_NS;
        const bool paid_off = changed && !is_long;
        std::uint32_t failures = paid_off ? 0 : one_more(_yield_failures.load(std::memory_order_relaxed));
        if (is_long) {
            failures = std::max(failures, FAILURES_OF_A_LONG_YIELD);
        }
        _yield_failures.store(failures, std::memory_order_relaxed);
        if (!paid_off) {
            _no_yield_before_ns.store(end_ns + (spent_ns << failures), std::memory_order_relaxed);
        }
    }

private:
    static constexpr std::uint32_t MAX_FAILURES = 8;
    static constexpr std::uint32_t FAILURES_OF_A_LONG_YIELD = 5;

    static std::uint32_t one_more(std::uint32_t failures) noexcept { return std::min(failures + 1, MAX_FAILURES); }

    std::atomic<std::uint32_t> _spin_failures{0};
    std::atomic<std::uint32_t> _to_skip{0};
    std::atomic<std::uint32_t> _yield_failures{0};
    std::atomic<std::int64_t> _no_yield_before_ns{0};
};

}  // namespace mw
}  // namespace norvane

#endif
