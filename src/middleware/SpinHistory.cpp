// SPDX-License-Identifier: Apache-2.0
#include "middleware/SpinHistory.hpp"

#include <cstdlib>
#include <cstring>

#include "platform/Processor.hpp"

namespace norvane {
namespace mw {

namespace {

bool spin_is_switched_off() noexcept {
    const char* choice = std::getenv("NORVANE_SPIN");
    return choice != nullptr && std::strcmp(choice, "off") == 0;
}

}  // namespace

bool SpinHistory::should_spin() noexcept {
    static const bool SWITCHED_OFF = spin_is_switched_off();
    if (SWITCHED_OFF || !platform::has_several_processors()) {
        return false;
    }
    const std::uint32_t to_skip = _to_skip.load(std::memory_order_relaxed);
    if (to_skip > 0) {
        _to_skip.store(to_skip - 1, std::memory_order_relaxed);
        return false;
    }
    return true;
}

}  // namespace mw
}  // namespace norvane
