// SPDX-License-Identifier: Apache-2.0
// The built-in types and the types described at run time: samples, copies, encoding, fields.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "norvane/dds/TypeSupport.hpp"
#include "norvane/dds/builtin_types.hpp"
#include "norvane/dds/string.hpp"
#include "support/AllocationProbe.hpp"

namespace norvane::test {
namespace {

typedef std::shared_ptr<const DDS_TypeOperations> Type;
typedef std::vector<std::uint8_t> Octets;

// A sample in memory of its own, so that a sanitizer sees every octet touched beside it.
class Sample {
public:
    explicit Sample(const Type& type) : _type(type), _memory(::operator new(type->size, std::align_val_t(type->alignment))) {
        std::memset(_memory, 0xa5, type->size);
        type->construct(*type, _memory);
    }
    ~Sample() {
        _type->destroy(*_type, _memory);
        ::operator delete(_memory, std::align_val_t(_type->alignment));
    }
    Sample(const Sample&) = delete;
    Sample& operator=(const Sample&) = delete;

    void* get() { return _memory; }
    template <typename Value>
    Value& as(std::ptrdiff_t offset = 0) {
        return *reinterpret_cast<Value*>(static_cast<unsigned char*>(_memory) + offset);
    }
    bool copy_from(Sample& other) { return _type->copy(*_type, _memory, other._memory); }
    bool decode(const Octets& octets) {
        const std::unique_ptr<std::uint8_t[]> exact(new std::uint8_t[octets.size()]);
        std::copy(octets.begin(), octets.end(), exact.get());
        return _type->decode(*_type, _memory, exact.get(), octets.size());
    }
    Octets encode() {
        Octets octets(_type->encoded_size(*_type, _memory));
        octets.resize(_type->encode(*_type, _memory, octets.data(), octets.size()));
        return octets;
    }
    void clear() { _type->clear(*_type, _memory); }

private:
    Type _type;
    void* _memory;
};

Type string_type() { return DDSStringTypeSupport::get_instance().get_type_operations(); }
Type keyed_string_type() { return DDSKeyedStringTypeSupport::get_instance().get_type_operations(); }
Type octets_type() { return DDSOctetsTypeSupport::get_instance().get_type_operations(); }
Type keyed_octets_type() { return DDSKeyedOctetsTypeSupport::get_instance().get_type_operations(); }
const DDSDynamicDataTypeSupport& pose_support() {
    static const DDSDynamicDataTypeSupport support("Pose", {{"valid", DDS_DYNAMIC_BOOLEAN},
                                                            {"x", DDS_DYNAMIC_FLOAT64},
                                                            {"level", DDS_DYNAMIC_INT32},
                                                            {"name", DDS_DYNAMIC_STRING},
                                                            {"mask", DDS_DYNAMIC_UINT32},
                                                            {"stamp", DDS_DYNAMIC_INT64},
                                                            {"id", DDS_DYNAMIC_UINT64}});
    return support;
}

void set(char*& string, const char* text) { DDS_String_replace(&string, text); }
template <typename Record>
void set_octets(Record& record, const std::vector<unsigned char>& octets) {
    DDS_OctetBuffer_free(record.value);
    record.value = DDS_OctetBuffer_dup(octets.data(), static_cast<int>(octets.size()));
    record.length = static_cast<int>(octets.size());
}

void fill_pose(Sample& pose) {
    pose.as<bool>(0) = true;
    pose.as<double>(8) = 1.5;
    pose.as<std::int32_t>(16) = -2;
    set(pose.as<char*>(24), "ab");
    pose.as<std::uint32_t>(32) = 0xfffffffeU;
    pose.as<std::int64_t>(40) = INT64_MIN;
    pose.as<std::uint64_t>(48) = UINT64_MAX;
}

void fill_octets(Sample& sample) { set_octets(sample.as<DDS_Octets>(), {9, 0, 8}); }

// One sample of each type with its encoding, written out by hand.
struct Case {
    const char* what;
    Type type;
    void (*fill)(Sample& sample);
    Octets octets;
    long allocations;  // of a copy, and of a decoding
};
const Octets HEADER = {0, 1, 0, 0};
Octets encoded(const Octets& body) {
    Octets octets = HEADER;
    octets.insert(octets.end(), body.begin(), body.end());
    return octets;
}

std::vector<Case> cases() {
    return {
        {"string", string_type(), [](Sample& sample) { set(sample.as<char*>(), "hi"); }, encoded({3, 0, 0, 0, 'h', 'i', 0}), 1},
        {"keyed string", keyed_string_type(),
         [](Sample& sample) {
             set(sample.as<DDS_KeyedString>().key, "k");
             set(sample.as<DDS_KeyedString>().value, "val");
         },
         encoded({2, 0, 0, 0, 'k', 0, 0, 0, 4, 0, 0, 0, 'v', 'a', 'l', 0}), 2},
        {"octets", octets_type(), fill_octets, encoded({3, 0, 0, 0, 9, 0, 8}), 1},
        {"keyed octets", keyed_octets_type(),
         [](Sample& sample) {
             set(sample.as<DDS_KeyedOctets>().key, "key");
             set_octets(sample.as<DDS_KeyedOctets>(), {7});
         },
         encoded({4, 0, 0, 0, 'k', 'e', 'y', 0, 1, 0, 0, 0, 7}), 2},
        {"described", pose_support().get_type_operations(), fill_pose,
         encoded({1,    0,    0,    0,    0, 0, 0, 0,    0,    0,    0,    0,    0,    0,    0xf8, 0x3f,
                  0xfe, 0xff, 0xff, 0xff, 3, 0, 0, 0,    'a',  'b',  0,    0,    0xfe, 0xff, 0xff, 0xff,
                  0,    0,    0,    0,    0, 0, 0, 0x80, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff}),
         1},
    };
}

TEST(Types, samples_encode_to_the_octets_of_the_standard_and_back) {
    for (const Case& each : cases()) {
        SCOPED_TRACE(each.what);
        Sample sample(each.type);
        each.fill(sample);
        EXPECT_EQ(each.octets, sample.encode());
        Sample back(each.type);
        ASSERT_TRUE(back.decode(each.octets));
        EXPECT_EQ(each.octets, back.encode());
        ASSERT_TRUE(back.decode(each.octets)) << "into a sample that holds something";
        Sample copy(each.type);
        ASSERT_TRUE(copy.copy_from(sample));
        sample.clear();
        sample.clear();
        EXPECT_EQ(each.octets, copy.encode());
        Sample empty(each.type);
        EXPECT_EQ(empty.encode(), sample.encode());
    }
}

TEST(Types, decoding_refuses_what_is_cut_padded_too_far_or_of_another_encapsulation) {
    for (const Case& each : cases()) {
        SCOPED_TRACE(each.what);
        Sample sample(each.type);
        each.fill(sample);
        for (std::size_t size = 0; size < each.octets.size(); ++size) {
            EXPECT_FALSE(sample.decode(Octets(each.octets.begin(), each.octets.begin() + static_cast<std::ptrdiff_t>(size))))
                << size;
            std::uint8_t small[64];
            Sample full(each.type);
            each.fill(full);
            EXPECT_EQ(0U, each.type->encode(*each.type, full.get(), small, size)) << size;
        }
        Octets octets = each.octets;
        for (int padding = 0; padding <= 4; ++padding) {
            EXPECT_EQ(padding < 4, sample.decode(octets)) << padding;
            octets.push_back(0);
        }
        for (const std::size_t place : {0U, 1U, 2U}) {
            octets = each.octets;
            octets[place] ^= 1;
            EXPECT_EQ(place == 2, sample.decode(octets)) << "header octet " << place << "; options may be any";
        }
    }
}

TEST(Types, decoding_refuses_lengths_beyond_the_end_and_values_no_encoder_makes) {
    const Type boolean = DDSDynamicDataTypeSupport("B", {{"b", DDS_DYNAMIC_BOOLEAN}}).get_type_operations();
    const struct {
        const char* what;
        Type type;
        Octets body;
        bool accepted;
    } bodies[] = {
        {"length 2^32 - 1", string_type(), {0xff, 0xff, 0xff, 0xff, 'a', 0}, false},
        {"length 2^31 of octets", octets_type(), {0, 0, 0, 0x80, 1}, false},
        {"one octet too few", octets_type(), {2, 0, 0, 0, 1}, false},
        {"no terminator", string_type(), {2, 0, 0, 0, 'a', 'b'}, false},
        {"terminator in the middle", string_type(), {3, 0, 0, 0, 'a', 0, 0}, false},
        {"empty string without terminator", string_type(), {0, 0, 0, 0}, true},
        {"empty string", string_type(), {1, 0, 0, 0, 0}, true},
        {"boolean 2", boolean, {2}, false},
        {"boolean 0", boolean, {0}, true},
    };
    for (const auto& each : bodies) {
        EXPECT_EQ(each.accepted, Sample(each.type).decode(encoded(each.body))) << each.what;
    }
    Sample empty(string_type());
    Sample copy(string_type());
    EXPECT_TRUE(copy.copy_from(empty));
    EXPECT_EQ(nullptr, copy.as<char*>());
    EXPECT_EQ(encoded({1, 0, 0, 0, 0}), empty.encode()) << "null goes out as the empty string";
    ASSERT_TRUE(empty.decode(empty.encode()));
    EXPECT_STREQ("", empty.as<char*>());
    Sample described(DDSDynamicDataTypeSupport("S", {{"s", DDS_DYNAMIC_STRING}}).get_type_operations());
    set(described.as<char*>(), "old");
    ASSERT_TRUE(described.decode(empty.encode()));
    EXPECT_EQ(nullptr, described.as<char*>()) << "empty is null in a described type";
}

TEST(Types, copying_and_decoding_say_when_memory_is_short_and_lose_nothing) {
    for (const Case& each : cases()) {
        SCOPED_TRACE(each.what);
        Sample sample(each.type);
        each.fill(sample);
        for (const bool copied : {true, false}) {
            EXPECT_EQ(each.allocations, fail_each_allocation([&] {
                          alignas(16) unsigned char place[64];
                          each.type->construct(*each.type, place);
                          const bool done = copied ? each.type->copy(*each.type, place, sample.get())
                                                   : each.type->decode(*each.type, place, each.octets.data(), each.octets.size());
                          each.type->destroy(*each.type, place);
                          AllocationProbe::stop();
                          EXPECT_EQ(!AllocationProbe::has_failed(), done);
                          EXPECT_EQ(0, AllocationProbe::outstanding());
                      }));
        }
    }
}

std::string shown_field(const Type& type, Sample& sample, const char* path) {
    DDS_FieldKind kind = DDS_FIELD_NONE;
    const int field = type->find_field(*type, path, &kind);
    if (field < 0) {
        return "none";
    }
    DDS_FieldValue value;
    if (!type->read_field(*type, sample.get(), field, &value)) {
        return "missing";
    }
    if (value.kind != kind) {
        return "of another kind than announced";
    }
    switch (value.kind) {
        case DDS_FIELD_INTEGER:
            return "i" + std::to_string(value.integer);
        case DDS_FIELD_UNSIGNED:
            return "u" + std::to_string(value.unsigned_integer);
        case DDS_FIELD_FLOAT:
            return "f" + std::to_string(value.floating);
        case DDS_FIELD_BOOLEAN:
            return value.boolean ? "true" : "false";
        case DDS_FIELD_STRING:
            return "s" + std::string(static_cast<const char*>(value.data), value.length);
        default:
            return "o" + std::to_string(value.length) + "," + std::to_string(*static_cast<const unsigned char*>(value.data));
    }
}

TEST(Types, fields_are_found_by_name_and_read) {
    const struct {
        std::vector<const char*> paths;
        std::string empty;
        std::string filled;
    } fields[] = {{{"value", "key", ""}, "missing none none ", "shi none none "},
                  {{"key", "value"}, "missing missing ", "sk sval "},
                  {{"length", "value"}, "i0 missing ", "i3 o3,9 "},
                  {{"key", "length", "value"}, "missing i0 missing ", "skey i1 o1,7 "},
                  {{"valid", "x", "level", "name", "mask", "stamp", "id", "nam", ""},
                   "false f0.000000 i0 s u0 i0 u0 none none ",
                   "true f1.500000 i-2 sab u4294967294 i-9223372036854775808 u18446744073709551615 none none "}};
    const std::vector<Case> types = cases();
    for (std::size_t index = 0; index < types.size(); ++index) {
        const Type& type = types[index].type;
        Sample sample(type);
        const auto shown = [&] {
            std::string text;
            for (const char* const path : fields[index].paths) {
                text += shown_field(type, sample, path) + " ";
            }
            return text;
        };
        EXPECT_EQ(fields[index].empty, shown());
        types[index].fill(sample);
        EXPECT_EQ(fields[index].filled, shown());
    }
}

TEST(Types, have_layouts_that_differ) {
    std::set<std::uint64_t> hashes;
    for (const Case& each : cases()) {
        EXPECT_TRUE(hashes.insert(each.type->layout_hash).second) << each.what;
    }
    EXPECT_STREQ("DDS::KeyedString", keyed_string_type()->name);
    EXPECT_STREQ("DDS::KeyedOctets", keyed_octets_type()->name);
}

TEST(DynamicData, lays_members_out_as_a_c_compiler_does_and_has_a_hash_of_them) {
    struct Pose {
        bool valid;
        double x;
        std::int32_t level;
        char* name;
        std::uint32_t mask;
        std::int64_t stamp;
        std::uint64_t id;
    };
    const DDSDynamicDataTypeSupport& support = pose_support();
    EXPECT_EQ(sizeof(Pose), support.get_type_operations()->size);
    EXPECT_EQ(static_cast<std::ptrdiff_t>(offsetof(Pose, mask)), support.member_offset("mask"));
    EXPECT_EQ(-1, support.member_offset("other"));
    const auto made = [](const char* name, DDS_DynamicMemberKind kind) {
        return DDSDynamicDataTypeSupport("T", {{"a", DDS_DYNAMIC_INT64}, {name, kind}}).get_type_operations();
    };
    EXPECT_EQ(16U, made("b", DDS_DYNAMIC_BOOLEAN)->size) << "the end is padded";
    EXPECT_EQ(made("b", DDS_DYNAMIC_INT64)->layout_hash, made("b", DDS_DYNAMIC_INT64)->layout_hash);
    EXPECT_NE(made("b", DDS_DYNAMIC_INT64)->layout_hash, made("c", DDS_DYNAMIC_INT64)->layout_hash);
    EXPECT_NE(made("b", DDS_DYNAMIC_INT64)->layout_hash, made("b", DDS_DYNAMIC_UINT64)->layout_hash);
}

}  // namespace
}  // namespace norvane::test
