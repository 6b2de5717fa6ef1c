// SPDX-License-Identifier: Apache-2.0
// A service and two processes of requesters, started in every order: each requester calls as soon as it lives, and no call is lost.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "network/PeerProcess.hpp"
#include "network/Questions.hpp"
#include "support/Eventually.hpp"

namespace norvane::test {
namespace {

/// One letter a process, in the order of their starts: S(ervice), A, B.
class StartOrders : public ::testing::TestWithParam<std::string> {};
INSTANTIATE_TEST_SUITE_P(Of, StartOrders, ::testing::Values("SAB", "SBA", "ASB", "BSA", "ABS", "BAS"),
                         [](const auto& test) { return test.param; });

TEST_P(StartOrders, every_call_is_answered) {
    const int domain = domain_of_test();
    for (int round = 0; round < repeats() && !HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        std::map<char, std::unique_ptr<PeerProcess>> peers;
        for (const char name : GetParam()) {
            const char* const when = round % 2 == 0 ? "early" : "late";
            peers[name] = start_peer(name == 'S' ? "oracle" : "asker",
                                     words_of(on_loopback(domain), {"Orders", std::string(1, name), when, "calls=5"}));
        }
        EXPECT_EQ("ok", peers['A']->ask("outcome"));
        EXPECT_EQ("ok", peers['B']->ask("outcome"));
        std::string handled;
        // A reply is counted after it was sent: its requester may have it by then.
        EXPECT_TRUE(eventually([&] { return (handled = peers['S']->ask("how many")) == "10"; })) << handled;
    }
}

// Fast DDS offers replies to a reader of this process before it reports that reader: those to another requester hid its own.
TEST(Newcomers, beside_a_service_are_answered_while_it_answers_others) {
    const Participant participant(on_loopback(domain_of_test()));
    const Oracle service(ReplierParams(participant).service_name("Orders"), [](const Question& question) {
        return Answer{question.number, question.of, ""};
    });
    const auto others = start_peer("asker", words_of(on_loopback(domain_of_test()), {"Orders", "others", "busy=4"}));
    EXPECT_EQ("ok", others->ask("others"));
    for (int newcomer = 0; newcomer < 60 && !HasFailure(); ++newcomer) {
        Asker requester(RequesterParams(participant).service_name("Orders"));
        EXPECT_NO_THROW(requester.call({newcomer, "newcomer"}, std::chrono::seconds(5))) << newcomer;
    }
}

}  // namespace
}  // namespace norvane::test
