// SPDX-License-Identifier: Apache-2.0
// Whether a thread sleeps in the kernel: the side of "it is blocked" that can be observed from outside.
#ifndef NORVANE_TESTS_SUPPORT_THREADSTATE_HPP
#define NORVANE_TESTS_SUPPORT_THREADSTATE_HPP

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <future>
#include <iterator>
#include <memory>
#include <string>
#include <utility>

#include "support/Eventually.hpp"

namespace norvane::test {

/// @return the number by which `is_asleep` knows the calling thread.
inline long this_thread_number() { return ::syscall(SYS_gettid); }

/// @param thread  of this process. 0, for none yet, is never asleep.
inline bool is_asleep(long thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    const std::string line((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    const std::string::size_type name_end = line.rfind(')');  // the name may hold anything
    return thread != 0 && name_end != std::string::npos && line.compare(name_end, 3, ") S") == 0;
}

/// Starts an action that is to block. @return its result to come, once its thread sleeps or is through.
template <typename Action>
auto start_blocking(Action action) {
    auto thread = std::make_shared<std::atomic<long>>(0);
    auto result = std::async(std::launch::async, [action = std::move(action), thread]() mutable {
        *thread = this_thread_number();
        return action();
    });
    EXPECT_TRUE(
        eventually([&] { return is_asleep(*thread) || result.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
    return result;
}

}  // namespace norvane::test

#endif
