// SPDX-License-Identifier: Apache-2.0
// Peers that are killed: a replier that owes replies, a requester that comes back under its name; and peers that are only stopped.
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "network/PeerProcess.hpp"
#include "network/Questions.hpp"
#include "support/Eventually.hpp"
#include "support/Thrown.hpp"

namespace norvane::test {
namespace {

using std::chrono::milliseconds;

// Reads requests, and answers those that are not "silence". Any line: how many it has read. A third argument: under a GUID that is
// always the same.
int moody_oracle(const std::vector<std::string>& arguments) {
    // It is missed after a second.
    Participant participant(on_loopback(std::stoi(arguments[0])).property("norvane.fastdds.lease_ms", "1000"));
    DDS_DataWriterQos named;  // as long as the parameters
    named.reliability.kind = DDS_RELIABLE_RELIABILITY_QOS;
    named.history.kind = DDS_KEEP_ALL_HISTORY_QOS;
    named.protocol.virtual_guid = {{8, 8, 8}};
    ReplierParams params = ReplierParams(participant).service_name("Moods");
    if (arguments.size() > 2) {
        params.datawriter_qos(named);
    }
    Replier<Question, Answer> replier(params);
    std::atomic<int> read{0};
    std::thread answering([&] {
        try {
            for (;;) {
                const auto request = replier.receive_request(DDS_DURATION_INFINITE);
                if (request->data().of != "silence") {
                    replier.send_reply({request->data().number, request->data().of, arguments[1]}, request->identity());
                }
                ++read;
            }
        } catch (const AlreadyDeletedException&) {
        }
    });
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        std::cout << read << std::endl;
    }
    replier.close();
    answering.join();
    return 0;
}

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

const bool KNOWN = roles().insert({"moody_oracle", moody_oracle}).second && roles().insert({"namesake", namesake}).second;

class KilledReplier : public ::testing::Test {
protected:
    std::unique_ptr<PeerProcess> replier(const std::string& name) {
        return std::make_unique<PeerProcess>("moody_oracle", std::vector<std::string>{std::to_string(_domain), name});
    }

    const int _domain = domain_of_test();
    Participant _participant{on_loopback(_domain)};
};

TEST_F(KilledReplier, its_callers_are_told_and_another_one_serves) {
    ASSERT_TRUE(KNOWN);
    struct {
        const char* what;
        milliseconds patience;
        const char* type;
        const char* reason;
    } const CASES[] = {
        {"the call ends before anybody can know", milliseconds(300), "CallTimeoutException SILENT",
         "is ready, and has not answered: it is slow, it is silent"},
        {"the replier is missed first", milliseconds(3000), "CallTimeoutException REPLIER_LEFT",
         "no replier is there any more: the last one has left"},
    };
    constexpr int CALLERS = 4;
    Asker asker(RequesterParams(_participant).service_name("Moods"));
    int completed = 0;
    int timed_out = 0;
    for (const auto& each : CASES) {
        SCOPED_TRACE(each.what);
        const auto victim = replier("first");
        EXPECT_EQ("first", asker.call({0, "somebody"}, ANSWER_TIME).text);
        std::vector<std::future<Thrown>> calls;
        for (int number = 1; number <= CALLERS; ++number) {
            calls.push_back(std::async(std::launch::async, [&, number] {
                return thrown_by([&] { asker.call({number, "silence"}, each.patience); });
            }));
        }
        EXPECT_TRUE(eventually([&] { return victim->ask("how many") == std::to_string(1 + CALLERS); })) << "it owes replies";
        victim->kill();
        for (auto& call : calls) {
            const Thrown thrown = call.get();
            EXPECT_EQ(each.type, thrown.type) << thrown.message;
            EXPECT_NE(std::string::npos, thrown.message.find(each.reason)) << thrown.message;
        }
        EXPECT_TRUE(eventually([&] { return asker.matched_repliers() == 0; })) << "within its lease";
        const auto successor = replier("second");
        EXPECT_EQ("second", asker.call({9, "somebody"}, ANSWER_TIME).text);
        completed += 2;
        timed_out += CALLERS;
        const RequesterStatistics left = asker.stats();
        EXPECT_EQ(completed, left.completed);
        EXPECT_EQ(timed_out, left.timed_out);
        EXPECT_EQ(0, left.pending + left.queued + left.late + left.lost);
    }
}

// A dead replier's room is nobody's concern: those that are left are written to as before.
TEST_F(KilledReplier, does_not_hold_up_the_calls_of_others) {
    Asker asker(RequesterParams(_participant).service_name("Moods"));
    const auto survivor = replier("survivor");
    const auto victim = replier("victim");
    ASSERT_TRUE(asker.wait_for_service(ANSWER_TIME, 2));
    victim->stop();  // it acknowledges nothing any more
    EXPECT_EQ("ok", ask_all(asker, "somebody", 100));
    victim->kill();
    EXPECT_EQ("ok", ask_all(asker, "somebody", 100));
    EXPECT_TRUE(eventually([&] { return asker.matched_repliers() == 1; }));
    EXPECT_EQ("ok", ask_all(asker, "somebody", 100));
    EXPECT_TRUE(asker.send_request({1, "somebody"}) != DDS_UNKNOWN_SAMPLE_IDENTITY);
    EXPECT_TRUE(asker.wait_for_replies(ANSWER_TIME, 1));
    EXPECT_EQ("survivor", asker.take_replies()[0].data().text);
}

TEST_F(KilledReplier, may_come_back_under_its_name_before_it_is_missed) {
    const auto named = [&](const char* name) {
        return std::make_unique<PeerProcess>("moody_oracle", std::vector<std::string>{std::to_string(_domain), name, "named"});
    };
    Asker asker(RequesterParams(_participant).service_name("Moods"));
    const auto first = named("first");
    EXPECT_EQ("first", asker.call({1, "somebody"}, ANSWER_TIME).text);
    first->kill();
    const auto second = named("second");
    // As a rule the second is found before the first is missed, and is there as before when it is.
    EXPECT_TRUE(eventually([&] {
        DDS_SubscriptionMatchedStatus status;
        EXPECT_EQ(DDS_RETCODE_OK, asker.get_reply_datareader()->get_subscription_matched_status(status));
        return status.total_count == 2 && status.current_count == 1;
    }));
    EXPECT_EQ(1, asker.matched_repliers());
    EXPECT_EQ("second", asker.call({2, "somebody"}, ANSWER_TIME).text);
}

TEST(KilledRequester, may_come_back_under_its_name_before_it_is_missed) {
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
}  // namespace norvane::test
