// SPDX-License-Identifier: Apache-2.0
// What calls cost on the wire: datagrams on the loopback of a network namespace in which there is nothing else.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "network/NetworkNamespace.hpp"
#include "network/PeerProcess.hpp"
#include "network/Questions.hpp"

namespace norvane::test {
namespace {

constexpr int DOMAIN = 7;
constexpr int CALLS = 1000;
constexpr int WINDOWS = 5;
// Heartbeats for replies, which nothing answers, and their acknowledgements: 100 of each a second; and participants announce
// themselves.
constexpr double MOST_A_SECOND = 600;

ParticipantParams wired(const std::string& batching) {
    return on_loopback(DOMAIN).property("norvane.fastdds.transports", "udp").property("norvane.fastdds.batching", batching);
}

// All at once, then the answers.
std::string ask_together(Asker& asker, int count) {
    for (std::int32_t number = 1; number <= count; ++number) {
        asker.send_request({number, "me"});
    }
    for (std::int32_t expected = 1; expected <= count; ++expected) {
        const auto answer = asker.receive_reply(ANSWER_TIME);
        if (!answer || answer->data().number != expected) {
            return "no answer to question " + std::to_string(expected);
        }
    }
    return "ok";
}

// @return packets and octets per call, and packets a second that were neither request nor reply, in the quietest of several
// windows: on a busy machine some calls take so long that a heartbeat is due. Else what went wrong.
std::string measure(int requesters, const std::string& order, const std::string& batching, const std::string& queue) {
    PeerProcess service("oracle", words_of(wired(batching), {"Traffic", "xxxxxxxxxx", "queue=" + queue}));
    Participant participant(wired(batching));
    std::vector<std::unique_ptr<Asker>> askers;
    for (int number = 0; number < requesters; ++number) {
        askers.push_back(std::make_unique<Asker>(RequesterParams(participant).service_name("Traffic")));
        askers.back()->wait_for_service(ANSWER_TIME);
    }
    const auto each_asks = [&](int calls) {
        std::string outcome = "ok";
        for (std::size_t number = 0; number < askers.size() && outcome == "ok"; ++number) {
            Asker& asker = *askers[number];
            outcome = order == "together" ? ask_together(asker, calls) : ask_all(asker, "one of many", calls);
        }
        return outcome;
    };
    std::string outcome = each_asks(5);  // until all of them have been heard
    if (order == "unheard") {
        service.stop();
        for (const auto& asker : askers) {
            asker->send_request({1, "me"});
        }
        const Carried before = carried();
        askers[0]->wait_for_replies(std::chrono::milliseconds(500));
        service.go_on();
        return outcome == "ok" ? "0 0 " + std::to_string(2 * (carried().packets - before.packets)) : outcome;
    }
    double per_call = 0;
    double octets = 0;
    double besides = std::numeric_limits<double>::max();
    for (int window = 0; window < WINDOWS && outcome == "ok"; ++window) {
        const Carried before = carried();
        const auto start = std::chrono::steady_clock::now();
        outcome = each_asks(CALLS / requesters);
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
        per_call = static_cast<double>(carried().packets - before.packets) / CALLS;
        octets = static_cast<double>(carried().octets - before.octets) / CALLS;
        besides = std::min(besides, (per_call - 2) * CALLS / seconds.count());
    }
    return outcome == "ok" ? std::to_string(per_call) + " " + std::to_string(octets) + " " + std::to_string(besides) : outcome;
}

// A line: how many requesters; whether they ask "in_turn", or each all its questions "together", or one each that is "unheard",
// since the oracle is stopped; and what the oracle is told.
int meter(const std::vector<std::string>&) {
    const bool is_alone = leave_the_network();
    return answer_lines([&](const std::string& line) {
        std::istringstream words(line);
        int requesters = 0;
        std::string order;
        std::string batching;
        std::string queue;
        words >> requesters >> order >> batching >> queue;
        return !is_alone ? "no namespace" : requesters == 0 ? "" : measure(requesters, order, batching, queue);
    });
}

const KnownRole METER("meter", meter);

class Traffic : public ::testing::Test {
protected:
    void SetUp() override {
        if (_wire.ask("") == "no namespace") {
            GTEST_SKIP() << "this machine gives its users no network namespace (unshare)";
        }
    }
    void measure(const std::string& what) {
        const std::string text = _wire.ask(what);
        EXPECT_EQ(std::string::npos, text.find_first_not_of("-0123456789. ")) << text;
        std::istringstream(text) >> per_call >> octets >> besides;
        std::cout << what << ": " << per_call << " packets and " << octets << " octets per call, " << besides
                  << " a second besides\n";
    }

    PeerProcess _wire{"meter", {}};
    double per_call = 0;
    double octets = 0;
    double besides = 0;
};

TEST_F(Traffic, of_many_calls_in_flight_shares_datagrams) {
    measure("1 together 1000 0");  // however slow the machine is
    const double together = per_call;
    measure("1 together off 0");
    EXPECT_LE(2, per_call);
    EXPECT_LE(2 * together, per_call);
}

TEST_F(Traffic, of_a_short_queue_is_not_that_of_repeats) {
    measure("1 together on 0");
    const double unbounded = octets;
    measure("1 together on 16");
    // What the queue has no room for waits beside it, and does not come again at each heartbeat.
    EXPECT_LE(octets, 3 * unbounded);
}

// Each writer of a requester once had a heartbeat sent for what it had on the way, which was answered long ago, and that was
// acknowledged. Of a thousand, that cost as much as the calls.
TEST_F(Traffic, of_many_requesters_has_no_heartbeats_for_what_is_answered) {
    measure("40 in_turn on 0");
    EXPECT_GE(MOST_A_SECOND, besides);
    // Of many, each repeats its heartbeat less often to a peer that does not answer: 100 times a second each, they would flood it.
    measure("250 unheard on 0");
    EXPECT_GE(10000, besides);
}

}  // namespace
}  // namespace norvane::test
