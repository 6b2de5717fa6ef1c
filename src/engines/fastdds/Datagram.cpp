// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/Datagram.hpp"

#include <cstring>

namespace norvane {
namespace fastdds {

namespace {

constexpr std::size_t HEADER = 20;
constexpr std::size_t SUBMESSAGE_HEADER = 4;
constexpr std::uint8_t LITTLE_ENDIAN_FLAG = 0x01;
constexpr std::uint8_t NO_TIME_FLAG = 0x02;

enum SubmessageKind : std::uint8_t {
    PAD = 0x01,
    INFO_TS = 0x09,
    INFO_SRC = 0x0c,
    INFO_REPLY_IP4 = 0x0d,
    INFO_DST = 0x0e,
    INFO_REPLY = 0x0f,
    SRTPS_PREFIX = 0x33,
    FIRST_OF_VENDORS = 0x80
};

// Says that what follows has no time of its own.
constexpr std::uint8_t NO_TIME[] = {INFO_TS, LITTLE_ENDIAN_FLAG | NO_TIME_FLAG, 0, 0};

// What a message says of itself.
struct Shape {
    bool can_be_joined = false;
    bool names_destination = false;        // anywhere
    bool names_destination_first = false;  // before anything that it matters to
    bool has_time = false;
    bool has_time_first = false;
    std::size_t end = 0;  // without the last submessage, where a vendor defines that
};

Shape examine(const std::uint8_t* message, std::size_t length) noexcept {
    Shape shape;
    if (length <= HEADER || std::memcmp(message, "RTPS", 4) != 0) {
        return shape;
    }
    bool in_prelude = true;
    bool is_at_end = false;
    std::size_t place = HEADER;
    while (place + SUBMESSAGE_HEADER <= length) {
        if (is_at_end) {
            return shape;
        }
        const std::uint8_t* const submessage = message + place;
        const std::uint8_t kind = submessage[0];
        const std::size_t rest =
            (submessage[1] & LITTLE_ENDIAN_FLAG) != 0 ? submessage[2] + 256U * submessage[3] : submessage[3] + 256U * submessage[2];
        const bool has_end = rest != 0 || kind == PAD || kind == INFO_TS;
        if (!has_end || rest % 4 != 0 || kind == SRTPS_PREFIX || kind == INFO_SRC || kind == INFO_REPLY || kind == INFO_REPLY_IP4) {
            return shape;
        }
        if (kind == INFO_DST) {
            shape.names_destination = true;
            shape.names_destination_first = shape.names_destination_first || in_prelude;
        } else if (kind == INFO_TS) {
            shape.has_time = true;
            shape.has_time_first = shape.has_time_first || in_prelude;
        } else if (kind != PAD) {
            in_prelude = false;
        }
        is_at_end = kind >= FIRST_OF_VENDORS;
        shape.end = is_at_end ? place : place + SUBMESSAGE_HEADER + rest;
        place += SUBMESSAGE_HEADER + rest;
    }
    shape.can_be_joined = place == length;
    return shape;
}

}  // namespace

bool Datagram::has_room_for(std::size_t length) const noexcept {
    return is_empty() ? length <= _limit : _end + length <= _limit + HEADER - sizeof(NO_TIME);
}

bool Datagram::append(const std::uint8_t* message, std::size_t length) {
    const Shape shape = examine(message, length);
    if (!shape.can_be_joined || !has_room_for(length)) {
        return false;
    }
    if (is_empty()) {
        _octets.reserve(_limit);
        _octets.assign(message, message + length);
        _end = shape.end;
        _names_destination = shape.names_destination;
        _has_time = shape.has_time;
        _message_count = 1;
        return true;
    }
    if (std::memcmp(_octets.data(), message, HEADER) != 0 || (_names_destination && !shape.names_destination_first)) {
        return false;
    }
    _octets.resize(_end);
    if (_has_time && !shape.has_time_first) {
        _octets.insert(_octets.end(), NO_TIME, NO_TIME + sizeof(NO_TIME));  // (smaller than the header that goes)
        _has_time = false;
    }
    _end = _octets.size() + shape.end - HEADER;
    _octets.insert(_octets.end(), message + HEADER, message + length);
    _names_destination = _names_destination || shape.names_destination;
    _has_time = _has_time || shape.has_time;
    ++_message_count;
    return true;
}

}  // namespace fastdds
}  // namespace norvane
