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

namespace norvane::test {
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
void expect_deep_copies(DDS_ReturnCode_t (*copy)(Qos*, const Qos*), DDS_EntityNameQosPolicy Qos::*name) {
    const DDS_Octet octets[] = {1, 2, 3};
    Qos source;
    source.durability.kind = DDS_TRANSIENT_LOCAL_DURABILITY_QOS;
    source.resource_limits.max_samples = 50;
    source.user_data.value.from_array(octets, 3);
    source.protocol.virtual_guid = {{1, 2, 3}};
    DDS_String_replace(&(source.*name).name, "name");
    DDS_String_replace(&(source.*name).role_name, "role");
    Properties::add_property(source.property, "a", "1", DDS_BOOLEAN_TRUE);
    Properties::add_property(source.property, "b", "2", DDS_BOOLEAN_FALSE);
    const auto is_source = [&](const Qos& qos) {
        return qos.durability.kind == source.durability.kind && qos.resource_limits.max_samples == 50 &&
               qos.user_data.value.length() == 3 && qos.user_data.value[2] == 3 &&
               qos.protocol.virtual_guid == source.protocol.virtual_guid &&
               std::string((qos.*name).name) + (qos.*name).role_name == "namerole" && shown(qos.property) == "a=1! b=2 ";
    };
    const long runs = fail_each_allocation([&] {
        Qos made;
        const DDS_ReturnCode_t code = copy(&made, &source);
        AllocationProbe::stop();
        EXPECT_EQ(AllocationProbe::has_failed() ? DDS_RETCODE_OUT_OF_RESOURCES : DDS_RETCODE_OK, code);
        EXPECT_TRUE(code != DDS_RETCODE_OK || is_source(made));
    });
    EXPECT_EQ(8, runs) << "octets, two names, the array of properties and their four strings";
    Qos made;
    EXPECT_EQ(DDS_RETCODE_OK, copy(&made, &source));
    EXPECT_NE(source.property.value[0].name, made.property.value[0].name);
    EXPECT_EQ(DDS_RETCODE_OK, copy(&made, &made));
    EXPECT_TRUE(is_source(made));
    const Qos empty;
    EXPECT_EQ(DDS_RETCODE_OK, copy(&made, &empty));
    EXPECT_EQ(nullptr, (made.*name).name);
    EXPECT_EQ("", shown(made.property));
    EXPECT_EQ(DDS_RETCODE_BAD_PARAMETER, copy(nullptr, &source));
    EXPECT_EQ(DDS_RETCODE_BAD_PARAMETER, copy(&made, nullptr));
}

TEST(QosCopy, is_deep_and_says_when_memory_is_short) {
    expect_deep_copies(DDS_DataWriterQos_copy, &DDS_DataWriterQos::publication_name);
    expect_deep_copies(DDS_DataReaderQos_copy, &DDS_DataReaderQos::subscription_name);
}

TEST(QosProperties, are_added_changed_and_removed_by_name) {
    DDS_PropertyQosPolicy policy;
    const auto add = [&](const char* name, const char* value) { return Properties::add_property(policy, name, value, 0); };
    const auto set = [&](const char* name, const char* value) { return Properties::assert_property(policy, name, value, 1); };
    const auto remove = [&](const char* name) { return Properties::remove_property(policy, name); };
    const struct {
        std::function<DDS_ReturnCode_t()> action;
        DDS_ReturnCode_t code;
        const char* after;
    } steps[] = {
        {[&] { return add("a", "1"); }, DDS_RETCODE_OK, "a=1 "},
        {[&] { return add("a", "1"); }, DDS_RETCODE_PRECONDITION_NOT_MET, "a=1 "},
        {[&] { return set("b", "2"); }, DDS_RETCODE_OK, "a=1 b=2! "},
        {[&] { return set("a", policy.value[1].value); }, DDS_RETCODE_OK, "a=2! b=2! "},
        {[&] { return add("c", policy.value[0].name); }, DDS_RETCODE_OK, "a=2! b=2! c=a "},
        {[&] { return remove("b"); }, DDS_RETCODE_OK, "a=2! c=a "},
        {[&] { return remove("b"); }, DDS_RETCODE_PRECONDITION_NOT_MET, "a=2! c=a "},
        {[&] { return add("d", ""); }, DDS_RETCODE_OK, "a=2! c=a d= "},
        {[&] { return add(nullptr, "x"); }, DDS_RETCODE_BAD_PARAMETER, "a=2! c=a d= "},
        {[&] { return set("a", nullptr); }, DDS_RETCODE_BAD_PARAMETER, "a=2! c=a d= "},
    };
    for (const auto& step : steps) {
        EXPECT_EQ(step.code, step.action());
        EXPECT_EQ(step.after, shown(policy));
    }
    EXPECT_STREQ("a", Properties::lookup_property(policy, "c")->value);
    EXPECT_EQ(nullptr, Properties::lookup_property(policy, "b"));
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
    }
}

constexpr DDS_Duration_t NEGATIVE = {-1, 0};
constexpr DDS_Duration_t SECOND = {1, 0};
constexpr DDS_Duration_t TOO_MANY_NANOSECONDS = {0, 1000000000};
constexpr DDS_Duration_t HALF_INFINITE = {1, DDS_DURATION_INFINITE.nanosec};
constexpr DDS_HistoryQosPolicy KEEP_ALL = {DDS_KEEP_ALL_HISTORY_QOS, 0};
constexpr DDS_ReturnCode_t NEVER = DDS_RETCODE_UNSUPPORTED;

// What writers and readers refuse alike.
template <typename Q>
std::vector<Fault<Q>> shared_faults() {
    return {
        {nullptr, OK, [](Q&) {}},
        {"durability.kind", NEVER, [](Q& q) { q.durability.kind = DDS_TRANSIENT_DURABILITY_QOS; }},
        {"reliability.kind", BAD, [](Q& q) { q.reliability.kind = static_cast<DDS_ReliabilityQosPolicyKind>(0); }},
        {"max_blocking_time", BAD, [](Q& q) { q.reliability.max_blocking_time = NEGATIVE; }},
        {"max_blocking_time", BAD, [](Q& q) { q.reliability.max_blocking_time = TOO_MANY_NANOSECONDS; }},
        {"max_blocking_time", BAD, [](Q& q) { q.reliability.max_blocking_time = HALF_INFINITE; }},
        {nullptr, OK, [](Q& q) { q.reliability.max_blocking_time = DDS_DURATION_INFINITE; }},
        {nullptr, OK, [](Q& q) { q.reliability.max_blocking_time.nanosec = 999999999; }},
        {"max_samples", BAD, [](Q& q) { q.resource_limits.max_samples = 0; }},
        {"max_samples", BAD, [](Q& q) { q.resource_limits.max_samples = -2; }},
        {"initial_samples", BAD, [](Q& q) { q.resource_limits.initial_samples = -1; }},
        {"initial_samples", TORN, [](Q& q) { q.resource_limits.initial_samples = 8, q.resource_limits.max_samples = 7; }},
        {nullptr, OK, [](Q& q) { q.resource_limits.initial_samples = q.resource_limits.max_samples = 8; }},
        {"history.depth", BAD, [](Q& q) { q.history.depth = 0; }},
        {"history.depth", TORN, [](Q& q) { q.history.depth = 11, q.resource_limits.max_samples = 10; }},
        {nullptr, OK, [](Q& q) { q.history = KEEP_ALL, q.history.depth = 11, q.resource_limits.max_samples = 10; }},
        {"virtual_guid", BAD, [](Q& q) { q.protocol.virtual_guid = DDS_GUID_UNKNOWN; }},
        {"property.value[0]", BAD, [](Q& q) { q.property.value.ensure_length(1, 1); }},
    };
}

DDS_RtpsReliableWriterProtocol_t& rtps(DDS_DataWriterQos& qos) { return qos.protocol.rtps_reliable_writer; }

TEST(QosValidation, of_a_writer_names_the_field_at_fault) {
    typedef DDS_DataWriterQos Q;
    expect_faults(shared_faults<Q>());
    expect_faults<Q>({
        {"heartbeat_period", BAD, [](Q& q) { rtps(q).heartbeat_period = NEGATIVE; }},
        {"max_heartbeat_retries", BAD, [](Q& q) { rtps(q).max_heartbeat_retries = 0; }},
        {"heartbeats_per", BAD, [](Q& q) { rtps(q).heartbeats_per_max_samples = -1; }},
        {"max_nack", BAD, [](Q& q) { rtps(q).max_nack_response_delay = TOO_MANY_NANOSECONDS; }},
        {"min_nack", TORN, [](Q& q) { rtps(q).min_nack_response_delay = SECOND; }},
        {"min_send_window_size", BAD, [](Q& q) { rtps(q).min_send_window_size = 0; }},
        {"min_send_window_size", TORN, [](Q& q) { rtps(q).max_send_window_size = 32; }},
        {nullptr, OK, [](Q& q) { rtps(q).min_send_window_size = 32; }},
        {"max_remote_reader_filters", BAD, [](Q& q) { q.writer_resource_limits.max_remote_reader_filters = -2; }},
        {nullptr, OK, [](Q& q) { q.writer_resource_limits.max_remote_reader_filters = 0; }},
        {"role_name", BAD, [](Q& q) { DDS_String_replace(&q.publication_name.role_name, std::string(256, 'x').c_str()); }},
        {nullptr, OK, [](Q& q) { DDS_String_replace(&q.publication_name.name, std::string(255, 'x').c_str()); }},
    });
}

TEST(QosValidation, of_a_reader_names_the_field_at_fault) {
    typedef DDS_DataReaderQos Q;
    expect_faults(shared_faults<Q>());
    expect_faults<Q>({
        {"max_samples_per_read", BAD, [](Q& q) { q.reader_resource_limits.max_samples_per_read = 0; }},
        {"max_samples_per_read", BAD, [](Q& q) { q.reader_resource_limits.max_samples_per_read = -2; }},
        {nullptr, OK, [](Q& q) { q.reader_resource_limits.max_samples_per_read = 1; }},
        {"min_heartbeat", TORN, [](Q& q) { q.protocol.rtps_reliable_reader.min_heartbeat_response_delay = SECOND; }},
        {"name.name", BAD, [](Q& q) { DDS_String_replace(&q.subscription_name.name, std::string(256, 'x').c_str()); }},
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
        std::vector<const char*> topics;  // that these settings win
    } settings[] = {{nullptr, {nullptr, "Other", "ReplyR", "exactly", "", "bxbybz", "qxq", "Cal"}},
                    {"Calc*", {"Calculator"}},
                    {"*Reply", {"CalculatReply", "Reply", "xReplyReply"}},
                    {"Calc?lator[RX]e*y", {"CalculatorReply", "CalculatorXeey"}},
                    {"exact", {"exact"}},
                    {"[]a]*", {"]Calc", "abc"}},
                    {"b**x**y", {"bxbxbxby"}},
                    {"q[*?]q", {"q*q", "q?q"}}};
    DDS_Long depth = 1;
    for (const auto& each : settings) {
        ASSERT_EQ(OK, add_depth(each.filter, ++depth));
    }
    depth = 1;
    for (const auto& each : settings) {
        ++depth;
        for (const char* const topic : each.topics) {
            EXPECT_EQ(depth, depth_of(topic)) << (topic != nullptr ? topic : "null");
        }
    }
    ASSERT_EQ(OK, add_depth(nullptr, 10));
    EXPECT_EQ(10, depth_of("exact"));
    EXPECT_EQ(BAD, add_depth("open[", 3));
    EXPECT_EQ(BAD, add_depth("open[]", 3));
    EXPECT_EQ(OK, profiles.add_profile("Lib", "P"));
    EXPECT_EQ(10, depth_of("exact")) << "a profile that is there stays as it is";

    DDS_DataWriterQos named;
    DDS_String_replace(&named.publication_name.name, "name");
    EXPECT_LT(3, fail_each_allocation([&] {
                  const bool is_made = profiles.add_profile("Another", "P") == OK;
                  const DDS_ReturnCode_t code = profiles.add("Another", is_made ? "P" : "", "T*", named);
                  AllocationProbe::stop();
                  EXPECT_EQ(is_made ? OK : BAD, profiles.remove_profile("Another", "P"));
                  EXPECT_EQ(!AllocationProbe::has_failed(), is_made && code == OK);
                  EXPECT_TRUE(!is_made || code == OK || code == DDS_RETCODE_OUT_OF_RESOURCES);
              }));
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
                 {"a b", "P", "malformed QoS library name \"a b\""},
                 {"a:b", "P", "malformed"},
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

}  // namespace
}  // namespace norvane::test
