// SPDX-License-Identifier: Apache-2.0
// Sequence numbers as integers and back, for middleware and engines.
// Thread rule: free functions without state.
#ifndef NORVANE_MIDDLEWARE_SEQUENCENUMBER_HPP
#define NORVANE_MIDDLEWARE_SEQUENCENUMBER_HPP

#include <cstdint>

#include "norvane/dds/types.hpp"

namespace norvane {
namespace mw {

/// @return the 64 bits of the number; negative when its high half is.
inline std::int64_t to_integer(const DDS_SequenceNumber_t& number) noexcept {
    return static_cast<std::int64_t>((static_cast<std::uint64_t>(static_cast<std::uint32_t>(number.high)) << 32U) | number.low);
}

/// The inverse of `to_integer`.
inline DDS_SequenceNumber_t to_sequence_number(std::int64_t number) noexcept {
    return {static_cast<DDS_Long>(number >> 32U), static_cast<DDS_UnsignedLong>(number & 0xffffffffU)};
}

}  // namespace mw
}  // namespace norvane

#endif
