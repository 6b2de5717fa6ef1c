// SPDX-License-Identifier: Apache-2.0
#include "platform/ProcessMark.hpp"

#include <pthread.h>

namespace norvane {
namespace platform {

std::atomic<unsigned> fork_count{0};

namespace {

unsigned count_forks() noexcept {
    static const int REGISTERED =
        ::pthread_atfork(nullptr, nullptr, [] { fork_count.fetch_add(1, std::memory_order_relaxed); });  // else never noticed
    static_cast<void>(REGISTERED);
    return fork_count.load(std::memory_order_relaxed);
}

}  // namespace

ProcessMark::ProcessMark() noexcept : _forks(count_forks()) {}

}  // namespace platform
}  // namespace norvane
