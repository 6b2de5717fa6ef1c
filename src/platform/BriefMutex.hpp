// SPDX-License-Identifier: Apache-2.0
// A lock for a few dozen instructions: it spins for a moment, then sleeps. Fit for std::lock_guard. Not recursive, not fair.
#ifndef NORVANE_PLATFORM_BRIEFMUTEX_HPP
#define NORVANE_PLATFORM_BRIEFMUTEX_HPP

#include "platform/FutexWord.hpp"

namespace norvane {
namespace platform {

class BriefMutex {
public:
    BriefMutex() = default;
    BriefMutex(const BriefMutex&) = delete;
    BriefMutex& operator=(const BriefMutex&) = delete;

    void lock() noexcept {
        std::uint32_t expected = FREE;
        if (!_state.compare_exchange_strong(expected, HELD, std::memory_order_acquire, std::memory_order_relaxed)) {
            lock_contended();
        }
    }

    bool try_lock() noexcept {
        std::uint32_t expected = FREE;
        return _state.compare_exchange_strong(expected, HELD, std::memory_order_acquire, std::memory_order_relaxed);
    }

    void unlock() noexcept {
        if (_state.exchange(FREE, std::memory_order_release) == HELD_WITH_SLEEPERS) {
            wake_one(_state);
        }
    }

private:
    enum : std::uint32_t { FREE = 0, HELD = 1, HELD_WITH_SLEEPERS = 2 };

    void lock_contended() noexcept;

    FutexWord _state{FREE};
};

}  // namespace platform
}  // namespace norvane

#endif
