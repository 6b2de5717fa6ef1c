// SPDX-License-Identifier: Apache-2.0
// Described structs as types that travel: their encoding to the octet, hostile input, fields, hashes, copies; and the road of each
// kind of type.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "norvane/norvane.hpp"
#include "support/AllocationProbe.hpp"
#include "support/LogCapture.hpp"
#include "support/Seed.hpp"
#include "support/ServiceFixture.hpp"
#include "support/Thrown.hpp"

namespace norvane::test {
namespace described {

enum class Colour : std::uint8_t { RED = 1, BLUE = 7 };
BOOST_DESCRIBE_ENUM(Colour, RED, BLUE)
enum class Shade : std::int16_t {};  // not described: any value that fits

struct Point {
    std::int16_t x = 0;
    double y = 0;
};
BOOST_DESCRIBE_STRUCT(Point, (), (x, y))
bool operator==(const Point& left, const Point& right) { return left.x == right.x && left.y == right.y; }

/// Has every kind of member, and each alignment behind a smaller one.
struct Everything {
    bool flag = false;
    std::int64_t large = 0;
    char letter = 0;
    std::uint16_t small = 0;
    std::int8_t tiny = 0;
    float real = 0;
    Colour colour = Colour::RED;
    Shade shade = Shade();
    std::string text;
    std::vector<double> numbers;
    std::vector<bool> bits;
    std::vector<std::string> words;
    std::array<Point, 2> points{};
    char code[3] = {};
    std::optional<std::uint64_t> id;
    std::optional<std::string> note;
    std::optional<Point> place;
    std::vector<std::byte> octets;
    std::uint64_t last = 0;
};
BOOST_DESCRIBE_STRUCT(Everything, (),
                      (flag, large, letter, small, tiny, real, colour, shade, text, numbers, bits, words, points, code, id, note,
                       place, octets, last))

struct Fixed {
    std::uint8_t head;
    double values[3];
    std::array<Point, 2> points;
    long long count;
    unsigned tail;
};
BOOST_DESCRIBE_STRUCT(Fixed, (), (head, values, points, count, tail))

class Secret : public Point {
public:
    int shown() const { return _hidden; }
    void set(int value) { _hidden = value; }

private:
    int _hidden = 3;
    BOOST_DESCRIBE_CLASS(Secret, (Point), (), (), (_hidden))
};

struct BigOption {
    std::uint8_t before = 0;
    std::optional<std::string> text;
    std::uint8_t after = 0;
    std::uint64_t last = 0;
};
BOOST_DESCRIBE_STRUCT(BigOption, (), (before, text, after, last))

struct PointAndName {
    Point point;
    std::string name;
};
BOOST_DESCRIBE_STRUCT(PointAndName, (), (point, name))

/// A class as the generator makes them from IDL.
class Generated {
public:
    void serialize(eprosima::fastcdr::Cdr& cdr) const { cdr << text << static_cast<std::uint32_t>(values.size()) << values.back(); }
    void deserialize(eprosima::fastcdr::Cdr& cdr) {
        std::uint32_t length = 0;
        cdr >> text >> length;
        values.resize(length);  // as carelessly as can be
        cdr >> values.back();
    }
    static std::size_t getCdrSerializedSize(const Generated& value, std::size_t at = 0) {
        return (at + 4 + (value.text.size() + 4) / 4 * 4 + 4 + 7) / 8 * 8 + 8;
    }

    std::string text = "abc";
    std::vector<double> values{1};
};

// Layouts like that of Point, but for the kind of one member, one name, or one member more.
template <class X>
struct Pair {
    X x;
    double y;
    BOOST_DESCRIBE_CLASS(Pair, (), (x, y), (), ())
};
struct Renamed {
    std::int16_t x;
    double z;
};
BOOST_DESCRIBE_STRUCT(Renamed, (), (x, z))
struct Longer {
    std::int16_t x;
    double y;
    bool z;
};
BOOST_DESCRIBE_STRUCT(Longer, (), (x, y, z))

}  // namespace described

namespace {

using namespace described;
typedef std::vector<std::uint8_t> Octets;

template <class T>
const DDS_TypeOperations& table() {
    return *details::type_support<T>().get_type_operations();
}

template <class T>
Octets encode(const T& value) {
    Octets octets(table<T>().encoded_size(table<T>(), &value));
    EXPECT_EQ(0U, table<T>().encode(table<T>(), &value, octets.data(), octets.size() - 1)) << "one octet less was enough";
    octets.resize(table<T>().encode(table<T>(), &value, octets.data(), octets.size()));
    return octets;
}

/// Decodes out of memory of its own, so that a sanitizer sees each octet touched beside it.
template <class T>
bool decode(const Octets& octets, T& value) {
    const std::unique_ptr<std::uint8_t[]> exact(new std::uint8_t[octets.size()]);
    std::copy(octets.begin(), octets.end(), exact.get());
    return table<T>().decode(table<T>(), &value, exact.get(), octets.size());
}

Everything everything() {
    Everything value;
    value.flag = true;
    value.large = -2;
    value.letter = 'A';
    value.small = 0x1234;
    value.tiny = -1;
    value.real = 1.5F;
    value.colour = Colour::BLUE;
    value.shade = static_cast<Shade>(-3);
    value.text = "hey";
    value.numbers = {0.5};
    value.bits = {true, false, true};
    value.words = {"", "ab"};
    value.points = {Point{1, 2.0}, Point{3, 4.0}};
    std::memcpy(value.code, "xy", 3);
    value.id = 5;
    value.place = Point{9, -1.0};
    value.octets = {std::byte{0xee}};
    value.last = 6;
    return value;
}

// Rows of what lies where: alignment counts from behind the header, and in an optional member from its own start.
const Octets EVERYTHING = {
    0,   1,   0,    0,                                                                             // header
    1,   0,   0,    0,    0,    0,    0,    0,    0xfe, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff,  // 0 flag, 8 large
    'A', 0,   0x34, 0x12, 0xff, 0,    0,    0,    0,    0,    0xc0, 0x3f,  // 16 letter, small, tiny, 24 real
    7,   0,   0,    0,    0xfd, 0xff, 0xff, 0xff,                          // 28 colour, shade
    4,   0,   0,    0,    'h',  'e',  'y',  0,                             // 36 text
    1,   0,   0,    0,    0,    0,    0,    0,    0,    0,    0xe0, 0x3f,  // 44 numbers, 48
    3,   0,   0,    0,    1,    0,    1,    0,                             // 56 bits, padding
    2,   0,   0,    0,    1,    0,    0,    0,    0,    0,    0,    0,    3,    0,    0,    0,
    'a', 'b', 0,    0,                                                                             // 64 words, padding at 83
    1,   0,   0,    0,    0,    0,    0,    0,    0,    0,    0,    0x40,                          // 84 points[0].x, 88 .y
    3,   0,   0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0x10, 0x40,  // 96 points[1].x, 104 .y
    'x', 'y', 0,    0,                                                                             // 112 code
    14,  0,   8,    0,    5,    0,    0,    0,    0,    0,    0,    0,                             // 116 id: header, value at 120
    15,  0,   0,    0,                                                                             // 128 note: absent
    16,  0,   16,   0,    9,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,
    0,   0,   0xf0, 0xbf,                       // 132 place: header, value at 136
    1,   0,   0,    0,    0xee, 0,    0,    0,  // 152 octets
    6,   0,   0,    0,    0,    0,    0,    0   // 160 last
};

TEST(DescribedTypes, every_kind_of_member_lies_where_it_should_and_comes_back) {
    const Everything value = everything();
    EXPECT_EQ(EVERYTHING, encode(value));
    Everything back;
    back.note = "must go";
    back.words.assign(9, "old");
    ASSERT_TRUE(decode(EVERYTHING, back));
    EXPECT_EQ(EVERYTHING, encode(back));
    EXPECT_FALSE(back.note.has_value());
    EXPECT_EQ(value.words, back.words);
    EXPECT_EQ(value.bits, back.bits);
    EXPECT_TRUE(value.points == back.points && value.place == back.place);
    EXPECT_EQ(Colour::BLUE, back.colour);
    EXPECT_EQ(static_cast<Shade>(-3), back.shade);

    // The extended header, an odd length before the next member, and an alignment that counts from the outer start again.
    for (const std::size_t length : {std::size_t(1), std::size_t(65530), std::size_t(65531), std::size_t(200001)}) {
        BigOption big;
        big.text = std::string(length, 't');
        big.after = 0x77;
        big.last = 8;
        const Octets octets = encode(big);
        const bool is_long = length + 5 > 65535;
        EXPECT_EQ(is_long ? 0x3f01 : 1, octets[8] + octets[9] * 256) << length;
        EXPECT_EQ(is_long ? 8U : length + 5, octets[10] + octets[11] * 256U) << length;
        const std::size_t behind = 4 + 8 + (is_long ? 8 : 0) + 4 + length + 1;
        EXPECT_EQ(0x77, octets.at(behind));
        EXPECT_EQ(8, octets.at(4 + (behind - 4 + 8) / 8 * 8)) << length;
        BigOption other;
        ASSERT_TRUE(decode(octets, other)) << length;
        EXPECT_TRUE(other.text == big.text && other.after == 0x77 && other.last == 8);
    }

    Secret secret;
    secret.x = 4;
    secret.set(11);
    const Octets octets = encode(secret);
    EXPECT_EQ((Octets{0, 1, 0, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 11, 0, 0, 0}), octets);
    Secret found;
    ASSERT_TRUE(decode(octets, found));
    EXPECT_EQ(11, found.shown());
}

TEST(DescribedTypes, a_struct_of_fixed_size_is_encoded_and_copied_without_the_heap) {
    const Fixed value = {1, {1, 2, 3}, {{{4, 5}, {6, 7}}}, -8, 9};
    Octets octets(4 + 8 + 24 + 32 + 8 + 4);
    Fixed back{};
    Fixed copy{};
    AllocationProbe::fail(0);
    const std::size_t size = table<Fixed>().encoded_size(table<Fixed>(), &value);
    const std::size_t written = table<Fixed>().encode(table<Fixed>(), &value, octets.data(), octets.size());
    const bool decoded = table<Fixed>().decode(table<Fixed>(), &back, octets.data(), octets.size());
    const bool copied = table<Fixed>().copy(table<Fixed>(), &copy, &value);
    AllocationProbe::stop();
    EXPECT_EQ(0, AllocationProbe::count());
    EXPECT_EQ(octets.size(), size);
    EXPECT_EQ(octets.size(), written);
    EXPECT_TRUE(decoded && copied);
    EXPECT_EQ(octets, encode(back));
    EXPECT_EQ(octets, encode(copy));
    EXPECT_EQ(nullptr, table<Fixed>().clear);
}

TEST(DescribedTypes, what_cannot_be_encoded_is_not) {
    const DDS_TypeOperations& type = table<Everything>();
    const struct {
        std::function<void(Everything&)> spoil;
        const char* reason;  // behind the name of the type
    } cases[] = {
        {[](Everything&) {}, nullptr},
        {[](Everything& value) { value.text.assign("a\0b", 3); }, "text: a NUL inside a string"},
        {[](Everything& value) { value.note = std::string(1, '\0'); }, "note: a NUL inside a string"},
        {[](Everything& value) { value.words[1].push_back('\0'); }, "words[1]: a NUL inside a string"},
        {[](Everything& value) { value.colour = static_cast<Colour>(2); },
         "colour: 2 is no enumerator of norvane::test::described::Colour"},
    };
    for (const auto& each : cases) {
        Everything value = everything();
        each.spoil(value);
        Octets octets(1000);
        const bool is_right = each.reason == nullptr;
        const std::string reason = is_right ? "" : std::string("norvane::test::described::Everything.") + each.reason;
        EXPECT_EQ(is_right ? EVERYTHING.size() : 0U, type.encode(type, &value, octets.data(), octets.size())) << reason;
        for (const std::size_t capacity : {200, 30, 1, 0}) {
            std::string told(200, '#');
            EXPECT_EQ(!is_right, type.unencodable(type, &value, &told[0], capacity)) << reason;
            EXPECT_TRUE(capacity == 0 || told.c_str() == reason.substr(0, capacity - 1)) << told;
            EXPECT_EQ(std::string::npos, told.find_first_not_of('#', capacity)) << "beyond its end";
        }
    }
    EXPECT_EQ(nullptr, table<Fixed>().unencodable) << "every value can be encoded: none need be looked at";
}

TEST(DescribedTypes, hostile_octets_are_refused_or_decoded_but_never_believed) {
    Everything value;
    for (std::size_t length = 0; length < EVERYTHING.size(); ++length) {
        ASSERT_FALSE(decode(Octets(EVERYTHING.begin(), EVERYTHING.begin() + static_cast<std::ptrdiff_t>(length)), value)) << length;
    }
    Octets padded = EVERYTHING;
    padded.insert(padded.end(), 3, 0);
    EXPECT_TRUE(decode(padded, value));
    padded.push_back(0);
    EXPECT_FALSE(decode(padded, value)) << "there is more than padding behind it";

    const struct {
        std::size_t at;  // behind the header
        std::uint8_t octet;
        const char* what;
    } lies[] = {{0, 2, "a boolean of 2"},
                {28, 2, "no enumerator"},
                {29, 1, "an enumerator and more"},
                {34, 0, "too large for the enum"},
                {36, 0, "a string without a NUL"},
                {36, 3, "a string that ends too early"},
                {41, 0, "a NUL inside a string"},
                {43, 'x', "no NUL at the end"},
                {47, 0x7f, "2 billion numbers"},
                {60, 3, "a bit of 3"},
                {64, 200, "too many words"},
                {67, 0xff, "4 billion words"},
                {116, 13, "another member's id"},
                {118, 7, "a value cut short"},
                {118, 16, "an optional value with more behind it"},
                {155, 0x80, "2 GiB of octets"}};
    for (const auto& lie : lies) {
        Octets octets = EVERYTHING;
        octets[4 + lie.at] = lie.octet;
        EXPECT_FALSE(decode(octets, value)) << lie.what;
    }
    Octets flagged = EVERYTHING;
    flagged[4 + 117] = 0xc0;  // flags above the id
    EXPECT_TRUE(decode(flagged, value));
    // An optional value's length may hold padding, but not more than the value.
    for (const bool is_padded : {true, false}) {
        Pair<std::optional<std::int16_t>> pair{};
        Octets longer = {0, 1, 0, 0, 0, 0, 5, 0, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x10, 0x40};
        longer[6] = is_padded ? 5 : 6;
        EXPECT_EQ(is_padded, decode(longer, pair));
        EXPECT_EQ(9, pair.x);
    }
    for (const std::size_t at : {std::size_t(0), std::size_t(1)}) {
        Octets other = EVERYTHING;
        other[at] ^= 1;
        EXPECT_FALSE(decode(other, value)) << "another encapsulation";
    }

    // Whatever comes: no crash, and no more blocks of memory than octets to fill them.
    std::mt19937 random(test_seed());
    int accepted = 0;
    for (int round = 0; round < 20000; ++round) {
        Octets octets = EVERYTHING;
        for (auto changes = 1 + random() % 3; changes > 0; --changes) {
            octets[4 + random() % (octets.size() - 4)] = static_cast<std::uint8_t>(random());
        }
        Everything fresh;
        AllocationProbe::fail(0);
        accepted += decode(octets, fresh) ? 1 : 0;
        AllocationProbe::stop();
        EXPECT_LE(AllocationProbe::count(), static_cast<long>(octets.size()) + 2);
        EXPECT_LE(fresh.text.capacity() + 8 * fresh.numbers.capacity() + fresh.octets.capacity() + 4 * fresh.words.capacity(),
                  3 * octets.size() + 3 * sizeof(std::string));
    }
    EXPECT_GT(accepted, 1000) << "a number may be any number";
}

TEST(DescribedTypes, short_memory_is_a_failure_and_leaves_samples_whole) {
    Everything source = everything();
    source.text = std::string(100, 't');
    const Octets octets = encode(source);
    int failures = 0;
    long left = 0;
    const long runs = fail_each_allocation([&] {
        Everything copy;
        Everything decoded;
        failures += table<Everything>().copy(table<Everything>(), &copy, &source) ? 0 : 1;
        failures += table<Everything>().decode(table<Everything>(), &decoded, octets.data(), octets.size()) ? 0 : 1;
        table<Everything>().clear(table<Everything>(), &copy);
        left += copy.text.capacity() > 15 || copy.numbers.capacity() > 0 ? 1 : 0;
    });
    EXPECT_GT(runs, 8);
    EXPECT_EQ(runs, failures);
    EXPECT_EQ(0, left);

    Everything copy;
    ASSERT_TRUE(table<Everything>().copy(table<Everything>(), &copy, &source));
    source.words[1] = "changed";
    source.note = "changed";
    EXPECT_EQ("ab", copy.words[1]);
    EXPECT_FALSE(copy.note.has_value());
}

// @return the value of a field, as text; empty when it is absent or there is none.
template <class T>
std::string field_of(const T& value, const char* path) {
    DDS_FieldKind kind;
    DDS_FieldValue field;
    const int number = table<T>().find_field(table<T>(), path, &kind);
    if (number < 0 || !table<T>().read_field(table<T>(), &value, number, &field)) {
        return "";
    }
    EXPECT_EQ(kind, field.kind) << path;
    return kind == DDS_FIELD_BOOLEAN    ? (field.boolean ? "true" : "false")
           : kind == DDS_FIELD_INTEGER  ? std::to_string(field.integer)
           : kind == DDS_FIELD_UNSIGNED ? std::to_string(field.unsigned_integer) + "u"
           : kind == DDS_FIELD_FLOAT    ? std::to_string(field.floating)
                                        : std::string(static_cast<const char*>(field.data), field.length);
}

TEST(DescribedTypes, filters_find_fields_by_path) {
    const std::pair<const char*, const char*> FIELDS[] = {
        {"flag", "true"}, {"large", "-2"},    {"small", "4660u"}, {"real", "1.500000"},     {"colour", "7"}, {"text", "hey"},
        {"code", "xy"},   {"octets", "\xee"}, {"id", "5u"},       {"place.y", "-1.000000"}, {"last", "6u"},  {"note", ""},
    };
    for (const auto& each : FIELDS) {
        EXPECT_EQ(each.second, field_of(everything(), each.first)) << each.first;
    }
    DDS_FieldKind kind;
    for (const char* const path :
         {"", ".", "place", "place.", "place.z", "flag.x", "numbers", "points.x", "Flag", "flagg", "words", "place.y.y"}) {
        EXPECT_EQ(-1, table<Everything>().find_field(table<Everything>(), path, &kind)) << path;
    }
    EXPECT_EQ("2.500000", field_of(PointAndName{{1, 2.5}, "n"}, "point.y"));
}

template <class... T>
std::set<std::uint64_t> hashes_of() {
    return {table<T>().layout_hash...};
}

TEST(DescribedTypes, layouts_are_told_apart_by_names_kinds_and_nesting) {
    typedef std::int16_t Small;
    const auto simple = hashes_of<Point, Renamed, Longer, Pair<std::int8_t>, Pair<std::uint16_t>, Pair<float>, Pair<bool>>();
    const auto nested =
        hashes_of<Pair<Colour>, Pair<Shade>, Pair<Point>, Pair<Renamed>, Pair<std::optional<Small>>, Pair<std::vector<Small>>,
                  Pair<std::array<Small, 2>>, Pair<std::array<Small, 3>>, Pair<std::string>>();
    std::set<std::uint64_t> all = simple;
    all.insert(nested.begin(), nested.end());
    EXPECT_EQ(16U, all.size());
    EXPECT_EQ(table<Point>().layout_hash, table<Pair<short>>().layout_hash);
    EXPECT_STREQ("norvane::test::described::Point", table<Point>().name);
}

TEST(GeneratedTypes, a_class_is_encoded_by_its_own_operations_and_what_they_throw_is_caught) {
    static_assert(is_generated_type<Generated> && !is_generated_type<Point> && !is_generated_type<std::string>, "");
    const Octets octets = {0, 1, 0, 0, 4, 0, 0, 0, 'a', 'b', 'c', 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xf0, 0x3f};
    EXPECT_EQ(octets, encode(Generated()));
    Generated back;
    back.text = "old";
    ASSERT_TRUE(decode(octets, back));
    EXPECT_TRUE(back.text == "abc" && back.values == std::vector<double>{1});
    for (std::size_t length = 0; length < octets.size(); ++length) {
        EXPECT_FALSE(decode(Octets(octets.begin(), octets.begin() + static_cast<std::ptrdiff_t>(length)), back)) << length;
    }
    Octets more = octets;
    more.insert(more.end(), 4, 0);
    EXPECT_FALSE(decode(more, back)) << "there is more than padding behind it";
}

class TypesOnTheRoad : public ServiceFixture {
protected:
    /// Sends a request, answers it with itself, and looks at both.
    template <class T, class Check>
    void there_and_back(const T& value, Check&& check) {
        Replier<T, T> replier(replier_params(nullptr, type_name<T>));
        Requester<T, T> requester(requester_params(nullptr, type_name<T>));
        ASSERT_TRUE(requester.wait_for_service(PATIENCE));
        const DDS_SampleIdentity_t id = requester.send_request(value);
        const LoanedSamples<T> requests = replier.receive_requests(PATIENCE);
        ASSERT_EQ(1U, requests.size());
        check(requests[0].data());
        replier.send_reply(requests[0].data(), requests[0].identity());
        ASSERT_TRUE(requester.wait_for_replies(PATIENCE, id));
        LoanedSamples<T> replies = requester.take_replies(id);
        ASSERT_EQ(1U, replies.size());
        check(static_cast<const T&>(replies.begin()->data()));
        EXPECT_EQ(id, replies[0].related_identity());
    }
};

TEST_P(TypesOnTheRoad, described_and_built_in_types_go_there_and_back) {
    there_and_back(everything(), [](const Everything& got) { EXPECT_EQ(EVERYTHING, encode(got)); });
    DDS_Octets octets(2);
    octets.value[1] = 5;
    there_and_back(octets, [](const DDS_Octets& got) {
        ASSERT_EQ(2, got.length);
        EXPECT_EQ(5, got.value[1]);
    });
    DDS_KeyedString text(3, 5);
    std::strcpy(text.key, "key");
    std::strcpy(text.value, "value");
    there_and_back(text, [](const DDS_KeyedString& got) {
        EXPECT_STREQ("key", got.key);
        EXPECT_STREQ("value", got.value);
    });
    DDS_KeyedOctets keyed(3, 1);
    std::strcpy(keyed.key, "key");
    keyed.value[0] = 9;
    there_and_back(keyed, [](const DDS_KeyedOctets& got) {
        EXPECT_STREQ("key", got.key);
        ASSERT_EQ(1, got.length);
        EXPECT_EQ(9, got.value[0]);
    });
    EXPECT_STREQ("DDS::KeyedOctets", details::type_support<DDS_KeyedOctets>().get_type_name());
}

TEST_P(TypesOnTheRoad, what_no_engine_could_encode_is_refused_on_every_engine) {
    const LogCapture log;
    Requester<DDS_Octets, DDS_KeyedOctets> requester(requester_params());
    Replier<DDS_Octets, DDS_KeyedOctets> replier(replier_params());
    Requester<Everything, Everything> described(requester_params(nullptr, "described"));
    DDS_Octets octets;
    const DDS_SampleIdentity_t id = requester.send_request(octets);
    octets.length = 5;
    DDS_KeyedOctets keyed(3, 1);
    keyed.length = -1;
    Everything value = everything();
    value.words = {"fine", "fine", std::string(1, '\0')};
    const char* const REASON = "Everything.words[2]: a NUL inside a string";
    expect_thrown("BadParameterException", "", thrown_by([&] { requester.send_request(octets); }));
    expect_thrown("BadParameterException", "", thrown_by([&] { replier.send_reply(keyed, id); }));
    expect_thrown("BadParameterException", REASON, thrown_by([&] { described.send_request(value); }));
    expect_thrown("BadParameterException", REASON, thrown_by([&] { described.call(value, PATIENCE); }));
    const int before = log.count(REASON);
    DDS_WriteParams_t params;
    EXPECT_EQ(DDS_RETCODE_BAD_PARAMETER, DDS_DataWriter_write_w_params_untyped_generalI(
                                             described.get_request_datawriter()->get_c_datawriter(), nullptr, &value, params));
    EXPECT_EQ(before + 1, log.count(REASON));
    EXPECT_EQ(0, described.stats().sent);
    // DDS_Octets has the size and alignment of DDS_KeyedString: read as each other, a length becomes a pointer.
    ASSERT_EQ(sizeof(DDS_Octets), sizeof(DDS_KeyedString));
    const RequesterParams mistaken = requester_params().request_type_support(&DDSOctetsTypeSupport::get_instance());
    expect_thrown("BadParameterException", "", thrown_by([&] { Requester<DDS_KeyedString, Point>{mistaken}; }));
}

INSTANTIATE_TEST_SUITE_P(Engines, TypesOnTheRoad, ::testing::ValuesIn(engine_names()), engine_of_test);

}  // namespace
}  // namespace norvane::test
