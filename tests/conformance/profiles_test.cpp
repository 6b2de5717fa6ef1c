// SPDX-License-Identifier: Apache-2.0
// QoS profiles as an application uses them: filled through the factory, and of effect. (The registry has tests of its own.)
#include <gtest/gtest.h>

#include "support/TextFixture.hpp"

namespace norvane {
namespace test {
namespace {

constexpr DDS_ReturnCode_t OK = DDS_RETCODE_OK;
constexpr DDS_ReturnCode_t BAD_PARAMETER = DDS_RETCODE_BAD_PARAMETER;

class Profiles : public TextFixture {};
INSTANTIATE_TEST_SUITE_P(Engine, Profiles, ::testing::ValuesIn(engine_names()), engine_of_test);

TEST_P(Profiles, settings_of_a_topic_reach_the_endpoints_that_are_made_with_them) {
    const LogCapture log;
    DDS_DataReaderQos shallow = reader_qos();
    shallow.history = {DDS_KEEP_LAST_HISTORY_QOS, 1};
    DDS_DataReaderQos deep = shallow;
    deep.history.depth = 3;
    DDS_DataWriterQos reliable = writer_qos(NO_TIME);
    ASSERT_EQ(OK, factory().add_qos_profile("Library", "Profile"));
    EXPECT_EQ(OK, factory().add_datareader_qos_to_profile("Library", "Profile", nullptr, shallow));
    EXPECT_EQ(OK, factory().add_datareader_qos_to_profile("Library", "Profile", "Deep*", deep));
    EXPECT_EQ(OK, factory().add_datawriter_qos_to_profile("Library", "Profile", nullptr, reliable));
    const auto kept = [&](const char* name) {
        DDS_DataReaderQos of_reader;
        DDS_DataWriterQos of_writer;
        EXPECT_EQ(OK, factory().get_datareader_qos_from_profile_for_topic(of_reader, "Library", "Profile", name));
        EXPECT_EQ(OK, factory().get_datawriter_qos_from_profile_for_topic(of_writer, "Library", "Profile", name));
        DDSDataReader& receiver = reader(of_reader, name);
        DDSDataWriter& sender = writer(of_writer, name);
        meet(sender, receiver);
        for (const char* text : {"1", "2", "3", "4"}) {
            deliver(sender, text);
        }
        return take(receiver);
    };
    EXPECT_EQ("4", kept("Flat"));
    EXPECT_EQ("2 3 4", kept("DeepWater"));
    DDS_DataReaderQos none;
    struct {
        const char* library;
        const char* profile;
        const char* refusal;
    } const CASES[] = {
        {"Liberty", "Profile", "unknown QoS library \"Liberty\""},
        {"Library", "Profil", "unknown QoS profile \"Profil\" in library \"Library\""},
        {"Library", "a b", "malformed QoS profile name \"a b\""},
        {nullptr, "Profile", "malformed QoS library name \"(null)\""},
        {"", "Profile", "malformed QoS library name \"\""},
    };
    for (const auto& each : CASES) {
        EXPECT_EQ(BAD_PARAMETER, factory().get_datareader_qos_from_profile_for_topic(none, each.library, each.profile, "T"));
        EXPECT_EQ(1, log.count(each.refusal)) << each.refusal;
    }
    EXPECT_EQ(OK, factory().remove_qos_profile("Library", "Profile"));
    EXPECT_EQ(BAD_PARAMETER, factory().get_datareader_qos_from_profile_for_topic(none, "Library", "Profile", "T"));
}

}  // namespace
}  // namespace test
}  // namespace norvane
