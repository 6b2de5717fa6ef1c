// SPDX-License-Identifier: Apache-2.0
#include "platform/Processor.hpp"

#include <sched.h>

namespace norvane {
namespace platform {

void yield_processor() noexcept { sched_yield(); }

bool has_several_processors() noexcept {
    constexpr unsigned LOOK_UP_EVERY = 1024;
    thread_local unsigned calls = 0;
    thread_local bool several = false;
    if (calls++ % LOOK_UP_EVERY == 0) {
        cpu_set_t allowed;
        several = sched_getaffinity(0, sizeof allowed, &allowed) != 0 || CPU_COUNT(&allowed) > 1;
    }
    return several;
}

}  // namespace platform
}  // namespace norvane
