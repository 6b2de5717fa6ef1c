// SPDX-License-Identifier: Apache-2.0
// What a reply costs on the wire, however many requesters there are: octets on the loopback of a network namespace in which there is nothing else.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "network/NetworkNamespace.hpp"
#include "network/PeerProcess.hpp"
#include "network/Questions.hpp"

namespace norvane {
namespace test {
namespace {

constexpr int DOMAIN = 7;
constexpr int REPLIES = 1000;
constexpr std::size_t REPLY_SIZE = 2000;

ParticipantParams wired(const std::string& writer_filters) {
    return on_loopback(DOMAIN)
        .property("norvane.fastdds.transports", "udp")
        .property("norvane.fastdds.writer_filters", writer_filters);
}

int talkative_oracle(const std::vector<std::string>& arguments) {
    Participant participant(wired(arguments[0]));
    Oracle service(ReplierParams(participant).service_name("Traffic"), [](const Question& question) {
        return Answer{question.number, question.of, std::string(REPLY_SIZE, 'x')};
    });
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
    }
    return 0;
}

// A line: how many calls to make.
int counted_asker(const std::vector<std::string>& arguments) {
    Participant participant(wired(arguments[0]));
    Asker requester(RequesterParams(participant).service_name("Traffic"));
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        std::cout << ask_all(requester, std::to_string(::getpid()), std::stoi(line)) << std::endl;
    }
    return 0;
}

// Octets that the loopback has carried.
long carried() {
    std::ifstream devices("/proc/self/net/dev");
    for (std::string word; devices >> word;) {
        if (word == "lo:") {
            long octets = -1;
            devices >> octets;
            return octets;
        }
    }
    return -1;
}

// @return octets per reply, all that goes with it included; else what went wrong.
std::string measure(int requesters, const std::string& writer_filters) {
    PeerProcess service("talkative_oracle", {writer_filters});
    std::vector<std::unique_ptr<PeerProcess>> askers;
    std::string outcome = "ok";
    for (int number = 0; number < requesters; ++number) {
        askers.push_back(std::make_unique<PeerProcess>("counted_asker", std::vector<std::string>{writer_filters}));
    }
    const auto each_asks = [&](int calls) {
        for (const auto& asker : askers) {
            const std::string answer = asker->ask(std::to_string(calls));
            outcome = answer == "ok" ? outcome : answer;
        }
    };
    // Until all of them have found each other.
    each_asks(5);
    const long before = carried();
    each_asks(REPLIES / requesters);
    const long after = carried();
    while (!askers.empty()) {
        askers.pop_back();  // the last one first: it holds the others' pipes open
    }
    return outcome == "ok" ? std::to_string((after - before) / REPLIES) : outcome;
}

// A line: how many requesters, and whether the writer filters.
int meter(const std::vector<std::string>&) {
    const bool is_alone = leave_the_network();
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        const std::size_t blank = line.find(' ');
        std::cout << (is_alone ? measure(std::stoi(line.substr(0, blank)), line.substr(blank + 1)) : "no namespace") << std::endl;
    }
    return 0;
}

const bool KNOWN = roles().insert({"meter", meter}).second && roles().insert({"talkative_oracle", talkative_oracle}).second &&
                   roles().insert({"counted_asker", counted_asker}).second;

long to_octets(const std::string& text) {
    EXPECT_EQ(std::string::npos, text.find_first_not_of("0123456789")) << text;
    return std::atol(text.c_str());
}

TEST(ReplyTraffic, does_not_grow_with_the_number_of_requesters) {
    ASSERT_TRUE(KNOWN);
    PeerProcess wire("meter", {});
    const std::string first = wire.ask("1 on");
    if (first == "no namespace") {
        GTEST_SKIP() << "this machine gives its users no network namespace (unshare)";
    }
    const long of_one = to_octets(first);
    const long of_ten = to_octets(wire.ask("10 on"));
    const long of_ten_unfiltered = to_octets(wire.ask("10 off"));
    EXPECT_LE(static_cast<long>(REPLY_SIZE), of_one);
    EXPECT_GE(2 * static_cast<long>(REPLY_SIZE), of_one);
    // Nobody gets a copy of what is for somebody else. (What comes on top, heartbeats and their answers, goes by the clock.)
    EXPECT_LE(of_ten, of_one + static_cast<long>(REPLY_SIZE) / 2);
    // The measure sees it when every requester is sent every reply.
    EXPECT_LE(5 * of_one, of_ten_unfiltered);
    std::cout << "octets per reply of " << REPLY_SIZE << ": " << of_one << " with 1 requester, " << of_ten << " with 10; "
              << of_ten_unfiltered << " when the writer does not filter\n";
}

}  // namespace
}  // namespace test
}  // namespace norvane
