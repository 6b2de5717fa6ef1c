// SPDX-License-Identifier: Apache-2.0
// RTPS messages in one datagram: what may be joined, and what comes of it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engines/fastdds/transport/Datagram.hpp"

namespace norvane::test {
namespace {

using fastdds::Datagram;

typedef std::vector<std::uint8_t> Octets;

Octets operator+(Octets left, const Octets& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Octets header(std::uint8_t participant = 1) {
    Octets octets = {'R', 'T', 'P', 'S', 2, 3, 1, 15};
    octets.resize(20, participant);
    return octets;
}

Octets submessage(std::uint8_t kind, std::uint8_t length, std::uint8_t flags = 1) {
    Octets octets = {kind, flags, length, 0};
    octets.resize(4U + length, kind);
    return octets;
}

const Octets TIME = submessage(0x09, 8);
const Octets NO_TIME = submessage(0x09, 0, 3);
const Octets PLACE = submessage(0x0e, 12);
const Octets DATA = submessage(0x15, 40);
const Octets HEARTBEAT = submessage(0x07, 28);
const Octets OF_VENDOR = submessage(0x80, 56);

// What goes out; empty when the second does not join the first.
Octets join(const Octets& first, const Octets& second, std::size_t limit = 1472) {
    Datagram datagram(limit);
    if (!datagram.append(first.data(), first.size())) {
        return {};
    }
    const Octets before = datagram.octets();
    if (!datagram.append(second.data(), second.size())) {
        EXPECT_EQ(before, datagram.octets());
        return {};
    }
    return datagram.octets();
}

TEST(Datagram, reads_as_the_messages_one_after_the_other) {
    struct {
        const char* what;
        Octets first;
        Octets second;
        Octets joined;
    } const CASES[] = {
        {"data and data", PLACE + TIME + DATA, PLACE + TIME + DATA, PLACE + TIME + DATA + PLACE + TIME + DATA},
        {"a time does not pass to the next message", TIME + DATA, HEARTBEAT, TIME + DATA + NO_TIME + HEARTBEAT},
        {"the end of a message may have a time of its own", DATA, HEARTBEAT + TIME + DATA, DATA + HEARTBEAT + TIME + DATA},
        {"only the last one ends with what a vendor adds", TIME + DATA + OF_VENDOR, TIME + DATA + OF_VENDOR,
         TIME + DATA + TIME + DATA + OF_VENDOR},
        {"to everybody, then to one", TIME + DATA, PLACE + TIME + DATA, TIME + DATA + PLACE + TIME + DATA},
        {"padding", TIME + DATA + submessage(0x01, 0), TIME + DATA, TIME + DATA + submessage(0x01, 0) + TIME + DATA},
    };
    for (const auto& each : CASES) {
        EXPECT_EQ(header() + each.joined, join(header() + each.first, header() + each.second)) << each.what;
    }
}

TEST(Datagram, leaves_alone_what_would_mean_something_else) {
    const Octets message = header() + TIME + DATA;
    Octets cut = message;
    cut.pop_back();
    Octets to_the_end = message;
    to_the_end[20 + 12 + 2] = 0;
    Octets odd = header() + submessage(0x15, 41);
    struct {
        const char* what;
        Octets first;
        Octets second;
    } const CASES[] = {
        {"of another participant", message, header(2) + TIME + DATA},
        {"to one, then to everybody", header() + PLACE + TIME + DATA, message},
        {"to one, but said too late", header() + PLACE + TIME + DATA, header() + HEARTBEAT + PLACE + DATA},
        {"encrypted as a whole", message, header() + submessage(0x33, 20) + submessage(0x34, 20)},
        {"from somebody else", message, header() + submessage(0x0c, 20) + DATA},
        {"cut off", message, cut},
        {"of unknown length", message, to_the_end},
        {"of odd length", message, odd},
        {"with something behind what a vendor adds", message, header() + OF_VENDOR + DATA},
        {"no message", message, Octets(40, 'x')},
        {"nothing", message, header()},
    };
    for (const auto& each : CASES) {
        EXPECT_EQ(Octets(), join(each.first, each.second)) << each.what;
    }
}

TEST(Datagram, holds_no_more_than_its_limit) {
    const Octets message = header() + TIME + DATA;  // of which 20 octets go when it is joined to another
    for (std::size_t limit = message.size(); limit < 5 * message.size(); ++limit) {
        Datagram datagram(limit);
        for (int count = 0; datagram.has_room_for(message.size()); ++count) {
            ASSERT_TRUE(datagram.append(message.data(), message.size())) << limit << ", " << count;
            ASSERT_GE(limit, datagram.octets().size());
        }
        EXPECT_FALSE(datagram.append(message.data(), message.size()));
        EXPECT_LT(limit, datagram.octets().size() + message.size()) << "there was room for more";
        datagram.clear();
        EXPECT_TRUE(datagram.append(message.data(), message.size()));
    }
}

}  // namespace
}  // namespace norvane::test
