// SPDX-License-Identifier: Apache-2.0
// The configuration record: what its setters set, and which combinations are refused with which words.
#include "norvane/RequesterParams.hpp"

#include <gtest/gtest.h>

#include "norvane/dds/TypeSupport.hpp"
#include "norvane/dds/qos.hpp"
#include "support/DoubledDomain.hpp"
#include "support/LogCapture.hpp"
#include "support/Thrown.hpp"

namespace norvane {
namespace test {
namespace {

typedef DoubledDomain<> Params;

TEST_F(Params, that_are_wrong_are_refused_with_the_first_thing_that_is_wrong) {
    DDSPublisher* publisher = _participant->create_publisher(DDS_PUBLISHER_QOS_DEFAULT, NULL, 0);
    DDSSubscriber* subscriber = _participant->create_subscriber(DDS_SUBSCRIBER_QOS_DEFAULT, NULL, 0);
    // For the library the double and the real participant are two.
    DDSPublisher* foreign_publisher = _real.create_publisher(DDS_PUBLISHER_QOS_DEFAULT, NULL, 0);
    DDSSubscriber* foreign_subscriber = _real.create_subscriber(DDS_SUBSCRIBER_QOS_DEFAULT, NULL, 0);
    LogCapture log;
    const char* const NAMES_NEEDED = "either service name or topic names are required";
    const char* const NAMES_CLASH = "service name and topic names cannot be set at the same time";
    struct Case {
        DDSDomainParticipant* participant;
        const char* service;
        const char* request;
        const char* reply;
        DDSPublisher* publisher;
        DDSSubscriber* subscriber;
        const char* refusal;  // empty: valid
    };
    const Case cases[] = {
        {_participant.get(), "S", "", "", NULL, NULL, ""},
        {_participant.get(), "", "Q", "R", NULL, NULL, ""},
        {_participant.get(), "S", "", "", publisher, subscriber, ""},
        {NULL, "S", "", "", NULL, NULL, "NULL participant"},
        {NULL, "S", "Q", "", foreign_publisher, NULL, "NULL participant"},
        {_participant.get(), "", "", "", NULL, NULL, NAMES_NEEDED},
        {_participant.get(), "", "Q", "", NULL, NULL, NAMES_NEEDED},
        {_participant.get(), "", "", "R", NULL, NULL, NAMES_NEEDED},
        {_participant.get(), "S", "Q", "", NULL, NULL, NAMES_CLASH},
        {_participant.get(), "S", "", "R", NULL, NULL, NAMES_CLASH},
        {_participant.get(), "S", "Q", "R", foreign_publisher, NULL, NAMES_CLASH},
        {_participant.get(), "S", "", "", foreign_publisher, foreign_subscriber, "publisher belongs to different participant"},
        {_participant.get(), "S", "", "", publisher, foreign_subscriber, "subscriber belongs to different participant"},
    };
    for (const Case& each : cases) {
        RequesterParams params(NULL);
        params.participant(each.participant)
            .service_name(each.service)
            .request_topic_name(each.request)
            .reply_topic_name(each.reply);
        params.publisher(each.publisher).subscriber(each.subscriber);
        const Thrown thrown = thrown_by([&] { params.validate(); });
        EXPECT_EQ(*each.refusal != '\0' ? "BadParameterException" : "", thrown.type) << each.refusal;
        EXPECT_EQ(*each.refusal != '\0' ? "EntityParams::validate:" + expanded(DDS_LOG_BAD_PARAMETER_s, each.refusal) : "",
                  thrown.message);
    }
}

TEST_F(Params, keep_the_last_value_of_each_setter_the_request_side_as_the_writers) {
    RequesterParams params(_participant.get());
    const details::EntityParams& record = params;
    EXPECT_EQ(_participant.get(), record.participant());
    EXPECT_EQ("", record.service_name() + record.request_topic_name() + record.reply_topic_name() + record.qos_library_name() +
                      record.qos_profile_name());
    EXPECT_TRUE(record.datawriter_qos() == NULL && record.datareader_qos() == NULL && record.publisher() == NULL &&
                record.subscriber() == NULL && record.datawriter_type_support() == NULL &&
                record.datareader_type_support() == NULL);

    DDS_DataWriterQos writer_qos;
    DDS_DataReaderQos reader_qos;
    DDSStringTypeSupport& request_type = DDSStringTypeSupport::get_instance();
    DDSOctetsTypeSupport& reply_type = DDSOctetsTypeSupport::get_instance();
    params.service_name("first").service_name("").request_topic_name("Q").reply_topic_name("R").qos_profile("L", "P");
    params.datawriter_qos(writer_qos)
        .datareader_qos(reader_qos)
        .request_type_support(&request_type)
        .reply_type_support(&reply_type);
    EXPECT_EQ("", record.service_name());
    EXPECT_EQ("Q", record.request_topic_name());
    EXPECT_EQ("R", record.reply_topic_name());
    EXPECT_EQ("L", record.qos_library_name());
    EXPECT_EQ("P", record.qos_profile_name());
    EXPECT_EQ(&request_type, record.datawriter_type_support());
    EXPECT_EQ(&reply_type, record.datareader_type_support());

    // A copy has its own strings, and the application's objects.
    RequesterParams copy(params);
    copy.request_topic_name("other");
    EXPECT_EQ("Q", record.request_topic_name());
    writer_qos.history.depth = 7;
    EXPECT_EQ(&writer_qos, copy.details::EntityParams::datawriter_qos());
    EXPECT_EQ(7, record.datawriter_qos()->history.depth);
    EXPECT_EQ(&reader_qos, copy.details::EntityParams::datareader_qos());
}

}  // namespace
}  // namespace test
}  // namespace norvane
