// SPDX-License-Identifier: Apache-2.0
#include "platform/FutexWord.hpp"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <cerrno>
#include <climits>
#include <ctime>

namespace norvane {
namespace platform {

static_assert(sizeof(FutexWord) == sizeof(std::uint32_t), "the kernel looks at the bare word");

bool wait_on(FutexWord& word, std::uint32_t expected, std::int64_t deadline_ns) noexcept {
    constexpr std::int64_t NANOSECONDS = 1000000000;
    timespec deadline;
    timespec* until = nullptr;
    if (deadline_ns != NO_DEADLINE) {
        deadline.tv_sec = static_cast<time_t>(deadline_ns / NANOSECONDS);
        deadline.tv_nsec = static_cast<long>(deadline_ns % NANOSECONDS);
        until = &deadline;
    }
    // The bitset form takes an absolute time on the monotonic clock: a sleep that was interrupted can go on without a calculation.
    const long result = syscall(SYS_futex, &word, FUTEX_WAIT_BITSET_PRIVATE, expected, until, nullptr, FUTEX_BITSET_MATCH_ANY);
    return result == 0 || errno != ETIMEDOUT;
}

void wake_one(FutexWord& word) noexcept { syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0); }

void wake_all(FutexWord& word) noexcept { syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0); }

}  // namespace platform
}  // namespace norvane
