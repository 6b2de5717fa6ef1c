// SPDX-License-Identifier: Apache-2.0
// Content-filtered topics at work. (The language itself has tests of its own.)
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/TextFixture.hpp"

namespace norvane::test {
namespace {

class Filters : public TextFixture {
protected:
    DDSContentFilteredTopic* make_filter(const std::string& name, const std::string& expression,
                                         const std::vector<const char*>& values = {}) {
        DDS_StringSeq parameters;
        parameters.ensure_length(static_cast<DDS_Long>(values.size()), static_cast<DDS_Long>(values.size()));
        for (std::size_t index = 0; index < values.size(); ++index) {
            DDS_String_replace(&parameters[static_cast<DDS_Long>(index)], values[index]);
        }
        return _participant.create_contentfilteredtopic(name.c_str(), topic(), expression.c_str(), parameters);
    }
    DDSDataReader& filtered_reader(const std::string& name, const std::string& expression, const DDS_DataReaderQos& qos,
                                   const std::vector<const char*>& values = {}) {
        DDSDataReader* made = _participant.create_datareader(make_filter(name, expression, values), qos, nullptr, 0);
        EXPECT_NE(nullptr, made) << expression;
        return *made;
    }
};
INSTANTIATE_TEST_SUITE_P(Engine, Filters, ::testing::ValuesIn(engine_names()), engine_of_test);

TEST_P(Filters, a_reader_gets_what_its_filter_passes_by_the_data_and_by_what_it_answers) {
    const std::string GUID_A = "&hex(42000000000000000000000000000000)";
    const std::string NOBODY = "&hex(00000000000000000000000000000000)";
    struct {
        std::string expression;
        std::vector<const char*> parameters;
        const char* expected;
    } const CASES[] = {
        {"value > %1 and value < %0", {"'c'", "'b'"}, "banana"},
        {"NOT (value = 'apple')", {}, "banana cherry -"},
        {"@related_sample_identity.sequence_number >= 2", {}, "cherry -"},
        {"@sample_identity.sequence_number = 1 OR @related_sample_identity.sequence_number = 3", {}, "apple -"},
        {"@related_sample_identity.writer_guid.value = " + GUID_A, {}, "banana cherry"},
        {"%0 = @related_sample_identity.writer_guid.value", {GUID_A.c_str()}, "banana cherry"},
        {"@related_sample_identity.writer_guid.value = " + GUID_A + " AND value <> 'banana'", {}, "cherry"},
        {"@related_sample_identity.writer_guid.value = " + NOBODY, {}, "apple"},
        {"@related_sample_identity.writer_guid.value <> " + NOBODY, {}, "banana cherry -"},
        {"@source_timestamp.sec > 0", {}, "apple banana cherry -"},
    };
    DDSDataWriter& sender = writer();
    std::vector<DDSDataReader*> readers;
    for (const auto& each : CASES) {
        readers.push_back(&filtered_reader("F" + std::to_string(readers.size()), each.expression, reader_qos(), each.parameters));
        meet(sender, *readers.back());
        DDSContentFilteredTopic* const made = DDSContentFilteredTopic::narrow(readers.back()->get_topicdescription());
        ASSERT_NE(nullptr, made);
        EXPECT_EQ(each.expression, made->get_filter_expression());
        DDS_StringSeq parameters;
        EXPECT_EQ(OK, made->get_expression_parameters(parameters));
        ASSERT_EQ(static_cast<DDS_Long>(each.parameters.size()), parameters.length());
        for (DDS_Long index = 0; index < parameters.length(); ++index) {
            EXPECT_STREQ(each.parameters[static_cast<std::size_t>(index)], parameters[index]);
        }
    }
    deliver(sender, "apple");
    deliver(sender, "banana", related_to(1));
    deliver(sender, "cherry", related_to(2));
    DDS_WriteParams_t params;
    params.related_sample_identity = {{{0x43}}, {0, 3}};
    EXPECT_EQ(OK, write(sender, nullptr, params));
    EXPECT_EQ(OK, sender.wait_for_acknowledgments(LONG_TIME));
    std::size_t row = 0;
    for (const auto& each : CASES) {
        EXPECT_EQ(each.expected, take(*readers[row++])) << each.expression;
    }
}

TEST_P(Filters, what_does_not_pass_takes_no_room_and_replaces_nothing) {
    DDSDataReader& full = filtered_reader("F1", "value = 'mine'", reader_qos(1));
    DDSDataReader& routed =
        filtered_reader("F2", "@related_sample_identity.writer_guid.value = &hex(42000000000000000000000000000000)", reader_qos(1));
    DDS_DataReaderQos last = reader_qos();
    last.history = {DDS_KEEP_LAST_HISTORY_QOS, 1};
    DDSDataReader& newest = filtered_reader("F3", "value = 'mine'", last);
    DDSDataWriter& sender = writer(writer_qos(NO_TIME));
    for (DDSDataReader* each : {&full, &routed, &newest}) {
        meet(sender, *each);
    }
    deliver(sender, "mine", related_to(1));
    for (int count = 0; count < 50; ++count) {
        deliver(sender, "not mine");
    }
    for (DDSDataReader* each : {&full, &routed, &newest}) {
        EXPECT_EQ("mine", take(*each));
        DDS_SampleLostStatus lost;
        EXPECT_EQ(OK, each->get_sample_lost_status(lost));
        EXPECT_EQ(0, lost.total_count);
    }
}

TEST_P(Filters, a_refused_filter_names_the_column_and_leaves_nothing_behind) {
    const LogCapture log;
    EXPECT_EQ(nullptr, make_filter("F", "value = %0"));
    EXPECT_LE(1, log.count("the filter \"value = %0\" is refused: column 9: parameter %0 is missing"));
    EXPECT_NE(nullptr, make_filter("F", "value = 'x'"));
}

}  // namespace
}  // namespace norvane::test
