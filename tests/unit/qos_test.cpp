// SPDX-License-Identifier: Apache-2.0
// QoS records: copies, properties, validation, and the registry of profiles.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "middleware/QosProfiles.hpp"
#include "middleware/QosValidation.hpp"
#include "support/AllocationProbe.hpp"
#include "support/LogCapture.hpp"

namespace norvane {
namespace test {
namespace {

typedef DDSPropertyQosPolicyHelper Properties;

std::string shown(const DDS_PropertyQosPolicy& policy) {
    std::string text;
    for (DDS_Long index = 0; index < policy.value.length(); ++index) {
        const DDS_Property_t& property = policy.value[index];
        text += std::string(property.name) + "=" + property.value + (property.propagate != 0 ? "! " : " ");
    }
    return text;
}

template <typename Qos>
void fill(Qos& qos, DDS_EntityNameQosPolicy& name) {
    const DDS_Octet octets[] = {1, 2, 3};
    qos.durability.kind = DDS_TRANSIENT_LOCAL_DURABILITY_QOS;
    qos.reliability.kind = DDS_RELIABLE_RELIABILITY_QOS;
    qos.reliability.max_blocking_time = {7, 8};
    qos.history.depth = 5;
    qos.resource_limits.max_samples = 50;
    qos.user_data.value.from_array(octets, 3);
    qos.protocol.virtual_guid = {{1, 2, 3}};
    DDS_String_replace(&name.name, "name");
    DDS_String_replace(&name.role_name, "role");
    Properties::add_property(qos.property, "a", "1", DDS_BOOLEAN_TRUE);
    Properties::add_property(qos.property, "b", "2", DDS_BOOLEAN_FALSE);
}

template <typename Qos>
bool has_what_fill_gave(const Qos& qos, const DDS_EntityNameQosPolicy& name) {
    return qos.durability.kind == DDS_TRANSIENT_LOCAL_DURABILITY_QOS && qos.reliability.max_blocking_time == DDS_Duration_t{7, 8} &&
           qos.history.depth == 5 && qos.resource_limits.max_samples == 50 && qos.user_data.value.length() == 3 &&
           qos.user_data.value[2] == 3 && qos.protocol.virtual_guid == DDS_GUID_t{{1, 2, 3}} &&
           std::string(name.name) + name.role_name == "namerole" && shown(qos.property) == "a=1! b=2 ";
}

TEST(QosCopy, is_deep_and_says_when_memory_is_short) {
    DDS_DataWriterQos writer;
    writer.protocol.rtps_reliable_writer.heartbeats_per_max_samples = 77;
    writer.writer_resource_limits.max_remote_reader_filters = 78;
    fill(writer, writer.publication_name);
    DDS_DataReaderQos reader;
    reader.protocol.rtps_reliable_reader.max_heartbeat_response_delay = {7, 9};
    reader.reader_resource_limits.max_samples_per_read = 79;
    fill(reader, reader.subscription_name);

    const long writer_runs = fail_each_allocation([&] {
        DDS_DataWriterQos copy;
        const DDS_ReturnCode_t code = DDS_DataWriterQos_copy(&copy, &writer);
        AllocationProbe::stop();
        EXPECT_EQ(AllocationProbe::has_failed() ? DDS_RETCODE_OUT_OF_RESOURCES : DDS_RETCODE_OK, code);
        if (code == DDS_RETCODE_OK) {
            EXPECT_TRUE(has_what_fill_gave(copy, copy.publication_name));
            EXPECT_EQ(77, copy.protocol.rtps_reliable_writer.heartbeats_per_max_samples);
            EXPECT_EQ(78, copy.writer_resource_limits.max_remote_reader_filters);
            EXPECT_NE(writer.property.value[0].name, copy.property.value[0].name);
        }
    });
    EXPECT_EQ(8, writer_runs) << "octets, two names, the array of properties and their four strings";
    const long reader_runs = fail_each_allocation([&] {
        DDS_DataReaderQos copy;
        const DDS_ReturnCode_t code = DDS_DataReaderQos_copy(&copy, &reader);
        AllocationProbe::stop();
        EXPECT_EQ(AllocationProbe::has_failed() ? DDS_RETCODE_OUT_OF_RESOURCES : DDS_RETCODE_OK, code);
        if (code == DDS_RETCODE_OK) {
            EXPECT_TRUE(has_what_fill_gave(copy, copy.subscription_name));
            EXPECT_TRUE((DDS_Duration_t{7, 9}) == copy.protocol.rtps_reliable_reader.max_heartbeat_response_delay);
            EXPECT_EQ(79, copy.reader_resource_limits.max_samples_per_read);
        }
    });
    EXPECT_EQ(writer_runs, reader_runs);

    EXPECT_EQ(DDS_RETCODE_OK, DDS_DataWriterQos_copy(&writer, &writer));
    EXPECT_TRUE(has_what_fill_gave(writer, writer.publication_name));
    EXPECT_EQ(DDS_RETCODE_OK, DDS_DataWriterQos_copy(&writer, &DDS_DATAWRITER_QOS_DEFAULT));
    EXPECT_EQ(nullptr, writer.publication_name.name);
    EXPECT_EQ("", shown(writer.property));
    EXPECT_EQ(DDS_RETCODE_BAD_PARAMETER, DDS_DataWriterQos_copy(nullptr, &writer));
    EXPECT_EQ(DDS_RETCODE_BAD_PARAMETER, DDS_DataReaderQos_copy(&reader, nullptr));
}

TEST(QosProperties, are_added_changed_and_removed_by_name) {
    DDS_PropertyQosPolicy policy;
    const std::function<DDS_ReturnCode_t()> add = [&] { return Properties::add_property(policy, "a", "1", 0); };
    const struct {
        std::function<DDS_ReturnCode_t()> action;
        DDS_ReturnCode_t code;
        const char* after;
    } steps[] = {
        {add, DDS_RETCODE_OK, "a=1 "},
        {add, DDS_RETCODE_PRECONDITION_NOT_MET, "a=1 "},
        {[&] { return Properties::assert_property(policy, "b", "2", 1); }, DDS_RETCODE_OK, "a=1 b=2! "},
        {[&] { return Properties::assert_property(policy, "a", policy.value[1].value, 1); }, DDS_RETCODE_OK, "a=2! b=2! "},
        {[&] { return Properties::add_property(policy, "c", policy.value[0].name, 0); }, DDS_RETCODE_OK, "a=2! b=2! c=a "},
        {[&] { return Properties::remove_property(policy, "b"); }, DDS_RETCODE_OK, "a=2! c=a "},
        {[&] { return Properties::remove_property(policy, "b"); }, DDS_RETCODE_PRECONDITION_NOT_MET, "a=2! c=a "},
        {[&] { return Properties::add_property(policy, "d", "", 0); }, DDS_RETCODE_OK, "a=2! c=a d= "},
        {[&] { return Properties::add_property(policy, nullptr, "x", 0); }, DDS_RETCODE_BAD_PARAMETER, "a=2! c=a d= "},
        {[&] { return Properties::assert_property(policy, "a", nullptr, 0); }, DDS_RETCODE_BAD_PARAMETER, "a=2! c=a d= "},
        {[&] { return Properties::remove_property(policy, "a"); }, DDS_RETCODE_OK, "c=a d= "},
    };
    int number = 0;
    for (const auto& step : steps) {
        EXPECT_EQ(step.code, step.action()) << number;
        EXPECT_EQ(step.after, shown(policy)) << number;
        ++number;
    }
    EXPECT_STREQ("a", Properties::lookup_property(policy, "c")->value);
    const DDS_PropertyQosPolicy& constant = policy;
    EXPECT_EQ(&constant.value[1], Properties::lookup_property(constant, "d"));
    EXPECT_EQ(nullptr, Properties::lookup_property(policy, "a"));
}

TEST(QosProperties, stay_as_they_are_without_memory) {
    DDS_PropertyQosPolicy policy;
    for (const char* name : {"1", "2", "3", "4"}) {
        Properties::add_property(policy, name, name, 0);
    }
    EXPECT_EQ(3, fail_each_allocation([&] {
                  const DDS_ReturnCode_t code = Properties::add_property(policy, "5", "five", 0);
                  AllocationProbe::stop();
                  EXPECT_EQ(AllocationProbe::has_failed() ? DDS_RETCODE_OUT_OF_RESOURCES : DDS_RETCODE_OK, code);
                  EXPECT_EQ(AllocationProbe::has_failed() ? "1=1 2=2 3=3 4=4 " : "1=1 2=2 3=3 4=4 5=five ", shown(policy));
              }));
    AllocationProbe::fail(1);
    const DDS_ReturnCode_t code = Properties::assert_property(policy, "1", "other", 1);
    AllocationProbe::stop();
    EXPECT_EQ(DDS_RETCODE_OUT_OF_RESOURCES, code);
    EXPECT_STREQ("1", Properties::lookup_property(policy, "1")->value);
}

template <typename Qos>
struct Fault {
    const char* named;  // in the text; null for none
    DDS_ReturnCode_t code;
    void (*make)(Qos& qos);
};

constexpr DDS_ReturnCode_t OK = DDS_RETCODE_OK;
constexpr DDS_ReturnCode_t BAD = DDS_RETCODE_BAD_PARAMETER;
constexpr DDS_ReturnCode_t TORN = DDS_RETCODE_INCONSISTENT_POLICY;

template <typename Qos>
void expect_faults(const std::vector<Fault<Qos>>& faults) {
    for (const Fault<Qos>& fault : faults) {
        Qos qos;
        fault.make(qos);
        std::string what = "untouched";
        EXPECT_EQ(fault.code, mw::validate(qos, what)) << what;
        EXPECT_NE(std::string::npos, what.find(fault.named != nullptr ? fault.named : "untouched")) << what;
        if (fault.code != OK) {
            AllocationProbe::fail(1);
            const DDS_ReturnCode_t code = mw::validate(qos, what);
            AllocationProbe::stop();
            EXPECT_NE(OK, code) << "refused also when there is no memory to say why";
        }
    }
}

// What writers and readers refuse alike.
template <typename Qos>
std::vector<Fault<Qos>> shared_faults() {
    return {
        {nullptr, OK, [](Qos&) {}},
        {"durability.kind", DDS_RETCODE_UNSUPPORTED, [](Qos& qos) { qos.durability.kind = DDS_TRANSIENT_DURABILITY_QOS; }},
        {"durability.kind", DDS_RETCODE_UNSUPPORTED, [](Qos& qos) { qos.durability.kind = DDS_PERSISTENT_DURABILITY_QOS; }},
        {"reliability.kind", BAD, [](Qos& qos) { qos.reliability.kind = static_cast<DDS_ReliabilityQosPolicyKind>(0); }},
        {"reliability.kind", BAD, [](Qos& qos) { qos.reliability.kind = static_cast<DDS_ReliabilityQosPolicyKind>(3); }},
        {"max_blocking_time", BAD,
         [](Qos& qos) {
             qos.reliability.max_blocking_time = {-1, 0};
         }},
        {"max_blocking_time", BAD,
         [](Qos& qos) {
             qos.reliability.max_blocking_time = {0, 1000000000};
         }},
        {"max_blocking_time", BAD,
         [](Qos& qos) {
             qos.reliability.max_blocking_time = {1, DDS_DURATION_INFINITE.nanosec};
         }},
        {nullptr, OK, [](Qos& qos) { qos.reliability.max_blocking_time = DDS_DURATION_INFINITE; }},
        {nullptr, OK,
         [](Qos& qos) {
             qos.reliability.max_blocking_time = {0, 999999999};
         }},
        {"max_samples", BAD, [](Qos& qos) { qos.resource_limits.max_samples = 0; }},
        {"max_samples", BAD, [](Qos& qos) { qos.resource_limits.max_samples = -2; }},
        {nullptr, OK, [](Qos& qos) { qos.resource_limits.max_samples = 1; }},
        {"initial_samples", BAD, [](Qos& qos) { qos.resource_limits.initial_samples = -1; }},
        {"initial_samples", TORN,
         [](Qos& qos) {
             qos.resource_limits = {7, 8};
         }},
        {nullptr, OK,
         [](Qos& qos) {
             qos.resource_limits = {8, 8};
         }},
        {"history.depth", BAD, [](Qos& qos) { qos.history.depth = 0; }},
        {"history.depth", BAD, [](Qos& qos) { qos.history.depth = DDS_LENGTH_UNLIMITED; }},
        {nullptr, OK,
         [](Qos& qos) {
             qos.history = {DDS_KEEP_ALL_HISTORY_QOS, 0};
         }},
        {"history.depth", TORN,
         [](Qos& qos) {
             qos.history.depth = 11;
             qos.resource_limits.max_samples = 10;
         }},
        {nullptr, OK,
         [](Qos& qos) {
             qos.history = {DDS_KEEP_ALL_HISTORY_QOS, 11};
             qos.resource_limits.max_samples = 10;
         }},
        {"virtual_guid", BAD, [](Qos& qos) { qos.protocol.virtual_guid = DDS_GUID_UNKNOWN; }},
        {"property.value[0]", BAD, [](Qos& qos) { qos.property.value.ensure_length(1, 1); }},
    };
}

TEST(QosValidation, of_a_writer_names_the_field_at_fault) {
    typedef DDS_DataWriterQos Qos;
    expect_faults(shared_faults<Qos>());
    expect_faults<Qos>({
        {"heartbeat_period", BAD,
         [](Qos& qos) {
             qos.protocol.rtps_reliable_writer.heartbeat_period = {-1, 0};
         }},
        {"fast_heartbeat_period", BAD,
         [](Qos& qos) {
             qos.protocol.rtps_reliable_writer.fast_heartbeat_period = {-1, 0};
         }},
        {"late_joiner", BAD,
         [](Qos& qos) {
             qos.protocol.rtps_reliable_writer.late_joiner_heartbeat_period = {-1, 0};
         }},
        {"max_heartbeat_retries", BAD, [](Qos& qos) { qos.protocol.rtps_reliable_writer.max_heartbeat_retries = 0; }},
        {"heartbeats_per", BAD, [](Qos& qos) { qos.protocol.rtps_reliable_writer.heartbeats_per_max_samples = -1; }},
        {"max_nack", BAD,
         [](Qos& qos) {
             qos.protocol.rtps_reliable_writer.max_nack_response_delay = {0, 1000000000};
         }},
        {"min_nack", TORN,
         [](Qos& qos) {
             qos.protocol.rtps_reliable_writer.min_nack_response_delay = {1, 0};
         }},
        {"min_send_window_size", BAD, [](Qos& qos) { qos.protocol.rtps_reliable_writer.min_send_window_size = 0; }},
        {"min_send_window_size", TORN, [](Qos& qos) { qos.protocol.rtps_reliable_writer.max_send_window_size = 32; }},
        {nullptr, OK, [](Qos& qos) { qos.protocol.rtps_reliable_writer.min_send_window_size = 32; }},
        {"max_remote_reader_filters", BAD, [](Qos& qos) { qos.writer_resource_limits.max_remote_reader_filters = -2; }},
        {nullptr, OK, [](Qos& qos) { qos.writer_resource_limits.max_remote_reader_filters = 0; }},
        {"publication_name.role_name", BAD,
         [](Qos& qos) { DDS_String_replace(&qos.publication_name.role_name, std::string(256, 'x').c_str()); }},
        {nullptr, OK, [](Qos& qos) { DDS_String_replace(&qos.publication_name.name, std::string(255, 'x').c_str()); }},
    });
}

TEST(QosValidation, of_a_reader_names_the_field_at_fault) {
    typedef DDS_DataReaderQos Qos;
    expect_faults(shared_faults<Qos>());
    expect_faults<Qos>({
        {"max_samples_per_read", BAD, [](Qos& qos) { qos.reader_resource_limits.max_samples_per_read = 0; }},
        {"max_samples_per_read", BAD, [](Qos& qos) { qos.reader_resource_limits.max_samples_per_read = -2; }},
        {nullptr, OK, [](Qos& qos) { qos.reader_resource_limits.max_samples_per_read = 1; }},
        {"min_heartbeat_response_delay", TORN,
         [](Qos& qos) {
             qos.protocol.rtps_reliable_reader.min_heartbeat_response_delay = {0, 500000001};
         }},
        {"subscription_name.name", BAD,
         [](Qos& qos) { DDS_String_replace(&qos.subscription_name.name, std::string(256, 'x').c_str()); }},
    });
}

TEST(QosValidation, default_of_initial_samples_gives_way_to_a_smaller_maximum) {
    EXPECT_EQ(32, mw::initial_samples({DDS_LENGTH_UNLIMITED, 32}));
    EXPECT_EQ(10, mw::initial_samples({10, 32}));
    EXPECT_EQ(32, mw::initial_samples({100, 32}));
    EXPECT_EQ(0, mw::initial_samples({10, 0}));
}

class QosProfilesTest : public testing::Test {
protected:
    DDS_ReturnCode_t add_depth(const char* topic_filter, DDS_Long depth) {
        DDS_DataWriterQos writer;
        writer.history.depth = depth;
        DDS_DataReaderQos reader;
        reader.history.depth = depth;
        const DDS_ReturnCode_t code = profiles.add("Lib", "P", topic_filter, writer);
        EXPECT_EQ(code, profiles.add("Lib", "P", topic_filter, reader));
        return code;
    }
    /// The depth that a topic gets; 0 when the look-up fails.
    DDS_Long depth_of(const char* topic) {
        DDS_DataWriterQos writer;
        DDS_DataReaderQos reader;
        writer.history.depth = reader.history.depth = 999;
        if (profiles.get(writer, "Lib", "P", topic) != OK || profiles.get(reader, "Lib", "P", topic) != OK) {
            return 0;
        }
        EXPECT_EQ(writer.history.depth, reader.history.depth);
        return writer.history.depth;
    }

    LogCapture log;
    mw::QosProfiles profiles;
};

TEST_F(QosProfilesTest, last_settings_whose_filter_matches_the_topic_win) {
    ASSERT_EQ(OK, profiles.add_profile("Lib", "P"));
    EXPECT_EQ(1, depth_of("any")) << "the default, when the profile says nothing";
    const struct {
        const char* filter;
        DDS_Long depth;
    } settings[] = {{nullptr, 2}, {"Calc*", 3}, {"*Reply", 4},  {"Calc?lator[RX]e*y", 5},
                    {"exact", 6}, {"[]a]*", 7}, {"b**x**y", 8}, {"q[*?]q", 9}};
    for (const auto& each : settings) {
        ASSERT_EQ(OK, add_depth(each.filter, each.depth));
    }
    const struct {
        const char* topic;
        DDS_Long depth;
    } topics[] = {{nullptr, 2},
                  {"Other", 2},
                  {"Calculator", 3},
                  {"CalculatorReply", 5},
                  {"CalculatorXeey", 5},
                  {"CalculatReply", 4},
                  {"Reply", 4},
                  {"xReplyReply", 4},
                  {"ReplyR", 2},
                  {"exact", 6},
                  {"exactly", 2},
                  {"", 2},
                  {"]Calc", 7},
                  {"abc", 7},
                  {"bxbxbxby", 8},
                  {"bxbybz", 2},
                  {"q*q", 9},
                  {"q?q", 9},
                  {"qxq", 2},
                  {"Cal", 2}};
    for (const auto& each : topics) {
        EXPECT_EQ(each.depth, depth_of(each.topic)) << (each.topic != nullptr ? each.topic : "null");
    }
    ASSERT_EQ(OK, add_depth(nullptr, 10));
    EXPECT_EQ(10, depth_of("exact"));
    EXPECT_EQ(BAD, add_depth("open[", 3));
    EXPECT_EQ(BAD, add_depth("open[]", 3));
    EXPECT_EQ(OK, profiles.add_profile("Lib", "P")) << "a profile that is there stays as it is";
    EXPECT_EQ(10, depth_of("exact"));
}

TEST_F(QosProfilesTest, unknown_and_malformed_names_are_named_in_the_log) {
    ASSERT_EQ(OK, profiles.add_profile("Lib", "P"));
    ASSERT_EQ(OK, profiles.add_profile("Lib::Sub-1.x", "q_9"));
    const struct {
        const char* library;
        const char* profile;
        const char* logged;
    } cases[] = {{"Nope", "P", "unknown QoS library \"Nope\""},
                 {"Lib", "Nope", "unknown QoS profile \"Nope\" in library \"Lib\""},
                 {"Lib", "", "malformed QoS profile name \"\""},
                 {nullptr, "P", "malformed QoS library name \"(null)\""},
                 {"Lib", nullptr, "malformed QoS profile name"},
                 {"a b", "P", "malformed QoS library name \"a b\""},
                 {"a:b", "P", "malformed"},
                 {"a::", "P", "malformed"},
                 {"::a", "P", "malformed"},
                 {"a::::b", "P", "malformed"},
                 {"Lib", "P\xc3\xa9", "malformed"}};
    for (const auto& each : cases) {
        DDS_DataWriterQos writer;
        DDS_DataReaderQos reader;
        log.clear();
        EXPECT_EQ(BAD, profiles.get(writer, each.library, each.profile, "t"));
        EXPECT_EQ(BAD, profiles.get(reader, each.library, each.profile, "t"));
        EXPECT_EQ(BAD, profiles.add(each.library, each.profile, nullptr, writer));
        EXPECT_EQ(BAD, profiles.add(each.library, each.profile, nullptr, reader));
        EXPECT_EQ(BAD, profiles.remove_profile(each.library, each.profile));
        EXPECT_EQ(5, log.count(each.logged)) << each.logged;
        const bool is_unknown = std::string(each.logged).find("unknown") == 0;
        EXPECT_EQ(is_unknown ? OK : BAD, profiles.add_profile(each.library, each.profile)) << each.logged;
        EXPECT_EQ(is_unknown ? OK : BAD, profiles.remove_profile(each.library, each.profile)) << each.logged;
    }
    DDS_DataWriterQos writer;
    EXPECT_EQ(OK, profiles.remove_profile("Lib::Sub-1.x", "q_9"));
    EXPECT_EQ(BAD, profiles.get(writer, "Lib::Sub-1.x", "q_9", "t"));
    EXPECT_EQ(1, log.count("unknown QoS library \"Lib::Sub-1.x\"")) << "a library goes with its last profile";
    EXPECT_EQ(OK, profiles.get(writer, "Lib", "P", "t"));
}

TEST_F(QosProfilesTest, nothing_is_half_added_without_memory) {
    DDS_DataWriterQos qos;
    qos.history.depth = 5;
    fill(qos, qos.publication_name);
    // Names that do not fit into a string object.
    const std::string library(40, 'l');
    const std::string profile(40, 'p');
    EXPECT_LT(2, fail_each_allocation([&] {
                  const DDS_ReturnCode_t code = profiles.add_profile(library.c_str(), profile.c_str());
                  AllocationProbe::stop();
                  EXPECT_EQ(AllocationProbe::has_failed() ? DDS_RETCODE_OUT_OF_RESOURCES : OK, code);
                  EXPECT_EQ(code, code == OK ? code : profiles.remove_profile(library.c_str(), profile.c_str()) == BAD ? code : OK);
              }));
    EXPECT_LT(8, fail_each_allocation([&] {
                  const DDS_ReturnCode_t code =
                      profiles.add(library.c_str(), profile.c_str(), "A long filter that needs memory *", qos);
                  AllocationProbe::stop();
                  EXPECT_EQ(AllocationProbe::has_failed() ? DDS_RETCODE_OUT_OF_RESOURCES : OK, code);
                  DDS_DataWriterQos got;
                  EXPECT_EQ(OK, profiles.get(got, library.c_str(), profile.c_str(), "A long filter that needs memory too"));
                  EXPECT_EQ(code == OK ? 5 : 1, got.history.depth);
              }));
    EXPECT_EQ(8, fail_each_allocation([&] {
                  DDS_DataWriterQos got;
                  const DDS_ReturnCode_t code =
                      profiles.get(got, library.c_str(), profile.c_str(), "A long filter that needs memory !");
                  AllocationProbe::stop();
                  EXPECT_EQ(AllocationProbe::has_failed() ? DDS_RETCODE_OUT_OF_RESOURCES : OK, code);
              }));
}

}  // namespace
}  // namespace test
}  // namespace norvane
