// SPDX-License-Identifier: Apache-2.0
// Participants, types, topics and endpoints: what is made of what, who may delete it, and what is refused.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>

#include "support/TextFixture.hpp"

namespace norvane::test {
namespace {

class Entities : public TextFixture {
protected:
    DDSTopic* make_topic(const char* name, const char* type) {
        return _participant.create_topic(name, type, DDS_TOPIC_QOS_DEFAULT, nullptr, 0);
    }
    DDSContentFilteredTopic* make_filtered(const char* name, DDSTopic* related, const char* filter = "value = 'x'") {
        return _participant.create_contentfilteredtopic(name, related, filter, DDS_StringSeq());
    }
};
INSTANTIATE_TEST_SUITE_P(Engine, Entities, ::testing::ValuesIn(engine_names()), engine_of_test);

TEST_P(Entities, a_participant_is_made_in_a_legal_domain_on_an_engine_that_exists_and_goes_when_it_is_empty) {
    const LogCapture log;
    struct {
        DDS_DomainId_t domain;
        std::string engine;
        const char* refusal;  // a part of the log line
    } const CASES[] = {
        {-1, GetParam(), "from 0 to 232"},
        {233, GetParam(), "from 0 to 232"},
        {0, GetParam(), nullptr},
        {232, GetParam(), nullptr},
        {0, "", "engine \"\""},
        {0, "pigeons", "engine \"pigeons\""},
        {0, GetParam() + "x", "known are \"embedded\""},
    };
    for (const auto& each : CASES) {
        DDSDomainParticipant* made = factory().create_participant(each.domain, participant_qos(each.engine), nullptr, 0);
        EXPECT_EQ(each.refusal == nullptr, made != nullptr) << each.domain << " " << each.engine;
        EXPECT_TRUE(made != nullptr || log.count(each.refusal) > 0) << each.refusal;
        if (made != nullptr) {
            EXPECT_EQ(each.domain, made->get_domain_id());
            EXPECT_EQ(OK, factory().delete_participant(made));
            EXPECT_EQ(BAD_PARAMETER, factory().delete_participant(made));
        }
    }
    EXPECT_EQ(BAD_PARAMETER, factory().delete_participant(nullptr));

    // The environment chooses where no property does.
    ::setenv("NORVANE_ENGINE", "doves", 1);
    EXPECT_EQ(nullptr, factory().create_participant(_domain, DDS_PARTICIPANT_QOS_DEFAULT, nullptr, 0));
    EXPECT_EQ(1, log.count("engine \"doves\""));
    DDSDomainParticipant& other = *join();
    ::unsetenv("NORVANE_ENGINE");
    EXPECT_EQ(GetParam(), other.get_engine_name());
    DDS_Time_t before;
    DDS_Time_t after;
    EXPECT_EQ(OK, other.get_current_time(before));
    EXPECT_EQ(OK, _participant.get_current_time(after));
    EXPECT_GE((after - before).sec, 0) << "participants have one clock";
    topic("T", &other);
    EXPECT_EQ(PRECONDITION, factory().delete_participant(&other));
}

TEST_P(Entities, a_type_has_a_name_and_a_whole_table_and_keeps_its_name_while_topics_use_it) {
    const LogCapture log;
    const std::string longest(255, 'n');
    const std::string too_long(256, 'n');
    const std::shared_ptr<const DDS_TypeOperations> text = DDSStringTypeSupport::get_instance().get_type_operations();
    const auto spoilt = [&](const std::function<void(DDS_TypeOperations&)>& spoil) {
        auto copy = std::make_shared<DDS_TypeOperations>(*text);
        spoil(*copy);
        return std::shared_ptr<const DDS_TypeOperations>(copy);
    };
    struct {
        const char* name;
        std::shared_ptr<const DDS_TypeOperations> type;
        DDS_ReturnCode_t code;
    } const CASES[] = {
        {nullptr, text, BAD_PARAMETER},
        {"", text, BAD_PARAMETER},
        {too_long.c_str(), text, BAD_PARAMETER},
        {longest.c_str(), text, OK},
        {"A", nullptr, BAD_PARAMETER},
        {"A", spoilt([](DDS_TypeOperations& type) { type.name = nullptr; }), BAD_PARAMETER},
        {"A", spoilt([](DDS_TypeOperations& type) { type.size = 0; }), BAD_PARAMETER},
        {"A", spoilt([](DDS_TypeOperations& type) { type.alignment = 24; }), BAD_PARAMETER},
        {"A", spoilt([](DDS_TypeOperations& type) { type.copy = nullptr; }), BAD_PARAMETER},
        {"A", spoilt([](DDS_TypeOperations& type) { type.find_field = nullptr; }), BAD_PARAMETER},
        {"A", text, OK},
        {"A", spoilt([](DDS_TypeOperations&) {}), OK},  // another table of the same type
        {"A", spoilt([](DDS_TypeOperations& type) { ++type.layout_hash; }), PRECONDITION},
        {"A", DDSOctetsTypeSupport::get_instance().get_type_operations(), PRECONDITION},
    };
    for (const auto& each : CASES) {
        EXPECT_EQ(each.code, _participant.register_type(each.name, each.type)) << "row " << &each - CASES;
    }
    EXPECT_EQ(1, log.count("the name \"A\" is taken by another type: \"DDS::String\" of 8 octets; this one is \"DDS::Octets\""));
    EXPECT_EQ(text, _participant.lookup_type("A"));
    EXPECT_TRUE(_participant.lookup_type("B") == nullptr && _participant.lookup_type(nullptr) == nullptr);
    EXPECT_EQ(BAD_PARAMETER, DDSStringTypeSupport::get_instance().register_type(nullptr));
    for (const DDSDynamicDataTypeSupport& invalid :
         {DDSDynamicDataTypeSupport("", {{"a", DDS_DYNAMIC_INT32}}), DDSDynamicDataTypeSupport("D", {}),
          DDSDynamicDataTypeSupport("D", {{"a", DDS_DYNAMIC_INT32}, {"a", DDS_DYNAMIC_STRING}})}) {
        EXPECT_EQ(BAD_PARAMETER, invalid.register_type(&_participant, "D"));
    }

    DDSTopic* user = make_topic("user", "A");
    ASSERT_NE(nullptr, user);
    EXPECT_EQ(PRECONDITION, _participant.unregister_type("A"));
    EXPECT_EQ(OK, _participant.delete_topic(user));
    EXPECT_EQ(OK, _participant.unregister_type("A"));
    EXPECT_EQ(BAD_PARAMETER, _participant.unregister_type("A"));
}

TEST_P(Entities, a_topic_of_one_name_is_one_topic_of_one_type) {
    const LogCapture log;
    const std::string longest(255, 'n');
    const std::string too_long(256, 'n');
    DDSTopic* const existing = topic("T");
    DDSContentFilteredTopic* const filtered = make_filtered("F", existing);
    ASSERT_NE(nullptr, filtered);
    ASSERT_EQ(OK, DDSOctetsTypeSupport::get_instance().register_type(&_participant));
    ASSERT_EQ(OK, DDSStringTypeSupport::get_instance().register_type(&_participant, "Alias"));
    struct {
        const char* name;
        const char* type;
        bool made;
        const char* refusal;
    } const CASES[] = {
        {nullptr, "DDS::String", false, "topic name is null or empty"},
        {"", "DDS::String", false, "topic name is null or empty"},
        {"N", nullptr, false, "type name is null or empty"},
        {"N", "Nothing", false, "no type is registered as \"Nothing\""},
        {too_long.c_str(), "DDS::String", false, "256 characters"},
        {longest.c_str(), "DDS::String", true, nullptr},
        {"T", "DDS::String", true, nullptr},
        {"T", "DDS::Octets", false,
         "topic \"T\" exists with the type \"DDS::String\"; it cannot be made with the type \"DDS::Octets\""},
        {"T", "Alias", false, "exists with the type \"DDS::String\""},
        {"F", "DDS::String", false, "a content-filtered topic has the name \"F\""},
    };
    for (const auto& each : CASES) {
        DDSTopic* made = make_topic(each.name, each.type);
        EXPECT_EQ(each.made, made != nullptr) << each.name;
        EXPECT_TRUE(each.made || log.count(each.refusal) > 0) << each.refusal;
    }
    EXPECT_EQ(existing, make_topic("T", "DDS::String"));
    DDSTopicDescription* const found = _participant.lookup_topicdescription("T");
    EXPECT_TRUE(found == existing && DDSTopic::narrow(found) == existing && DDSContentFilteredTopic::narrow(found) == nullptr);
    EXPECT_EQ(filtered, _participant.lookup_topicdescription("F"));
    EXPECT_TRUE(DDSTopic::narrow(filtered) == nullptr && DDSTopic::narrow(nullptr) == nullptr);
    EXPECT_EQ(nullptr, _participant.lookup_topicdescription("N"));
    EXPECT_EQ(nullptr, _participant.lookup_topicdescription(nullptr));
    EXPECT_EQ(nullptr, join()->lookup_topicdescription("T")) << "of another participant";
    EXPECT_STREQ("DDS::String", filtered->get_type_name());
    EXPECT_EQ(existing, filtered->get_related_topic());
    for (const char* name : {static_cast<const char*>(nullptr), "", too_long.c_str(), "T", "F"}) {
        EXPECT_EQ(nullptr, make_filtered(name, existing));
    }
    EXPECT_EQ(nullptr, make_filtered("G", nullptr));
    EXPECT_EQ(nullptr, make_filtered("G", topic("T", join())));
    EXPECT_EQ(nullptr, make_filtered("G", existing, nullptr));
}

TEST_P(Entities, what_is_in_use_foreign_or_gone_is_not_deleted_and_foreign_topics_are_not_used) {
    const LogCapture log;
    DDSDomainParticipant& other = *join();
    DDSTopic* const base = topic("T");
    DDSContentFilteredTopic* const filtered = make_filtered("F", base);
    DDSPublisher* const publisher = _participant.create_publisher(DDS_PUBLISHER_QOS_DEFAULT, nullptr, 0);
    DDSSubscriber* const subscriber = _participant.create_subscriber(DDS_SUBSCRIBER_QOS_DEFAULT, nullptr, 0);
    DDSDataWriter* const grouped_writer = publisher->create_datawriter(base, writer_qos(), nullptr, 0);
    DDSDataReader* const grouped_reader = subscriber->create_datareader(filtered, reader_qos(), nullptr, 0);
    DDSDataWriter* const own_writer = &writer();
    DDSDataReader* const own_reader = &reader();
    DDSReadCondition* const own_condition = &condition(*own_reader);
    ASSERT_TRUE(grouped_writer != nullptr && grouped_reader != nullptr);
    EXPECT_EQ(publisher, grouped_writer->get_publisher());
    EXPECT_EQ(subscriber, grouped_reader->get_subscriber());

    // In this order; each is refused, or done and then refused as gone.
    DDSDomainParticipant& own = _participant;
    struct {
        const char* what;
        DDS_ReturnCode_t code;
        DDS_ReturnCode_t got;
    } const STEPS[] = {
        {"foreign topic", PRECONDITION, other.delete_topic(base)},
        {"foreign filter", PRECONDITION, other.delete_contentfilteredtopic(filtered)},
        {"foreign publisher", PRECONDITION, other.delete_publisher(publisher)},
        {"foreign subscriber", PRECONDITION, other.delete_subscriber(subscriber)},
        {"foreign writer", PRECONDITION, other.delete_datawriter(own_writer)},
        {"foreign reader", PRECONDITION, other.delete_datareader(own_reader)},
        {"a publisher's writer", PRECONDITION, own.delete_datawriter(grouped_writer)},
        {"a subscriber's reader", PRECONDITION, own.delete_datareader(grouped_reader)},
        {"not the publisher's writer", PRECONDITION, publisher->delete_datawriter(own_writer)},
        {"not the subscriber's reader", PRECONDITION, subscriber->delete_datareader(own_reader)},
        {"reader with a condition", PRECONDITION, own.delete_datareader(own_reader)},
        {"another reader's condition", PRECONDITION, grouped_reader->delete_readcondition(own_condition)},
        {"topic with endpoints", PRECONDITION, own.delete_topic(base)},
        {"filter with a reader", PRECONDITION, own.delete_contentfilteredtopic(filtered)},
        {"publisher with a writer", PRECONDITION, own.delete_publisher(publisher)},
        {"subscriber with a reader", PRECONDITION, own.delete_subscriber(subscriber)},
        {"null topic", BAD_PARAMETER, own.delete_topic(nullptr)},
        {"null filter", BAD_PARAMETER, own.delete_contentfilteredtopic(nullptr)},
        {"null publisher", BAD_PARAMETER, own.delete_publisher(nullptr)},
        {"null subscriber", BAD_PARAMETER, own.delete_subscriber(nullptr)},
        {"null writer", BAD_PARAMETER, publisher->delete_datawriter(nullptr)},
        {"null reader", BAD_PARAMETER, subscriber->delete_datareader(nullptr)},
        {"null condition", BAD_PARAMETER, own_reader->delete_readcondition(nullptr)},
        {"condition", OK, own_reader->delete_readcondition(own_condition)},
        {"condition again", ALREADY_DELETED, own_reader->delete_readcondition(own_condition)},
        {"reader", OK, own.delete_datareader(own_reader)},
        {"reader again", PRECONDITION, own.delete_datareader(own_reader)},
        {"writer", OK, own.delete_datawriter(own_writer)},
        {"writer again", PRECONDITION, own.delete_datawriter(own_writer)},
        {"grouped reader", OK, subscriber->delete_datareader(grouped_reader)},
        {"grouped writer", OK, publisher->delete_datawriter(grouped_writer)},
        {"topic with a filter", PRECONDITION, own.delete_topic(base)},
        {"filter", OK, own.delete_contentfilteredtopic(filtered)},
        {"filter again", PRECONDITION, own.delete_contentfilteredtopic(filtered)},
        {"topic", OK, own.delete_topic(base)},
        {"topic again", PRECONDITION, own.delete_topic(base)},
        {"publisher", OK, own.delete_publisher(publisher)},
        {"subscriber", OK, own.delete_subscriber(subscriber)},
    };
    for (const auto& step : STEPS) {
        EXPECT_EQ(step.code, step.got) << step.what;
    }

    DDSTopic* const foreign = topic("T", &other);
    DDSContentFilteredTopic* const foreign_filter = other.create_contentfilteredtopic("F", foreign, "value = 'x'", DDS_StringSeq());
    EXPECT_EQ(nullptr, _participant.create_datawriter(foreign, writer_qos(), nullptr, 0));
    EXPECT_EQ(nullptr, _participant.create_datawriter(nullptr, writer_qos(), nullptr, 0));
    for (DDSTopicDescription* each : {static_cast<DDSTopicDescription*>(foreign), static_cast<DDSTopicDescription*>(foreign_filter),
                                      static_cast<DDSTopicDescription*>(nullptr)}) {
        EXPECT_EQ(nullptr, _participant.create_datareader(each, reader_qos(), nullptr, 0));
    }
    EXPECT_EQ(5, log.count("the topic is null, deleted, or of another participant"));
    EXPECT_EQ(OK, other.delete_contentfilteredtopic(foreign_filter)) << "nothing may have been left that uses it";
    EXPECT_EQ(OK, other.delete_topic(foreign));
}

// The single rules have tests of their own; here: that they are asked, wherever a record comes in.
TEST_P(Entities, qos_that_makes_no_sense_is_refused_and_the_field_is_named) {
    LogCapture log;
    const DDS_GUID_t taken = {{0x77, 1, 2, 3}};
    DDS_DataWriterQos own = writer_qos();
    own.protocol.virtual_guid = taken;
    EXPECT_EQ(0, std::memcmp(&taken, writer(own).get_instance_handle().value, sizeof taken));
    const auto refuse = [&](auto qos, const auto& create, const auto& set_default) {
        qos.durability.kind = DDS_TRANSIENT_DURABILITY_QOS;
        EXPECT_EQ(nullptr, create(qos));
        EXPECT_EQ(1, log.count("durability.kind"));
        EXPECT_NE(OK, set_default(qos));
        qos.durability.kind = DDS_VOLATILE_DURABILITY_QOS;
        qos.protocol.virtual_guid = taken;
        EXPECT_EQ(nullptr, create(qos));
        EXPECT_EQ(1, log.count("belongs to another endpoint"));
        EXPECT_EQ(OK, set_default(qos)) << "it is no fault of the record's own";
        log.clear();
    };
    refuse(
        writer_qos(), [&](const auto& qos) { return _participant.create_datawriter(topic(), qos, nullptr, 0); },
        [&](const auto& qos) { return _participant.set_default_datawriter_qos(qos); });
    refuse(
        reader_qos(), [&](const auto& qos) { return _participant.create_datareader(topic(), qos, nullptr, 0); },
        [&](const auto& qos) { return _participant.set_default_datareader_qos(qos); });

    // A default in order is what endpoints get that ask for it.
    DDS_DataReaderQos got;
    EXPECT_EQ(OK, _participant.set_default_datareader_qos(reader_qos(7)));
    EXPECT_EQ(OK, reader(DDS_DATAREADER_QOS_DEFAULT).get_qos(got));
    EXPECT_EQ(7, got.resource_limits.max_samples);
    EXPECT_NE(DDS_GUID_AUTO, got.protocol.virtual_guid);
}

}  // namespace
}  // namespace norvane::test
