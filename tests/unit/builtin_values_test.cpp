// SPDX-License-Identifier: Apache-2.0
// Value semantics of the built-in records, and the identities in a sample info.
#include "norvane/dds/builtin_types.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "norvane/dds/TypeSupport.hpp"
#include "norvane/details/sample_identity.hpp"

namespace norvane::test {
namespace {

std::string shown(const char* text) { return text != NULL ? std::string("'") + text + "'" : "null"; }
std::string shown(const unsigned char* octets, int length) {
    return std::to_string(length) + (octets != NULL ? shown(reinterpret_cast<const char*>(octets)) : "null");
}
std::string shown(const DDS_Octets& value) { return shown(value.value, value.length); }
std::string shown(const DDS_KeyedString& value) { return shown(value.key) + shown(value.value); }
std::string shown(const DDS_KeyedOctets& value) { return shown(value.key) + shown(value.value, value.length); }

// Octets of these tests end with a zero, so that they can be shown as text.
unsigned char* octets(const char* text) {
    return DDS_OctetBuffer_dup(reinterpret_cast<const unsigned char*>(text), static_cast<int>(std::string(text).size()) + 1);
}

DDS_Octets make_octets(int length, const char* text) {
    DDS_Octets made;
    made.length = length;
    made.value = text != NULL ? octets(text) : NULL;
    return made;
}
DDS_KeyedString make_keyed_string(const char* key, const char* value) {
    DDS_KeyedString made;
    made.key = DDS_String_dup(key);
    made.value = DDS_String_dup(value);
    return made;
}
DDS_KeyedOctets make_keyed_octets(const char* key, int length, const char* text) {
    DDS_KeyedOctets made;
    made.key = DDS_String_dup(key);
    made.length = length;
    made.value = text != NULL ? octets(text) : NULL;
    return made;
}

TEST(BuiltinValues, are_swapped_pointer_for_pointer_and_know_whether_they_hold_memory) {
    DDS_KeyedString first = make_keyed_string("1", "one");
    DDS_KeyedString second = make_keyed_string("2", NULL);
    const char* const value = first.value;
    DDS::swap(first, second);
    EXPECT_EQ("'2'null", shown(first));
    EXPECT_EQ(value, second.value);
    EXPECT_TRUE(first.is_allocated() == 0 && second.is_allocated() == 1);
    DDS_KeyedOctets third = make_keyed_octets("3", 6, "three");
    DDS_KeyedOctets fourth = make_keyed_octets(NULL, 9, NULL);
    DDS::swap(third, fourth);
    EXPECT_EQ("null9null", shown(third));
    EXPECT_EQ("'3'6'three'", shown(fourth));
    EXPECT_TRUE(third.is_allocated() == 0 && fourth.is_allocated() == 1);
    EXPECT_TRUE(make_octets(4, "abc").is_allocated() == 1 && make_octets(5, NULL).is_allocated() == 0);
}

TEST(BuiltinValues, of_a_size_start_empty_and_zero_and_negative_sizes_hold_nothing) {
    EXPECT_EQ("3''", shown(DDS_Octets(3)));
    EXPECT_EQ("0null", shown(DDS_Octets(-1)));
    EXPECT_EQ(1U, DDS_Octets(0).is_allocated());
    EXPECT_EQ("''''", shown(DDS_KeyedString(255, 255)));
    EXPECT_EQ("null''", shown(DDS_KeyedString(-1, 0)));
    EXPECT_EQ("''2''", shown(DDS_KeyedOctets(255, 2)));
    EXPECT_EQ("null0null", shown(DDS_KeyedOctets(-1, -1)));
    const DDS_KeyedString room(3, 4);
    std::snprintf(room.key, 4, "abc");
    std::snprintf(room.value, 5, "defg");
    EXPECT_EQ("'abc''defg'", shown(room));
}

TEST(SampleIdentity, of_a_received_sample_is_that_of_its_original_writer_and_the_related_one_is_passed_through) {
    DDS_SampleInfo info;
    info.publication_virtual_guid = {{9}};
    info.publication_virtual_sequence_number = {9, 9};
    info.source_guid = info.related_source_guid = {{8}};
    EXPECT_TRUE(details::get_related_sample_identity_from_sample_info(info) == DDS_UNKNOWN_SAMPLE_IDENTITY);
    info.original_publication_virtual_guid = {{1, 2, 3}};
    info.original_publication_virtual_sequence_number = {4, 5};
    info.related_original_publication_virtual_guid = {{6}};
    info.related_original_publication_virtual_sequence_number = {7, 0xffffffffU};
    EXPECT_TRUE(details::get_sample_identity_from_sample_info(info) == (DDS_SampleIdentity_t{{{1, 2, 3}}, {4, 5}}));
    EXPECT_TRUE(details::get_related_sample_identity_from_sample_info(info) == (DDS_SampleIdentity_t{{{6}}, {7, 0xffffffffU}}));
}

TEST(DynamicDataTypeSupport, is_found_behind_its_base_and_nothing_else_is_taken_for_it) {
    DDSDynamicDataTypeSupport dynamic("Point", {{"x", DDS_DYNAMIC_INT32}});
    EXPECT_EQ(&dynamic, details::dynamic_data_type_support_cast(&dynamic));
    EXPECT_EQ(NULL, details::dynamic_data_type_support_cast(&DDSStringTypeSupport::get_instance()));
    EXPECT_EQ(NULL, details::dynamic_data_type_support_cast(NULL));
}

}  // namespace
}  // namespace norvane::test
