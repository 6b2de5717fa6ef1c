// SPDX-License-Identifier: Apache-2.0
// What is special to described structs: long and absent members, values that cannot be encoded, hostile input, layouts.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <random>
#include <set>
#include <string>

#include "norvane/norvane.hpp"
#include "support/AllocationProbe.hpp"
#include "support/Seed.hpp"
#include "unit/Everything.hpp"

namespace norvane::test {
namespace {

struct BigOption {
    std::uint8_t before = 0;
    std::optional<std::string> text;
    std::uint8_t after = 0;
    std::uint64_t last = 0;
};
BOOST_DESCRIBE_STRUCT(BigOption, (), (before, text, after, last))

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

TEST(DescribedTypes, an_optional_member_may_be_long_or_absent) {
    Everything value;
    value.note = "must go";
    value.words.assign(9, "old");
    ASSERT_TRUE(decode(EVERYTHING, value));
    EXPECT_EQ(EVERYTHING, encode(value));

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
        {[](Everything& value) { value.colour = static_cast<Colour>(2); }, "colour: 2 is no enumerator of norvane::test::Colour"},
    };
    for (const auto& each : cases) {
        Everything value = everything();
        each.spoil(value);
        Octets octets(1000);
        const bool is_right = each.reason == nullptr;
        const std::string reason = is_right ? "" : std::string("norvane::test::Everything.") + each.reason;
        EXPECT_EQ(is_right ? EVERYTHING.size() : 0U, type.encode(type, &value, octets.data(), octets.size())) << reason;
        for (const std::size_t capacity : {200, 30, 1, 0}) {
            std::string told(200, '#');
            EXPECT_EQ(!is_right, type.unencodable(type, &value, &told[0], capacity)) << reason;
            EXPECT_TRUE(capacity == 0 || told.c_str() == reason.substr(0, capacity - 1)) << told;
            EXPECT_EQ(std::string::npos, told.find_first_not_of('#', capacity)) << "beyond its end";
        }
    }
    EXPECT_EQ(nullptr, table<Point>().unencodable) << "every value can be encoded: none need be looked at";
}

TEST(DescribedTypes, hostile_octets_are_refused_or_decoded_but_never_believed) {
    Everything value;
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
    EXPECT_STREQ("norvane::test::Point", table<Point>().name);
}

}  // namespace
}  // namespace norvane::test
