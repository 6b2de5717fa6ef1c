// SPDX-License-Identifier: Apache-2.0
// Two machines with a wire between them, as two network namespaces: found by multicast, by initial peers, over a wire that
// drops what is too much for it, small replies and large ones, and over one that is cut.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <future>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "network/BadWire.hpp"
#include "network/NetworkNamespace.hpp"
#include "network/PeerProcess.hpp"
#include "network/Questions.hpp"
#include "support/Eventually.hpp"

namespace norvane::test {
namespace {

constexpr int CALLERS = 8;
constexpr int CALLS = 50;
constexpr int LARGE_CALLS = 2;
const std::string SMALL = "octets 3000";
const std::string LARGE = "octets 60000";
constexpr int HUGE_SIZE = 1 << 20;
const std::string HUGE = "octets " + std::to_string(HUGE_SIZE);
constexpr int HUGE_CALLS = 3;
const char* const OWN_ADDRESS = "10.77.0.1";
const char* const NEIGHBOURS_ADDRESS = "10.77.0.2";
// A small reply fits, several at once do not. A large one does only in datagrams that fit.
const std::string NARROW = "root tbf rate 20mbit burst 3200 limit 6000";

// (Debian keeps ip and tc where a user's PATH does not look.)
bool run(const std::string& command) {
    return std::system(("{ PATH=$PATH:/usr/sbin:/sbin; " + command + "; } >/dev/null 2>&1").c_str()) == 0;
}

// @param peer  the address to look at first; "-": whoever answers a multicast.
// @param datagram  octets at most; "": as Fast DDS has it.
ParticipantParams on_wire(const std::string& address, const std::string& peer, const std::string& datagram) {
    ParticipantParams params = ParticipantParams().domain_id(9).engine("fastdds");
    params.property("norvane.fastdds.interfaces", address);
    params.property("norvane.fastdds.transports", "udp").property("norvane.fastdds.datagram", datagram);
    return peer == "-" ? params : params.property("norvane.fastdds.initial_peers", peer);
}

// The other machine. "pid"; "serve <own address> <datagram>"; "leave"; anything else is a command to run.
int neighbour(const std::vector<std::string>&) {
    const bool is_alone = leave_the_network();
    std::unique_ptr<PeerProcess> service;
    return answer_lines([&](const std::string& line) -> std::string {
        std::istringstream words(line);
        std::string what;
        std::string address;
        std::string datagram;
        words >> what >> address >> datagram;
        if (what == "pid") {
            return std::to_string(is_alone ? ::getpid() : -1);
        }
        if (what == "serve") {
            service = start_peer("oracle", words_of(on_wire(address, "-", datagram), {"Wire", ""}));
        } else if (what == "leave") {
            service.reset();
        } else {
            return run(line) ? "ok" : "failed";
        }
        return "ok";
    });
}

// @return "ok", "no wire", or what went wrong.
std::string call_over_wire(const std::string& how) {
    PeerProcess other("neighbour", {});
    const std::string pid = other.ask("pid");
    const std::string address = std::string(NEIGHBOURS_ADDRESS) + "/24";
    if (pid == "-1" || !run("ip link add name norvane0 type veth peer name norvane1 netns " + pid) ||
        !run(std::string("ip address add ") + OWN_ADDRESS + "/24 dev norvane0 && ip link set norvane0 up") ||
        other.ask("ip address add " + address + " dev norvane1 && ip link set norvane1 up") != "ok") {
        return "no wire";
    }
    // The kernel takes its time to see that both ends are plugged in, and a participant looks at its interfaces once.
    if (!eventually([] { return run("ip -o link show dev norvane0 | grep -q 'state UP'"); }) ||
        !eventually([&] { return other.ask("ip -o link show dev norvane1 | grep -q 'state UP'") == "ok"; })) {
        return "the wire does not come up";
    }
    std::string outcome = "ok";
    std::string own_address = OWN_ADDRESS;
    std::string other_address = NEIGHBOURS_ADDRESS;
    if (how == "routed") {
        // Addresses that are not the wire's: what is sent to one of them crosses it, and a multicast does not.
        own_address = "10.78.0.1";
        other_address = "10.78.0.2";
        if (!run("ip address add " + own_address + "/32 dev lo && ip route add " + other_address + " via " + NEIGHBOURS_ADDRESS) ||
            other.ask("ip address add " + other_address + "/32 dev lo && ip route add " + own_address + " via " + OWN_ADDRESS) !=
                "ok") {
            return "no wire";
        }
    }
    const bool is_large = how == "large";
    const bool is_narrow = is_large || how == "narrow";
    if (is_narrow && !(run("tc qdisc add dev norvane0 " + NARROW) && other.ask("tc qdisc add dev norvane1 " + NARROW) == "ok")) {
        return "no wire";
    }
    // It is enough that one of the two knows the other.
    const std::string peer = how == "routed" ? other_address : "-";
    const std::string datagram = is_large ? "1472" : "";
    {
        other.ask("serve " + other_address + " " + datagram);
        Participant participant(on_wire(own_address, peer, datagram));
        Asker asker(RequesterParams(participant).service_name("Wire"));
        std::vector<std::future<std::string>> callers;
        for (int number = 0; number < CALLERS; ++number) {
            callers.push_back(std::async(std::launch::async, [&asker, number, is_large] {
                return is_large ? ask_all(asker, LARGE, LARGE_CALLS)
                                : ask_all(asker, SMALL + " of " + std::to_string(number), CALLS);
            }));
        }
        for (auto& caller : callers) {
            const std::string one = caller.get();
            outcome = one == "ok" ? outcome : one;
        }
        const RequesterStatistics statistics = asker.stats();
        if (outcome == "ok" && statistics.received != CALLERS * (is_large ? LARGE_CALLS : CALLS)) {
            outcome = std::to_string(statistics.received) + " replies";
        }
    }
    if (is_narrow && outcome == "ok" && other.ask("tc -s qdisc show dev norvane1 | grep -q 'dropped [1-9]'") != "ok") {
        outcome = "the wire has dropped nothing";
    }
    if (how == "cut" && outcome == "ok") {
        Participant participant(on_wire(own_address, "-", datagram));
        Asker asker(RequesterParams(participant).service_name("Wire"));
        outcome = ask_all(asker, how, 1);
        if (!run("ip link set norvane0 down")) {
            return "no wire";
        }
        try {
            asker.call({1, how}, std::chrono::seconds(5));
            return "an answer through a wire that is cut";
        } catch (const TimeoutException& failure) {
            outcome = std::string(failure.what()).find("the last one has left") != std::string::npos ? outcome : failure.what();
        }
        run("ip link set norvane0 up");
        outcome = outcome == "ok" ? ask_all(asker, how, 10) : outcome;
    }
    other.ask("leave");
    return outcome;
}

// @param manner  the figures of a BadWire. @return octets on the wire for each octet of the answers, or what went wrong.
std::string call_over_bad_wire(const std::string& manner) {
    BadWire::Manner bad;
    std::istringstream(manner) >> bad.loss >> bad.reordered >> bad.delay_ms >> bad.bits_per_us;
    PeerProcess other("neighbour", {});
    const std::string pid = other.ask("pid");
    const BadWire wire(std::stoi(pid), bad);
    const auto plug_in = [](const std::string& own, const std::string& peer, const std::string& device) {
        return "ip address add " + own + " peer " + peer + " dev " + device + " && ip link set " + device + " up txqueuelen 4000";
    };
    if (pid == "-1" || !wire.is_there() || !run(plug_in(OWN_ADDRESS, NEIGHBOURS_ADDRESS, "norvane0")) ||
        other.ask(plug_in(NEIGHBOURS_ADDRESS, OWN_ADDRESS, "norvane1")) != "ok") {
        return "no wire";
    }
    other.ask(std::string("serve ") + NEIGHBOURS_ADDRESS + " ");
    std::string outcome;
    {
        Participant participant(on_wire(OWN_ADDRESS, NEIGHBOURS_ADDRESS, ""));
        Asker asker(RequesterParams(participant).service_name("Wire"));
        outcome = ask_all(asker, HUGE, 1);
        const long before = wire.octets();
        outcome = outcome == "ok" ? ask_all(asker, HUGE, HUGE_CALLS) : outcome;
        if (outcome == "ok") {
            outcome = std::to_string(static_cast<double>(wire.octets() - before) / (HUGE_CALLS * 1.0 * HUGE_SIZE));
        }
    }
    other.ask("leave");
    return outcome;
}

// A line: what is with the wire.
int house(const std::vector<std::string>&) {
    const bool is_alone = leave_the_network();
    return answer_lines([&](const std::string& line) {
        return !is_alone ? "no wire" : line.compare(0, 4, "bad ") == 0 ? call_over_bad_wire(line.substr(4)) : call_over_wire(line);
    });
}

const KnownRole HOUSE("house", house);
const KnownRole NEIGHBOUR("neighbour", neighbour);

class TwoHosts : public ::testing::TestWithParam<std::string> {};
INSTANTIATE_TEST_SUITE_P(With, TwoHosts, ::testing::Values("multicast", "routed", "narrow", "large", "cut"),
                         [](const auto& test) { return test.param; });

TEST_P(TwoHosts, lose_no_call) {
    const std::string outcome = PeerProcess("house", {}).ask(GetParam());
    if (outcome == "no wire") {
        GTEST_SKIP() << "this machine gives its users no network namespaces with a wire between them (unshare(2) permitted; ip and "
                        "tc of the package iproute2)";
    }
    EXPECT_EQ("ok", outcome);
}

struct Badness {
    const char* name;
    const char* manner;  // loss, share of the reordered, delay, Mbit/s
    double most;         // octets on the wire for each octet of an answer
};
void PrintTo(const Badness& badness, std::ostream* out) { *out << badness.name; }

class BadWires : public ::testing::TestWithParam<Badness> {};
INSTANTIATE_TEST_SUITE_P(With, BadWires,
                         ::testing::Values(Badness{"no_fault", "0 0 0 0", 1.5}, Badness{"loss_of_1_percent", "0.01 0 0 0", 3},
                                           Badness{"loss_of_10_percent", "0.1 0 0 0", 5},
                                           Badness{"reordering_of_25_percent", "0 0.25 0 0", 3},
                                           Badness{"delay_of_50_ms", "0 0 50 0", 3},
                                           Badness{"loss_and_delay_of_10_ms", "0.01 0 10 0", 3},
                                           Badness{"ten_megabit_per_second", "0 0 0 10", 3}),
                         [](const auto& test) { return test.param.name; });

TEST_P(BadWires, carry_large_answers_without_repeating_them_much) {
    const std::string outcome = PeerProcess("house", {}).ask(std::string("bad ") + GetParam().manner);
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
