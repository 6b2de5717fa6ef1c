// SPDX-License-Identifier: Apache-2.0
// Peers that are killed: a replier that owes replies, a requester that comes back under its name; and peers that are only stopped.
#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "network/PeerProcess.hpp"
#include "network/Questions.hpp"
#include "support/Eventually.hpp"
#include "support/Thrown.hpp"

namespace norvane::test {
namespace {

using std::chrono::milliseconds;

// Of a peer that is missed after a second of silence.
std::vector<std::string> soon_missed(int domain, const std::vector<std::string>& words) {
    return words_of(on_loopback(domain).property("norvane.fastdds.lease_ms", "1000"), words);
}

class KilledReplier : public ::testing::Test {
protected:
    std::unique_ptr<PeerProcess> replier(const std::string& name, const std::string& option = "") {
        return start_peer("oracle", soon_missed(_domain, {"Moods", name, option}));
    }

    const int _domain = domain_of_test();
    Participant _participant{on_loopback(_domain)};
    Asker _asker{RequesterParams(_participant).service_name("Moods")};
};

TEST_F(KilledReplier, its_callers_are_told_and_another_one_serves) {
    struct {
        milliseconds patience;  // longer or shorter than the lease
        const char* type;
        const char* reason;
    } const CASES[] = {
        {milliseconds(300), "CallTimeoutException SILENT", "is ready, and has not answered: it is slow, it is silent"},
        {milliseconds(3000), "CallTimeoutException REPLIER_LEFT", "no replier is there any more: the last one has left"},
    };
    constexpr int CALLERS = 4;
    for (const auto& each : CASES) {
        SCOPED_TRACE(each.type);
        const auto victim = replier("first");
        EXPECT_EQ("first", _asker.call({0, "somebody"}, ANSWER_TIME).text);
        std::vector<std::future<Thrown>> calls;
        for (int number = 1; number <= CALLERS; ++number) {
            calls.push_back(std::async(std::launch::async, [&, number] {
                return thrown_by([&] { _asker.call({number, "silence"}, each.patience); });
            }));
        }
        EXPECT_TRUE(eventually([&] { return victim->ask("how many") == std::to_string(1 + CALLERS); })) << "it owes replies";
        victim->kill();
        for (auto& call : calls) {
            expect_thrown(each.type, each.reason, call.get());
        }
        EXPECT_TRUE(eventually([&] { return _asker.matched_repliers() == 0; })) << "within its lease";
        const auto successor = replier("second");
        EXPECT_EQ("second", _asker.call({9, "somebody"}, ANSWER_TIME).text);
    }
    const RequesterStatistics left = _asker.stats();
    EXPECT_EQ(4, left.completed);
    EXPECT_EQ(2 * CALLERS, left.timed_out);
    EXPECT_EQ(0, left.pending + left.queued + left.late + left.lost);
}

TEST_F(KilledReplier, may_come_back_under_its_name_before_it_is_missed) {
    const auto first = replier("first", "named");
    EXPECT_EQ("first", _asker.call({1, "somebody"}, ANSWER_TIME).text);
    first->kill();
    const auto second = replier("second", "named");
    // As a rule the second is found before the first is missed, and is there as before when it is.
    EXPECT_TRUE(eventually([&] {
        DDS_SubscriptionMatchedStatus status;
        EXPECT_EQ(DDS_RETCODE_OK, _asker.get_reply_datareader()->get_subscription_matched_status(status));
        return status.total_count == 2 && status.current_count == 1;
    }));
    EXPECT_EQ(1, _asker.matched_repliers());
    EXPECT_EQ("second", _asker.call({2, "somebody"}, ANSWER_TIME).text);
}

// A replier here, and a requester that is killed or stopped.
class LostRequester : public ::testing::Test {
protected:
    std::unique_ptr<PeerProcess> requester() { return start_peer("asker", soon_missed(_domain, {"Names", "", "named"})); }
    /// @return whether so many requesters have been found, and so many of them are there.
    bool found_and_left(int found, int left) {
        DDS_SubscriptionMatchedStatus requests;
        DDS_PublicationMatchedStatus replies;
        EXPECT_EQ(DDS_RETCODE_OK, _replier.get_request_datareader()->get_subscription_matched_status(requests));
        EXPECT_EQ(DDS_RETCODE_OK, _replier.get_reply_datawriter()->get_publication_matched_status(replies));
        return requests.total_count == found && requests.current_count == left && replies.current_count == left;
    }
    /// Has a requester call. @param meanwhile  between the request and its answer.
    /// @return what the requester says of it.
    template <class Action>
    std::string call(PeerProcess& requester, Action meanwhile) {
        std::future<std::string> asked = std::async(std::launch::async, [&] { return requester.ask("somebody"); });
        const auto request = _replier.receive_request(ANSWER_TIME);
        meanwhile();
        if (request) {
            _replier.send_reply({request->data().number, request->data().of, ""}, request->identity());
        }
        requester.go_on();
        return asked.get();
    }

    const int _domain = domain_of_test();
    Participant _participant{on_loopback(_domain)};
    Replier<Question, Answer> _replier{ReplierParams(_participant).service_name("Names")};
};

TEST_F(LostRequester, may_come_back_under_its_name_before_it_is_missed) {
    const auto first = requester();
    EXPECT_EQ("ok", call(*first, [] {}));
    first->kill();
    const auto second = requester();
    // As a rule the second is found before the first is missed, which takes its lease.
    EXPECT_TRUE(eventually([&] { return found_and_left(2, 1); }));
    EXPECT_EQ("ok", call(*second, [] {}));
}

TEST_F(LostRequester, that_was_only_stopped_gets_the_answer_that_was_given_while_it_was_missed) {
    const auto stopped = requester();
    EXPECT_EQ("ok", call(*stopped, [&] {
                  stopped->stop();
                  EXPECT_TRUE(eventually([&] { return found_and_left(1, 0); })) << "within its lease";
              }));
}

// Samples of very different lengths, while peers are killed one after the other. One that stays keeps the traffic up until the dead
// ones are missed.
class ManyKilled : public ::testing::Test {
protected:
#ifdef __SANITIZE_ADDRESS__
    static constexpr int KILLS = 5;  // the sanitizer keeps freed memory: only that nothing breaks
    static constexpr long MOST_GROWTH = 1000 * 1000;
#else
    static constexpr int KILLS = 200;
    static constexpr long MOST_GROWTH = 5 * 1024;
#endif
    static std::string text_of(int number) { return std::string(number % 20 == 7 ? 300 * 1000 : 10, 'x'); }
    /// Has peers killed. @param meanwhile  runs while each of them is there.
    template <class Meanwhile>
    void kill_many(const std::string& role, const std::vector<std::string>& words, const Meanwhile& meanwhile) {
        meanwhile();
        const long before = resources_of(::getpid()).memory_kb;
        for (int kill = 0; kill < KILLS && !HasFailure(); ++kill) {
            const auto victim = start_peer(role, soon_missed(_domain, words));
            meanwhile();
            victim->kill();
        }
        EXPECT_TRUE(eventually([&] { return resources_of(::getpid()).memory_kb <= before + MOST_GROWTH; }))
            << "from " << before << " to " << resources_of(::getpid()).memory_kb << " KiB";
    }

    const int _domain = domain_of_test();
    Participant _participant{on_loopback(_domain)};
};

TEST_F(ManyKilled, requesters_leave_no_memory_behind_at_their_replier) {
    std::atomic<int> answered{0};
    Oracle service(ReplierParams(_participant).service_name("Many"), [&](const Question& question) {
        return Answer{question.number, question.of, text_of(answered++)};
    });
    const auto survivor = start_peer("asker", soon_missed(_domain, {"Many", "", "busy=1"}));
    kill_many("asker", {"Many", "", "busy=1"}, [&] {
        const int seen = answered;
        EXPECT_TRUE(eventually([&] { return answered > seen + 50; }));
    });
}

}  // namespace
}  // namespace norvane::test
