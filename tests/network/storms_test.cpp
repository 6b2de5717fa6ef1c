// SPDX-License-Identifier: Apache-2.0
// Endpoints that come and go by the hundred, in several processes at once.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <iostream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "network/PeerProcess.hpp"
#include "network/Questions.hpp"
#include "support/Eventually.hpp"
#include "support/History.hpp"
#include "support/Seed.hpp"

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

// Of one that stays: what belongs to a peer goes with it.
#ifdef __SANITIZE_ADDRESS__
constexpr long MOST_GROWTH_KB = 1000 * 1024;  // the sanitizer keeps freed memory
#else
constexpr long MOST_GROWTH_KB = 12 * 1024;
#endif

// Two askers and two oracles are killed, stopped and started around two that stay, and the wire loses, repeats and reorders.
TEST(Storms, leave_no_call_unaccounted_for) {
    std::mt19937 random(test_seed());
    const auto below = [&](unsigned bound) { return static_cast<unsigned>(random() % bound); };
    const History history;
    const auto start = [](const std::string& role, const std::string& name) {
        const ParticipantParams params = on_loopback(domain_of_test())
                                             .property("norvane.fastdds.lease_ms", "1000")
                                             .property("norvane.fastdds.faults", "drop=ALL:0.02;dup=0.02;reorder=0.05");
        return start_peer(role, words_of(params, {"Storm", name, "busy=2", "pace=1"}));
    };
    std::unique_ptr<PeerProcess> lasting[] = {start("oracle", "lasting"), start("asker", "octets 3000 lasting")};
    std::unique_ptr<PeerProcess> mortal[4];
    const auto rage = [&](std::chrono::milliseconds time) {
        bool is_stopped[4] = {};
        for (const auto end = std::chrono::steady_clock::now() + time; std::chrono::steady_clock::now() < end;) {
            const unsigned which = below(4);
            if (mortal[which] == nullptr) {
                mortal[which] = start(which % 2 == 0 ? "oracle" : "asker", "octets 100000 mortal");
                is_stopped[which] = false;
            } else if (below(2) == 0) {
                mortal[which]->kill();
                mortal[which].reset();
            } else {
                is_stopped[which] ? mortal[which]->go_on() : mortal[which]->stop();
                is_stopped[which] = !is_stopped[which];
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(below(400)));  // some leases end, others do not
        }
        for (auto& each : mortal) {
            if (each != nullptr) {
                each->kill();
                each.reset();
            }
        }
    };
    rage(std::chrono::seconds(5));
    const Resources before[] = {resources_of(lasting[0]->id()), resources_of(lasting[1]->id())};
    rage(std::chrono::seconds(repeats()) * 3 / 4);
    for (int which = 0; which < 2; ++which) {
        Resources now;
        EXPECT_TRUE(eventually([&] {
            now = resources_of(lasting[which]->id());
            return now.threads == before[which].threads && now.descriptors == before[which].descriptors;
        })) << now.threads
            << " threads, then " << before[which].threads << "; " << now.descriptors << " descriptors, then "
            << before[which].descriptors;
        EXPECT_GE(MOST_GROWTH_KB, now.memory_kb - before[which].memory_kb);
        std::cout << "from " << before[which].memory_kb << " to " << now.memory_kb << " KiB\n";
    }
    for (const int which : {1, 0}) {
        lasting[which].reset();
    }
    const History::Judgement calls = history.judge("octets 3000");
    EXPECT_EQ("", calls.faults);
    EXPECT_LT(100, calls.answered);
    std::cout << calls.answered << " of " << calls.asked << " calls were answered\n";
}

}  // namespace
}  // namespace norvane::test
