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

namespace norvane {
namespace test {
namespace {

int cyclone(const std::vector<std::string>& arguments) {
    ::setenv("CYCLONEDDS_URI",
             "<CycloneDDS><Domain><General><Interfaces><NetworkInterface name=\"lo\" multicast=\"true\"/></Interfaces></General>"
             "<Discovery><ParticipantIndex>auto</ParticipantIndex></Discovery></Domain></CycloneDDS>",
             1);
    ::execl(NORVANE_TESTS_CYCLONE_PEER, "cyclone_peer", arguments[0].c_str(), static_cast<char*>(nullptr));
    return 1;
}

const bool KNOWN = roles().insert({"cyclone", cyclone}).second;

TEST(CyclonePeers, are_read_and_read_and_are_answered) {
    ASSERT_TRUE(KNOWN);
    const int domain = domain_of_test();
    PeerProcess stranger("cyclone", {std::to_string(domain)});
    Participant participant(on_loopback(domain));
    Replier<Question, Answer> replier(ReplierParams(participant).service_name("Moods"));
    for (std::int32_t number = 1; number <= 20; ++number) {
        // Texts of all lengths modulo four: vendors pad differently.
        const std::string text(static_cast<std::size_t>(number), 'x');
        EXPECT_EQ("written", stranger.ask("ask " + std::to_string(number) + " " + text));
        const auto request = replier.receive_request(ANSWER_TIME);
        EXPECT_EQ(number, request->data().number);
        EXPECT_EQ(text, request->data().of);
        EXPECT_EQ(std::to_string(number) + " " + text, stranger.ask("question")) << "what it wrote itself";
        replier.send_reply({number, text, "so it is"}, request->identity());
        EXPECT_EQ(std::to_string(number) + " " + text, stranger.ask("answer"));
    }
    EXPECT_EQ(0, replier.stats().unmatched);

    Asker asker(RequesterParams(participant).service_name("Moods"));
    ASSERT_TRUE(asker.wait_for_service(ANSWER_TIME));
    // A requester cannot know when a stranger has found it: what it asks before that is the stranger's loss.
    ASSERT_EQ("met", stranger.ask("meet 2"));
    for (std::int32_t number = 1; number <= 20; ++number) {
        const std::string text(static_cast<std::size_t>(number), 'y');
        asker.send_request({number, text});
        EXPECT_EQ(std::to_string(number) + " " + text, stranger.ask("question"));
    }
}

}  // namespace
}  // namespace test
}  // namespace norvane

#endif
