// SPDX-License-Identifier: Apache-2.0
// GUIDs as keys of an engine's tables.
#ifndef NORVANE_ENGINES_GUIDHASH_HPP
#define NORVANE_ENGINES_GUIDHASH_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "norvane/dds/types.hpp"
#include "platform/Secret.hpp"

namespace norvane {
namespace mw {

struct GuidHash {
    std::size_t operator()(const DDS_GUID_t& guid) const noexcept {
        std::uint64_t halves[2];
        std::memcpy(halves, guid.value, sizeof halves);
        // Mixed with a secret of the process, since peers choose their GUIDs: they could otherwise choose many of one hash. GUIDs of
        // one participant differ in a few octets only; the products spread them over the whole word.
        static const std::uint64_t SECRET = platform::process_secret();
        std::uint64_t mixed = (halves[0] ^ SECRET) * 0x9e3779b97f4a7c15U;
        mixed = (halves[1] ^ mixed ^ (mixed >> 32U)) * 0xd6e8feb86659fd93U;
        mixed = (mixed ^ (mixed >> 32U) ^ SECRET) * 0x9e3779b97f4a7c15U;
        return static_cast<std::size_t>(mixed ^ (mixed >> 32U));
    }
};

}  // namespace mw
}  // namespace norvane

#endif
