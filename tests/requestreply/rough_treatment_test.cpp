// SPDX-License-Identifier: Apache-2.0
// Bad input to every operation of a requester and a replier: a clear error, nothing done, nothing left behind. (Types that do not
// fit: see frontend_test.cpp.)
#include <climits>
#include <functional>
#include <string>
#include <vector>

#include "support/LogCapture.hpp"
#include "support/OpenEntities.hpp"
#include "support/ServiceFixture.hpp"
#include "support/Thrown.hpp"

namespace norvane::test {
namespace {

class RoughTreatment : public ServiceFixture {};
INSTANTIATE_TEST_SUITE_P(Engine, RoughTreatment, ::testing::ValuesIn(engine_names()), engine_of_test);

TEST_P(RoughTreatment, what_cannot_be_made_is_refused_and_leaves_topics_at_most) {
    const LogCapture quiet;
    DDSDomainParticipant& other = *join();
    DDSPublisher* const foreign_publisher = other.create_publisher(DDS_PUBLISHER_QOS_DEFAULT, nullptr, 0);
    DDSSubscriber* const foreign_subscriber = other.create_subscriber(DDS_SUBSCRIBER_QOS_DEFAULT, nullptr, 0);
    DDS_DataWriterQos bad_writer_qos;
    bad_writer_qos.durability.kind = DDS_PERSISTENT_DURABILITY_QOS;
    DDS_DataReaderQos bad_reader_qos;
    bad_reader_qos.history.depth = 0;
    const std::string LONGEST_REPLY(190, 'r');
    const std::string LONGEST(255, 'n');
    const std::string BAD = "BadParameterException";
    const std::string RUNTIME = "RuntimeException";
    struct Case {
        std::function<void(RequesterParams&)> spoil;  // parameters in order, but for the names
        std::string request_topic;
        std::string reply_topic;
        std::string requester_throws;
        std::string replier_throws;
        const char* part;  // of the message
    };
    const auto nothing = [](RequesterParams&) {};
    const Case CASES[] = {
        {[](RequesterParams& p) { p.participant(nullptr).service_name("S"); }, "Q", "", BAD, BAD, "NULL participant"},
        {nothing, "", "", BAD, BAD, "are required"},
        {nothing, "Q", "", BAD, BAD, "are required"},
        {[&](RequesterParams& p) { p.service_name("S").publisher(foreign_publisher); }, "", "R", BAD, BAD, "at the same time"},
        {[&](RequesterParams& p) { p.publisher(foreign_publisher); }, "Q", "R", BAD, BAD, "publisher belongs to different"},
        {[&](RequesterParams& p) { p.subscriber(foreign_subscriber); }, "Q", "R", BAD, BAD, "subscriber belongs to different"},
        {[](RequesterParams& p) { p.qos_profile("nowhere", "nothing"); }, "Q", "R", BAD, BAD, "qos"},
        {[&](RequesterParams& p) { p.datawriter_qos(bad_writer_qos); }, "Q", "R", RUNTIME, RUNTIME, "DataWriter"},
        {[&](RequesterParams& p) { p.datareader_qos(bad_reader_qos); }, "Q", "R", RUNTIME, RUNTIME, "DataReader"},
        {nothing, "Q", LONGEST_REPLY, "", "", ""},
        {nothing, "Q", LONGEST_REPLY + "r", BAD, "", "topic name is too long: rrr"},
        {nothing, LONGEST, "R", "", "", ""},
        {nothing, LONGEST + "n", "R", RUNTIME, RUNTIME, "topic nnn"},
        {nothing, "Q", "Q", "", "", ""},
    };
    for (const Case& each : CASES) {
        SCOPED_TRACE(&each - CASES);
        RequesterParams of_requester(&_participant);
        of_requester.request_topic_name(each.request_topic).reply_topic_name(each.reply_topic);
        each.spoil(of_requester);
        ReplierParams of_replier(of_requester.participant());
        of_replier.request_topic_name(each.request_topic).reply_topic_name(each.reply_topic);
        of_replier.service_name(of_requester.service_name());
        of_replier.publisher(of_requester.publisher()).subscriber(of_requester.subscriber());
        of_replier.qos_profile(of_requester.qos_library_name(), of_requester.qos_profile_name());
        if (of_requester.datawriter_qos() != nullptr) {
            of_replier.datawriter_qos(*of_requester.datawriter_qos());
        }
        if (of_requester.datareader_qos() != nullptr) {
            of_replier.datareader_qos(*of_requester.datareader_qos());
        }
        const Thrown by_requester = thrown_by([&] { TextRequester made(of_requester); });
        expect_thrown(each.requester_throws, each.requester_throws.empty() ? "" : each.part, by_requester);
        const Thrown by_replier = thrown_by([&] { TextReplier made(of_replier); });
        expect_thrown(each.replier_throws, each.replier_throws.empty() ? "" : each.part, by_replier);
        EXPECT_TRUE(only_topics_are_left(each.request_topic, each.reply_topic));
    }
    EXPECT_EQ(DDS_RETCODE_OK, other.delete_publisher(foreign_publisher));
    EXPECT_EQ(DDS_RETCODE_OK, other.delete_subscriber(foreign_subscriber));
}

TEST_P(RoughTreatment, operations_refuse_what_makes_no_sense_and_go_on_working) {
    const LogCapture quiet;
    TextRequester requester(requester_params());
    TextReplier replier(replier_params());
    OpenRequester core_requester(requester_params());
    OpenReplier core_replier(replier_params());
    await_repliers(requester, 2);
    const DDS_SampleIdentity_t id = requester.send_request("question");
    ASSERT_TRUE(replier.wait_for_requests(PATIENCE));
    replier.send_reply("answer", id);
    ASSERT_TRUE(requester.wait_for_replies(PATIENCE, id));

    const DDS_Duration_t some = {1, 0};
    const DDS_SampleIdentity_t nobody = DDS_UNKNOWN_SAMPLE_IDENTITY;
    const DDS_SampleIdentity_t zeroth = {id.writer_guid, DDS::SEQUENCE_NUMBER_ZERO};
    const DDS_SampleIdentity_t last = {id.writer_guid, DDS::SEQUENCE_NUMBER_MAX};
    const DDS_SampleIdentity_t automatic = {id.writer_guid, DDS_AUTO_SEQUENCE_NUMBER};
    const DDS_SampleIdentity_t of_no_writer = {DDS_GUID_UNKNOWN, id.sequence_number};
    const char* const no_text = nullptr;
    const std::string cut("to be\0continued", 15);
    DDS_WriteParams_t params;
    struct Case {
        const char* what;
        const char* type;
        std::function<void()> call;
        const char* part = "";  // of the message
    };
    const char* const ORDER = "max_count must be greater or equal than min_count";
    const char* const BAD = "BadParameterException";
    core_replier._max_samples_per_read = 4;
    const Case CASES[] = {
        {"send_request null", BAD, [&] { requester.send_request(no_text); }},
        {"send_request NUL", BAD, [&] { requester.send_request(cut); }},
        {"wait_for_replies to nothing", BAD, [&] { requester.wait_for_replies(some, nobody); }},
        {"wait_for_replies to the zeroth", BAD, [&] { requester.wait_for_replies(some, 1, zeroth); }},
        {"take_replies to nothing", BAD, [&] { requester.take_replies(nobody); }},
        {"read_replies to the automatic one", BAD, [&] { requester.read_replies(DDS_AUTO_SAMPLE_IDENTITY); }},
        {"take_replies -2", BAD, [&] { requester.take_replies(-2); }},
        {"read_replies -2", BAD, [&] { requester.read_replies(-2); }},
        {"read_replies of one, -2", BAD, [&] { requester.read_replies(-2, id); }},
        {"receive_replies too few", BAD, [&] { requester.receive_replies(3, 2, some); }, ORDER},
        {"receive_replies without end", BAD, [&] { requester.receive_replies(1, -1, DDS_DURATION_INFINITE); }},
        {"receive_replies, none", BAD, [&] { requester.receive_replies(1, 0, some); }, "max_count must be greater than zero"},
        {"receive_replies too few, without time", BAD, [&] { requester.receive_replies(5, 3, DDS_DURATION_ZERO); }, ORDER},
        {"core: no limits", "", [&] { core_requester.validate(-1, -1, some); }},
        {"core: more than a read brings", BAD, [&] { core_replier.validate(5, -1, some); }, ORDER},
        {"core: what a read brings", "", [&] { core_replier.validate(-1, -1, DDS_DURATION_INFINITE); }},
        {"send_reply null", BAD, [&] { replier.send_reply(no_text, id); }},
        {"send_reply NUL", BAD, [&] { replier.send_reply(cut, id); }},
        {"send_reply to nothing", BAD, [&] { replier.send_reply("x", nobody); }},
        {"send_reply to the zeroth", BAD, [&] { replier.send_reply("x", zeroth); }},
        {"wait_for_replies to the last", BAD, [&] { requester.wait_for_replies(some, 1, last); }},
        {"send_reply to the last", BAD, [&] { replier.send_reply("x", last); }},
        {"send_reply to the automatic one", BAD, [&] { replier.send_reply("x", automatic); }},
        {"send_reply to no writer", BAD, [&] { replier.send_reply("x", of_no_writer); }},
        {"take_requests -2", BAD, [&] { replier.take_requests(-2); }},
        {"read_requests the least", BAD, [&] { replier.read_requests(INT_MIN); }},
        {"receive_requests without time", BAD, [&] { replier.receive_requests(DDS_DURATION_ZERO); }},
        {"core: null request", BAD, [&] { core_requester.send_sample(nullptr, params); }},
        {"core: null reply", BAD, [&] { core_replier.send_sample(nullptr, id, params); }},
        {"core: another's conditions", BAD,
         [&] {
             core_replier.wait_for_samples(some, 1, core_replier._waitset, core_requester._any_sample_cond,
                                           core_requester._not_read_sample_cond);
         }},
    };
    for (const Case& each : CASES) {
        const Thrown thrown = thrown_by(each.call);
        SCOPED_TRACE(each.what);
        expect_thrown(each.type, each.part, thrown);
        EXPECT_EQ(1U, requester.read_replies(id).size());
        EXPECT_EQ(1U, replier.read_requests().size());
    }

    // Both halves of a number count.
    for (const DDS_SequenceNumber_t& number : {DDS_SequenceNumber_t{0, 0xffffffff}, DDS_SequenceNumber_t{1, 0}}) {
        EXPECT_EQ("", thrown_by([&] { replier.send_reply("long ago", {id.writer_guid, number}); }).type);
    }
    replier.send_reply("again", id);
    EXPECT_TRUE(requester.wait_for_replies(PATIENCE, 2, id));
    EXPECT_EQ((std::vector<std::string>{"answer", "again"}), strings_of(requester.take_replies(id)));
}

}  // namespace
}  // namespace norvane::test
