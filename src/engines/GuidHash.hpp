// SPDX-License-Identifier: Apache-2.0
// GUIDs as keys of an engine's tables.
#ifndef NORVANE_ENGINES_GUIDHASH_HPP
#define NORVANE_ENGINES_GUIDHASH_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "norvane/dds/types.hpp"

namespace norvane {
namespace mw {

struct GuidHash {
    std::size_t operator()(const DDS_GUID_t& guid) const noexcept {
        std::uint64_t halves[2];
        std::memcpy(halves, guid.value, sizeof halves);
        // GUIDs of one participant, or one process, differ in their last octets only: spread those over the whole word.
        const std::uint64_t mixed = halves[0] ^ (halves[1] * 0x9e3779b97f4a7c15U);
        return static_cast<std::size_t>(mixed ^ (mixed >> 32U));
    }
};

}  // namespace mw
}  // namespace norvane

#endif
