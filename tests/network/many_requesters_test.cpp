// SPDX-License-Identifier: Apache-2.0
// Many requesters in one participant, on one service: all become ready, and each gets its own replies and no others.
#include <gtest/gtest.h>

#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "network/PeerProcess.hpp"
#include "network/Questions.hpp"

namespace norvane {
namespace test {
namespace {

TEST(ManyRequesters, in_one_participant_get_their_own_replies) {
    const int domain = domain_of_test();
    PeerProcess service("oracle", {std::to_string(domain), "after"});
    for (const int count : {1, 10, 5 * repeats()}) {
        SCOPED_TRACE(std::to_string(count) + " requesters");
        Participant participant(on_loopback(domain));
        std::vector<std::unique_ptr<Asker>> askers;
        for (int number = 0; number < count; ++number) {
            askers.push_back(std::make_unique<Asker>(RequesterParams(participant).service_name("Orders")));
        }
        // All of them first, so that their replies are on the way at the same time.
        std::vector<DDS_SampleIdentity_t> requests;
        for (int number = 0; number < count; ++number) {
            Asker& asker = *askers[static_cast<std::size_t>(number)];
            ASSERT_TRUE(asker.wait_for_service(std::chrono::seconds(60))) << number;
            requests.push_back(asker.send_request({number, "first"}));
        }
        for (int number = 0; number < count; ++number) {
            Asker& asker = *askers[static_cast<std::size_t>(number)];
            ASSERT_TRUE(asker.wait_for_replies(std::chrono::seconds(60), requests[static_cast<std::size_t>(number)])) << number;
            const auto replies = asker.take_replies();
            ASSERT_EQ(1, replies.length()) << number;
            EXPECT_EQ(number, replies[0].data().number);
            const Answer answer = asker.call({-number, "second"}, ANSWER_TIME);
            EXPECT_EQ(-number, answer.number);
            const RequesterStatistics statistics = asker.stats();
            EXPECT_EQ(2, statistics.received);
            EXPECT_EQ(0, statistics.late + statistics.lost + statistics.queued + statistics.unmatched);
        }
    }
}

}  // namespace
}  // namespace test
}  // namespace norvane
