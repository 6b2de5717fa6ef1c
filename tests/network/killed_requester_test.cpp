// SPDX-License-Identifier: Apache-2.0
// A requester that is killed, and started again under the name that it had, before its replier has missed it; and one that is only stopped.
#include <gtest/gtest.h>

#include <future>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "network/PeerProcess.hpp"
#include "network/Questions.hpp"
#include "support/Eventually.hpp"

namespace norvane {
namespace test {
namespace {

// Calls under a GUID that is always the same. Arguments: domain, lease. Any line: once more.
int namesake(const std::vector<std::string>& arguments) {
    DDS_DataWriterQos qos;
    qos.reliability.kind = DDS_RELIABLE_RELIABILITY_QOS;
    qos.history.kind = DDS_KEEP_ALL_HISTORY_QOS;
    DDSPropertyQosPolicyHelper::add_property(qos.property, AWAITS_REPLIES_PROPERTY, "true", DDS_BOOLEAN_TRUE);
    qos.protocol.virtual_guid = {{7, 7, 7}};
    Participant participant(on_loopback(std::stoi(arguments[0])).property("norvane.fastdds.lease_ms", arguments[1]));
    Asker asker(RequesterParams(participant).service_name("Namesakes").datawriter_qos(qos));
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        std::cout << ask_all(asker, line, 1) << std::endl;
    }
    return 0;
}

const bool KNOWN = roles().insert({"namesake", namesake}).second;

TEST(KilledRequester, may_come_back_under_its_name_before_it_is_missed) {
    ASSERT_TRUE(KNOWN);
    const int domain = domain_of_test();
    Participant participant(on_loopback(domain));
    Replier<Question, Answer> replier(ReplierParams(participant).service_name("Namesakes"));
    const auto found_and_left = [&](int found, int left) {
        DDS_SubscriptionMatchedStatus status;
        EXPECT_EQ(DDS_RETCODE_OK, replier.get_request_datareader()->get_subscription_matched_status(status));
        return status.total_count == found && status.current_count == left;
    };
    const auto answer_one = [&] {
        const auto request = replier.receive_request(ANSWER_TIME);
        ASSERT_TRUE(request);
        replier.send_reply({request->data().number, request->data().of, ""}, request->identity());
    };
    const auto is_answered = [&](PeerProcess& requester) {
        std::future<std::string> asked = std::async(std::launch::async, [&] { return requester.ask("somebody"); });
        answer_one();
        return asked.get();
    };
    auto first = std::make_unique<PeerProcess>("namesake", std::vector<std::string>{std::to_string(domain), "2000"});
    EXPECT_EQ("ok", is_answered(*first));
    first->kill();
    PeerProcess second("namesake", {std::to_string(domain), "2000"});
    // As a rule the second is found before the first is missed, which takes its lease of two seconds.
    EXPECT_TRUE(eventually([&] { return found_and_left(2, 1); }));
    EXPECT_EQ("ok", is_answered(second));
}

TEST(StoppedRequester, gets_the_answer_that_was_given_while_it_was_missed) {
    const int domain = domain_of_test();
    Participant participant(on_loopback(domain));
    Replier<Question, Answer> replier(ReplierParams(participant).service_name("Namesakes"));
    PeerProcess requester("namesake", {std::to_string(domain), "1000"});
    std::future<std::string> asked = std::async(std::launch::async, [&] { return requester.ask("somebody"); });
    const auto request = replier.receive_request(ANSWER_TIME);
    ASSERT_TRUE(request);
    requester.stop();
    const auto is_missed = [&] {
        DDS_SubscriptionMatchedStatus requests;
        DDS_PublicationMatchedStatus replies;
        EXPECT_EQ(DDS_RETCODE_OK, replier.get_request_datareader()->get_subscription_matched_status(requests));
        EXPECT_EQ(DDS_RETCODE_OK, replier.get_reply_datawriter()->get_publication_matched_status(replies));
        return requests.current_count == 0 && replies.current_count == 0;
    };
    EXPECT_TRUE(eventually(is_missed)) << "within its lease";
    replier.send_reply({request->data().number, request->data().of, ""}, request->identity());
    requester.go_on();
    EXPECT_EQ("ok", asked.get());
}

}  // namespace
}  // namespace test
}  // namespace norvane
