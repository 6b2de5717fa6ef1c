// SPDX-License-Identifier: Apache-2.0
// A program on another vendor's DDS on the topics of our services: it is read, it reads, and is answered. (Which question an answer
// is about it learns from the answer: the related identity is not understood between vendors.)
#ifdef NORVANE_TESTS_CYCLONE_PEER

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "network/PeerProcess.hpp"
#include "network/Questions.hpp"
#include "support/Eventually.hpp"

namespace norvane::test {
namespace {

// Arguments: domain; octets of the buffer of its sockets at most.
int cyclone(const std::vector<std::string>& arguments) {
    const std::string settings =
        "<CycloneDDS><Domain><General><Interfaces><NetworkInterface name=\"lo\" multicast=\"true\"/></Interfaces></General>"
        "<Discovery><ParticipantIndex>auto</ParticipantIndex><LeaseDuration>60s</LeaseDuration></Discovery>"
        "<Internal><SocketReceiveBufferSize max=\"" +
        arguments[1] + " B\"/></Internal></Domain></CycloneDDS>";
    ::setenv("CYCLONEDDS_URI", settings.c_str(), 1);
    ::execl(NORVANE_TESTS_CYCLONE_PEER, "cyclone_peer", arguments[0].c_str(), static_cast<char*>(nullptr));
    return 1;
}

const KnownRole CYCLONE("cyclone", cyclone);

// Where a process stands still for some seconds, on a busy machine, and its lease ends, it is found again, and what was written
// meanwhile is lost.
constexpr const char* NO_LEASE_THAT_ENDS_MS = "60000";

// Cyclone says that it has met a writer some microseconds before its reader listens to it, and what comes in between is lost. It
// acknowledges when the reader listens, and then that sample, too. So the first one, number 0, is a knock: it is acknowledged, and
// may not be read.
std::string next(PeerProcess& stranger, const std::string& kind) {
    const std::string sample = stranger.ask(kind);
    return sample == "0 knock" ? stranger.ask(kind) : sample;
}

// @return so many, or fewer, and what it says instead of the next.
std::vector<std::string> next_ones(PeerProcess& stranger, const std::string& kind, std::size_t count) {
    std::vector<std::string> all;
    while (all.size() < count && (all.empty() || all.back().find('(') == std::string::npos)) {
        all.push_back(next(stranger, kind));
    }
    return all;
}

TEST(CyclonePeers, are_read_and_read_and_are_answered) {
    const int domain = domain_of_test();
    PeerProcess stranger("cyclone", {std::to_string(domain), "200000"});
    Participant participant(on_loopback(domain).property("norvane.fastdds.lease_ms", NO_LEASE_THAT_ENDS_MS));
    Replier<Question, Answer> replier(ReplierParams(participant).service_name("Moods"));
    EXPECT_EQ("written", stranger.ask("ask 0 knock"));
    const auto knock = replier.receive_request(ANSWER_TIME);
    // Nobody holds answers for strangers: what is sent before their reader is found is their loss.
    ASSERT_TRUE(eventually([&] {
        DDS_PublicationMatchedStatus status;
        return replier.get_reply_datawriter()->get_publication_matched_status(status) == DDS_RETCODE_OK &&
               status.current_count == 1;
    }));
    replier.send_reply({0, "knock", ""}, knock->identity());
    ASSERT_TRUE(replier.wait_for_acknowledgments(ANSWER_TIME));
    for (std::int32_t number = 1; number <= 20; ++number) {
        // Texts of all lengths modulo four: vendors pad differently.
        const std::string text(static_cast<std::size_t>(number), 'x');
        EXPECT_EQ("written", stranger.ask("ask " + std::to_string(number) + " " + text));
        const auto request = replier.receive_request(ANSWER_TIME);
        EXPECT_EQ(number, request->data().number);
        EXPECT_EQ(text, request->data().of);
        EXPECT_EQ(std::to_string(number) + " " + text, next(stranger, "question")) << "what it wrote itself";
        replier.send_reply({number, text, "so it is"}, request->identity());
        EXPECT_EQ(std::to_string(number) + " " + text, next(stranger, "answer"));
    }
    EXPECT_EQ(0, replier.stats().unmatched);

    Asker asker(RequesterParams(participant).service_name("Moods"));
    ASSERT_TRUE(asker.wait_for_service(ANSWER_TIME));
    // A requester cannot know when a stranger has found it: what it asks before that is the stranger's loss.
    ASSERT_EQ("met", stranger.ask("meet 2"));
    asker.send_request({0, "knock"});
    ASSERT_EQ(DDS_RETCODE_OK, asker.get_request_datawriter()->wait_for_acknowledgments({20, 0}));
    // Right after one another they share datagrams, and are the stranger's none the less.
    const auto text_of = [](std::int32_t number) { return std::string(static_cast<std::size_t>(number % 20), 'y'); };
    std::vector<std::string> sent;
    for (std::int32_t number = 1; number <= 60; ++number) {
        asker.send_request({number, text_of(number)});
        sent.push_back(std::to_string(number) + " " + text_of(number));
    }
    EXPECT_EQ(sent, next_ones(stranger, "question", sent.size()));
}

// To Cyclone what comes before the first heartbeat that it hears is over, and it asks for nothing of it.
TEST(CyclonePeers, get_what_was_lost_at_first) {
    const int domain = domain_of_test();
    PeerProcess stranger("cyclone", {std::to_string(domain), "16000"});
    Participant participant(on_loopback(domain).property("norvane.fastdds.lease_ms", NO_LEASE_THAT_ENDS_MS));
    Replier<Question, Answer> replier(ReplierParams(participant).service_name("Moods"));
    EXPECT_EQ("written", stranger.ask("ask 0 knock"));
    // It knows the participant by now: the heartbeat of the match does not wait until it knows the writer.
    Asker asker(RequesterParams(participant).service_name("Moods"));
    ASSERT_EQ("met", stranger.ask("meet 2"));
    // Its reader listens long before this one has been written and acknowledged.
    EXPECT_EQ("written", stranger.ask("ask 1 knock"));
    EXPECT_EQ("1 knock", next(stranger, "question"));
    stranger.stop();
    // Some of them are more than its socket holds, heartbeats that come behind them included.
    std::vector<std::string> sent;
    for (std::int32_t number = 1; number <= 40; ++number) {
        const std::string text(1000, 'z');
        asker.send_request({number, text});
        sent.push_back(std::to_string(number) + " " + text);
    }
    stranger.go_on();
    const std::vector<std::string> arrived = next_ones(stranger, "question", sent.size());
    EXPECT_TRUE(sent == arrived) << arrived.size() << " of " << sent.size() << ", at last " << arrived.back().substr(0, 10);
}

}  // namespace
}  // namespace norvane::test

#endif
