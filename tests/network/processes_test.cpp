// SPDX-License-Identifier: Apache-2.0
// What holds between processes: calls, large ones too, full readers, writers that leave, and who is sent what.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "network/PeerProcess.hpp"
#include "network/Questions.hpp"
#include "support/ServiceFixture.hpp"
#include "support/TextFixture.hpp"

namespace norvane::test {
namespace {

using std::chrono::milliseconds;

// Answers requests of "S" with themselves and a mark.
int echo(const std::vector<std::string>& arguments) {
    const Participant participant(on_loopback(std::stoi(arguments[0])));
    const Service<std::string, std::string> service(ReplierParams(participant).service_name("S"),
                                                    [](const std::string& text) { return text + "!"; });
    return answer_lines([](const std::string&) { return ""; });
}

// A participant with a topic of texts. @param datagram  octets at most.
class Peer {
public:
    Peer(const std::string& domain, const std::string& datagram)
        : _participant(on_loopback(std::stoi(domain)).property("norvane.fastdds.datagram", datagram)) {
        DDSStringTypeSupport::get_instance().register_type(_participant.get());
        topic = _participant.get()->create_topic("T", "DDS::String", DDS_TOPIC_QOS_DEFAULT, nullptr, 0);
    }
    ~Peer() { _participant.get()->delete_contained_entities(); }
    DDSDomainParticipant* operator->() { return _participant.get(); }
    DDSTopic* topic;

private:
    Participant _participant;
};

// A reader. Arguments: domain; room; "reliable" or "best_effort"; datagram; of whose answers, in 32 hexadecimal digits, or nothing.
// "take": what there is, taken; else: how many it has received in all.
int reader(const std::vector<std::string>& arguments) {
    Peer peer(arguments[0], arguments[3]);
    DDS_DataReaderQos qos;
    qos.reliability.kind = arguments[2] == "reliable" ? DDS_RELIABLE_RELIABILITY_QOS : DDS_BEST_EFFORT_RELIABILITY_QOS;
    qos.history.kind = DDS_KEEP_ALL_HISTORY_QOS;
    qos.resource_limits = {std::stoi(arguments[1]), 0};
    qos.protocol.rtps_reliable_reader = {{0, 0}, {0, 0}};
    DDSTopicDescription* what = peer.topic;
    if (!arguments[4].empty()) {
        const std::string filter = "@related_sample_identity.writer_guid.value = &hex(" + arguments[4] + ")";
        what = peer->create_contentfilteredtopic("F", peer.topic, filter.c_str(), DDS_StringSeq());
    }
    DDSDataReader& reader = *peer->create_datareader(what, qos, nullptr, 0);
    DDSReadCondition& all = *reader.create_readcondition(DDS_ANY_SAMPLE_STATE, DDS_ANY_VIEW_STATE, DDS_ANY_INSTANCE_STATE);
    return answer_lines([&](const std::string& line) {
        DDS_DataReaderCounts counts;
        reader.get_counts(counts);
        return line == "take" ? Loan(reader, all).texts() : std::to_string(counts.received);
    });
}

// A best-effort writer of numbers, from 0 on. A line: how many. (Its thread never waits for anything of ours.)
int burster(const std::vector<std::string>& arguments) {
    Peer peer(arguments[0], arguments[1]);
    DDS_DataWriterQos qos;
    qos.reliability.kind = DDS_BEST_EFFORT_RELIABILITY_QOS;
    qos.history.kind = DDS_KEEP_ALL_HISTORY_QOS;
    DDSDataWriter* writer = peer->create_datawriter(peer.topic, qos, nullptr, 0);
    return answer_lines([&](const std::string& line) {
        for (int number = 0; number < std::stoi(line); ++number) {
            const std::string text = std::to_string(number);
            const char* const sample = text.c_str();
            DDS_WriteParams_t params;
            DDS_DataWriter_write_w_params_untyped_generalI(writer->get_c_datawriter(), nullptr, &sample, params);
        }
        return "written";
    });
}

const KnownRole ECHO_ROLE("echo", echo);
const KnownRole READER("reader", reader);
const KnownRole BURSTER("burster", burster);

class Processes : public TextFixture {
protected:
    std::string domain() const { return std::to_string(_domain); }
    std::vector<std::string> reliable(int room, const std::string& answers_to = "") const {
        return {domain(), std::to_string(room), "reliable", "65500", answers_to};
    }
    /// A reliable writer that has met so many readers.
    DDSDataWriter& writer_of(int readers, const DDS_DataWriterQos& qos) {
        DDSDataWriter& made = writer(qos);
        EXPECT_TRUE(eventually([&] {
            DDS_PublicationMatchedStatus status;
            return made.get_publication_matched_status(status) == DDS_RETCODE_OK && status.current_count == readers;
        }));
        return made;
    }
};
INSTANTIATE_TEST_SUITE_P(Engine, Processes, ::testing::Values("fastdds"), engine_of_test);

TEST_P(Processes, large_requests_and_replies_arrive_whole) {
    const PeerProcess server("echo", {domain()});
    TextRequester requester(RequesterParams(&_participant).service_name("S"));
    for (const std::size_t size : {1U, 60000U, 70000U, 1000000U}) {
        EXPECT_EQ(std::string(size, 'x') + "!", requester.call(std::string(size, 'x'), PATIENCE)) << size;
    }
}

// Small samples share datagrams when they are written at once. (A reliable writer's heartbeats would bring in what was left
// behind.)
TEST_P(Processes, all_that_is_written_at_once_arrives_though_its_writer_never_waits) {
    for (const std::string datagram : {"65500", "1024"}) {
        SCOPED_TRACE(datagram);
        PeerProcess reader("reader", {domain(), "1000", "best_effort", datagram, ""});
        PeerProcess writer("burster", {domain(), datagram});
        // Nothing tells when the reader has found its writer: until then it hears nothing.
        ASSERT_TRUE(eventually([&] { return writer.ask("1") == "written" && reader.ask("received") != "0"; }));
        ASSERT_EQ("written", writer.ask("2"));
        ASSERT_TRUE(eventually([&] { return reader.ask("take").find('1') != std::string::npos; }));
        for (int count = 30; count < 40 && !HasFailure(); ++count) {
            std::string expected = "0";
            for (int number = 1; number < count; ++number) {
                expected += " " + std::to_string(number);
            }
            const int before = std::stoi(reader.ask("received"));
            EXPECT_EQ("written", writer.ask(std::to_string(count)));
            EXPECT_TRUE(eventually([&] { return std::stoi(reader.ask("received")) == before + count; })) << count;
            EXPECT_EQ(expected, reader.ask("take"));
        }
    }
}

// Fast DDS takes its samples away while its own heartbeat counts them.
TEST_P(Processes, writers_leave_while_much_is_on_the_way) {
    PeerProcess peer("reader", reliable(1));
    DDS_DataWriterQos qos = writer_qos();
    qos.protocol.rtps_reliable_writer.fast_heartbeat_period = {0, 1000000};
    for (int round = 0; round < 10; ++round) {
        DDSDataWriter& sender = writer_of(1, qos);
        for (int number = 0; number < 3000; ++number) {
            ASSERT_EQ(DDS_RETCODE_OK, write(sender, "x"));
        }
        EXPECT_EQ(DDS_RETCODE_OK, _participant.delete_datawriter(&sender));
    }
}

// What is not for a reader is not sent to it: one that is stopped keeps nobody waiting but those who answer it.
TEST_P(Processes, an_answer_goes_to_its_requester_alone) {
    PeerProcess stopped("reader", reliable(100, std::string(32, 'a')));
    PeerProcess other("reader", reliable(100, std::string(32, 'b')));
    DDSDataWriter& answering = writer_of(2, writer_qos());
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
