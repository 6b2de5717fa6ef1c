// SPDX-License-Identifier: Apache-2.0
// The entity core by itself: the choice of QoS, and swapping. (The failure of each single call: see
// requestreply/failure_sweep_test.cpp.)
#include "norvane/details/EntityUntypedImpl.hpp"

#include <gtest/gtest.h>

#include <ostream>
#include <sstream>

#include "support/DoubledDomain.hpp"
#include "support/OpenEntities.hpp"

namespace norvane::test {
namespace {

class EntityTest : public DoubledDomain {};

std::ostream& operator<<(std::ostream& out, const DDS_Duration_t& time) { return out << time.sec << "." << time.nanosec; }

std::string shown(const DDS_DataWriterQos& qos) {
    const DDS_RtpsReliableWriterProtocol_t& protocol = qos.protocol.rtps_reliable_writer;
    std::ostringstream text;
    text << qos.reliability.kind << " " << qos.reliability.max_blocking_time << " " << qos.history.kind << " "
         << qos.resource_limits.max_samples << " " << protocol.max_heartbeat_retries << " " << protocol.heartbeat_period << " "
         << protocol.fast_heartbeat_period << " " << protocol.late_joiner_heartbeat_period << " "
         << protocol.heartbeats_per_max_samples << " " << protocol.min_nack_response_delay << " "
         << protocol.max_nack_response_delay << " " << protocol.min_send_window_size << " " << protocol.max_send_window_size << " "
         << qos.writer_resource_limits.max_remote_reader_filters << " " << qos.history.depth << " "
         << qos.publication_name.role_name;
    return text.str();
}

std::string shown(const DDS_DataReaderQos& qos) {
    const DDS_RtpsReliableReaderProtocol_t& protocol = qos.protocol.rtps_reliable_reader;
    const DDS_Property_t* property =
        DDSPropertyQosPolicyHelper::lookup_property(qos.property, "dds.data_reader.history.generate_not_alive_no_writers_sample");
    std::ostringstream text;
    text << qos.reliability.kind << " " << qos.reliability.max_blocking_time << " " << qos.history.kind << " "
         << qos.resource_limits.max_samples << " " << protocol.min_heartbeat_response_delay << " "
         << protocol.max_heartbeat_response_delay << " " << qos.history.depth << " " << qos.subscription_name.role_name << " "
         << property->value << (property->propagate ? " propagated" : "");
    return text.str();
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

    OpenReplier entity;
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
    EXPECT_EQ("2 conditions 1 readers 1 writers", live());
    one.swap(ended);
    one.finalize();
    EXPECT_EQ("", live());
}

}  // namespace
}  // namespace norvane::test
