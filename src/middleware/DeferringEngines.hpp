// SPDX-License-Identifier: Apache-2.0
// The engines in use that may hold back what a thread has written until that thread waits.
// Thread rule: any thread at once; nothing blocks.
#ifndef NORVANE_MIDDLEWARE_DEFERRINGENGINES_HPP
#define NORVANE_MIDDLEWARE_DEFERRINGENGINES_HPP

#include <array>
#include <atomic>
#include <cstddef>

#include "middleware/Engine.hpp"

namespace norvane {
namespace mw {

class DeferringEngines {
public:
    /// Remembers an engine for as long as the process lives. One that does not defer is ignored.
    static void add(Engine& engine) noexcept;

    /// Sends everything that the calling thread has written and that is held back: the thread is about to wait.
    static void send_deferred() noexcept {
        for (const std::atomic<Engine*>& place : _engines) {
            Engine* const engine = place.load(std::memory_order_acquire);
            if (engine == nullptr) {
                return;
            }
            engine->send_deferred();
        }
    }

private:
    static constexpr std::size_t MOST = 4;  // kinds of engines that defer
    static std::array<std::atomic<Engine*>, MOST> _engines;
};

}  // namespace mw
}  // namespace norvane

#endif
