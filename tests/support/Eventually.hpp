// SPDX-License-Identifier: Apache-2.0
// Waits for what a test can observe, up to a deadline: the alternative to sleeping and hoping. That a thread sleeps in the kernel is
// the side of "it is blocked" that can be observed.
#ifndef NORVANE_TESTS_SUPPORT_EVENTUALLY_HPP
#define NORVANE_TESTS_SUPPORT_EVENTUALLY_HPP

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
#include <thread>
#include <utility>

namespace norvane::test {

/// Polls until the condition holds.
/// @return whether it held before the deadline.
template <typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds deadline = std::chrono::seconds(10)) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    for (int round = 0; !condition(); ++round) {
        if (std::chrono::steady_clock::now() >= end) {
            return condition();
        }
        // A few yields answer at once what is nearly there; short waits keep a busy machine from being kept busier.
        if (round < 100) {
            std::this_thread::yield();
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    return true;
}

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
