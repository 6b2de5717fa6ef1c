// SPDX-License-Identifier: Apache-2.0
// What waiting code must know of the processor it runs on.
#ifndef NORVANE_PLATFORM_PROCESSOR_HPP
#define NORVANE_PLATFORM_PROCESSOR_HPP

#include <cstddef>

namespace norvane {
namespace platform {

/// Keeps what different threads write apart.
constexpr std::size_t CACHE_LINE = 64;

/// Tells the processor that the caller is looping on a memory location.
inline void relax_processor() noexcept {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield" ::: "memory");
#endif
}

/// Lets another thread that is ready run on this processor; returns at once when there is none.
void yield_processor() noexcept;

/// @return whether the calling thread may run on more than one processor. Looked up now and then, since it can change.
bool has_several_processors() noexcept;

}  // namespace platform
}  // namespace norvane

#endif
