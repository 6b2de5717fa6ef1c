// SPDX-License-Identifier: Apache-2.0
// Keeps the threads out of an endpoint that closes: it counts those inside; once shut, it admits no other. For engines alone.
// Thread rule: any thread at once.
#ifndef NORVANE_ENGINES_GATE_HPP
#define NORVANE_ENGINES_GATE_HPP

#include <cstdint>

#include "platform/FutexWord.hpp"

namespace norvane {
namespace mw {

class Gate {
public:
    /// @return false if it is shut. `leave` must follow in either case.
    bool enter() noexcept { return (_inside.fetch_add(1) & SHUT) == 0; }
    void leave() noexcept {
        if (_inside.fetch_sub(1) == (SHUT | 1U)) {
            platform::wake_all(_inside);
        }
    }
    bool is_shut() const noexcept { return (_inside.load() & SHUT) != 0; }
    void shut() noexcept { _inside.fetch_or(SHUT); }
    /// Blocks until every thread has left. It must be shut, and the calling thread not inside.
    void wait_until_empty() noexcept {
        for (std::uint32_t seen = _inside.load(); seen != SHUT; seen = _inside.load()) {
            platform::wait_on(_inside, seen, platform::NO_DEADLINE);
        }
    }

private:
    static constexpr std::uint32_t SHUT = 0x80000000U;

    platform::FutexWord _inside{0};
};

}  // namespace mw
}  // namespace norvane

#endif
