// SPDX-License-Identifier: Apache-2.0
// The number that the application knows a sample by, behind its encoding. It is there only when that is another than the number of Fast DDS:
// once the application has chosen one itself. A decoder that does not know of it does not look behind what it decodes.
// Thread rule: plain functions on values.
#ifndef NORVANE_ENGINES_FASTDDS_WRITING_NUMBER_TRAILER_HPP
#define NORVANE_ENGINES_FASTDDS_WRITING_NUMBER_TRAILER_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <fastdds/rtps/common/SerializedPayload.h>

#include "engines/fastdds/identity.hpp"

namespace norvane {
namespace fastdds {

constexpr std::size_t NUMBER_TRAILER = 16;
// On the wire a payload is a multiple of this; what is filled up would come behind the mark.
constexpr std::size_t PAYLOAD_UNIT = 4;
/// Room for the trailer, and for what is filled up before it.
constexpr std::size_t NUMBER_ROOM = NUMBER_TRAILER + PAYLOAD_UNIT - 1;
constexpr std::uint8_t NUMBER_MARK[8] = {0xd3, 0x91, 0x5c, 0xe7, 0x08, 0xbf, 0x62, 0x1a};

/// Appends the number. There must be NUMBER_ROOM.
inline void append_number(rtps::SerializedPayload_t& payload, std::int64_t number) noexcept {
    while (payload.length % PAYLOAD_UNIT != 0) {
        payload.data[payload.length++] = 0;
    }
    std::uint8_t* const place = payload.data + payload.length;
    for (int octet = 0; octet < 8; ++octet) {
        place[octet] = static_cast<std::uint8_t>(static_cast<std::uint64_t>(number) >> (8 * octet));
    }
    std::memcpy(place + 8, NUMBER_MARK, sizeof NUMBER_MARK);
    payload.length += static_cast<std::uint32_t>(NUMBER_TRAILER);
}

/// Takes the number off. @param length  of the encoding with its trailer; gets that without, in whole units.
/// @return whether there was one.
inline bool take_number(const std::uint8_t* octets, std::size_t& length, std::int64_t& number) noexcept {
    if (length < NUMBER_TRAILER || std::memcmp(octets + length - sizeof NUMBER_MARK, NUMBER_MARK, sizeof NUMBER_MARK) != 0) {
        return false;
    }
    length -= NUMBER_TRAILER;
    std::uint64_t value = 0;
    for (int octet = 0; octet < 8; ++octet) {
        value |= static_cast<std::uint64_t>(octets[length + static_cast<std::size_t>(octet)]) << (8 * octet);
    }
    number = static_cast<std::int64_t>(value);
    return true;
}

}  // namespace fastdds
}  // namespace norvane

#endif
