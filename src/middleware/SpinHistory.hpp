// SPDX-License-Identifier: Apache-2.0
// Remembers whether spinning before sleeping paid off lately, and decides whether the next wait spins.
//
// After k fruitless spins in a row, 2^k waits go straight to sleep. The history belongs to the topic that is waited on: it
// learns the peers' pace. A pooled wait set serves many topics, and each reader of a topic would have to learn the pace anew.
// Thread rule: any thread; a lost update costs one spin more or less.
#ifndef NORVANE_MIDDLEWARE_SPINHISTORY_HPP
#define NORVANE_MIDDLEWARE_SPINHISTORY_HPP

#include <atomic>
#include <cstdint>

namespace norvane {
namespace mw {

class SpinHistory {
public:
    /// Longest spin. One shorter than a wake-up takes would cost its time and still be followed by the sleep that it should save.
    static constexpr std::int64_t BOUND_NS = 50000;

    /// @return whether this wait should spin; false on a thread that has one processor only.
    bool should_spin() noexcept;
    /// Tells how a spin ended.
    void spun(bool paid_off) noexcept {
        if (paid_off) {
            _failures.store(0, std::memory_order_relaxed);
            return;
        }
        const std::uint32_t failures = _failures.load(std::memory_order_relaxed);
        const std::uint32_t more = failures < MAX_FAILURES ? failures + 1 : MAX_FAILURES;
        _failures.store(more, std::memory_order_relaxed);
        _to_skip.store(1U << more, std::memory_order_relaxed);
    }

private:
    static constexpr std::uint32_t MAX_FAILURES = 8;

    std::atomic<std::uint32_t> _failures{0};
    std::atomic<std::uint32_t> _to_skip{0};
};

}  // namespace mw
}  // namespace norvane

#endif
