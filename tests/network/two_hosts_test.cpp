// SPDX-License-Identifier: Apache-2.0
// Two machines with a wire between them, as two network namespaces: found by multicast or by initial peers, over wires that lose,
// delay and reorder, that are slow, and that are cut.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <future>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "network/BadWire.hpp"
#include "network/NetworkNamespace.hpp"
#include "network/PeerProcess.hpp"
#include "network/Questions.hpp"
#include "support/Eventually.hpp"

namespace norvane::test {
namespace {

const std::string OWN_ADDRESS = "10.77.0.1";
const std::string NEIGHBOURS_ADDRESS = "10.77.0.2";
const std::string MULTICAST = "";
constexpr int MEGABYTE = 1 << 20;

struct Row {
    std::string name;
    BadWire::Manner manner;
    int callers;
    int calls;                              // of each
    int octets;                             // of each answer
    double most;                            // octets on the wire for each octet of an answer
    std::string datagram = "";              // octets at most; "": as Fast DDS has it
    std::string peer = NEIGHBOURS_ADDRESS;  // whom to look for at first; else those who answer a multicast
    bool is_cut = false;
};
const Row ROWS[] = {
    {"no_fault", {}, 1, 3, MEGABYTE, 1.5},
    {"loss_of_10_percent", {0.1}, 1, 3, MEGABYTE, 5},
    {"reordering_of_25_percent", {0, 0.25}, 1, 3, MEGABYTE, 3},
    {"delay_of_50_ms", {0, 0, 50}, 1, 3, MEGABYTE, 3},
    {"loss_and_delay_of_10_ms", {0.01, 0, 10}, 1, 3, MEGABYTE, 3},
    {"ten_megabit_per_second", {0, 0, 0, 10}, 1, 3, MEGABYTE, 3},
    // A small reply fits, several at once do not. A large one does only in datagrams that fit.
    {"a_short_queue_for_small_answers", {0, 0, 0, 20, 6000}, 8, 20, 3000, 10},
    {"a_short_queue_for_large_answers", {0, 0, 0, 20, 6000}, 8, 2, 60000, 10, "1472"},
    {"multicast", {0, 0, 0, 0, 0, true}, 8, 50, 3000, 2, "", MULTICAST},
    {"a_cut", {0, 0, 0, 0, 0, true}, 1, 1, 3000, 10, "", MULTICAST, true},
};
void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

ParticipantParams on_wire(const std::string& address, const std::string& peer, const std::string& datagram) {
    ParticipantParams params = ParticipantParams().domain_id(9).engine("fastdds");
    params.property("norvane.fastdds.interfaces", address).property("norvane.fastdds.transports", "udp");
    params.property("norvane.fastdds.datagram", datagram);
    return peer == MULTICAST ? params : params.property("norvane.fastdds.initial_peers", peer);
}

// The other machine. "pid"; "serve", with the octets of its datagrams, or without; "leave"; anything else is a command to run.
int neighbour(const std::vector<std::string>&) {
    const bool is_alone = leave_the_network();
    std::unique_ptr<PeerProcess> service;
    return answer_lines([&](const std::string& line) -> std::string {
        if (line == "pid") {
            return std::to_string(is_alone ? ::getpid() : -1);
        }
        if (line.compare(0, 5, "serve") == 0) {
            const std::string datagram = line.substr(std::min<std::size_t>(line.size(), 6));
            service = start_peer("oracle", words_of(on_wire(NEIGHBOURS_ADDRESS, MULTICAST, datagram), {"Wire", ""}));
        } else if (line == "leave") {
            service.reset();
        } else {
            return run(line) ? "ok" : "failed";
        }
        return "ok";
    });
}

// @return "ok", or what went wrong.
std::string call_while_it_is_cut(Asker& asker) {
    const bool is_down = run("ip link set norvane0 down");
    std::string outcome = "an answer through a wire that is cut";
    try {
        asker.call({1, "somebody"}, std::chrono::seconds(5));
    } catch (const TimeoutException& failure) {
        outcome = failure.what();
    }
    if (!is_down || !run("ip link set norvane0 up") || outcome.find("the last one has left") == std::string::npos) {
        return outcome;
    }
    return ask_all(asker, "somebody", 10);
}

// @return octets on the wire for each octet of the answers; "no wire"; or what went wrong.
std::string call_over_wire(const Row& row) {
    PeerProcess other("neighbour", {});
    const std::string pid = other.ask("pid");
    const BadWire wire(std::stoi(pid), row.manner);
    const auto plug_in = [](const std::string& own, const std::string& peer, const std::string& device) {
        return "ip address add " + own + " peer " + peer + " dev " + device + " && ip link set " + device + " up txqueuelen 4000";
    };
    if (!wire.is_there() || !run(plug_in(OWN_ADDRESS, NEIGHBOURS_ADDRESS, "norvane0")) ||
        other.ask(plug_in(NEIGHBOURS_ADDRESS, OWN_ADDRESS, "norvane1")) != "ok") {
        return "no wire";
    }
    other.ask("serve " + row.datagram);
    std::string outcome;
    {
        Participant participant(on_wire(OWN_ADDRESS, row.peer, row.datagram));
        Asker asker(RequesterParams(participant).service_name("Wire"));
        const std::string what = "octets " + std::to_string(row.octets);
        outcome = ask_all(asker, what, 1);
        const long before = wire.octets();
        std::vector<std::future<std::string>> callers;
        for (int number = 0; number < row.callers; ++number) {
            callers.push_back(std::async(std::launch::async, [&asker, &row, of = what + " for " + std::to_string(number)] {
                return ask_all(asker, of, row.calls);
            }));
        }
        for (auto& caller : callers) {
            const std::string one = caller.get();
            outcome = one == "ok" ? outcome : one;
        }
        const int calls = row.callers * row.calls;
        const double answered = static_cast<double>(calls) * row.octets;
        const double share = static_cast<double>(wire.octets() - before) / answered;
        if (outcome == "ok" && row.is_cut) {
            outcome = call_while_it_is_cut(asker);
        } else if (outcome == "ok" && asker.stats().received != 1 + calls) {
            outcome = std::to_string(asker.stats().received) + " replies";
        } else if (outcome == "ok" && row.callers > 1 && row.manner.bits_per_us > 0 && wire.lost() == 0) {
            outcome = "the wire has lost nothing";
        }
        outcome = outcome == "ok" ? std::to_string(share) : outcome;
    }
    other.ask("leave");
    return outcome;
}

// A line: the name of a row.
int house(const std::vector<std::string>&) {
    const bool is_alone = leave_the_network();
    return answer_lines([&](const std::string& line) {
        const Row* const row = std::find_if(ROWS, std::end(ROWS), [&](const Row& each) { return each.name == line; });
        return is_alone ? call_over_wire(*row) : "no wire";
    });
}

const KnownRole HOUSE("house", house);
const KnownRole NEIGHBOUR("neighbour", neighbour);

class TwoHosts : public ::testing::TestWithParam<Row> {};
INSTANTIATE_TEST_SUITE_P(With, TwoHosts, ::testing::ValuesIn(ROWS), [](const auto& test) { return test.param.name; });

TEST_P(TwoHosts, lose_no_call_and_repeat_little) {
    const std::string outcome = PeerProcess("house", {}).ask(GetParam().name);
    if (outcome == "no wire") {
        GTEST_SKIP() << "this machine gives its users no network namespaces with a TUN device (unshare, ip, /dev/net/tun)";
    }
    ASSERT_EQ(std::string::npos, outcome.find_first_not_of("0123456789.")) << outcome;
    EXPECT_GE(GetParam().most, std::stod(outcome));
    EXPECT_LE(1, std::stod(outcome));
    std::cout << "octets on the wire for each octet of an answer: " << outcome << "\n";
}

}  // namespace
}  // namespace norvane::test
