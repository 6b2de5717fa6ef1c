// SPDX-License-Identifier: Apache-2.0
#include "middleware/DeferringEngines.hpp"

namespace norvane {
namespace mw {

std::array<std::atomic<Engine*>, DeferringEngines::MOST> DeferringEngines::_engines = {};

void DeferringEngines::add(Engine& engine) noexcept {
    if (!engine.defers()) {
        return;
    }
    for (std::atomic<Engine*>& place : _engines) {
        Engine* known = nullptr;
        if (place.compare_exchange_strong(known, &engine, std::memory_order_acq_rel) || known == &engine) {
            return;
        }
    }
}

}  // namespace mw
}  // namespace norvane
