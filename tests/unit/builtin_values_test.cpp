// SPDX-License-Identifier: Apache-2.0
// Value semantics of the built-in records, and the identities in a sample info.
#include "norvane/dds/builtin_types.hpp"

#include <gtest/gtest.h>

#include <string>

#include "norvane/dds/TypeSupport.hpp"
#include "norvane/details/sample_identity.hpp"

namespace norvane::test {
namespace {

std::string shown(const char* text) { return text != NULL ? std::string("'") + text + "'" : "null"; }
std::string shown(const unsigned char* octets, int length) {
    return std::to_string(length) + shown(reinterpret_cast<const char*>(octets));
}
std::string shown(const DDS_Octets& value) { return shown(value.value, value.length); }
std::string shown(const DDS_KeyedString& value) { return shown(value.key) + shown(value.value); }
std::string shown(const DDS_KeyedOctets& value) { return shown(value.key) + shown(value.value, value.length); }

TEST(BuiltinValues, of_a_size_start_empty_and_zero_and_negative_sizes_hold_nothing) {
    EXPECT_EQ("3''", shown(DDS_Octets(3)));
    EXPECT_EQ("0null", shown(DDS_Octets(-1)));
    EXPECT_TRUE(DDS_Octets(0).is_allocated() == 1 && DDS_Octets(-1).is_allocated() == 0);
    EXPECT_EQ("''''", shown(DDS_KeyedString(255, 255)));
    EXPECT_EQ("null''", shown(DDS_KeyedString(-1, 0)));
    EXPECT_EQ("''2''", shown(DDS_KeyedOctets(255, 2)));
    EXPECT_EQ("null0null", shown(DDS_KeyedOctets(-1, -1)));
    EXPECT_TRUE(DDS_KeyedString(-1, 0).is_allocated() == 0 && DDS_KeyedOctets(0, -1).is_allocated() == 0);
}

TEST(SampleIdentity, of_a_received_sample_is_that_of_its_original_writer_and_the_related_one_is_passed_through) {
    DDS_SampleInfo info;
    info.publication_virtual_guid = {{9}};
    info.publication_virtual_sequence_number = {9, 9};
    info.source_guid = info.related_source_guid = {{8}};
    EXPECT_TRUE(details::get_related_sample_identity_from_sample_info(info) == DDS_UNKNOWN_SAMPLE_IDENTITY);
    info.original_publication_virtual_guid = {{1, 2, 3}};
    info.original_publication_virtual_sequence_number = {4, 5};
    EXPECT_TRUE(details::get_sample_identity_from_sample_info(info) == (DDS_SampleIdentity_t{{{1, 2, 3}}, {4, 5}}));
}

TEST(DynamicDataTypeSupport, is_found_behind_its_base_and_nothing_else_is_taken_for_it) {
    DDSDynamicDataTypeSupport dynamic("Point", {{"x", DDS_DYNAMIC_INT32}});
    EXPECT_EQ(&dynamic, details::dynamic_data_type_support_cast(&dynamic));
    EXPECT_EQ(NULL, details::dynamic_data_type_support_cast(&DDSStringTypeSupport::get_instance()));
    EXPECT_EQ(NULL, details::dynamic_data_type_support_cast(NULL));
}

}  // namespace
}  // namespace norvane::test
