// SPDX-License-Identifier: Apache-2.0
// Every kind of type, built in, described or generated: samples, copies, encoding, memory that is short, fields.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "middleware/FilterExpression.hpp"
#include "norvane/dds/TypeSupport.hpp"
#include "norvane/dds/builtin_types.hpp"
#include "norvane/dds/string.hpp"
#include "norvane/norvane.hpp"
#include "support/AllocationProbe.hpp"
#include "unit/Everything.hpp"

namespace norvane::test {
namespace {

typedef std::shared_ptr<const DDS_TypeOperations> Type;

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
    void clear() {
        if (_type->clear != nullptr) {
            _type->clear(*_type, _memory);
        } else {
            _type->destroy(*_type, _memory);
            _type->construct(*_type, _memory);
        }
    }

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

struct Fixed {
    std::uint8_t head = 0;
    double values[2] = {};
    std::array<Point, 1> points{};
    unsigned tail = 0;
};
BOOST_DESCRIBE_STRUCT(Fixed, (), (head, values, points, tail))

class Secret : public Point {
public:
    void set(int value) { _hidden = value; }

private:
    int _hidden = 3;
    BOOST_DESCRIBE_CLASS(Secret, (Point), (), (), (_hidden))
};

// A class as the generator makes them from IDL.
class Generated {
public:
    void serialize(eprosima::fastcdr::Cdr& cdr) const {
        cdr << text << static_cast<std::uint32_t>(values.size());
        for (const double value : values) {
            cdr << value;
        }
    }
    void deserialize(eprosima::fastcdr::Cdr& cdr) {
        std::uint32_t length = 0;
        cdr >> text >> length;
        values.resize(length);  // as carelessly as can be
        for (double& value : values) {
            cdr >> value;
        }
    }
    static std::size_t getCdrSerializedSize(const Generated& value, std::size_t at = 0) {
        return (at + 4 + (value.text.size() + 4) / 4 * 4 + 4 + 7) / 8 * 8 + 8 * value.values.size();
    }

    std::string text;
    std::vector<double> values;
};
static_assert(is_generated_type<Generated> && !is_generated_type<Point> && !is_generated_type<std::string>, "");

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

// One sample of each type with its encoding, written out by hand.
struct Case {
    const char* what;
    Type type;
    void (*fill)(Sample& sample);
    Octets octets;
    long allocations;    // of a copy, and of a decoding
    const char* filter;  // passes the sample, and not an empty one
};
const Octets HEADER = {0, 1, 0, 0};
Octets encoded(const Octets& body) {
    Octets octets = HEADER;
    octets.insert(octets.end(), body.begin(), body.end());
    return octets;
}

std::vector<Case> cases() {
    return {
        {"string", string_type(), [](Sample& sample) { set(sample.as<char*>(), "hi"); }, encoded({3, 0, 0, 0, 'h', 'i', 0}), 1,
         "value = 'hi'"},
        {"keyed string", keyed_string_type(),
         [](Sample& sample) {
             set(sample.as<DDS_KeyedString>().key, "k");
             set(sample.as<DDS_KeyedString>().value, "val");
         },
         encoded({2, 0, 0, 0, 'k', 0, 0, 0, 4, 0, 0, 0, 'v', 'a', 'l', 0}), 2, "key = 'k' AND value = 'val'"},
        {"octets", octets_type(),
         [](Sample& sample) {
             set_octets(sample.as<DDS_Octets>(), {9, 0, 8});
         },
         encoded({3, 0, 0, 0, 9, 0, 8}), 1, "length = 3 AND value = &hex(090008)"},
        {"keyed octets", keyed_octets_type(),
         [](Sample& sample) {
             set(sample.as<DDS_KeyedOctets>().key, "key");
             set_octets(sample.as<DDS_KeyedOctets>(), {7});
         },
         encoded({4, 0, 0, 0, 'k', 'e', 'y', 0, 1, 0, 0, 0, 7}), 2, "key = 'key' AND length = 1 AND value = &hex(07)"},
        {"described at run time", pose_support().get_type_operations(), fill_pose,
         encoded({1,    0,    0,    0,    0, 0, 0, 0,    0,    0,    0,    0,    0,    0,    0xf8, 0x3f,
                  0xfe, 0xff, 0xff, 0xff, 3, 0, 0, 0,    'a',  'b',  0,    0,    0xfe, 0xff, 0xff, 0xff,
                  0,    0,    0,    0,    0, 0, 0, 0x80, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff}),
         1,
         "valid = TRUE AND x = 1.5 AND level = -2 AND name = 'ab' AND mask = 4294967294 AND stamp = -9223372036854775808 AND "
         "id = 18446744073709551615"},
        {"struct", details::type_support<Everything>().get_type_operations(),
         [](Sample& sample) { sample.as<Everything>() = everything(); }, EVERYTHING, 4,
         "flag = TRUE AND large = -2 AND small = 4660 AND real = 1.5 AND colour = 7 AND text = 'hey' AND code = 'xy' AND "
         "octets = &hex(ee) AND id = 5 AND place.y = -1.0 AND last = 6 AND NOT note = ''"},
        {"struct of fixed size", details::type_support<Fixed>().get_type_operations(),
         [](Sample& sample) {
             sample.as<Fixed>() = {1, {1, 2}, {{{4, 2}}}, 9};
         },
         encoded({1, 0,    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xf0, 0x3f, 0, 0,    0, 0, 0, 0,
                  0, 0x40, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,    0,    0, 0x40, 9, 0, 0, 0}),
         0, "head = 1 AND tail = 9"},
        {"class with a base and a private member", details::type_support<Secret>().get_type_operations(),
         [](Sample& sample) {
             sample.as<Secret>().x = 4;
             sample.as<Secret>().set(11);
         },
         encoded({4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 11, 0, 0, 0}), 0, "x = 4 AND y = 0"},
        {"generated class", details::type_support<Generated>().get_type_operations(),
         [](Sample& sample) {
             sample.as<Generated>().text = "abc";
             sample.as<Generated>().values = {1};
         },
         encoded({4, 0, 0, 0, 'a', 'b', 'c', 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xf0, 0x3f}), 1, nullptr},
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
            Octets small(size + 1);
            Sample full(each.type);
            each.fill(full);
            EXPECT_EQ(0U, each.type->encode(*each.type, full.get(), small.data(), size)) << size;
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
}

TEST(Types, copying_and_decoding_say_when_memory_is_short_and_lose_nothing) {
    for (const Case& each : cases()) {
        SCOPED_TRACE(each.what);
        Sample sample(each.type);
        each.fill(sample);
        for (const bool copied : {true, false}) {
            EXPECT_EQ(each.allocations, fail_each_allocation([&] {
                          alignas(Everything) unsigned char place[sizeof(Everything)];
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

TEST(Types, fields_are_found_by_name_and_missing_where_there_is_no_text) {
    for (const Case& each : cases()) {
        std::unique_ptr<const mw::FilterExpression> filter;
        std::string failure;
        for (const char* unknown : {"", ".", "nam", "keys", "values", "place", "place.", "place.z", "place.y.y", "flag.x", "Flag",
                                    "flagg", "numbers", "points.x", "words"}) {
            DDS_FieldKind kind = DDS_FIELD_NONE;
            EXPECT_TRUE(each.type->find_field == nullptr || each.type->find_field(*each.type, unknown, &kind) < 0) << unknown;
        }
        if (each.filter == nullptr) {
            continue;
        }
        ASSERT_EQ(DDS_RETCODE_OK, mw::FilterExpression::compile(each.type, each.filter, DDS_StringSeq(), filter, failure))
            << failure;
        Sample sample(each.type);
        EXPECT_FALSE(filter->evaluate(mw::SampleMetadata(), sample.get())) << each.what;
        each.fill(sample);
        EXPECT_TRUE(filter->evaluate(mw::SampleMetadata(), sample.get())) << each.what;
    }
}

}  // namespace
}  // namespace norvane::test
