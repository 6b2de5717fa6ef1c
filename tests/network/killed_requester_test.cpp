// SPDX-License-Identifier: Apache-2.0
// A requester that is killed, and started again under the name that it had, before its replier has missed it.
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

// Calls under a GUID that is always the same. Any line: once more.
int namesake(const std::vector<std::string>& arguments) {
    DDS_DataWriterQos qos;
    qos.reliability.kind = DDS_RELIABLE_RELIABILITY_QOS;
    qos.history.kind = DDS_KEEP_ALL_HISTORY_QOS;
    qos.publication_name.role_name = DDS_String_dup("Requester");
    qos.protocol.virtual_guid = {{7, 7, 7}};
    Participant participant(on_loopback(std::stoi(arguments[0])));
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
    auto first = std::make_unique<PeerProcess>("namesake", std::vector<std::string>{std::to_string(domain)});
    EXPECT_EQ("ok", is_answered(*first));
    first->kill();
    PeerProcess second("namesake", {std::to_string(domain)});
    // As a rule the second is found before the first is missed, which takes its lease of two seconds.
    EXPECT_TRUE(eventually([&] { return found_and_left(2, 1); }));
    EXPECT_EQ("ok", is_answered(second));
}

}  // namespace
}  // namespace test
}  // namespace norvane
