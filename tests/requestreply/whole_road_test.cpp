// SPDX-License-Identifier: Apache-2.0
// Requests and replies over the whole road, on every engine: waited for by many threads, and while entities come and go.
#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/ServiceFixture.hpp"
#include "support/ThreadState.hpp"
#include "support/Thrown.hpp"

namespace norvane::test {
namespace {

typedef std::vector<std::string> Strings;

class WholeRoad : public ServiceFixture {};
INSTANTIATE_TEST_SUITE_P(Engine, WholeRoad, ::testing::ValuesIn(engine_names()), engine_of_test);

TEST_P(WholeRoad, threads_that_wait_on_one_requester_are_each_woken_by_their_own_reply) {
    constexpr std::size_t THREADS = 6;
    TextRequester requester(requester_params());
    TextReplier replier(replier_params());
    await_repliers(requester, 1);
    std::vector<DDS_SampleIdentity_t> ids;
    std::vector<std::atomic<long>> thread_numbers(THREADS);
    std::vector<std::atomic<bool>> ended(THREADS);
    std::vector<std::thread> threads;
    for (std::size_t index = 0; index < THREADS; ++index) {
        ids.push_back(requester.send_request(std::to_string(index)));
        threads.emplace_back([&, index, id = ids.back()] {
            thread_numbers[index] = this_thread_number();
            EXPECT_TRUE(requester.wait_for_replies(PATIENCE, id));
            EXPECT_EQ((Strings{"to " + std::to_string(index)}), strings_of(requester.take_replies(id)));
            ended[index] = true;
        });
    }
    for (const std::atomic<long>& number : thread_numbers) {
        EXPECT_TRUE(eventually([&] { return is_asleep(number); }));
    }
    for (const std::size_t index : {3U, 0U, 5U, 1U, 4U, 2U}) {
        replier.send_reply("to " + std::to_string(index), ids[index]);
        threads[index].join();
        ended[index] = false;
        EXPECT_EQ(0, std::count(ended.begin(), ended.end(), true)) << "woken by another's reply";
    }
}

TEST_P(WholeRoad, entities_loans_and_participants_may_go_in_any_order) {
    enum Part { REQUESTER, REPLIER, REQUESTS, REPLIES };
    std::vector<Part> order = {REQUESTER, REPLIER, REQUESTS, REPLIES};
    do {
        DDSDomainParticipant* const requester_side = factory().create_participant(_domain, participant_qos(GetParam()), nullptr, 0);
        DDSDomainParticipant* const replier_side = factory().create_participant(_domain, participant_qos(GetParam()), nullptr, 0);
        const auto leave = [](DDSDomainParticipant* participant) {
            EXPECT_EQ(DDS_RETCODE_OK, participant->delete_contained_entities());
            EXPECT_EQ(DDS_RETCODE_OK, factory().delete_participant(participant));
        };
        auto requester = std::make_unique<TextRequester>(requester_params(requester_side));
        auto replier = std::make_unique<TextReplier>(replier_params(replier_side));
        await_repliers(*requester, 1);
        const DDS_SampleIdentity_t id = requester->send_request("question");
        Texts requests = replier->receive_requests(PATIENCE);
        replier->send_reply("answer", id);
        ASSERT_TRUE(requester->wait_for_replies(PATIENCE, id));
        Texts replies = requester->read_replies(id);
        for (const Part part : order) {
            EXPECT_TRUE(requests.empty() || strings_of(requests) == Strings{"question"});
            EXPECT_TRUE(replies.empty() || strings_of(replies) == Strings{"answer"});
            switch (part) {
                case REQUESTER:
                    requester.reset();
                    leave(requester_side);
                    break;
                case REPLIER:
                    replier.reset();
                    leave(replier_side);
                    break;
                case REQUESTS:
                    requests.return_loan();
                    break;
                case REPLIES:
                    replies.return_loan();
                    break;
            }
        }
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST_P(WholeRoad, threads_that_join_one_service_at_once_all_find_each_other) {
    constexpr std::size_t PAIRS = 4;
    constexpr int ROUNDS = 15;
    for (int round = 0; round < ROUNDS; ++round) {
        const std::string service = "S" + std::to_string(round);
        std::vector<std::unique_ptr<TextRequester>> requesters(PAIRS);
        std::vector<std::unique_ptr<TextReplier>> repliers(PAIRS);
        std::atomic<std::size_t> ready{0};
        std::vector<std::thread> threads;
        for (std::size_t index = 0; index < 2 * PAIRS; ++index) {
            threads.emplace_back([&, index] {
                ++ready;
                eventually([&] { return ready == 2 * PAIRS; });
                const Thrown thrown = thrown_by([&] {
                    if (index % 2 == 0) {
                        requesters[index / 2] = std::make_unique<TextRequester>(requester_params(nullptr, service));
                    } else {
                        repliers[index / 2] = std::make_unique<TextReplier>(replier_params(nullptr, service));
                    }
                });
                EXPECT_EQ("", thrown.type) << thrown.message;
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        std::vector<DDS_SampleIdentity_t> ids;
        for (const auto& requester : requesters) {
            await_repliers(*requester, PAIRS);
            ids.push_back(requester->send_request("x"));
        }
        for (const auto& replier : repliers) {
            EXPECT_TRUE(replier->wait_for_requests(PATIENCE, PAIRS));
            answer_all(*replier, "");
        }
        for (std::size_t index = 0; index < PAIRS; ++index) {
            EXPECT_TRUE(requesters[index]->wait_for_replies(PATIENCE, PAIRS, ids[index]));
        }
        requesters.clear();
        repliers.clear();
        EXPECT_TRUE(only_topics_are_left(service + "Request", service + "Reply"));
    }
}

}  // namespace
}  // namespace norvane::test
