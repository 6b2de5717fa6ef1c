// SPDX-License-Identifier: Apache-2.0
// Endpoints that come and go by the hundred, in several processes at once.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "network/PeerProcess.hpp"
#include "network/Questions.hpp"
#include "support/Eventually.hpp"

namespace norvane::test {
namespace {

// Makes requesters and repliers, and destroys them, in two participants, until it is killed. Any line: how many so far.
int restless(const std::vector<std::string>& arguments) {
    const Participant first(on_loopback(std::stoi(arguments[0])));
    const Participant second(on_loopback(std::stoi(arguments[0])));
    std::atomic<int> made{0};
    std::vector<std::future<void>> storm;
    for (const Participant* each : {&first, &first, &second}) {
        storm.push_back(std::async(std::launch::async, [&made, each] {
            for (;; ++made) {
                const Asker requester(RequesterParams(*each).service_name("Storm"));
                const Replier<Question, Answer> replier(ReplierParams(*each).service_name("Storm"));
            }
        }));
    }
    return answer_lines([&](const std::string&) { return std::to_string(made); });
}

const KnownRole RESTLESS("restless", restless);

// Fast DDS's thread of timers and those that hear of endpoints that leave can wait for each other: then a process stands still for
// good.
TEST(Storms, stop_nobody) {
    const char* const repeats = std::getenv("NORVANE_TEST_REPEATS");
    if (repeats == nullptr) {
        GTEST_SKIP() << "some minutes: ./test --long";
    }
    const int enough = 15 * std::atoi(repeats);
    const std::string domain = std::to_string(domain_of_test());
    std::vector<std::unique_ptr<PeerProcess>> peers;
    for (int count = 0; count < 3; ++count) {
        peers.push_back(start_peer("restless", {domain}));
    }
    for (const auto& peer : peers) {
        const int before = std::stoi(peer->ask("how many"));
        EXPECT_TRUE(eventually([&] { return std::stoi(peer->ask("how many")) >= before + enough; }, std::chrono::seconds(120)));
    }
    // Participants do not leave in this storm: there Fast DDS has more ways to stand still.
    for (const auto& peer : peers) {
        peer->kill();
    }
}

}  // namespace
}  // namespace norvane::test
