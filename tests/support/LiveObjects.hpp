// SPDX-License-Identifier: Apache-2.0
// How much of what was made through a forwarding participant is still there.
// Thread rule: any thread.
#ifndef NORVANE_TESTS_SUPPORT_LIVEOBJECTS_HPP
#define NORVANE_TESTS_SUPPORT_LIVEOBJECTS_HPP

#include <atomic>
#include <string>
#include <utility>

namespace norvane::test {

struct LiveObjects {
    std::atomic<int> writers{0};
    std::atomic<int> readers{0};
    std::atomic<int> conditions{0};
    std::atomic<int> loans{0};
    std::atomic<int> filters{0};  ///< Content-filtered topics.

    /// @return what is there, such as "1 readers 2 conditions"; empty when nothing is.
    std::string text() const {
        const std::pair<int, const char*> counts[] = {
            {writers, " writers"}, {readers, " readers"}, {conditions, " conditions"}, {loans, " loans"}, {filters, " filters"}};
        std::string line;
        for (const auto& each : counts) {
            line += each.first == 0 ? "" : (line.empty() ? "" : " ") + std::to_string(each.first) + each.second;
        }
        return line;
    }
};

}  // namespace norvane::test

#endif
