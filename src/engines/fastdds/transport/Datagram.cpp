// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/transport/Datagram.hpp"

#include <cstring>

#include "engines/fastdds/quirks_2_9/Submessage.hpp"

namespace norvane {
namespace fastdds {

namespace {

constexpr std::size_t HEADER = Submessage::MESSAGE_HEADER;
constexpr std::uint8_t NO_TIME_FLAG = 0x02;

// What follows has no time stamp.
constexpr std::uint8_t NO_TIME[] = {Submessage::INFO_TS, Submessage::LITTLE_ENDIAN_FLAG | NO_TIME_FLAG, 0, 0};

// What a message sets and depends on.
struct Shape {
    bool can_be_joined = false;
    bool names_destination = false;        // anywhere
    bool names_destination_first = false;  // before any submessage that it matters to
    bool has_time = false;
    bool has_time_first = false;
    std::size_t end = 0;  // without the last submessage, if that is vendor-specific
};

Shape examine(const std::uint8_t* message, std::size_t length) noexcept {
    Shape shape;
    if (!Submessage::begin_a_message(message, length)) {
        return shape;
    }
    bool in_prelude = true;
    bool is_at_end = false;
    std::size_t place = HEADER;
    for (Submessage each; place != length;) {
        if (is_at_end || !each.read(message, length, place) || each.lasts_to_the_end || each.length % 4 != 0) {
            return shape;
        }
        switch (each.kind) {
            case Submessage::SRTPS_PREFIX:
            case Submessage::INFO_SRC:
            case Submessage::INFO_REPLY:
            case Submessage::INFO_REPLY_IP4:
                return shape;
            case Submessage::INFO_DST:
                shape.names_destination = true;
                shape.names_destination_first = shape.names_destination_first || in_prelude;
                break;
            case Submessage::INFO_TS:
                shape.has_time = true;
                shape.has_time_first = shape.has_time_first || in_prelude;
                break;
            case Submessage::PAD:
                break;
            default:
                in_prelude = false;
        }
        is_at_end = each.kind >= Submessage::FIRST_OF_VENDORS;
        const std::size_t next = place + Submessage::HEADER + each.length;
        shape.end = is_at_end ? place : next;
        place = next;
    }
    shape.can_be_joined = true;
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
        _octets.insert(_octets.end(), NO_TIME, NO_TIME + sizeof(NO_TIME));  // smaller than the header that is dropped
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
