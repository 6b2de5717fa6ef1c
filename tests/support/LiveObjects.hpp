// SPDX-License-Identifier: Apache-2.0
// How much of what was made through a forwarding participant is still there.
// Thread rule: any thread.
#ifndef NORVANE_TESTS_SUPPORT_LIVEOBJECTS_HPP
#define NORVANE_TESTS_SUPPORT_LIVEOBJECTS_HPP

#include <atomic>
#include <string>

namespace norvane::test {

struct LiveObjects {
    std::atomic<int> writers{0};
    std::atomic<int> readers{0};
    std::atomic<int> conditions{0};
    std::atomic<int> loans{0};
    std::atomic<int> filters{0};  ///< Content-filtered topics.

    /// @return what is there, such as "1 readers 2 conditions"; empty when nothing is.
    std::string text() const {
        std::string line;
        append(line, writers, "writers");
        append(line, readers, "readers");
        append(line, conditions, "conditions");
        append(line, loans, "loans");
        append(line, filters, "filters");
        return line;
    }

private:
    static void append(std::string& line, int count, const char* noun) {
        if (count != 0) {
            line += (line.empty() ? "" : " ") + std::to_string(count) + " " + noun;
        }
    }
};

}  // namespace norvane::test

#endif
