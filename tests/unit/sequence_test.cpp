// SPDX-License-Identifier: Apache-2.0
// Sequences: ownership, loans, room inside the object, moves as bytes, want of memory. Strings and octet buffers with them.
#include "norvane/dds/sequence.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "support/AllocationProbe.hpp"

namespace norvane::test {
namespace {

typedef Sequence<int> Heap;
typedef Sequence<int, 4> Inline;

template <typename Numbers>
std::vector<int> elements(const Numbers& sequence) {
    std::vector<int> found;
    for (DDS_Long index = 0; index < sequence.length(); ++index) {
        found.push_back(sequence[index]);
    }
    return found;
}

template <typename Numbers>
void fill(Numbers& sequence, DDS_Long count) {
    ASSERT_TRUE(sequence.ensure_length(count, count > sequence.maximum() ? count : sequence.maximum()));
    for (DDS_Long index = 0; index < count; ++index) {
        sequence[index] = 10 + index;
    }
}

template <typename Numbers>
class NumberSequence : public testing::Test {};
typedef testing::Types<Heap, Inline> NumberSequences;
TYPED_TEST_SUITE(NumberSequence, NumberSequences, );

TYPED_TEST(NumberSequence, keeps_its_elements_through_growth_and_shrinking) {
    const DDS_Long inside = std::is_same<TypeParam, Inline>::value ? 4 : 0;
    const std::vector<int> whole = {10, 11, 12, 13, 14};
    const struct {
        DDS_Long maximum;
        std::vector<int> expected;
    } cases[] = {{3, {10, 11, 12}}, {7, whole}, {5, whole}, {100, whole}, {2, {10, 11}}, {0, {}}};
    for (const auto& each : cases) {
        TypeParam sequence(9);
        fill(sequence, 5);
        EXPECT_TRUE(sequence.maximum(each.maximum));
        EXPECT_EQ(std::max(each.maximum, inside), sequence.maximum());
        EXPECT_EQ(each.expected, elements(sequence));
        EXPECT_TRUE(sequence.has_ownership());
    }
    TypeParam sequence(5);
    fill(sequence, 5);
    EXPECT_FALSE(sequence.length(-1) || sequence.length(6) || sequence.maximum(-1));
    EXPECT_FALSE(sequence.ensure_length(-1, 5) || sequence.ensure_length(7, 6));
    EXPECT_FALSE(sequence.from_array(nullptr, 1) || sequence.from_array(nullptr, -1));
    EXPECT_EQ(whole, elements(sequence)) << "a refusal changes nothing";
    EXPECT_TRUE(sequence.length(2) && sequence.ensure_length(5, 5));
    EXPECT_EQ(whole, elements(sequence)) << "elements that come back keep their value";
    EXPECT_EQ(0, TypeParam(-3).length());
}

TYPED_TEST(NumberSequence, loans_belong_to_the_lender) {
    int buffer[3] = {1, 2, 3};
    int* pointers[3] = {&buffer[2], &buffer[1], &buffer[0]};
    for (const bool contiguous : {true, false}) {
        TypeParam sequence;
        const auto borrow = [&](DDS_Long length, DDS_Long maximum) {
            return contiguous ? sequence.loan_contiguous(buffer, length, maximum)
                              : sequence.loan_discontiguous(pointers, length, maximum);
        };
        EXPECT_FALSE(sequence.unloan() || borrow(-1, 3) || borrow(3, 2));
        ASSERT_TRUE(borrow(2, 3));
        EXPECT_FALSE(borrow(2, 3)) << "one loan at a time";
        EXPECT_FALSE(sequence.has_ownership());
        EXPECT_EQ(contiguous ? buffer : nullptr, sequence.get_contiguous_buffer());
        EXPECT_EQ((contiguous ? std::vector<int>{1, 2} : std::vector<int>{3, 2}), elements(sequence));
        EXPECT_FALSE(sequence.maximum(10) || sequence.ensure_length(4, 4));
        EXPECT_TRUE(sequence.length(3));

        TypeParam copy(sequence);
        EXPECT_TRUE(copy.has_ownership());
        copy[0] = 77;
        EXPECT_NE(77, sequence[0]);
        TypeParam larger;
        fill(larger, 4);
        EXPECT_FALSE(sequence.copy_from(larger)) << "no room in the loan";
        EXPECT_TRUE(sequence.copy_from(copy));
        EXPECT_EQ(77, contiguous ? buffer[0] : buffer[2]);

        EXPECT_TRUE(sequence.unloan() && sequence.has_ownership());
        EXPECT_EQ(0, sequence.length());
        EXPECT_FALSE(TypeParam(9).loan_contiguous(buffer, 1, 3)) << "a sequence with memory of its own cannot borrow";
        EXPECT_TRUE(sequence.loan_contiguous(nullptr, 0, 0) && sequence.unloan());
        EXPECT_FALSE(sequence.loan_contiguous(nullptr, 0, 1));
    }
}

TYPED_TEST(NumberSequence, may_be_moved_as_bytes) {
    for (const DDS_Long count : {0, 3, 9}) {
        alignas(TypeParam) unsigned char first[sizeof(TypeParam)];
        alignas(TypeParam) unsigned char second[sizeof(TypeParam)];
        TypeParam* const sequence = new (first) TypeParam;
        fill(*sequence, count);
        const std::vector<int> expected = elements(*sequence);
        std::memcpy(second, first, sizeof first);
        std::memset(first, 0xee, sizeof first);
        TypeParam* const moved = reinterpret_cast<TypeParam*>(second);
        EXPECT_EQ(expected, elements(*moved));
        fill(*moved, count + 1);
        EXPECT_EQ(count + 1, moved->length());
        moved->~TypeParam();
    }
}

TYPED_TEST(NumberSequence, without_memory_stays_as_it_is) {
    TypeParam source;
    fill(source, 9);
    const int array[9] = {};
    const long runs = fail_each_allocation([&] {
        TypeParam grown;
        TypeParam target;
        grown.length(target.maximum());
        const DDS_Long length = grown.length();
        const bool has_grown = grown.maximum(6);
        const bool has_copied = target.copy_from(source);
        const bool has_taken = TypeParam().from_array(array, 9);
        TypeParam constructed(source);
        AllocationProbe::stop();
        EXPECT_EQ(AllocationProbe::has_failed(), !(has_grown && has_copied && has_taken && constructed.length() == 9));
        EXPECT_EQ(length, grown.length());
        EXPECT_EQ(has_copied ? 9 : 0, target.length());
    });
    EXPECT_EQ(4, runs);
}

TEST(Sequence, of_strings_owns_its_strings) {
    DDS_StringSeq source;
    source.ensure_length(3, 3);
    for (DDS_Long index = 0; index < 3; ++index) {
        source[index] = DDS_String_dup("text");
    }
    EXPECT_EQ(4, fail_each_allocation([&] {
                  DDS_StringSeq target;
                  const bool has_copied = target.copy_from(source);
                  AllocationProbe::stop();
                  EXPECT_EQ(!AllocationProbe::has_failed(), has_copied);
                  // The first allocation is the array, then come the strings one by one.
                  EXPECT_EQ(has_copied ? 3 : std::max(0L, AllocationProbe::count() - 2), target.length());
                  EXPECT_TRUE(!has_copied || (target[2] != source[2] && std::strcmp("text", target[2]) == 0));
                  EXPECT_TRUE(!has_copied || (target.maximum(1) && target.length() == 1));
              }));
}

TEST(Sequence, of_over_aligned_elements_keeps_them_aligned) {
    struct alignas(64) Line {
        int value = 5;
    };
    Sequence<Line> lines(3);
    ASSERT_TRUE(lines.length(3));
    for (DDS_Long index = 0; index < 3; ++index) {
        EXPECT_EQ(0U, reinterpret_cast<std::uintptr_t>(&lines[index]) % 64);
        EXPECT_EQ(5, lines[index].value);
    }
}

TEST(DdsString, copies_replaces_and_survives_sources_inside_the_target) {
    EXPECT_EQ(nullptr, DDS_String_alloc(static_cast<std::size_t>(-1)));
    EXPECT_EQ(nullptr, DDS_String_dup(nullptr));
    char* target = nullptr;
    EXPECT_STREQ("service", DDS_String_replace(&target, "service"));
    EXPECT_STREQ("vice", DDS_String_replace(&target, target + 3));
    EXPECT_STREQ("vice", DDS_String_replace(&target, target));
    AllocationProbe::fail(1);
    char* const result = DDS_String_replace(&target, "other");
    AllocationProbe::stop();
    EXPECT_TRUE(result == nullptr && target == nullptr) << "the old string is released, also when there is no new one";
    DDS_String_replace(&target, "again");
    EXPECT_EQ(nullptr, DDS_String_replace(&target, nullptr));
    EXPECT_EQ(nullptr, target);
}

}  // namespace
}  // namespace norvane::test
