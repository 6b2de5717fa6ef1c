// SPDX-License-Identifier: Apache-2.0
#include "middleware/SpinHistory.hpp"

#include <cstdlib>
#include <cstring>

#include "platform/Processor.hpp"

namespace norvane {
namespace mw {

namespace {

bool is_switched_off() noexcept {
    static const bool SWITCHED_OFF = [] {
        const char* choice = std::getenv("NORVANE_SPIN");
        return choice != nullptr && std::strcmp(choice, "off") == 0;
    }();
    return SWITCHED_OFF;
}

}  // namespace

bool SpinHistory::should_spin() noexcept {
    if (is_switched_off() || !platform::has_several_processors()) {
        return false;
    }
    const std::uint32_t to_skip = _to_skip.load(std::memory_order_relaxed);
    if (to_skip > 0) {
        _to_skip.store(to_skip - 1, std::memory_order_relaxed);
        return false;
    }
    return true;
}

bool SpinHistory::should_yield(std::int64_t now_ns) noexcept {
    return !is_switched_off() && now_ns >= _no_yield_before_ns.load(std::memory_order_relaxed);
}

}  // namespace mw
}  // namespace norvane
