// SPDX-License-Identifier: Apache-2.0
// Layout of pooled memory.
// Thread rule: free functions without state.
#ifndef NORVANE_MIDDLEWARE_ALIGNMENT_HPP
#define NORVANE_MIDDLEWARE_ALIGNMENT_HPP

#include <cstddef>

namespace norvane {
namespace mw {

/// @param alignment  not zero.
/// @return the smallest multiple of `alignment` that is not below `size`.
constexpr std::size_t round_up(std::size_t size, std::size_t alignment) noexcept {
    return (size + alignment - 1) / alignment * alignment;
}

}  // namespace mw
}  // namespace norvane

#endif
