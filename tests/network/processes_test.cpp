// SPDX-License-Identifier: Apache-2.0
// What holds between processes: calls, full pairs at start-up, full readers, peers that die.
#include <gtest/gtest.h>

#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "network/PeerProcess.hpp"
#include "support/ServiceFixture.hpp"
#include "support/TextFixture.hpp"
#include "support/Thrown.hpp"

namespace norvane::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

DDSDomainParticipant& join_domain(const std::string& domain, const std::string& datagram = "65500") {
    DDS_DomainParticipantQos qos;
    DDSPropertyQosPolicyHelper::add_property(qos.property, "norvane.fastdds.datagram", datagram.c_str(), DDS_BOOLEAN_FALSE);
    DDSPropertyQosPolicyHelper::add_property(qos.property, "norvane.engine", "fastdds", DDS_BOOLEAN_FALSE);
    DDSPropertyQosPolicyHelper::add_property(qos.property, "norvane.fastdds.interfaces", "127.0.0.1", DDS_BOOLEAN_FALSE);
    return *factory().create_participant(std::stoi(domain), qos, nullptr, 0);
}

void leave_domain(DDSDomainParticipant& participant) {
    participant.delete_contained_entities();
    factory().delete_participant(&participant);
}

// Answers requests with themselves and a mark. Any line: how many it has answered.
int echo(const std::vector<std::string>& arguments) {
    DDSDomainParticipant& participant = join_domain(arguments[0]);
    {
        TextReplier replier(ReplierParams(&participant).service_name(arguments[1]));
        std::atomic<bool> ended{false};
        std::thread answering([&] {
            try {
                for (;;) {
                    const auto request = replier.receive_request(PATIENCE);
                    if (request) {
                        replier.send_reply(request->data() + arguments[2], request->identity());
                    }
                }
            } catch (const std::exception&) {
            }
        });
        std::cout << "ready" << std::endl;
        for (std::string line; std::getline(std::cin, line);) {
            std::cout << replier.stats().answered << std::endl;
        }
        replier.close();
        answering.join();
    }
    leave_domain(participant);
    return 0;
}

// A reader with room for some samples; reliable, unless it is told otherwise, and of which datagrams. "held": how many it holds;
// else: what
// there is, taken.
int small_reader(const std::vector<std::string>& arguments) {
    DDSDomainParticipant& participant = arguments.size() > 3 ? join_domain(arguments[0], arguments[3]) : join_domain(arguments[0]);
    DDSStringTypeSupport::get_instance().register_type(&participant);
    DDSTopic* topic = participant.create_topic("T", "DDS::String", DDS_TOPIC_QOS_DEFAULT, nullptr, 0);
    DDS_DataReaderQos qos;
    qos.reliability.kind = arguments.size() == 2 ? DDS_RELIABLE_RELIABILITY_QOS : DDS_BEST_EFFORT_RELIABILITY_QOS;
    qos.history.kind = DDS_KEEP_ALL_HISTORY_QOS;
    qos.resource_limits = {std::stoi(arguments[1]), 0};
    qos.protocol.rtps_reliable_reader = {{0, 0}, {0, 0}};
    DDSStringDataReader* reader = DDSStringDataReader::narrow(participant.create_datareader(topic, qos, nullptr, 0));
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        DDS_DataReaderCounts counts;
        reader->get_counts(counts);
        if (line == "held") {
            std::cout << counts.held << std::endl;
            continue;
        }
        DDS_StringSeq texts;
        DDS_SampleInfoSeq infos;
        std::string all;
        if (reader->take(texts, infos, DDS_LENGTH_UNLIMITED, DDS_ANY_SAMPLE_STATE, DDS_ANY_VIEW_STATE, DDS_ANY_INSTANCE_STATE) ==
            DDS_RETCODE_OK) {
            for (DDS_Long index = 0; index < texts.length(); ++index) {
                all += std::string(texts[index]) + " ";
            }
            reader->return_loan(texts, infos);
        }
        std::cout << all << std::endl;
    }
    leave_domain(participant);
    return 0;
}

// A best-effort writer of numbers, from 0 on. A line: how many. (Its thread never waits for anything of ours.)
int burster(const std::vector<std::string>& arguments) {
    DDSDomainParticipant& participant = join_domain(arguments[0], arguments[1]);
    DDSStringTypeSupport::get_instance().register_type(&participant);
    DDS_DataWriterQos qos;
    qos.reliability.kind = DDS_BEST_EFFORT_RELIABILITY_QOS;
    qos.history.kind = DDS_KEEP_ALL_HISTORY_QOS;
    DDSDataWriter* writer = participant.create_datawriter(
        participant.create_topic("T", "DDS::String", DDS_TOPIC_QOS_DEFAULT, nullptr, 0), qos, nullptr, 0);
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        for (int number = 0; number < std::stoi(line); ++number) {
            const std::string text = std::to_string(number);
            const char* const sample = text.c_str();
            DDS_WriteParams_t params;
            DDS_DataWriter_write_w_params_untyped_generalI(writer->get_c_datawriter(), nullptr, &sample, params);
        }
        std::cout << "written" << std::endl;
    }
    leave_domain(participant);
    return 0;
}

// One after another, each with a requester of its own that calls at once: as many as answered rightly.
int callers(const std::vector<std::string>& arguments) {
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        DDSDomainParticipant& participant = join_domain(arguments[0]);
        int answered = 0;
        for (int number = 0; number < std::stoi(line); ++number) {
            TextRequester requester(RequesterParams(&participant).service_name(arguments[1]));
            try {
                answered += requester.call("x", seconds(10)) == "x!" ? 1 : 0;
            } catch (const std::exception& failure) {
                std::cerr << failure.what() << std::endl;
            }
        }
        leave_domain(participant);
        std::cout << answered << std::endl;
    }
    return 0;
}

// Threads that each call without a pause. Any line: how many calls were answered.
int incessant_callers(const std::vector<std::string>& arguments) {
    DDSDomainParticipant& participant = join_domain(arguments[0]);
    std::atomic<bool> ended{false};
    std::atomic<int> answered{0};
    std::vector<std::thread> threads;
    for (int count = 0; count < std::stoi(arguments[2]); ++count) {
        threads.emplace_back([&] {
            TextRequester requester(RequesterParams(&participant).service_name(arguments[1]));
            while (!ended) {
                answered += requester.call("x", seconds(10)) == "x!" ? 1 : 0;
            }
        });
    }
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        std::cout << answered << std::endl;
    }
    ended = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    leave_domain(participant);
    return 0;
}

// A reader of the answers to one writer, whose GUID is given in hexadecimal digits. Any line: how many answers it has.
int hearer(const std::vector<std::string>& arguments) {
    DDSDomainParticipant& participant = join_domain(arguments[0]);
    DDSStringTypeSupport::get_instance().register_type(&participant);
    DDSTopic* topic = participant.create_topic("Answer", "DDS::String", DDS_TOPIC_QOS_DEFAULT, nullptr, 0);
    const std::string filter = "@related_sample_identity.writer_guid.value = &hex(" + arguments[1] + ")";
    DDS_DataReaderQos qos;
    qos.reliability.kind = DDS_RELIABLE_RELIABILITY_QOS;
    qos.history.kind = DDS_KEEP_ALL_HISTORY_QOS;
    qos.protocol.rtps_reliable_reader = {{0, 0}, {0, 0}};
    DDSDataReader* reader = participant.create_datareader(
        participant.create_contentfilteredtopic("F", topic, filter.c_str(), DDS_StringSeq()), qos, nullptr, 0);
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        DDS_DataReaderCounts counts;
        reader->get_counts(counts);
        std::cout << counts.received << std::endl;
    }
    leave_domain(participant);
    return 0;
}

const bool KNOWN = roles().insert({"hearer", hearer}).second && roles().insert({"echo", echo}).second &&
                   roles().insert({"small_reader", small_reader}).second && roles().insert({"burster", burster}).second &&
                   roles().insert({"callers", callers}).second && roles().insert({"incessant_callers", incessant_callers}).second;

class Processes : public TextFixture {
protected:
    std::string domain() const { return std::to_string(_domain); }
    RequesterParams requester_params() { return RequesterParams(&_participant).service_name("S"); }
};
INSTANTIATE_TEST_SUITE_P(Engine, Processes, ::testing::Values("fastdds"), engine_of_test);

TEST_P(Processes, a_call_is_answered_by_another_process_and_large_ones_arrive_whole) {
    ASSERT_TRUE(KNOWN);
    PeerProcess server("echo", {domain(), "S", "!"});
    TextRequester requester(requester_params());
    for (const std::size_t size : {std::size_t(1), std::size_t(60000), std::size_t(70000), std::size_t(1000000)}) {
        EXPECT_EQ(std::string(size, 'x') + "!", requester.call(std::string(size, 'x'), PATIENCE)) << size;
    }
    for (int number = 0; number < 500; ++number) {
        EXPECT_EQ(std::to_string(number) + "!", requester.call(std::to_string(number), PATIENCE));
    }
    EXPECT_TRUE(eventually([&] { return server.ask("answered") == "504"; }));  // counted after the answer is written
    EXPECT_EQ(0, requester.stats().late);
}

// Neither a request nor a reply may be lost because one half of the pair has not been found yet.
TEST_P(Processes, the_first_call_of_each_of_many_requesters_is_answered) {
    PeerProcess first("echo", {domain(), "S", "!"});
    PeerProcess others("callers", {domain(), "S"});
    EXPECT_EQ("30", others.ask("30"));
    EXPECT_EQ("30", others.ask("30"));
    EXPECT_TRUE(eventually([&] { return first.ask("answered") == "60"; }));
}

// A reader of the replier's own process is offered replies from the moment that Fast DDS has matched it, before the match is reported.
TEST_P(Processes, a_newcomer_in_the_process_of_a_busy_replier_is_answered_at_once) {
    const Service<std::string, std::string> echo(ReplierParams(&_participant).service_name("S"),
                                                 [](const std::string& text) { return text + "!"; });
    PeerProcess busy("incessant_callers", {domain(), "S", "4"});
    EXPECT_TRUE(eventually([&] { return busy.ask("answered") != "0"; }));
    for (int newcomer = 0; newcomer < 60 && !HasFailure(); ++newcomer) {
        TextRequester requester(requester_params());
        EXPECT_NO_THROW(EXPECT_EQ("y!", requester.call("y", seconds(5)))) << newcomer;
    }
}

// Small samples share datagrams when they are written at once. (A reliable writer's heartbeats would bring in what was left
// behind.)
TEST_P(Processes, all_that_is_written_at_once_arrives_though_its_writer_never_waits) {
    for (const std::string datagram : {"65500", "1024"}) {
        SCOPED_TRACE(datagram);
        PeerProcess reader("small_reader", {domain(), "1000", "best_effort", datagram});
        PeerProcess writer("burster", {domain(), datagram});
        // Nobody can say when the reader has found its writer: until then it hears nothing.
        ASSERT_TRUE(eventually([&] { return writer.ask("1") == "written" && reader.ask("held") != "0"; }));
        ASSERT_EQ("written", writer.ask("2"));
        ASSERT_TRUE(eventually([&] { return reader.ask("take").find("1 ") != std::string::npos; }));
        const auto arrives = [&](int count) {
            std::string expected;
            for (int number = 0; number < count; ++number) {
                expected += std::to_string(number) + " ";
            }
            EXPECT_TRUE(eventually([&] { return reader.ask("held") == std::to_string(count); })) << count;
            EXPECT_EQ(expected, reader.ask("take"));
        };
        for (int count = 30; count < 40 && !HasFailure(); ++count) {
            EXPECT_EQ("written", writer.ask(std::to_string(count)));
            arrives(count);
        }
    }
}

// Fast DDS takes its samples away while its own heartbeat counts them.
TEST_P(Processes, writers_leave_while_much_is_on_the_way) {
    PeerProcess peer("small_reader", {domain(), "1"});
    DDS_DataWriterQos qos = writer_qos();
    qos.protocol.rtps_reliable_writer.fast_heartbeat_period = {0, 1000000};
    for (int round = 0; round < 10; ++round) {
        DDSDataWriter& sender = writer(qos);
        DDS_PublicationMatchedStatus status;
        EXPECT_TRUE(eventually(
            [&] { return sender.get_publication_matched_status(status) == DDS_RETCODE_OK && status.current_count == 1; }));
        for (int number = 0; number < 3000; ++number) {
            ASSERT_EQ(DDS_RETCODE_OK, write(sender, "x"));
        }
        EXPECT_EQ(DDS_RETCODE_OK, _participant.delete_datawriter(&sender));
    }
}

TEST_P(Processes, a_full_reader_stops_its_writer_and_nothing_is_lost) {
    constexpr int ROOM = 3;
    PeerProcess peer("small_reader", {domain(), std::to_string(ROOM)});
    DDS_DataWriterQos qos = writer_qos({0, 300000000});
    qos.resource_limits = {ROOM, 0};
    qos.protocol.rtps_reliable_writer.fast_heartbeat_period = {0, 10000000};
    qos.protocol.rtps_reliable_writer.max_nack_response_delay = {0, 0};
    DDSDataWriter& sender = writer(qos);
    EXPECT_TRUE(eventually([&] {
        DDS_PublicationMatchedStatus status;
        return sender.get_publication_matched_status(status) == DDS_RETCODE_OK && status.current_count == 1;
    }));
    int written = 0;
    std::string expected;
    const auto start = [] { return std::chrono::steady_clock::now(); };
    auto before = start();
    DDS_ReturnCode_t code = DDS_RETCODE_OK;
    while (code == DDS_RETCODE_OK && written < 100) {
        before = start();
        code = write(sender, std::to_string(written + 1));
        written += code == DDS_RETCODE_OK ? 1 : 0;
        expected += code == DDS_RETCODE_OK ? std::to_string(written) + " " : "";
    }
    EXPECT_EQ(DDS_RETCODE_TIMEOUT, code);
    EXPECT_GE(start() - before, milliseconds(300));
    EXPECT_LE(ROOM, written);
    EXPECT_GE(2 * ROOM, written);
    std::string got;
    EXPECT_TRUE(eventually([&] {
        got += peer.ask("take");
        return got.size() >= expected.size();
    }));
    EXPECT_EQ(expected, got);
    // A reader that drains keeps its writer going.
    for (int number = 0; number < 100; ++number) {
        EXPECT_TRUE(eventually([&] {
            got += peer.ask("take");
            return write(sender, "x") == DDS_RETCODE_OK;
        }));
    }
    EXPECT_TRUE(eventually([&] {
        got += peer.ask("take");
        return got.size() == expected.size() + 200;
    })) << got.size();
}

// What is not for a reader is not sent to it: one that is stopped keeps nobody waiting but those who answer it.
TEST_P(Processes, an_answer_goes_to_its_requester_alone) {
    PeerProcess stopped("hearer", {domain(), std::string(32, 'a')});
    PeerProcess other("hearer", {domain(), std::string(32, 'b')});
    DDSDataWriter& answering = writer(writer_qos(), "Answer");
    EXPECT_TRUE(eventually([&] {
        DDS_PublicationMatchedStatus status;
        return answering.get_publication_matched_status(status) == DDS_RETCODE_OK && status.current_count == 2;
    }));
    const auto answers = [](int octet) {
        DDS_SampleIdentity_t identity = related_to(1);
        std::memset(identity.writer_guid.value, octet, sizeof identity.writer_guid.value);
        return identity;
    };
    EXPECT_EQ(DDS_RETCODE_OK, write(answering, "x", answers(0xaa)));
    EXPECT_EQ(DDS_RETCODE_OK, answering.wait_for_acknowledgments(LONG_TIME));
    stopped.stop();
    for (int number = 0; number < 10; ++number) {
        EXPECT_EQ(DDS_RETCODE_OK, write(answering, "x", answers(0xbb)));
    }
    EXPECT_EQ(DDS_RETCODE_OK, answering.wait_for_acknowledgments({1, 0})) << "the lease is longer than that";
    EXPECT_EQ(DDS_RETCODE_OK, write(answering, "x", answers(0xaa)));
    EXPECT_EQ(DDS_RETCODE_TIMEOUT, answering.wait_for_acknowledgments({0, 100000000}));
    stopped.go_on();
    EXPECT_EQ(DDS_RETCODE_OK, answering.wait_for_acknowledgments(LONG_TIME));
    EXPECT_EQ("2", stopped.ask("received"));
    EXPECT_EQ("10", other.ask("received"));
}

}  // namespace
}  // namespace norvane::test
