// SPDX-License-Identifier: Apache-2.0
// A trivially copyable struct without a description: it is sent as a copy of its bytes, and only inside its process.
#ifndef NORVANE_DETAILS_PLAIN_TYPE_HPP
#define NORVANE_DETAILS_PLAIN_TYPE_HPP

#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "norvane/details/cxx_type.hpp"

namespace norvane {
namespace details {

/// Whether T is sent as a copy of its bytes. Not a pointer: what it points at would not be sent.
template <class T>
inline constexpr bool IS_PLAIN_SAMPLE =
    std::conjunction<std::is_trivially_copyable<T>, std::is_default_constructible<T>, std::is_copy_assignable<T>,
                     std::negation<std::is_pointer<T>>, std::negation<std::is_member_pointer<T>>,
                     std::negation<std::is_null_pointer<T>>>::value;

/// The hash of a layout without a description: name, size and alignment.
template <class T>
constexpr std::uint64_t opaque_layout_hash() noexcept {
    return hash_number(hash_number(hash_text(HASH_SEED, type_name<T>), sizeof(T)), alignof(T));
}

template <class T>
bool copy_octets(const DDS_TypeOperations&, void* destination, const void* source) {
    std::memcpy(destination, source, sizeof(T));
    return true;
}

/// No encoding: the type stays in its process.
template <class T>
constexpr DDS_TypeOperations plain_operations() noexcept {
    DDS_TypeOperations table = cxx_operations<T>();
    table.layout_hash = opaque_layout_hash<T>();
    table.copy = copy_octets<T>;
    return table;
}

template <class T>
inline constexpr DDS_TypeOperations PLAIN_OPERATIONS = plain_operations<T>();

}  // namespace details
}  // namespace norvane

#endif
