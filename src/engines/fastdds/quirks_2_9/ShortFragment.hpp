// SPDX-License-Identifier: Apache-2.0
// Fast DDS copies the last fragment of a sample at the length that the first one of the sample implied. When the two disagree about
// the size of the sample, it reads up to a fragment beyond what has arrived. Such a message is handed on in memory that is long
// enough.
// Thread rule: plain functions on memory.
#ifndef NORVANE_ENGINES_FASTDDS_QUIRKS_2_9_SHORTFRAGMENT_HPP
#define NORVANE_ENGINES_FASTDDS_QUIRKS_2_9_SHORTFRAGMENT_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "engines/fastdds/quirks_2_9/Submessage.hpp"

namespace norvane {
namespace fastdds {

/// A fragment is no longer than its field of 16 bits says.
constexpr std::size_t LONGEST_FRAGMENT = 65535;

/// @param message  without a wire fault. @return whether a fragment in it is shorter than the others of its sample.
inline bool has_short_fragment(const std::uint8_t* message, std::size_t length) noexcept {
    Submessage each;
    for (std::size_t at = Submessage::MESSAGE_HEADER; each.read(message, length, at); at += Submessage::HEADER + each.length) {
        if (each.kind == Submessage::DATA_FRAG && each.length >= Submessage::DATA_FRAG_HEAD &&
            static_cast<std::uint64_t>(each.read_u32(Submessage::FIRST_FRAGMENT)) * each.read_u16(Submessage::FRAGMENT_SIZE) >
                each.read_u32(Submessage::SAMPLE_SIZE)) {
            return true;
        }
    }
    return false;
}

/// @param copy  is overwritten; its memory is reused. @throws std::bad_alloc
inline void copy_with_room_behind(const std::uint8_t* message, std::size_t length, std::vector<std::uint8_t>& copy) {
    if (copy.size() < length + LONGEST_FRAGMENT) {
        copy.resize(length + LONGEST_FRAGMENT);
    }
    std::memcpy(copy.data(), message, length);
}

}  // namespace fastdds
}  // namespace norvane

#endif
