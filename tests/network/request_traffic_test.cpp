// SPDX-License-Identifier: Apache-2.0
// What requests cost on the wire besides themselves and their replies, with many requesters in one participant: datagrams on the loopback of a
// network namespace in which there is nothing else.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "network/NetworkNamespace.hpp"
#include "network/PeerProcess.hpp"
#include "network/Questions.hpp"

namespace norvane {
namespace test {
namespace {

constexpr int DOMAIN = 8;
constexpr int REQUESTERS = 40;
constexpr int ROUNDS = 100;
constexpr int WINDOWS = 5;
// Heartbeats for replies, which nothing answers, and their acknowledgements: 100 of each a second; and participants announce themselves.
constexpr long MOST_A_SECOND = 600;

ParticipantParams wired() { return on_loopback(DOMAIN).property("norvane.fastdds.transports", "udp"); }

int brief_oracle(const std::vector<std::string>&) {
    Participant participant(wired());
    Oracle service(ReplierParams(participant).service_name("Brief"), [](const Question& question) {
        return Answer{question.number, question.of, ""};
    });
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
    }
    return 0;
}

// @return "ok", or what went wrong.
std::string ask_in_turn(const std::vector<std::unique_ptr<Asker>>& askers) {
    for (int round = 0; round < ROUNDS; ++round) {
        for (const auto& asker : askers) {
            const std::string outcome = ask_all(*asker, "one of many", 1);
            if (outcome != "ok") {
                return outcome;
            }
        }
    }
    return "ok";
}

// @return datagrams a second that were neither request nor reply, in the quietest of several windows: on a busy machine some calls take so long that a
// heartbeat is due. Else what went wrong.
std::string measure_in_turn() {
    PeerProcess service("brief_oracle", {});
    Participant participant(wired());
    std::vector<std::unique_ptr<Asker>> askers;
    for (int number = 0; number < REQUESTERS; ++number) {
        askers.push_back(std::make_unique<Asker>(RequesterParams(participant).service_name("Brief")));
    }
    for (const auto& asker : askers) {
        asker->wait_for_service(ANSWER_TIME);
    }
    // Until all of them have been heard.
    std::string outcome = ask_in_turn(askers);
    double least = std::numeric_limits<double>::max();
    for (int window = 0; window < WINDOWS && outcome == "ok"; ++window) {
        const long before = carried().packets;
        const auto start = std::chrono::steady_clock::now();
        outcome = ask_in_turn(askers);
        const long besides = carried().packets - before - 2L * ROUNDS * REQUESTERS;
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
        least = std::min(least, static_cast<double>(besides) / seconds.count());
    }
    return outcome == "ok" ? std::to_string(std::max(0L, static_cast<long>(least))) : outcome;
}

int turn_meter(const std::vector<std::string>&) {
    const bool is_alone = leave_the_network();
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        std::cout << (is_alone ? measure_in_turn() : "no namespace") << std::endl;
    }
    return 0;
}

const bool KNOWN = roles().insert({"turn_meter", turn_meter}).second && roles().insert({"brief_oracle", brief_oracle}).second;

// Each writer of a requester once had a heartbeat sent for what it had on the way, which was answered long ago, and that was acknowledged. Of a
// thousand, that cost as much as the calls.
TEST(RequestTraffic, has_no_heartbeats_for_what_is_answered) {
    ASSERT_TRUE(KNOWN);
    PeerProcess wire("turn_meter", {});
    const std::string besides = wire.ask("measure");
    if (besides == "no namespace") {
        GTEST_SKIP() << "this machine gives its users no network namespace (unshare)";
    }
    ASSERT_FALSE(besides.empty());
    ASSERT_EQ(std::string::npos, besides.find_first_not_of("0123456789")) << besides;
    EXPECT_GE(MOST_A_SECOND, std::stol(besides));
    std::cout << besides << " datagrams a second besides requests and replies\n";
}

}  // namespace
}  // namespace test
}  // namespace norvane
