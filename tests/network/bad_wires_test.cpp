// SPDX-License-Identifier: Apache-2.0
// Calls between processes over wires that lose, delay, repeat and reorder: the property norvane.fastdds.faults of both sides.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "network/PeerProcess.hpp"
#include "network/Questions.hpp"
#include "support/History.hpp"
#include "support/LogCapture.hpp"

namespace norvane::test {
namespace {

struct Row {
    std::string name;
    std::string faults;
    std::string hit;  // what the requester's participant says of them
    double most = 3;  // octets that arrive for each octet of an answer of 1 MiB
};
const Row ROWS[] = {
    {"no_fault", "seed=1", "datagrams", 1.5},
    {"loss", "seed=1;drop=ALL:0.1", "lost"},
    {"loss_of_large_samples", "seed=1;drop=DATA_FRAG:0.2", "submessages lost"},
    {"loss_of_small_samples", "seed=1;drop=DATA:0.3", "submessages lost"},
    {"loss_of_heartbeats", "seed=1;first=HEARTBEAT;drop=HEARTBEAT:0.5;drop=HEARTBEAT_FRAG:0.5", "submessages lost"},
    {"loss_of_acknowledgements", "seed=1;first=ACKNACK;drop=ACKNACK:0.5;drop=NACK_FRAG:0.5", "submessages lost"},
    {"loss_of_announcements", "seed=1;drop=DATA(p):0.3;drop=DATA(w):0.3;drop=DATA(r):0.3", "submessages lost"},
    {"loss_of_the_first_of_each_kind",
     "first=DATA;first=DATA_FRAG;first=HEARTBEAT;first=ACKNACK;first=NACK_FRAG;first=GAP;first=DATA(p);first=DATA(w);first=DATA(r)",
     "submessages lost"},
    {"loss_of_each_sample_once", "gap", "submessages lost"},
    {"delay", "delay=20ms", "delayed"},
    {"delay_now_and_then", "seed=1;delay=5ms:0.2", "delayed"},
    {"reordering", "seed=1;reorder=0.25", "delayed"},
    {"a_short_queue", "rate=20mbit:20000", "lost"},
    {"duplication", "seed=1;dup=0.5", "duplicated"},
    {"all_of_it", "seed=1;drop=ALL:0.02;delay=2ms:0.5;dup=0.05;reorder=0.1", "lost"},
};
void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

class BadWires : public ::testing::TestWithParam<Row> {};
INSTANTIATE_TEST_SUITE_P(With, BadWires, ::testing::ValuesIn(ROWS), [](const auto& test) { return test.param.name; });

// @return a figure of the last line that a participant with faults has logged.
double figure(const LogCapture& log, const std::string& name) {
    double found = -1;
    for (const LogCapture::Line& line : log.lines()) {
        const std::size_t place = line.text.find("datagrams ") == 0 ? line.text.find(name + " ") : std::string::npos;
        found = place != std::string::npos ? std::atof(line.text.c_str() + place + name.size()) : found;
    }
    return found;
}

TEST_P(BadWires, lose_no_call) {
    const ParticipantParams params = on_loopback(domain_of_test())
                                         .property("norvane.fastdds.faults", GetParam().faults)
                                         .property("norvane.fastdds.datagram", "8192");
    const History history;
    const LogCapture log;
    {
        const PeerProcess service("oracle", words_of(params, {"Wire", "x"}));
        const Participant participant(params);
        Asker asker(RequesterParams(participant).service_name("Wire"));
        EXPECT_EQ("ok", ask_at_once(asker, "somebody", 4, 50));
        EXPECT_EQ("ok", ask_all(asker, "octets 1048576", 2));
    }
    EXPECT_EQ("", history.judge("").faults);
    EXPECT_LE(1, figure(log, GetParam().hit));
    EXPECT_GE(GetParam().most, figure(log, "octets") / (2 << 20));
}

}  // namespace
}  // namespace norvane::test
