// SPDX-License-Identifier: Apache-2.0
// What the middleware asks of a table of type operations before it accepts it, and how our own tables hash their layout.
// Thread rule: free functions without state.
#ifndef NORVANE_MIDDLEWARE_TYPEOPERATIONS_HPP
#define NORVANE_MIDDLEWARE_TYPEOPERATIONS_HPP

#include <cstdint>
#include <string>

#include "norvane/dds/TypeSupport.hpp"

namespace norvane {
namespace mw {

/// Looks whether a table can be worked with: a name, a size, a proper alignment, and every operation that is not optional.
/// @param what  gets the fault, for the log; empty when there was no memory for it. Unchanged when all is well.
/// @return whether it can.
[[nodiscard]] bool is_usable(const DDS_TypeOperations& type, std::string& what) noexcept;

/// FNV-1a hash of the description of a layout.
constexpr std::uint64_t layout_hash(const char* text, std::uint64_t seed = 0xcbf29ce484222325U) noexcept {
    for (; *text != '\0'; ++text) {
        seed = (seed ^ static_cast<unsigned char>(*text)) * 0x100000001b3U;
    }
    return seed;
}

}  // namespace mw
}  // namespace norvane

#endif
