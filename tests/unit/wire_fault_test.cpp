// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/transport/WireFault.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace norvane::test {
namespace {

using fastdds::WireFault;

std::vector<std::uint8_t> octets(const std::string& digits) {
    std::vector<std::uint8_t> all;
    for (std::size_t place = 0; place < digits.size(); place += digits[place] == ' ' ? 1 : 2) {
        if (digits[place] != ' ') {
            all.push_back(static_cast<std::uint8_t>(std::stoi(digits.substr(place, 2), nullptr, 16)));
        }
    }
    return all;
}

// Submessages in either order of octets. "R" and "W" are a reader and a writer of an application, "B" is a writer of discovery.
TEST(WireFaults, are_found_in_every_kind_of_submessage) {
    constexpr WireFault NONE = WireFault::NONE, LENGTH = WireFault::LENGTH, NUMBER = WireFault::NUMBER,
                        FRAGMENT = WireFault::FRAGMENT, PARAMETERS = WireFault::PARAMETERS, VENDOR = WireFault::VENDOR;
    const struct {
        WireFault fault;
        const char* submessages;
    } ROWS[] = {
        {NONE, ""},
        {LENGTH, "0101"},
        {LENGTH, "01010000 01010800 00000000"},
        {LENGTH, "01010200 0000 01010000"},
        {NONE, "09010800 00000000 00000000 0e010c00 000000000000000000000000 09030000 01000008 0000000000000000"},
        {LENGTH, "09010400 00000000"},
        {LENGTH, "0e010800 00000000 00000000"},
        {LENGTH, "0c010800 00000000 00000000"},
        {NONE, "15050000 00001000 R W 00000000 01000000 00010000 78"},  // to the end
        {NONE, "15040018 00000010 R W 00000000 00000001 00010000 15011400 00001000 R W 00000000 01000000"},
        {LENGTH, "15050e00 00001000 R W 00000000"},
        {LENGTH, "15051600 00001000 R W 00000000 01000000 0001"},  // no room for an encapsulation
        {NUMBER, "15051800 00001000 R W 00000000 00000000 00010000"},
        {NUMBER, "15051800 00001000 R W ffffffff 01000000 00010000"},
        {NUMBER, "15051800 00001000 R B 00000000 01000040 00010000"},
        {PARAMETERS, "15051800 00000f00 R W 00000000 01000000 00010000"},
        {PARAMETERS, "15051800 00001500 R W 00000000 01000000 00010000"},
        {NONE, "15072400 00001000 R W 00000000 01000000 0f800400 00000000 01000000 00010000"},
        {PARAMETERS, "15072000 00001000 R W 00000000 01000000 0f800400 00000000 0f800400"},
        {NONE, "16012400 00001c00 R W 00000000 01000000 02000000 01004000 44000000 00000000"},
        {FRAGMENT, "16012400 00001c00 R W 00000000 01000000 02000000 01004000 45000000 00000000"},  // less than is left
        {FRAGMENT, "16012400 00001c00 R W 00000000 01000000 00000000 01004000 04000000 00000000"},
        {FRAGMENT, "16012400 00001c00 R W 00000000 01000000 03000000 01004000 44000000 00000000"},
        {FRAGMENT, "16012400 00001c00 R W 00000000 01000000 01000000 02004000 04000000 00000000"},
        {FRAGMENT, "16012400 00001c00 R W 00000000 01000000 01000000 01000400 04000000 00000000"},
        {WireFault::SIZE, "16012400 00001c00 R W 00000000 01000000 01000000 01004000 01000040 00000000"},
        {FRAGMENT, "16052400 00001c00 R W 00000000 01000000 01000000 01004000 04000000 00000000"},
        {NONE, "07011c00 R W 00000000 01000000 00000000 00000000 01000000"},
        {NUMBER, "07011c00 R W 00000000 00000000 00000000 00000000 01000000"},
        {NUMBER, "07011c00 R W 00000000 03000000 00000000 01000000 01000000"},
        {NUMBER, "07011c00 R W 00000000 01000000 00010000 01000000 01000000"},
        {NUMBER, "07011c00 R B 00000000 01000000 00000000 01000040 01000000"},
        {NUMBER, "07011c00 R W 00000000 01000000 ffffff7f ffffffff 01000000"},
        {LENGTH, "07011800 R W 00000000 01000000 00000000 01000000"},
        {NONE, "08012000 R W 00000000 01000000 00000000 05000000 20000000 00000000"},
        {NUMBER, "08011c00 R W 00000000 02000000 00000000 01000000 00000000"},
        {NUMBER, "08011c00 R W 00000000 01000000 00000000 02000100 00000000"},
        {LENGTH, "08011c00 R W 00000000 01000000 00000000 05000000 01000000"},
        {LENGTH, "08011c00 R W 00000000 01000000 00000000 05000000 ffffffff"},
        {NONE, "06011800 R W 00000000 00000000 00000000 01000000"},
        {LENGTH, "06011800 R W 00000000 00000000 01000000 00000000"},
        {NUMBER, "06011800 R W ffffffff 00000000 00000000 01000000"},
        {NONE, "12012000 R W 00000000 01000000 01000000 01000000 00000080 01000000"},
        {FRAGMENT, "12012000 R W 00000000 01000000 00000000 01000000 00000080 01000000"},
        {NUMBER, "12012000 R W 00000000 00000000 01000000 01000000 00000080 01000000"},
        {LENGTH, "13011400 R W 00000000 01000000 01000000"},
        {VENDOR, "80010400 00000000"},
        {NONE, "81010400 00000000"},
    };
    for (const auto& row : ROWS) {
        std::string digits = row.submessages;
        for (const auto& [letter, entity] : {std::pair<char, const char*>{'R', "00000107"}, {'W', "00000203"}, {'B', "000003c2"}}) {
            for (std::size_t place; (place = digits.find(letter)) != std::string::npos;) {
                digits.replace(place, 1, entity);
            }
        }
        const std::vector<std::uint8_t> message = octets("52545053 0203010f 000000000000000000000000" + digits);
        EXPECT_STREQ(text_of(row.fault), text_of(fastdds::find_wire_fault(message.data(), message.size()))) << row.submessages;
    }
    const std::vector<std::uint8_t> other = octets("52545053 0103010f 000000000000000000000000");
    EXPECT_EQ(WireFault::NO_MESSAGE, fastdds::find_wire_fault(other.data(), other.size()));
    EXPECT_EQ(WireFault::NO_MESSAGE, fastdds::find_wire_fault(nullptr, 0));
}

}  // namespace
}  // namespace norvane::test
