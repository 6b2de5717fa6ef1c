// SPDX-License-Identifier: Apache-2.0
// Which values of a described type cannot be encoded, and where in the sample such a value is.
//
// A std::string with a NUL inside would end there at a receiver in C; a described enumeration has no values but its enumerators.
// Nothing here allocates or throws.
// Thread rule: everything here may be used from any thread at once.
#ifndef NORVANE_DETAILS_ENCODABILITY_HPP
#define NORVANE_DETAILS_ENCODABILITY_HPP

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "norvane/details/member_kinds.hpp"

namespace norvane {
namespace details {

/// Whether every value can be encoded, so that none need be looked at.
template <class M>
constexpr bool is_always_encodable() noexcept {
    constexpr MemberKind KIND = kind_of<M>();
    if constexpr (KIND == MemberKind::SEQUENCE || KIND == MemberKind::ARRAY || KIND == MemberKind::OPTIONAL) {
        return is_always_encodable<typename Container<M>::Element>();
    } else if constexpr (KIND == MemberKind::STRUCTURE) {
        return all_members<M>(
            [](auto descriptor, std::uint32_t) { return is_always_encodable<MemberType<decltype(descriptor)>>(); });
    } else if constexpr (KIND == MemberKind::ENUMERATION) {
        return !boost::describe::has_describe_enumerators<M>::value;
    } else {
        return KIND != MemberKind::STRING;
    }
}

/// A place in a sample: the sample, a member of an outer place, or an element of one. On the stack of the search.
struct ValuePlace {
    static constexpr std::size_t NO_INDEX = static_cast<std::size_t>(-1);

    const ValuePlace* outer;
    std::string_view name;  ///< Of the type or member; empty for an element.
    std::size_t index = NO_INDEX;
};

/// A text in a buffer of fixed size: what does not fit is left out. Terminated, unless the size is 0.
class BoundedText {
public:
    BoundedText(char* buffer, std::size_t capacity) noexcept : _next(buffer), _room(capacity > 0 ? capacity - 1 : 0) {
        if (capacity > 0) {
            *_next = '\0';
        }
    }
    BoundedText& operator<<(std::string_view text) noexcept {
        const std::size_t length = text.size() < _room ? text.size() : _room;
        if (length > 0) {
            std::memcpy(_next, text.data(), length);
            _next += length;
            _room -= length;
            *_next = '\0';
        }
        return *this;
    }
    template <class Number, typename std::enable_if<std::is_integral<Number>::value, int>::type = 0>
    BoundedText& operator<<(Number number) noexcept {
        char digits[24];
        const std::to_chars_result result = std::to_chars(digits, digits + sizeof digits, number);
        return *this << std::string_view(digits, static_cast<std::size_t>(result.ptr - digits));
    }
    /// As in C++: `shop::Order.lines[3].name`.
    BoundedText& operator<<(const ValuePlace& place) noexcept {
        if (place.outer != nullptr) {
            *this << *place.outer;
        }
        return place.index == ValuePlace::NO_INDEX ? *this << (place.outer != nullptr ? "." : "") << place.name
                                                   : *this << "[" << place.index << "]";
    }

private:
    char* _next;
    std::size_t _room;
};

/// Looks for a value that cannot be encoded. @param reason  gets the first one: where it is, and what it is.
/// @return whether there is one.
template <class M>
bool find_unencodable(const M& value, const ValuePlace& place, BoundedText& reason) noexcept {
    constexpr MemberKind KIND = kind_of<M>();
    if constexpr (is_always_encodable<M>()) {
        return false;
    } else if constexpr (KIND == MemberKind::STRING) {
        if (std::memchr(value.data(), 0, value.size()) == nullptr) {
            return false;
        }
        reason << place << ": a NUL inside a string";
        return true;
    } else if constexpr (KIND == MemberKind::ENUMERATION) {
        typedef std::underlying_type_t<M> Underlying;
        typedef typename IntegerOf<8, std::is_signed<Underlying>::value>::type Number;
        const auto number = static_cast<Number>(static_cast<Underlying>(value));
        if (is_value_of<M>(number)) {
            return false;
        }
        reason << place << ": " << number << " is no enumerator of " << std::string_view(type_name<M>);
        return true;
    } else if constexpr (KIND == MemberKind::OPTIONAL) {
        return value.has_value() && find_unencodable(*value, place, reason);
    } else if constexpr (KIND == MemberKind::STRUCTURE) {
        return !all_members<M>([&](auto descriptor, std::uint32_t) {
            return !find_unencodable(value.*descriptor.pointer, ValuePlace{&place, descriptor.name}, reason);
        });
    } else {
        std::size_t index = 0;
        for (const auto& element : value) {
            if (find_unencodable(element, ValuePlace{&place, std::string_view(), index++}, reason)) {
                return true;
            }
        }
        return false;
    }
}

/// As DDS_TypeOperations::unencodable.
template <class T>
bool unencodable_described(const DDS_TypeOperations& type, const void* sample, char* reason, std::size_t capacity) noexcept {
    BoundedText text(reason, capacity);
    return find_unencodable(*static_cast<const T*>(sample), ValuePlace{nullptr, type.name}, text);
}

}  // namespace details
}  // namespace norvane

#endif
