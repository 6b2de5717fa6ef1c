// SPDX-License-Identifier: Apache-2.0
// A 32-bit word that threads sleep on. Its user defines what the value means.
// Thread rule: any thread at once. The word must outlive every sleeper and every waker.
#ifndef NORVANE_PLATFORM_FUTEXWORD_HPP
#define NORVANE_PLATFORM_FUTEXWORD_HPP

#include <atomic>
#include <cstdint>

namespace norvane {
namespace platform {

typedef std::atomic<std::uint32_t> FutexWord;

/// A deadline that never comes.
constexpr std::int64_t NO_DEADLINE = INT64_MAX;

/// Sleeps while the word holds `expected`, until woken or `deadline_ns` (of monotonic_ns) has come. May return spuriously.
/// @return false when the deadline has passed; true otherwise.
bool wait_on(FutexWord& word, std::uint32_t expected, std::int64_t deadline_ns) noexcept;

/// Wakes one sleeper.
void wake_one(FutexWord& word) noexcept;
/// Wakes every sleeper.
void wake_all(FutexWord& word) noexcept;

}  // namespace platform
}  // namespace norvane

#endif
