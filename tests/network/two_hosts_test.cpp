// SPDX-License-Identifier: Apache-2.0
// Two machines with a wire between them, as two network namespaces: found by multicast or by initial peers, over wires that lose and
// delay, that are slow, and that are cut; and addresses that change or come late.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "network/NetworkNamespace.hpp"
#include "network/PeerProcess.hpp"
#include "network/Questions.hpp"
#include "network/Wire.hpp"

namespace norvane::test {
namespace {

const std::string OWN_ADDRESS = "10.77.0.1";
const std::string NEIGHBOURS_ADDRESS = "10.77.0.2";
const std::string MULTICAST = "";
const std::string LATER_ADDRESS = "10.77.0.3";
constexpr int MEGABYTE = 1 << 20;

enum class Event { NONE, CUT, LATE_ADDRESS, NEW_ADDRESS };
struct Row {
    std::string name;
    std::string faults;  // of the wire, at both ends
    int callers;
    int calls;                              // of each
    int octets;                             // of each answer
    double most;                            // octets on the wire for each octet of an answer
    std::string datagram = "";              // octets at most; "": as Fast DDS has it
    std::string peer = NEIGHBOURS_ADDRESS;  // whom to look for at first; else those who answer a multicast
    Event event = Event::NONE;
};
const Row ROWS[] = {
    {"no_fault", "", 1, 3, MEGABYTE, 1.5},
    {"loss_and_delay_of_10_ms", "seed=1;drop=ALL:0.01;delay=10ms", 1, 3, MEGABYTE, 3},
    {"ten_megabit_per_second", "rate=10mbit", 1, 3, MEGABYTE, 3},
    // A small reply fits, several at once do not. A large one does only in datagrams that fit.
    {"a_short_queue_for_small_answers", "rate=20mbit:6000", 8, 20, 3000, 10},
    {"a_short_queue_for_large_answers", "rate=20mbit:6000", 8, 2, 60000, 10, "1472"},
    {"multicast", "", 8, 50, 3000, 2, "", MULTICAST},
    {"a_cut", "", 1, 1, 3000, 10, "", MULTICAST, Event::CUT},
    {"an_address_that_comes_late", "", 1, 3, MEGABYTE, 3, "", MULTICAST, Event::LATE_ADDRESS},
    {"an_address_that_changes", "", 1, 1, 3000, 10, "", MULTICAST, Event::NEW_ADDRESS},
};
void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

ParticipantParams on_wire(const Row& row, const std::string& address, const std::string& peer) {
    ParticipantParams params = ParticipantParams().domain_id(9).engine("fastdds");
    params.property("norvane.fastdds.transports", "udp");
    if (row.event == Event::NONE || row.event == Event::CUT) {
        params.property("norvane.fastdds.interfaces", address);
    }
    params.property("norvane.fastdds.datagram", row.datagram).property("norvane.fastdds.faults", row.faults);
    return peer == MULTICAST ? params : params.property("norvane.fastdds.initial_peers", peer);
}

// @return octets on the wire for each octet of the answers; "no wire"; or what went wrong.
std::string call_over_wire(const Row& row) {
    const auto plug_in = [](const std::string& own, const std::string& peer, const std::string& device) {
        return run("ip address add " + own + " peer " + peer + " dev " + device + " && ip link set " + device +
                   " up txqueuelen 4000 && ip route replace 10.77.0.0/24 dev " + device);
    };
    std::unique_ptr<PeerProcess> service;
    const Wire wire(row.peer == MULTICAST, [&] {
        if (plug_in(NEIGHBOURS_ADDRESS, OWN_ADDRESS, "norvane1")) {
            service = start_peer("oracle", words_of(on_wire(row, NEIGHBOURS_ADDRESS, MULTICAST), {"Wire", ""}));
        }
    });
    std::unique_ptr<const Participant> participant;
    if (row.event == Event::LATE_ADDRESS) {
        participant = std::make_unique<const Participant>(on_wire(row, OWN_ADDRESS, row.peer));
    }
    if (service == nullptr || !plug_in(OWN_ADDRESS, NEIGHBOURS_ADDRESS, "norvane0")) {
        return "no wire";
    }
    if (row.event != Event::LATE_ADDRESS) {
        participant = std::make_unique<const Participant>(on_wire(row, OWN_ADDRESS, row.peer));
    }
    Asker asker(RequesterParams(*participant).service_name("Wire"));
    const std::string who = "octets " + std::to_string(row.octets);
    std::string outcome = ask_all(asker, who, 1);
    const long before = wire.octets();
    outcome = outcome == "ok" ? ask_at_once(asker, who, row.callers, row.calls) : outcome;
    const double share = static_cast<double>(wire.octets() - before) / (row.callers * row.calls * row.octets);
    if (outcome == "ok" && row.event == Event::CUT) {
        const bool is_down = run("ip link set norvane0 down");
        outcome = ask_all(asker, "nobody", 1, std::chrono::seconds(5));
        const bool is_up = is_down && run("ip link set norvane0 up");
        outcome = is_up && outcome.find("the last one has left") != std::string::npos ? ask_all(asker, who, 10) : outcome;
    }
    if (outcome == "ok" && row.event == Event::NEW_ADDRESS) {
        const bool has_moved = run("ip address del " + OWN_ADDRESS + " peer " + NEIGHBOURS_ADDRESS + " dev norvane0") &&
                               plug_in(LATER_ADDRESS, NEIGHBOURS_ADDRESS, "norvane0");
        outcome = has_moved ? ask_all(asker, who, 10) : "no other address";
    }
    return outcome == "ok" ? std::to_string(share) : outcome;
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

class TwoHosts : public ::testing::TestWithParam<Row> {};
INSTANTIATE_TEST_SUITE_P(With, TwoHosts, ::testing::ValuesIn(ROWS), [](const auto& test) { return test.param.name; });

TEST_P(TwoHosts, lose_no_call_and_repeat_little) {
    const History history;
    const std::string outcome = PeerProcess("house", {}).ask(GetParam().name);
    if (outcome == "no wire") {
        GTEST_SKIP() << "this machine gives its users no network namespaces with a TUN device (unshare, ip, /dev/net/tun)";
    }
    ASSERT_EQ(std::string::npos, outcome.find_first_not_of("0123456789.")) << outcome;
    EXPECT_EQ("", history.judge("octets").faults);
    EXPECT_GE(GetParam().most, std::stod(outcome));
    EXPECT_LE(1, std::stod(outcome));
    std::cout << "octets on the wire for each octet of an answer: " << outcome << "\n";
}

}  // namespace
}  // namespace norvane::test
