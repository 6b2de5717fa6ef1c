// SPDX-License-Identifier: Apache-2.0
// What calls cost on the wire: octets and packets on the loopback of a network namespace in which there is nothing else.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <sstream>
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

// A property, its value, the size of replies, and how many requests the replier's queue holds; 0: any number.
typedef std::vector<std::string> Wiring;

ParticipantParams wired(const Wiring& wiring) {
    return on_loopback(DOMAIN).property("norvane.fastdds.transports", "udp").property("norvane.fastdds." + wiring[0], wiring[1]);
}

int talkative_oracle(const std::vector<std::string>& arguments) {
    Participant participant(wired(arguments));
    const std::size_t size = static_cast<std::size_t>(std::stoi(arguments[2]));
    const int queue = std::stoi(arguments[3]);
    ReplierParams params = ReplierParams(participant).service_name("Traffic");
    Oracle service(queue == 0 ? params : params.max_queued_requests(queue), [size](const Question& question) {
        return Answer{question.number, question.of, std::string(size, 'x')};
    });
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
    }
    return 0;
}

// All at once, then the answers.
std::string ask_together(Asker& asker, int count) {
    for (std::int32_t number = 1; number <= count; ++number) {
        asker.send_request({number, "me"});
    }
    for (std::int32_t expected = 1; expected <= count;) {
        if (!asker.wait_for_replies(ANSWER_TIME)) {
            return "no answer to question " + std::to_string(expected);
        }
        for (const auto& answer : asker.take_replies()) {
            if (answer.data().number != expected++) {
                return "question " + std::to_string(expected - 1) + " got answer " + std::to_string(answer.data().number);
            }
        }
    }
    return "ok";
}

// A line: how many calls to make, one after another; if negative, at once.
int counted_asker(const std::vector<std::string>& arguments) {
    Participant participant(wired(arguments));
    Asker requester(RequesterParams(participant).service_name("Traffic"));
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        const int count = std::stoi(line);
        std::cout << (count < 0 ? ask_together(requester, -count) : ask_all(requester, std::to_string(::getpid()), count))
                  << std::endl;
    }
    return 0;
}

// @return octets and packets per reply, all that goes with it included; else what went wrong.
std::string measure(int requesters, bool together, const Wiring& wiring) {
    PeerProcess service("talkative_oracle", wiring);
    std::vector<std::unique_ptr<PeerProcess>> askers;
    std::string outcome = "ok";
    for (int number = 0; number < requesters; ++number) {
        askers.push_back(std::make_unique<PeerProcess>("counted_asker", wiring));
    }
    const auto each_asks = [&](int calls) {
        for (const auto& asker : askers) {
            const std::string answer = asker->ask(std::to_string(calls));
            outcome = answer == "ok" ? outcome : answer;
        }
    };
    // Until all of them have found each other.
    each_asks(5);
    const Carried before = carried();
    each_asks((together ? -1 : 1) * REPLIES / requesters);
    const Carried after = carried();
    while (!askers.empty()) {
        askers.pop_back();  // the last one first: it holds the others' pipes open
    }
    return outcome == "ok" ? std::to_string((after.octets - before.octets) / REPLIES) + " " +
                                 std::to_string(static_cast<double>(after.packets - before.packets) / REPLIES)
                           : outcome;
}

// A line: how many requesters, "in_turn" or "together", and the wiring.
int meter(const std::vector<std::string>&) {
    const bool is_alone = leave_the_network();
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        std::istringstream words(line);
        int requesters = 0;
        std::string order;
        Wiring wiring(4);
        words >> requesters >> order >> wiring[0] >> wiring[1] >> wiring[2] >> wiring[3];
        std::cout << (is_alone ? measure(requesters, order == "together", wiring) : "no namespace") << std::endl;
    }
    return 0;
}

const bool KNOWN = roles().insert({"meter", meter}).second && roles().insert({"talkative_oracle", talkative_oracle}).second &&
                   roles().insert({"counted_asker", counted_asker}).second;

struct PerReply {
    long octets = 0;
    double packets = 0;
};

PerReply to_figures(const std::string& text) {
    EXPECT_EQ(std::string::npos, text.find_first_not_of("0123456789. ")) << text;
    PerReply figures;
    std::istringstream(text) >> figures.octets >> figures.packets;
    return figures;
}

TEST(ReplyTraffic, does_not_grow_with_the_number_of_requesters) {
    ASSERT_TRUE(KNOWN);
    PeerProcess wire("meter", {});
    const std::string size = " " + std::to_string(REPLY_SIZE) + " 0";
    const std::string first = wire.ask("1 in_turn writer_filters on" + size);
    if (first == "no namespace") {
        GTEST_SKIP() << "this machine gives its users no network namespace (unshare)";
    }
    const long of_one = to_figures(first).octets;
    const long of_ten = to_figures(wire.ask("10 in_turn writer_filters on" + size)).octets;
    const long of_ten_unfiltered = to_figures(wire.ask("10 in_turn writer_filters off" + size)).octets;
    EXPECT_LE(static_cast<long>(REPLY_SIZE), of_one);
    EXPECT_GE(2 * static_cast<long>(REPLY_SIZE), of_one);
    // Nobody gets a copy of what is for somebody else. (What comes on top, heartbeats and their answers, goes by the clock.)
    EXPECT_LE(of_ten, of_one + static_cast<long>(REPLY_SIZE) / 2);
    // The measure sees it when every requester is sent every reply.
    EXPECT_LE(5 * of_one, of_ten_unfiltered);
    std::cout << "octets per reply of " << REPLY_SIZE << ": " << of_one << " with 1 requester, " << of_ten << " with 10; "
              << of_ten_unfiltered << " when the writer does not filter\n";
}

TEST(ReplyTraffic, of_many_calls_in_flight_shares_datagrams) {
    PeerProcess wire("meter", {});
    // However slow the machine is.
    const std::string first = wire.ask("1 together batching 1000 10 0");
    if (first == "no namespace") {
        GTEST_SKIP() << "this machine gives its users no network namespace (unshare)";
    }
    const double together = to_figures(first).packets;
    const double each_alone = to_figures(wire.ask("1 together batching off 10 0")).packets;
    EXPECT_LE(2, each_alone);
    EXPECT_LE(2 * together, each_alone);
    std::cout << "packets per call: " << together << "; " << each_alone << " without batching\n";
}

TEST(ReplyTraffic, of_a_short_queue_is_not_that_of_repeats) {
    PeerProcess wire("meter", {});
    const std::string first = wire.ask("1 together batching on 10 0");
    if (first == "no namespace") {
        GTEST_SKIP() << "this machine gives its users no network namespace (unshare)";
    }
    const long unbounded = to_figures(first).octets;
    const long bounded = to_figures(wire.ask("1 together batching on 10 16")).octets;
    // What the queue has no room for waits beside it, and does not come again at each heartbeat.
    EXPECT_LE(bounded, 3 * unbounded);
    std::cout << "octets per call: " << unbounded << "; with room for 16 requests " << bounded << "\n";
}

}  // namespace
}  // namespace test
}  // namespace norvane
