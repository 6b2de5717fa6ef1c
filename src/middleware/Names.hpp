// SPDX-License-Identifier: Apache-2.0
// Names of types, topics and endpoints: which ones may be used.
// Thread rule: free functions without state.
#ifndef NORVANE_MIDDLEWARE_NAMES_HPP
#define NORVANE_MIDDLEWARE_NAMES_HPP

#include <cstddef>

namespace norvane {
namespace mw {

/// Longest name, in octets, the terminating null not counted.
constexpr std::size_t MAX_NAME_LENGTH = 255;

/// @param method  the log line's. @param what  the kind of name, for the log. @param name  may be null.
/// @return false when the name is null, empty or too long; the log says so.
[[nodiscard]] bool is_name_usable(const char* method, const char* what, const char* name) noexcept;

}  // namespace mw
}  // namespace norvane

#endif
