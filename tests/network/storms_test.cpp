// SPDX-License-Identifier: Apache-2.0
// Endpoints that come and go by the hundred, in several processes at once.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "network/PeerProcess.hpp"
#include "network/Questions.hpp"
#include "support/Eventually.hpp"

namespace norvane {
namespace test {
namespace {

// Makes requesters and repliers, and destroys them, in two participants, until it is told to end. Any line: how many so far.
int restless(const std::vector<std::string>& arguments) {
    // Leases are looked after often: a storm of seconds is as good as one of minutes.
    const auto participant = [&] {
        return std::make_unique<Participant>(on_loopback(std::stoi(arguments[0])).property("norvane.fastdds.lease_ms", "100"));
    };
    const std::unique_ptr<Participant> first = participant();
    const std::unique_ptr<Participant> second = participant();
    std::atomic<bool> ended{false};
    std::atomic<int> made{0};
    std::vector<std::thread> threads;
    for (Participant* each : {first.get(), first.get(), second.get()}) {
        threads.emplace_back([&ended, &made, each] {
            while (!ended) {
                const Asker requester(RequesterParams(*each).service_name("Storm"));
                const Replier<Question, Answer> replier(ReplierParams(*each).service_name("Storm"));
                ++made;
            }
        });
    }
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        std::cout << made << std::endl;
    }
    ended = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    return 0;
}

const bool KNOWN = roles().insert({"restless", restless}).second;

// Fast DDS's thread of timers and those that hear of endpoints that leave can wait for each other: then a process stands still for good.
TEST(Storms, stop_nobody) {
    ASSERT_TRUE(KNOWN);
    constexpr int ENOUGH = 200;
    const std::string domain = std::to_string(domain_of_test());
    std::vector<std::unique_ptr<PeerProcess>> peers;
    for (int count = 0; count < 3; ++count) {
        peers.push_back(std::make_unique<PeerProcess>("restless", std::vector<std::string>{domain}));
    }
    for (const auto& peer : peers) {
        const int before = std::stoi(peer->ask("how many"));
        EXPECT_TRUE(eventually([&] { return std::stoi(peer->ask("how many")) >= before + ENOUGH; }, std::chrono::seconds(60)));
    }
    while (!peers.empty()) {
        if (HasFailure()) {
            peers.back()->kill();  // it would not end
        }
        peers.pop_back();  // the last one first: it holds the others' pipes open
    }
}

}  // namespace
}  // namespace test
}  // namespace norvane
