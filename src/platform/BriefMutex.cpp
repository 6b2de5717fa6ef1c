// SPDX-License-Identifier: Apache-2.0
#include "platform/BriefMutex.hpp"

#include "platform/Processor.hpp"

namespace norvane {
namespace platform {

void BriefMutex::lock_contended() noexcept {
    // A holder that runs on another core unlocks within this many spins. One that was preempted does not, and further spinning
    // would only keep it off the core.
    constexpr int LOOKS = 64;
    for (int look = 0; look < LOOKS; ++look) {
        if (_state.load(std::memory_order_relaxed) == FREE && try_lock()) {
            return;
        }
        relax_processor();
    }
    while (_state.exchange(HELD_WITH_SLEEPERS, std::memory_order_acquire) != FREE) {
        wait_on(_state, HELD_WITH_SLEEPERS, NO_DEADLINE);
    }
}

}  // namespace platform
}  // namespace norvane
