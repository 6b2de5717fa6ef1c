// SPDX-License-Identifier: Apache-2.0
// GUIDs as keys of tables, and the source of those that nobody asked for.
#ifndef NORVANE_ENGINES_EMBEDDED_GUID_HPP
#define NORVANE_ENGINES_EMBEDDED_GUID_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "norvane/dds/types.hpp"

namespace norvane {
namespace embedded {

struct GuidHash {
    std::size_t operator()(const DDS_GUID_t& guid) const noexcept {
        std::uint64_t halves[2];
        std::memcpy(halves, guid.value, sizeof halves);
        // GUIDs of one process mostly differ in their last octets only: spread those over the whole word.
        const std::uint64_t mixed = halves[0] ^ (halves[1] * 0x9e3779b97f4a7c15U);
        return static_cast<std::size_t>(mixed ^ (mixed >> 32U));
    }
};

/// @return a GUID that this process has not made before: eight octets drawn when the process first asks, then a count.
/// @throws std::exception  the system has no random octets to give.
DDS_GUID_t next_guid();

/// @return the 32 hexadecimal digits.
std::string guid_text(const DDS_GUID_t& guid);

}  // namespace embedded
}  // namespace norvane

#endif
