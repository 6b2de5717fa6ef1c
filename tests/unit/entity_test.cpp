// SPDX-License-Identifier: Apache-2.0
// The entity core by itself: the choice of QoS, and the life of the endpoints. (The failure of each single call: see
// requestreply/failure_sweep_test.cpp.)
#include "norvane/details/EntityUntypedImpl.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

#include "support/DoubledDomain.hpp"
#include "support/LogCapture.hpp"
#include "support/OpenEntities.hpp"
#include "support/Thrown.hpp"

namespace norvane {
namespace test {
namespace {

constexpr const char* STRING_TYPE = "DDS::String";

// Keeps what the library asked for when it made its endpoints.
class NotingParticipant : public ForwardingParticipant {
public:
    using ForwardingParticipant::ForwardingParticipant;
    DDSDataReader* create_datareader(DDSTopicDescription* topic, const DDS_DataReaderQos& qos, DDSDataReaderListener* listener,
                                     DDS_StatusMask mask) override {
        reader_listener = listener;
        reader_mask = mask;
        return ForwardingParticipant::create_datareader(topic, qos, listener, mask);
    }
    DDS_ReturnCode_t get_default_datareader_qos_for_topic(DDS_DataReaderQos& qos, const char* topic_name) override {
        reader_qos_topic = topic_name;
        return ForwardingParticipant::get_default_datareader_qos_for_topic(qos, topic_name);
    }
    DDSDataReaderListener* reader_listener = nullptr;
    DDS_StatusMask reader_mask = 0;
    std::string reader_qos_topic;
};

// Topics of the test's own choice.
class FixedTopics : public details::EntityUntypedImpl::TopicBuilder {
public:
    FixedTopics(DDSTopic* writer_topic, DDSTopicDescription* reader_topic)
        : _writer_topic(writer_topic), _reader_topic(reader_topic) {}
    DDSTopic* create_writer_topic(const details::EntityParams&, const char*) override { return _writer_topic; }
    DDSTopicDescription* create_reader_topic(const details::EntityParams&, const char*) override { return _reader_topic; }

private:
    DDSTopic* _writer_topic;
    DDSTopicDescription* _reader_topic;
};

class EntityTest : public DoubledDomain<NotingParticipant> {
protected:
    EntityTest() {
        register_string(NULL, _participant.get());
        _requests = _participant->create_topic("Q", STRING_TYPE, DDS_TOPIC_QOS_DEFAULT, NULL, 0);
        _replies = _participant->create_topic("R", STRING_TYPE, DDS_TOPIC_QOS_DEFAULT, NULL, 0);
        _filtered = _participant->create_contentfilteredtopic("F", _requests, "value = 'x'", DDS_StringSeq());
    }
    void initialize(OpenEntity& entity, DDSTopicDescription* reader_topic, DDSDataReaderListener* listener = NULL,
                    details::EntityUntypedImpl::RegisterTypeFunc register_reader_type = &register_string) {
        FixedTopics topics(_replies, reader_topic);
        entity.initialize(params("S"), &register_string, register_reader_type, STRING_SIZE, topics, listener, true, "Role");
    }

    DDSTopic* _requests;
    DDSTopic* _replies;
    DDSContentFilteredTopic* _filtered;
};

std::string shown(const DDS_Duration_t& duration) { return std::to_string(duration.sec) + "." + std::to_string(duration.nanosec); }

std::string shown(const DDS_DataWriterQos& qos) {
    const DDS_RtpsReliableWriterProtocol_t& protocol = qos.protocol.rtps_reliable_writer;
    std::string text;
    for (const std::string& each :
         {std::to_string(qos.reliability.kind), shown(qos.reliability.max_blocking_time), std::to_string(qos.history.kind),
          std::to_string(qos.resource_limits.max_samples), std::to_string(protocol.max_heartbeat_retries),
          shown(protocol.heartbeat_period), shown(protocol.fast_heartbeat_period), shown(protocol.late_joiner_heartbeat_period),
          std::to_string(protocol.heartbeats_per_max_samples), shown(protocol.min_nack_response_delay),
          shown(protocol.max_nack_response_delay), std::to_string(protocol.min_send_window_size),
          std::to_string(protocol.max_send_window_size), std::to_string(qos.writer_resource_limits.max_remote_reader_filters)}) {
        text += each + " ";
    }
    return text + std::to_string(qos.history.depth) + " " + qos.publication_name.role_name;
}

std::string shown(const DDS_DataReaderQos& qos) {
    const DDS_RtpsReliableReaderProtocol_t& protocol = qos.protocol.rtps_reliable_reader;
    std::string text;
    for (const std::string& each : {std::to_string(qos.reliability.kind), shown(qos.reliability.max_blocking_time),
                                    std::to_string(qos.history.kind), std::to_string(qos.resource_limits.max_samples),
                                    shown(protocol.min_heartbeat_response_delay), shown(protocol.max_heartbeat_response_delay)}) {
        text += each + " ";
    }
    const DDS_Property_t* property =
        DDSPropertyQosPolicyHelper::lookup_property(qos.property, "dds.data_reader.history.generate_not_alive_no_writers_sample");
    return text + std::to_string(qos.history.depth) + " " + qos.subscription_name.role_name + " " + property->value +
           (property->propagate ? " propagated" : "");
}

// The settings of every source are told apart by their history depth, which request-reply leaves alone.
TEST_F(EntityTest, qos_comes_from_the_explicit_record_else_the_profile_else_the_tuned_default) {
    DDSDomainParticipantFactory* factory = DDSDomainParticipantFactory::get_instance();
    DDS_DataWriterQos writer_qos;
    DDS_DataReaderQos reader_qos;
    ASSERT_EQ(DDS_RETCODE_OK, factory->add_qos_profile("EntityTest", "P"));
    writer_qos.history.depth = reader_qos.history.depth = 3;
    factory->add_datawriter_qos_to_profile("EntityTest", "P", "T*", writer_qos);
    factory->add_datareader_qos_to_profile("EntityTest", "P", "T*", reader_qos);
    writer_qos.history.depth = reader_qos.history.depth = 2;
    ASSERT_EQ(DDS_RETCODE_OK, _participant->set_default_datawriter_qos(writer_qos));
    ASSERT_EQ(DDS_RETCODE_OK, _participant->set_default_datareader_qos(reader_qos));
    DDS_DataWriterQos named_writer_qos;
    DDS_DataReaderQos named_reader_qos;
    named_writer_qos.history.depth = named_reader_qos.history.depth = 5;
    named_writer_qos.publication_name.role_name = DDS_String_dup("mine");
    named_reader_qos.subscription_name.role_name = DDS_String_dup("mine");
    DDSPropertyQosPolicyHelper::add_property(named_reader_qos.property,
                                             "dds.data_reader.history.generate_not_alive_no_writers_sample", "1", DDS_BOOLEAN_TRUE);
    const std::string plain_writer = "2 0.100000000 0 -1 10 3.0 3.0 3.0 8 0.0 0.200000000 -1 -1 32 ";
    const std::string plain_reader = "1 0.100000000 0 -1 0.0 0.500000000 ";

    OpenEntity entity;
    const auto writer_choice = [&](const RequesterParams& params, const char* topic) {
        DDS_DataWriterQos chosen;
        entity.get_datawriter_qos(chosen, params, topic, "Role");
        return shown(chosen);
    };
    const auto reader_choice = [&](const RequesterParams& params, const char* topic) {
        DDS_DataReaderQos chosen;
        entity.get_datareader_qos(chosen, params, topic, "Role");
        return shown(chosen);
    };
    entity._participant = _participant.get();

    const RequesterParams by_default = params("S");
    EXPECT_EQ("2 10.0 1 -1 -1 0.100000000 0.10000000 0.10000000 2 0.0 0.0 32 32 -1 2 Role", writer_choice(by_default, "T1"));
    EXPECT_EQ("2 10.0 1 -1 0.0 0.0 2 Role 0", reader_choice(by_default, "T1"));

    RequesterParams by_profile = params("S").qos_profile("EntityTest", "P");
    EXPECT_EQ(plain_writer + "3 Role", writer_choice(by_profile, "T1"));
    EXPECT_EQ(plain_reader + "3 Role 0", reader_choice(by_profile, "T1"));
    EXPECT_EQ(plain_writer + "1 Role", writer_choice(by_profile, "U"));  // the profile says nothing about that topic

    RequesterParams explicitly = params("S").qos_profile("no such library", "P");
    explicitly.datawriter_qos(named_writer_qos).datareader_qos(named_reader_qos);
    EXPECT_EQ(plain_writer + "5 mine", writer_choice(explicitly, "T1"));
    EXPECT_EQ(plain_reader + "5 mine 1 propagated", reader_choice(explicitly, "T1"));

    struct Refusal {
        bool writer;
        RequesterParams params;
        const char* topic;
        const char* type;
        std::string message;
    };
    const std::string writer_refused =
        "EntityUntypedImpl::get_datawriter_qos:" + expanded(VOST_LOG_GET_FAILURE_s, "DataWriter qos");
    const std::string reader_refused =
        "EntityUntypedImpl::get_datareader_qos:" + expanded(VOST_LOG_GET_FAILURE_s, "DataReader qos");
    const Refusal refusals[] = {
        {true, by_default, NULL, "PreconditionNotMetException", "topic_name != NULL"},
        {false, by_default, NULL, "PreconditionNotMetException", "topic_name != NULL"},
        {true, params("S").qos_profile("EntityTest", ""), "T", "PreconditionNotMetException", "params.qos_profile_name() != \"\""},
        {false, params("S").qos_profile("EntityTest", ""), "T", "BadParameterException", reader_refused},
        {true, params("S").qos_profile("EntityTest", "X"), "T", "BadParameterException", writer_refused},
        {false, params("S").qos_profile("X", "P"), "T", "BadParameterException", reader_refused},
    };
    LogCapture log;
    for (const Refusal& each : refusals) {
        const Thrown thrown =
            thrown_by([&] { each.writer ? writer_choice(each.params, each.topic) : reader_choice(each.params, each.topic); });
        EXPECT_EQ(each.type, thrown.type) << each.message;
        EXPECT_EQ(each.message, thrown.message);
    }
    EXPECT_EQ("RuntimeException", thrown_by([&] {
                                      DDS_DataWriterQos chosen;
                                      entity.get_datawriter_qos(chosen, by_default, "T", NULL);
                                  }).type);  // the copy of a role name that is not there
    EXPECT_EQ(DDS_RETCODE_OK, factory->remove_qos_profile("EntityTest", "P"));
}

// The QoS goes from one endpoint to the next, as an application may copy it.
TEST_F(EntityTest, a_requester_awaits_replies_wherever_its_qos_comes_from_and_a_replier_does_not) {
    DDS_DataWriterQos qos;
    const auto told_by = [&](const auto& entity) -> std::string {
        EXPECT_EQ(DDS_RETCODE_OK, entity.get_datawriter()->get_qos(qos));
        qos.protocol.virtual_guid = DDS_GUID_AUTO;
        const DDS_Property_t* told = DDSPropertyQosPolicyHelper::lookup_property(qos.property, AWAITS_REPLIES_PROPERTY);
        return told == NULL ? "nothing" : std::string(told->value) + (told->propagate ? " propagated" : "");
    };
    ASSERT_EQ(DDS_RETCODE_OK, DDSDomainParticipantFactory::get_instance()->add_qos_profile("Awaiting", "P"));
    EXPECT_EQ("true propagated", told_by(OpenRequester(params("S").qos_profile("Awaiting", "P"))));
    EXPECT_EQ("true propagated", told_by(OpenRequester(params("S"))));
    EXPECT_EQ("nothing", told_by(OpenReplier(params("S").datawriter_qos(qos))));
    EXPECT_EQ("true propagated", told_by(OpenRequester(params("S").datawriter_qos(qos))));
    EXPECT_EQ("true propagated", told_by(OpenRequester(params("S").datawriter_qos(qos))));
}

TEST_F(EntityTest, a_reader_listener_gets_data_available_and_nothing_else_and_the_qos_is_that_of_the_topic_that_is_filtered) {
    DDS_DataReaderQos reader_qos;
    reader_qos.reader_resource_limits.max_samples_per_read = 9;
    ASSERT_EQ(DDS_RETCODE_OK, _participant->set_default_datareader_qos(reader_qos));
    DDSDataReaderListener listener;
    for (DDSDataReaderListener* each : {static_cast<DDSDataReaderListener*>(NULL), &listener}) {
        OpenEntity entity;
        EXPECT_EQ(DDS_LENGTH_UNLIMITED, entity._max_samples_per_read);
        initialize(entity, each == NULL ? static_cast<DDSTopicDescription*>(_requests) : _filtered, each);
        EXPECT_EQ(each, _participant->reader_listener);
        EXPECT_EQ(each == NULL ? 0U : 1024U, _participant->reader_mask);
        EXPECT_EQ("Q", _participant->reader_qos_topic);
        EXPECT_EQ(9, entity._max_samples_per_read);
        EXPECT_TRUE(entity._isStringDataReader);
        EXPECT_EQ(DDS_ANY_SAMPLE_STATE, entity._any_sample_cond->get_sample_state_mask());
        EXPECT_EQ(DDS_NOT_READ_SAMPLE_STATE, entity._not_read_sample_cond->get_sample_state_mask());
        DDSConditionSeq attached;
        entity._waitset.get_conditions(attached);
        ASSERT_EQ(1, attached.length());
        EXPECT_EQ(entity._not_read_sample_cond, attached[0]);
        entity.finalize();
        EXPECT_TRUE(entity.get_datareader() == NULL && entity.get_datawriter() == NULL) << "who is finalized has no endpoints";
    }
    EXPECT_EQ("1 filters", live());  // one that the entity did not make
}

const char* register_with_a_throw(DDSTypeSupport*, DDSDomainParticipant*) { throw std::length_error("not ours"); }

TEST_F(EntityTest, passes_a_foreign_exception_as_it_is_and_tidies_up_when_it_is_destroyed) {
    OpenEntity* entity = new OpenEntity();
    const Thrown thrown = thrown_by([&] { initialize(*entity, _requests, NULL, &register_with_a_throw); });
    EXPECT_EQ("length_error", thrown.type);
    EXPECT_EQ("not ours", thrown.message);
    EXPECT_EQ("1 writers 1 filters", live());
    delete entity;
    EXPECT_EQ("1 filters", live());
}

TEST_F(EntityTest, swap_exchanges_endpoints_and_wait_sets_and_an_object_that_was_finalized_stays_so) {
    OpenReplier one(params("S"));
    OpenReplier ended;
    ended.finalize();
    DDSReadCondition* const condition = one._not_read_sample_cond;
    one._max_samples_per_read = 7;
    one.swap(ended);
    EXPECT_TRUE(one.get_datareader() == NULL && one._participant == NULL);
    EXPECT_EQ(7, one._max_samples_per_read) << "it describes the object";
    DDSConditionSeq attached;
    ended._waitset.get_conditions(attached);
    ASSERT_EQ(1, attached.length());
    EXPECT_EQ(condition, attached[0]);
    ended.finalize();
    EXPECT_EQ("1 writers 1 readers 2 conditions 1 filters", live());
    one.swap(ended);
    one.finalize();
    EXPECT_EQ("1 filters", live());
}

}  // namespace
}  // namespace test
}  // namespace norvane
