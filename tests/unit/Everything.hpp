// SPDX-License-Identifier: Apache-2.0
// A struct with a member of every kind that a described type may have, a value of it, and its encoding written out by hand.
#ifndef NORVANE_TESTS_UNIT_EVERYTHING_HPP
#define NORVANE_TESTS_UNIT_EVERYTHING_HPP

#include <array>
#include <boost/describe.hpp>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace norvane::test {

typedef std::vector<std::uint8_t> Octets;

enum class Colour : std::uint8_t { RED = 1, BLUE = 7 };
BOOST_DESCRIBE_ENUM(Colour, RED, BLUE)
enum class Shade : std::int16_t {};  // not described: any value that fits

struct Point {
    std::int16_t x = 0;
    double y = 0;
};
BOOST_DESCRIBE_STRUCT(Point, (), (x, y))
inline bool operator==(const Point& left, const Point& right) { return left.x == right.x && left.y == right.y; }

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

inline Everything everything() {
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
inline const Octets EVERYTHING = {
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

}  // namespace norvane::test

#endif
