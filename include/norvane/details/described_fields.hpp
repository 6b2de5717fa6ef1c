// SPDX-License-Identifier: Apache-2.0
// Fields of described structs, for content filters: found once by path, read by number.
//
// Fields are numbered depth first. Strings, numbers, booleans and enumerations are fields; so are runs of char (text up to its
// first NUL) and of octets. Other sequences and arrays are not. A path goes through an optional member as if it were there.
#ifndef NORVANE_DETAILS_DESCRIBED_FIELDS_HPP
#define NORVANE_DETAILS_DESCRIBED_FIELDS_HPP

#include <cstring>
#include <string_view>

#include "norvane/details/member_kinds.hpp"

namespace norvane {
namespace details {

template <class E>
inline constexpr bool IS_OCTET = std::is_same<E, std::uint8_t>::value || std::is_same<E, std::byte>::value;

/// Kind of the field that a member is by itself; DDS_FIELD_NONE for a struct, and for what a filter cannot compare.
template <class M>
constexpr DDS_FieldKind field_kind() noexcept {
    constexpr MemberKind KIND = kind_of<M>();
    if constexpr (KIND == MemberKind::BOOLEAN) {
        return DDS_FIELD_BOOLEAN;
    } else if constexpr (KIND == MemberKind::INTEGER || KIND == MemberKind::ENUMERATION) {
        return std::is_signed<Wire<M>>::value || KIND == MemberKind::ENUMERATION ? DDS_FIELD_INTEGER : DDS_FIELD_UNSIGNED;
    } else if constexpr (KIND == MemberKind::FLOATING) {
        return DDS_FIELD_FLOAT;
    } else if constexpr (KIND == MemberKind::STRING) {
        return DDS_FIELD_STRING;
    } else if constexpr (KIND == MemberKind::SEQUENCE || KIND == MemberKind::ARRAY) {
        typedef typename Container<M>::Element E;
        return IS_OCTET<E>                                                 ? DDS_FIELD_OCTETS
               : std::is_same<E, char>::value && KIND == MemberKind::ARRAY ? DDS_FIELD_STRING
                                                                           : DDS_FIELD_NONE;
    } else if constexpr (KIND == MemberKind::OPTIONAL) {
        return field_kind<typename Container<M>::Element>();
    } else {
        return DDS_FIELD_NONE;
    }
}

/// The struct whose members are reached through M, whether or not M is optional.
template <class M>
constexpr auto* inner_struct() noexcept {
    if constexpr (kind_of<M>() == MemberKind::OPTIONAL) {
        return inner_struct<typename Container<M>::Element>();
    } else {
        return static_cast<M*>(nullptr);
    }
}

/// Number of fields in a struct.
template <class T>
constexpr int field_count() noexcept {
    int count = 0;
    if constexpr (kind_of<T>() == MemberKind::STRUCTURE) {
        all_members<T>([&](auto descriptor, std::uint32_t) {
            typedef MemberType<decltype(descriptor)> M;
            count += field_kind<M>() != DDS_FIELD_NONE ? 1 : field_count<std::remove_pointer_t<decltype(inner_struct<M>())>>();
            return true;
        });
    }
    return count;
}

/// @return the number of the field, counted from `first`; -1 when there is none.
template <class T>
int find_field(std::string_view path, DDS_FieldKind* kind, int first) {
    int found = -1;
    if constexpr (kind_of<T>() == MemberKind::STRUCTURE) {
        const std::size_t dot = path.find('.');
        all_members<T>([&](auto descriptor, std::uint32_t) {
            typedef MemberType<decltype(descriptor)> M;
            typedef std::remove_pointer_t<decltype(inner_struct<M>())> Inner;
            constexpr DDS_FieldKind KIND = field_kind<M>();
            if (path.substr(0, dot) == descriptor.name) {
                if (dot != std::string_view::npos) {
                    found = KIND == DDS_FIELD_NONE ? find_field<Inner>(path.substr(dot + 1), kind, first) : -1;
                } else if (KIND != DDS_FIELD_NONE) {
                    *kind = KIND;
                    found = first;
                }
                return false;
            }
            first += KIND != DDS_FIELD_NONE ? 1 : field_count<Inner>();
            return true;
        });
    }
    return found;
}

/// @return whether the value is there.
template <class M>
bool read_value(const M& value, DDS_FieldValue& field) {
    constexpr MemberKind KIND = kind_of<M>();
    if constexpr (KIND == MemberKind::OPTIONAL) {
        return value.has_value() && read_value(*value, field);
    } else {
        field.kind = field_kind<M>();
        if constexpr (KIND == MemberKind::BOOLEAN) {
            field.boolean = value;
        } else if constexpr (KIND == MemberKind::FLOATING) {
            field.floating = value;
        } else if constexpr (KIND == MemberKind::INTEGER || KIND == MemberKind::ENUMERATION) {
            if constexpr (field_kind<M>() == DDS_FIELD_INTEGER) {
                field.integer = static_cast<std::int64_t>(value);
            } else {
                field.unsigned_integer = static_cast<std::uint64_t>(value);
            }
        } else if constexpr (KIND == MemberKind::ARRAY) {
            constexpr std::size_t SIZE = Container<M>::COUNT;
            const void* const data = SIZE > 0 ? static_cast<const void*>(&value[0]) : "";
            const void* const nul = field_kind<M>() == DDS_FIELD_STRING ? std::memchr(data, 0, SIZE) : nullptr;
            field.data = data;
            field.length =
                nul != nullptr ? static_cast<std::size_t>(static_cast<const char*>(nul) - static_cast<const char*>(data)) : SIZE;
        } else {
            field.data = value.data();
            field.length = value.size();
        }
        return true;
    }
}

/// @param number  of the field, counted within the struct.
template <class T>
bool read_field(const T& value, int number, DDS_FieldValue& field) {
    bool is_there = false;
    all_members<T>([&](auto descriptor, std::uint32_t) {
        typedef MemberType<decltype(descriptor)> M;
        const M& member = value.*descriptor.pointer;
        if constexpr (field_kind<M>() != DDS_FIELD_NONE) {
            if (number-- == 0) {
                is_there = read_value(member, field);
                return false;
            }
        } else {
            typedef std::remove_pointer_t<decltype(inner_struct<M>())> Inner;
            if constexpr (kind_of<Inner>() == MemberKind::STRUCTURE) {
                if (number < field_count<Inner>()) {
                    if constexpr (kind_of<M>() == MemberKind::OPTIONAL) {
                        is_there = member.has_value() && read_field(*member, number, field);
                    } else {
                        is_there = read_field(member, number, field);
                    }
                    return false;
                }
                number -= field_count<Inner>();
            }
        }
        return true;
    });
    return is_there;
}

}  // namespace details
}  // namespace norvane

#endif
