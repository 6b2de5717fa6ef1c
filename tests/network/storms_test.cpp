// SPDX-License-Identifier: Apache-2.0
// Endpoints that come and go by the hundred, in several processes at once.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
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
    // They announce themselves often, so that the thread of timers has much to do, and a storm of seconds is as good as one of hours. No lease ends.
    const std::string file = ::testing::TempDir() + "norvane_storm_" + std::to_string(::getpid()) + ".xml";
    std::ofstream(file) << R"(<?xml version="1.0" encoding="UTF-8"?>
<profiles xmlns="http://www.eprosima.com/XMLSchemas/fastRTPS_Profiles">
  <participant profile_name="restless"><rtps><builtin><discovery_config>
    <leaseDuration><sec>60</sec></leaseDuration>
    <leaseAnnouncement><sec>0</sec><nanosec>10000000</nanosec></leaseAnnouncement>
  </discovery_config></builtin></rtps></participant>
</profiles>)";
    const auto params = [&] { return on_loopback(std::stoi(arguments[0])).property("norvane.fastdds.profile", "restless"); };
    const Participant first(params().property("norvane.fastdds.profiles_file", file));
    const Participant second(params());
    std::remove(file.c_str());
    std::atomic<bool> ended{false};
    std::atomic<int> made{0};
    std::vector<std::thread> threads;
    for (const Participant* each : {&first, &first, &second}) {
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
    if (std::getenv("NORVANE_TEST_REPEATS") == nullptr) {
        GTEST_SKIP() << "./test --long: Fast DDS has more than one way to stand still, and not all of them are closed";
    }
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
