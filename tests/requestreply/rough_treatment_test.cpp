// SPDX-License-Identifier: Apache-2.0
// Bad input to every operation of a requester and a replier: a clear error, nothing done, nothing left behind. (Types that do not
// fit:
// see frontend_test.cpp.)
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
    const std::string TOO_LONG_REPLY(191, 'r');
    const std::string LONGEST(255, 'n');
    const std::string TOO_LONG(256, 'n');
    struct Case {
        const char* what;
        std::function<void(RequesterParams&)> spoil;  // parameters in order, but for the names
        std::string request_topic;
        std::string reply_topic;
        const char* requester_throws;
        const char* replier_throws;
        const char* part;  // of the message
    };
    const Case CASES[] = {
        {"null participant", [](RequesterParams& p) { p.participant(nullptr); }, "Q", "R", "BadParameterException",
         "BadParameterException", "NULL participant"},
        {"no names", [](RequesterParams&) {}, "", "", "BadParameterException", "BadParameterException", "are required"},
        {"one name", [](RequesterParams&) {}, "Q", "", "BadParameterException", "BadParameterException", "are required"},
        {"too many names", [](RequesterParams& p) { p.service_name("S"); }, "Q", "R", "BadParameterException",
         "BadParameterException", "cannot be set at the same time"},
        {"null participant, of the things wrong", [](RequesterParams& p) { p.participant(nullptr).service_name("S"); }, "Q", "",
         "BadParameterException", "BadParameterException", "NULL participant"},
        {"too many names, and then a foreign publisher",
         [&](RequesterParams& p) { p.service_name("S").publisher(foreign_publisher); }, "", "R", "BadParameterException",
         "BadParameterException", "cannot be set at the same time"},
        {"foreign publisher", [&](RequesterParams& p) { p.publisher(foreign_publisher); }, "Q", "R", "BadParameterException",
         "BadParameterException", "publisher belongs to different participant"},
        {"foreign subscriber", [&](RequesterParams& p) { p.subscriber(foreign_subscriber); }, "Q", "R", "BadParameterException",
         "BadParameterException", "subscriber belongs to different participant"},
        {"unknown profile", [](RequesterParams& p) { p.qos_profile("nowhere", "nothing"); }, "Q", "R", "BadParameterException",
         "BadParameterException", "qos"},
        {"bad QoS of the writer", [&](RequesterParams& p) { p.datawriter_qos(bad_writer_qos); }, "Q", "R", "RuntimeException",
         "RuntimeException", "DataWriter"},
        {"bad QoS of the reader", [&](RequesterParams& p) { p.datareader_qos(bad_reader_qos); }, "Q", "R", "RuntimeException",
         "RuntimeException", "DataReader"},
        {"longest reply topic", [](RequesterParams&) {}, "Q", LONGEST_REPLY, "", "", ""},
        {"too long a reply topic for a filter's name", [](RequesterParams&) {}, "Q", TOO_LONG_REPLY, "BadParameterException", "",
         "topic name is too long: rrr"},
        {"longest topic of all", [](RequesterParams&) {}, LONGEST, "R", "", "", ""},
        {"too long a topic", [](RequesterParams&) {}, TOO_LONG, "R", "RuntimeException", "RuntimeException", "topic nnn"},
        {"one name for both", [](RequesterParams&) {}, "Q", "Q", "", "", ""},
    };
    for (const Case& each : CASES) {
        SCOPED_TRACE(each.what);
        RequesterParams of_requester(&_participant);
        of_requester.request_topic_name(each.request_topic).reply_topic_name(each.reply_topic);
        each.spoil(of_requester);
        ReplierParams of_replier(of_requester.participant());
        of_replier.request_topic_name(each.request_topic)
            .reply_topic_name(each.reply_topic)
            .service_name(of_requester.service_name());
        of_replier.publisher(of_requester.publisher()).subscriber(of_requester.subscriber());
        of_replier.qos_profile(of_requester.qos_library_name(), of_requester.qos_profile_name());
        if (of_requester.datawriter_qos() != nullptr) {
            of_replier.datawriter_qos(*of_requester.datawriter_qos());
        }
        if (of_requester.datareader_qos() != nullptr) {
            of_replier.datareader_qos(*of_requester.datareader_qos());
        }
        const Thrown by_requester = thrown_by([&] { TextRequester made(of_requester); });
        const Thrown by_replier = thrown_by([&] { TextReplier made(of_replier); });
        EXPECT_EQ(each.requester_throws, by_requester.type) << by_requester.message;
        EXPECT_EQ(each.replier_throws, by_replier.type) << by_replier.message;
        for (const Thrown& thrown : {by_requester, by_replier}) {
            EXPECT_TRUE(thrown.type.empty() || thrown.message.find(each.part) != std::string::npos) << thrown.message;
        }
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
    const DDS_SampleIdentity_t of_no_writer = {DDS_GUID_UNKNOWN, id.sequence_number};
    const char* const no_text = nullptr;
    void** data = nullptr;
    int count = 0;
    DDS_SampleInfoSeq infos;
    DDS_SampleInfoSeq used(1);
    DDS_WriteParams_t params;
    struct Case {
        const char* what;
        const char* type;
        std::function<void()> call;
    };
    const char* const BAD = "BadParameterException";
    const char* const PRECONDITION = "PreconditionNotMetException";
    const Case CASES[] = {
        {"send_request null", BAD, [&] { requester.send_request(no_text); }},
        {"wait_for_replies to nothing", BAD, [&] { requester.wait_for_replies(some, nobody); }},
        {"wait_for_replies to the zeroth", BAD, [&] { requester.wait_for_replies(some, 1, zeroth); }},
        {"take_replies to nothing", BAD, [&] { requester.take_replies(nobody); }},
        {"read_replies to the automatic one", BAD, [&] { requester.read_replies(DDS_AUTO_SAMPLE_IDENTITY); }},
        {"take_replies -2", BAD, [&] { requester.take_replies(-2); }},
        {"read_replies -2", BAD, [&] { requester.read_replies(-2); }},
        {"read_replies of one, -2", BAD, [&] { requester.read_replies(-2, id); }},
        {"receive_replies too few", BAD, [&] { requester.receive_replies(3, 2, some); }},
        {"receive_replies without end", BAD, [&] { requester.receive_replies(1, -1, DDS_DURATION_INFINITE); }},
        {"send_reply null", BAD, [&] { replier.send_reply(no_text, id); }},
        {"send_reply to nothing", BAD, [&] { replier.send_reply("x", nobody); }},
        {"send_reply to the zeroth", BAD, [&] { replier.send_reply("x", zeroth); }},
        {"send_reply to no writer", BAD, [&] { replier.send_reply("x", of_no_writer); }},
        {"take_requests -2", BAD, [&] { replier.take_requests(-2); }},
        {"read_requests the least", BAD, [&] { replier.read_requests(INT_MIN); }},
        {"receive_requests too few", BAD, [&] { replier.receive_requests(2, 1, some); }},
        {"receive_requests without time", BAD, [&] { replier.receive_requests(DDS_DURATION_ZERO); }},
        {"core: null request", BAD, [&] { core_requester.send_sample(nullptr, params); }},
        {"core: null reply", BAD, [&] { core_replier.send_sample(nullptr, id, params); }},
        {"core: used infos", PRECONDITION, [&] { core_replier.get_sample_loaned(&data, &count, used, 1, true, nullptr); }},
        {"core: another's condition", BAD,
         [&] { core_replier.get_sample_loaned(&data, &count, infos, 1, true, core_requester._any_sample_cond); }},
        {"core: another's conditions", BAD,
         [&] {
             core_replier.wait_for_samples(some, 1, core_replier._waitset, core_requester._any_sample_cond,
                                           core_requester._not_read_sample_cond);
         }},
    };
    for (const Case& each : CASES) {
        const Thrown thrown = thrown_by(each.call);
        EXPECT_EQ(each.type, thrown.type) << each.what << ": " << thrown.message;
        EXPECT_EQ(1U, requester.read_replies(id).size()) << each.what;
        EXPECT_EQ(1U, replier.read_requests().size()) << each.what;
    }

    // A loan that goes back to somebody else's reader is refused there, and still good.
    ASSERT_TRUE(core_replier.wait_for_any_sample({30, 0}, 1));
    ASSERT_TRUE(core_replier.get_sample_loaned(&data, &count, infos, 1, true, nullptr));
    core_requester.return_loan(data, infos);
    EXPECT_EQ("question", copy_loan(data, count, infos).at(0).text);
    core_replier.return_loan(data, infos);
    EXPECT_TRUE(infos.has_ownership());
    core_replier.return_loan(data, infos);  // once more: logged, and no more than that

    replier.send_reply("again", id);
    EXPECT_TRUE(requester.wait_for_replies(PATIENCE, 2, id));
    EXPECT_EQ((std::vector<std::string>{"answer", "again"}), strings_of(requester.take_replies(id)));
}

}  // namespace
}  // namespace norvane::test
