// SPDX-License-Identifier: Apache-2.0
// Content filters: what they pass, what they refuse and where, routes, limits.
#include "middleware/FilterExpression.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "norvane/norvane.hpp"
#include "support/AllocationProbe.hpp"
#include "support/Seed.hpp"

namespace norvane::test {
namespace {

typedef std::unique_ptr<const mw::FilterExpression> Filter;
typedef std::shared_ptr<const DDS_TypeOperations> Type;

struct Pose {
    double x = 1.5;
};
BOOST_DESCRIBE_STRUCT(Pose, (), (x))

// A field of each kind, a nested one, and one that a sample may lack.
struct Reading {
    std::int64_t level = -5;
    std::uint64_t id = UINT64_MAX;
    Pose pose;
    bool valid = true;
    std::string name = "it's warm";
    std::string key = "k\xc3\xa9y";
    std::vector<std::byte> mac = {std::byte{1}, std::byte{2}, std::byte{0xff}};
    std::optional<std::int64_t> spare;
};
BOOST_DESCRIBE_STRUCT(Reading, (), (level, id, pose, valid, name, key, mac, spare))

const DDS_TypeOperations& described_reading() { return *details::type_support<Reading>().get_type_operations(); }

// "raises" throws when it is looked for, and "broken" when it is read.
Type reading_type() {
    constexpr int BROKEN = 1000;
    static DDS_TypeOperations type = described_reading();
    type.name = "Reading";
    type.find_field = [](const DDS_TypeOperations& table, const char* path, DDS_FieldKind* kind) {
        if (std::strcmp(path, "raises") == 0) {
            throw std::runtime_error("no look-up today");
        }
        *kind = DDS_FIELD_INTEGER;
        return std::strcmp(path, "broken") == 0 ? BROKEN : described_reading().find_field(table, path, kind);
    };
    type.read_field = [](const DDS_TypeOperations& table, const void* sample, int field, DDS_FieldValue* value) {
        if (field == BROKEN) {
            throw std::runtime_error("cannot be read");
        }
        return described_reading().read_field(table, sample, field, value);
    };
    return {std::shared_ptr<void>(), &type};
}

mw::SampleMetadata metadata() {
    mw::SampleMetadata data;
    data.identity = {{{0xaa, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0xff}}, {1, 2}};
    data.related_identity = {{{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}}, {0, 42}};
    data.source_timestamp = {1700000000, 250};
    return data;
}

DDS_StringSeq parameters_of(const std::vector<const char*>& values) {
    DDS_StringSeq parameters;
    parameters.ensure_length(static_cast<DDS_Long>(values.size()), static_cast<DDS_Long>(values.size()));
    for (std::size_t index = 0; index < values.size(); ++index) {
        parameters[static_cast<DDS_Long>(index)] = DDS_String_dup(values[index]);
    }
    return parameters;
}

Filter compile(const std::string& text, const std::vector<const char*>& parameters = {}, const Type& type = reading_type()) {
    Filter filter;
    std::string message;
    const DDS_ReturnCode_t code = mw::FilterExpression::compile(type, text.c_str(), parameters_of(parameters), filter, message);
    EXPECT_EQ(DDS_RETCODE_OK, code) << text << ": " << message;
    return filter;
}

// @return why it is refused.
std::string refusal(const std::string& text, const std::vector<const char*>& parameters = {}, const Type& type = reading_type()) {
    Filter filter;
    std::string message;
    const DDS_ReturnCode_t code = mw::FilterExpression::compile(type, text.c_str(), parameters_of(parameters), filter, message);
    EXPECT_EQ(DDS_RETCODE_BAD_PARAMETER, code) << text;
    EXPECT_EQ(nullptr, filter);
    return message;
}

bool passes(const std::string& text, const Reading& reading = Reading(), const std::vector<const char*>& parameters = {}) {
    const Filter filter = compile(text, parameters);
    return filter != nullptr && filter->evaluate(metadata(), &reading);
}

/// Cuts a table of cases into its cases: one stands between two ";" or line ends.
std::vector<std::string> cases_of(const std::string& table) {
    std::vector<std::string> found;
    for (std::size_t start = 0; start < table.size();) {
        const std::size_t end = std::min(table.find_first_of(";\n", start), table.size());
        const std::size_t first = table.find_first_not_of(' ', start);
        if (first < end) {
            found.push_back(table.substr(first, table.find_last_not_of(' ', end - 1) + 1 - first));
        }
        start = end + 1;
    }
    return found;
}

// Numbers compare by value, exactly, whatever their kinds; BETWEEN takes both ends in; NOT goes before AND, AND before OR.
constexpr const char* PASSING = R"(
level = -5 ; level < -4 ; level <= -5 ; level >= -5 ; -5 = level ; -6<level ; id = 18446744073709551615 ; id > -1 ; level < id
id = 0xFFFFFFFFFFFFFFFF ; id < 18446744073709551616.0 ; id > 1.8e19 ; 18446744073709551614 < id ; pose.x > 1 ; pose.x < 2
pose.x = 1.5 ; pose.x = 15e-1 ; pose.x >= .5E+0 ; level > -5.5 ; level < -4.5 ; level = -5.0 ; pose.x < id ; id > pose.x
pose.x > level ; 9007199254740993 > 9007199254740992.0 ; -9223372036854775808 = -9223372036854775808.0
9223372036854775807 < 9223372036854775808.0 ; -9223372036854775808 > -1e300 ; level = -0x5 ; 1e300 > id ; -0.5 < id
valid = TRUE ; valid <> False ; name = 'it''s warm' ; name <> 'it' ; name < 'it''s warmer' ; name > 'it' ; name >= ''
'a' < name ; mac = &hex(0102ff) ; mac = & HEX ( 0102FF ) ; mac <> &hex(0102) ; name LIKE '%warm' ; name LIKE 'it%'
name like '%s w%' ; name LIKE 'it_s warm' ; name LIKE '%' ; name NOT LIKE 'x%' ; name LIKE '%%%m' ; name LIKE '%s_w%' ; name LIKE 'i%_wa_m' ; level BETWEEN -5 AND -5
level NOT BETWEEN -4 AND 4 ; name BETWEEN 'a' AND 'j' ; level BETWEEN -9 AND -1 AND valid = TRUE
level BETWEEN 1 AND 2 OR valid = TRUE ; pose.x BETWEEN level AND id ; valid = TRUE OR valid = TRUE AND level = 0
NOT (valid = FALSE AND level = 0) ; NOT NOT valid = TRUE ; NOT(NOT(valid=TRUE)) ; ((((level=-5))))
level=0 OR level=1 OR level=-5 ; @sample_identity.sequence_number = 4294967298 ; @related_sample_identity.sequence_number = 42
@sample_identity.writer_guid.value = &hex(aa0102030405060708090a0b0c0d0eff)
@related_sample_identity.writer_guid.value <> @sample_identity.writer_guid.value
@source_timestamp.sec > 1699999999 AND @source_timestamp.nanosec = 250 ; 1 = 1
)";
constexpr const char* FAILING = R"(
level<>-5 ; level != -5 ; level > -5 ; level = +5 ; id <= level ; 9007199254740993 = 9007199254740992.0 ; valid = false
name = key ; mac = &hex(010200) ; name LIKE 'it_s' ; name LIKE '' ; name NOT LIKE '%m' ; name LIKE 'it*' ; key LIKE 'k__y'
name LIKE '%m%m%' ; name LIKE '%warm%warm' ; name LIKE '%_warm_' ; name LIKE '%it_x%' ; level between -4 and 4 ; level NOT BETWEEN -5 AND 0 ; NOT level BETWEEN -5 AND 0 ; level BETWEEN 0 AND -9
(valid = TRUE OR valid = TRUE) AND level = 0 ; NOT valid = FALSE AND level = 0 ; level=-5 AND id=1 AND valid=TRUE
@source_timestamp.sec < 0 ; 'a' = 'b'
)";

TEST(Filter, passes_what_its_text_says) {
    for (const std::string& text : cases_of(PASSING)) {
        EXPECT_TRUE(passes(text)) << text;
    }
    for (const std::string& text : cases_of(FAILING)) {
        EXPECT_FALSE(passes(text)) << text;
    }
    EXPECT_TRUE(passes("\tlevel\r\n=\n-5 "));
    EXPECT_TRUE(passes("key LIKE 'k_y'")) << "one character, not one octet";
}

TEST(Filter, takes_parameters_as_literals) {
    const std::vector<const char*> parameters = {"-5", "'it''s warm'", " TRUE ", "&hex(0102ff)", "'it%'", "1.5"};
    for (const char* const text : {"level = %0", "name = %1", "valid = %2", "mac = %3", "name LIKE %4", "pose.x = %5",
                                   "level BETWEEN %0 AND %5", "%0 = level AND %0 = -5"}) {
        EXPECT_TRUE(passes(text, Reading(), parameters)) << text;
    }
    std::vector<const char*> hundred(100, "-5");
    EXPECT_TRUE(passes("level = %99", Reading(), hundred));
    hundred[99] = "-6";
    EXPECT_FALSE(passes("level = %99", Reading(), hundred));
}

TEST(Filter, missing_value_compares_false_with_everything_and_not_negates_that) {
    Reading with;
    with.spare = 7;
    for (const char* const text : {"spare = 7", "spare <> 1", "spare < 8", "spare <= 7", "spare > 6", "7 >= spare",
                                   "spare BETWEEN 1 AND 9", "spare NOT BETWEEN 8 AND 9", "spare = spare"}) {
        EXPECT_TRUE(passes(text, with)) << text;
        EXPECT_FALSE(passes(text)) << text;
        EXPECT_TRUE(passes(std::string("NOT ") + text)) << text;
        EXPECT_TRUE(passes(std::string(text) + " OR valid = TRUE")) << text;
    }
    EXPECT_FALSE(passes("broken = 7")) << "a field that cannot be read is missing";
    EXPECT_FALSE(compile("level <> 0")->evaluate(metadata(), nullptr)) << "so is every field where there is no sample";

    Reading not_a_number;
    not_a_number.pose.x = std::numeric_limits<double>::quiet_NaN();
    for (const char* const text :
         {"pose.x = 1", "pose.x < 1", "pose.x >= 1.0", "id > pose.x", "pose.x = pose.x", "pose.x NOT BETWEEN 1 AND 2"}) {
        EXPECT_FALSE(passes(text, not_a_number)) << text;
    }
    EXPECT_TRUE(passes("pose.x <> 1", not_a_number));
}

// The caret stands where the refusal must point; behind the arrow, what its message must hold.
constexpr const char* REFUSED = R"--(
level^ -> expected a comparison, found the end ; level =^ -> found the end
level = 1 ^level -> expected AND, OR or the end, found "level" ; level = 1 AND^ -> found the end
(level = 1^ -> expected AND, OR or ")" ; level = 1^) -> found ")" ; (^) -> found ")" ; (level^) = 1 -> expected a comparison
level =^= 1 -> found "=" ; level ^! 1 -> unexpected character "!" ; level = ^# -> unexpected character ; ^AND -> found "AND"
valid^ -> expected a comparison ; valid ^AND level = 1 -> expected a comparison, found "AND"
level NOT ^1 -> expected BETWEEN or LIKE ; ^depth = 1 -> type "Reading" has no field "depth" ; pose.^ = 1 -> expected a name
^pose.x.y = 1 -> no field "pose.x.y" ; pose.^.x = 1 -> expected a name ; ^@sample_identity = 1 -> no metadata "@sample_identity"
@^ = 1 -> expected a name ; name^[0] = 1 -> unexpected character
name = ^5 -> expected a string to compare with "name", found a number ; ^5 = name -> expected a string to compare with "name"
level = ^'a' -> expected a number ; valid = ^1 -> expected a boolean ; valid ^< TRUE -> expected = or <>: booleans have no order
mac ^< &hex(01) -> expected = or <>: octets have no order ; mac = ^'a' -> expected octets
mac ^BETWEEN &hex(00) AND &hex(01) -> octets have no order ; level BETWEEN 1 AND ^'b' -> expected a number
level BETWEEN ^'a' AND 2 -> expected a number ; level BETWEEN 1 ^OR 2 -> expected AND and the upper end of BETWEEN
^level LIKE 'a' -> expected a string before LIKE, found a number ; name LIKE ^key -> expected a pattern in quotes
name LIKE ^5 -> expected a pattern in quotes ; name = ^level -> found a number
@sample_identity.sequence_number = ^'a' -> expected a number ; ^@source_timestamp.sec LIKE 'a' -> expected a string
@sample_identity.writer_guid.value = ^&hex(00) -> expected 16 octets to compare with "@sample_identity.writer_guid.value", found 1
^&hex(00112233445566778899aabbccddeeff00) = @related_sample_identity.writer_guid.value -> expected 16 octets
&hex(01) = ^&hex(0102) -> expected 1 octets ; mac = &hex(^012) -> expected two hexadecimal digits for each octet, found 3 in all
mac = &hex(^) -> found 0 ; mac = &hex(0^g) -> expected a hexadecimal digit or ")" ; mac = &hex(01^ -> expected a hexadecimal digit
mac = &hex ^01 -> expected "(" ; mac = ^&oct(01) -> expected octets, written &hex(...) ; mac = ^&hexa(01) -> expected octets
name = ^'open -> without its closing quote ; name = ^'open'' -> without its closing quote
level = ^5abc -> "5abc" is not a number ; level = ^0x -> not a number ; level = ^0xg -> not a number ; level = ^- -> not a number
level = ^1.2.3 -> not a number ; level = ^. -> not a number ; level = ^1e -> not a number ; level = ^-level -> not a number
level = ^-inf -> not a number ; level = ^18446744073709551616 -> out of range ; level = ^-9223372036854775809 -> out of range
level = ^1e400 -> out of range ; level = ^%3 -> parameter %3 is missing: there are 3
level = ^%0 -> parameter %0 is "one": expected one number ; level = ^%1 -> parameter %1 is "1 2"
level = ^%2 -> expected a number to compare with "level", found a string ; level = ^% -> expected a parameter from %0 to %99
level = ^%100 -> from %0 to %99 ; level = ^%99999999999999999999 -> from %0 to %99 ; level = ^%1x -> from %0 to %99
^ -> expected a field, a literal or a parameter, found the end
^kéy = 1 -> no field "kéy" ; name = 'éé' OR ^depth = 1 -> no field
)--";

TEST(Filter, refusal_names_the_column_and_what_was_expected) {
    for (const std::string& each : cases_of(REFUSED)) {
        const std::size_t caret = each.find('^');
        const std::size_t arrow = each.find(" -> ");
        const std::string before = each.substr(0, caret);
        const auto column = 1 + std::count_if(before.begin(), before.end(), [](char octet) { return (octet & 0xc0) != 0x80; });
        const std::string message = refusal(before + each.substr(caret + 1, arrow - caret - 1), {"one", "1 2", "'a'"});
        EXPECT_EQ(0U, message.find("column " + std::to_string(column) + ": ")) << each << ": " << message;
        EXPECT_NE(std::string::npos, message.find(each.substr(arrow + 4))) << each << ": " << message;
    }
    Filter filter = compile("level = 1");
    const mw::FilterExpression* const before = filter.get();
    std::string message;
    const DDS_StringSeq none;
    EXPECT_EQ(DDS_RETCODE_BAD_PARAMETER, mw::FilterExpression::compile(reading_type(), nullptr, none, filter, message));
    EXPECT_EQ(DDS_RETCODE_ERROR, mw::FilterExpression::compile(reading_type(), "raises = 1", none, filter, message));
    EXPECT_EQ("no look-up today", message);
    EXPECT_EQ(before, filter.get()) << "a refusal leaves the old filter alone";
    DDS_TypeOperations fieldless = {};
    for (const Type& type : {Type(), Type(std::shared_ptr<void>(), &fieldless)}) {
        EXPECT_EQ("column 1: the type offers no fields to filters", refusal("level = 1", {}, type));
        EXPECT_TRUE(compile("@source_timestamp.sec > 0", {}, type)->evaluate(metadata(), nullptr));
    }
}

TEST(Filter, reports_a_route_and_whether_it_looks_at_the_data) {
    const DDS_GUID_t guid = {{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 0xa, 0xb, 0xc, 0xd, 0xe, 0xf}};
    const std::string field = "@related_sample_identity.writer_guid.value";
    const std::string hex = "&hex(000102030405060708090a0b0c0d0e0f)";
    const struct {
        std::string text;
        bool is_route;
        bool needs_data;
    } cases[] = {
        {field + " = " + hex, true, false},
        {hex + "=" + field, true, false},
        {field + " = %0", true, false},
        {"NOT NOT " + field + " = " + hex, true, false},
        {field + "<>" + hex, false, false},
        {"NOT " + field + "=" + hex, false, false},
        {field + "=" + field, false, false},
        {"@sample_identity.writer_guid.value=" + hex, false, false},
        {"level = 1", false, true},
        {"1 = level", false, true},
        {field + "=" + hex + " AND level = 1", false, true},
        {field + "= mac", false, true},
    };
    for (const auto& each : cases) {
        const Filter filter = compile(each.text, {hex.c_str()});
        EXPECT_EQ(each.is_route, filter->route() && *filter->route() == guid) << each.text;
        EXPECT_EQ(each.needs_data, filter->needs_data()) << each.text;
    }
}

TEST(Filter, has_limits_and_works_up_to_them) {
    const auto nested = [](std::size_t depth) { return std::string(depth, '(') + "level = -5" + std::string(depth, ')'); };
    EXPECT_TRUE(passes(nested(100)));
    EXPECT_EQ(0U, refusal(nested(101)).find("column 101: more than 100 parentheses"));
    EXPECT_EQ(0U, refusal(std::string(60000, '(')).find("column 101:"));
    std::string longest = "level = -5";
    while (longest.size() + 8 < mw::MAX_FILTER_LENGTH) {
        longest += " AND 1=1";
    }
    longest.append(mw::MAX_FILTER_LENGTH - longest.size(), ' ');
    EXPECT_TRUE(passes(longest));
    EXPECT_EQ(0U, refusal(longest + " ").find("column 65537: expected the end"));
}

TEST(Filter, survives_any_soup_of_its_words) {
    const std::vector<std::string> words = cases_of(
        "level;name;mac;valid;spare;=;<>;<;(;);AND;OR;NOT;BETWEEN;LIKE;'a%_';';5;-1.5e3;TRUE;&hex(01);&hex(;%0;%7;@source_"
        "timestamp.sec;@;.;\x80;!");
    const std::vector<std::string> sound =
        cases_of("level;>=;5;AND;NOT;(;name;LIKE;'a%_';OR;mac;=;&hex(01););OR;spare;BETWEEN;%0;AND;-1.5e3");
    const DDS_StringSeq parameters = parameters_of({"1"});
    const Reading reading;
    int accepted = 0;
    std::mt19937 random(test_seed());
    for (int round = 0; round < 20000; ++round) {
        std::vector<std::string> soup = sound;
        for (auto changes = random() % 6; changes > 0; --changes) {
            soup[random() % soup.size()] = words[random() % words.size()];
        }
        std::string text;
        for (const std::string& word : soup) {
            text += word + (random() % 8 == 0 ? "" : " ");
        }
        Filter filter;
        std::string message;
        if (mw::FilterExpression::compile(reading_type(), text.c_str(), parameters, filter, message) == DDS_RETCODE_OK) {
            ++accepted;
            filter->evaluate(metadata(), &reading);
        } else {
            EXPECT_EQ(0U, message.find("column ")) << text << ": " << message;
        }
    }
    EXPECT_TRUE(accepted > 1000 && accepted < 15000) << accepted << ": a soup that is always, or never, a filter tries little";
}

TEST(Filter, evaluates_without_memory_and_says_when_compiling_had_none) {
    const char* const text = "name LIKE 'it%' AND mac = &hex(0102ff) AND (level BETWEEN -9 AND 0 OR @source_timestamp.sec = 1)";
    const Filter filter = compile(text);
    const Reading reading;
    AllocationProbe::fail(1);
    const bool has_passed = filter->evaluate(metadata(), &reading);
    AllocationProbe::stop();
    EXPECT_TRUE(has_passed);
    EXPECT_EQ(0, AllocationProbe::count());

    const DDS_StringSeq none;
    EXPECT_LT(5, fail_each_allocation([&] {
                  Filter compiled;
                  std::string message;
                  const DDS_ReturnCode_t code = mw::FilterExpression::compile(reading_type(), text, none, compiled, message);
                  AllocationProbe::stop();
                  EXPECT_EQ(AllocationProbe::has_failed() ? DDS_RETCODE_OUT_OF_RESOURCES : DDS_RETCODE_OK, code);
              }));
}

}  // namespace
}  // namespace norvane::test
