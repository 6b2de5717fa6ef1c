// SPDX-License-Identifier: Apache-2.0
// A program on another vendor's DDS on the topics of our services: it is read, it reads, and is answered. (Which question an answer is about it
// learns from the answer: the related identity is not understood between vendors.)
#ifdef NORVANE_TESTS_CYCLONE_PEER

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "network/PeerProcess.hpp"
#include "network/Questions.hpp"
#include "support/Eventually.hpp"

namespace norvane {
namespace test {
namespace {

int cyclone(const std::vector<std::string>& arguments) {
    ::setenv(
        "CYCLONEDDS_URI",
        "<CycloneDDS><Domain><General><Interfaces><NetworkInterface name=\"lo\" multicast=\"true\"/></Interfaces></General>"
        "<Discovery><ParticipantIndex>auto</ParticipantIndex><LeaseDuration>60s</LeaseDuration></Discovery></Domain></CycloneDDS>",
        1);
    ::execl(NORVANE_TESTS_CYCLONE_PEER, "cyclone_peer", arguments[0].c_str(), static_cast<char*>(nullptr));
    return 1;
}

const bool KNOWN = roles().insert({"cyclone", cyclone}).second;

// Where a process stands still for some seconds, on a busy machine, and its lease ends, it is found again, and what was written meanwhile is lost.
constexpr const char* NO_LEASE_THAT_ENDS_MS = "60000";

std::string joined(const std::vector<std::string>& lines) {
    std::string all;
    for (const std::string& line : lines) {
        all += line + "\n";
    }
    return all;
}

// Cyclone says that it has met a writer some microseconds before its reader listens to it, and what comes in between is lost. It acknowledges when the
// reader listens, and then that sample, too. So the first one, number 0, is a knock: it is acknowledged, and may not be read.
std::string next(PeerProcess& stranger, const std::string& kind) {
    const std::string sample = stranger.ask(kind);
    return sample == "0 knock" ? stranger.ask(kind) : sample;
}

TEST(CyclonePeers, are_read_and_read_and_are_answered) {
    ASSERT_TRUE(KNOWN);
    const int domain = domain_of_test();
    PeerProcess stranger("cyclone", {std::to_string(domain)});
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
    std::vector<std::string> arrived;
    bool comes = true;
    while (comes && arrived.size() < sent.size()) {
        arrived.push_back(next(stranger, "question"));
        comes = arrived.back().find('(') == std::string::npos;
    }
    EXPECT_EQ(joined(sent), joined(arrived));
}

}  // namespace
}  // namespace test
}  // namespace norvane

#endif
