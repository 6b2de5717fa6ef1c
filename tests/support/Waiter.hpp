// SPDX-License-Identifier: Apache-2.0
// A thread in a wait of a wait set, and what came of it.
#ifndef NORVANE_TESTS_SUPPORT_WAITER_HPP
#define NORVANE_TESTS_SUPPORT_WAITER_HPP

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <set>
#include <utility>

#include "norvane/dds/WaitSet.hpp"
#include "support/Eventually.hpp"

namespace norvane::test {

inline std::set<DDSCondition*> as_set(const DDSConditionSeq& conditions) {
    std::set<DDSCondition*> all;
    for (DDS_Long index = 0; index < conditions.length(); ++index) {
        EXPECT_TRUE(all.insert(conditions[index]).second) << "reported twice";
    }
    return all;
}

class Waiter {
public:
    typedef std::pair<DDS_ReturnCode_t, std::set<DDSCondition*>> Outcome;

    /// Returns once the thread sleeps, or its wait is over.
    explicit Waiter(DDSWaitSet& set, const DDS_Duration_t& timeout = {30, 0})
        : _outcome(start_blocking([&set, timeout] {
              DDSConditionSeq active;
              const DDS_ReturnCode_t code = set.wait(active, timeout);
              EXPECT_EQ(code == DDS_RETCODE_OK, active.length() > 0);
              return Outcome(code, as_set(active));
          })) {}
    bool is_over() { return _outcome.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }
    Outcome get() { return _outcome.get(); }

private:
    std::future<Outcome> _outcome;
};

}  // namespace norvane::test

#endif
