// SPDX-License-Identifier: Apache-2.0
// Waits for what a test can observe, up to a deadline: the alternative to sleeping and hoping.
#ifndef NORVANE_TESTS_SUPPORT_EVENTUALLY_HPP
#define NORVANE_TESTS_SUPPORT_EVENTUALLY_HPP

#include <chrono>
#include <thread>

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

}  // namespace norvane::test

#endif
