// SPDX-License-Identifier: Apache-2.0
// What members a described struct may have, and what is known of their encoding at compile time.
//
// Everything here is computed by the compiler; nothing has state.
#ifndef NORVANE_DETAILS_MEMBER_KINDS_HPP
#define NORVANE_DETAILS_MEMBER_KINDS_HPP

#include <array>
#include <boost/describe/bases.hpp>
#include <boost/describe/class.hpp>
#include <boost/describe/enum.hpp>
#include <boost/describe/enumerators.hpp>
#include <boost/describe/members.hpp>
#include <boost/mp11/algorithm.hpp>
#include <boost/mp11/list.hpp>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "norvane/details/cxx_type.hpp"

namespace norvane {
namespace details {

enum class MemberKind { NONE, BOOLEAN, INTEGER, FLOATING, ENUMERATION, STRING, SEQUENCE, ARRAY, OPTIONAL, STRUCTURE };

/// Of a container: its kind, its element, and, of an array, how many there are.
template <class M>
struct Container {
    static constexpr MemberKind KIND = MemberKind::NONE;
};
template <class E>
struct Container<std::vector<E>> {
    static constexpr MemberKind KIND = MemberKind::SEQUENCE;
    typedef E Element;
};
template <class E, std::size_t N>
struct Container<std::array<E, N>> {
    static constexpr MemberKind KIND = MemberKind::ARRAY;
    static constexpr std::size_t COUNT = N;
    typedef E Element;
};
template <class E, std::size_t N>
struct Container<E[N]> {
    static constexpr MemberKind KIND = MemberKind::ARRAY;
    static constexpr std::size_t COUNT = N;
    typedef E Element;
};
template <class E>
struct Container<std::optional<E>> {
    static constexpr MemberKind KIND = MemberKind::OPTIONAL;
    typedef E Element;
};

template <class T>
inline constexpr bool IS_DESCRIBED = std::is_class<T>::value&& boost::describe::has_describe_members<T>::value;

template <class M>
constexpr MemberKind kind_of() noexcept {
    if constexpr (!std::is_same<M, std::remove_cv_t<M>>::value) {
        return MemberKind::NONE;
    } else if constexpr (Container<M>::KIND != MemberKind::NONE) {
        return Container<M>::KIND;
    } else if constexpr (std::is_same<M, bool>::value) {
        return MemberKind::BOOLEAN;
    } else if constexpr (std::is_same<M, wchar_t>::value || std::is_same<M, char16_t>::value || std::is_same<M, char32_t>::value) {
        return MemberKind::NONE;  // other languages and machines disagree on what they are
    } else if constexpr ((std::is_integral<M>::value && sizeof(M) <= 8) || std::is_same<M, std::byte>::value) {
        return MemberKind::INTEGER;
    } else if constexpr (std::is_same<M, float>::value || std::is_same<M, double>::value) {
        return MemberKind::FLOATING;
    } else if constexpr (std::is_enum<M>::value) {
        return MemberKind::ENUMERATION;
    } else if constexpr (std::is_same<M, std::string>::value) {
        return MemberKind::STRING;
    } else if constexpr (IS_DESCRIBED<M>) {
        return MemberKind::STRUCTURE;
    } else {
        return MemberKind::NONE;
    }
}

/// The integer of fixed width as which an integer or enumeration goes.
template <std::size_t SIZE, bool IS_SIGNED>
struct IntegerOf;
template <>
struct IntegerOf<1, false> {
    typedef std::uint8_t type;
};
template <>
struct IntegerOf<1, true> {
    typedef std::int8_t type;
};
template <>
struct IntegerOf<2, false> {
    typedef std::uint16_t type;
};
template <>
struct IntegerOf<2, true> {
    typedef std::int16_t type;
};
template <>
struct IntegerOf<4, false> {
    typedef std::uint32_t type;
};
template <>
struct IntegerOf<4, true> {
    typedef std::int32_t type;
};
template <>
struct IntegerOf<8, false> {
    typedef std::uint64_t type;
};
template <>
struct IntegerOf<8, true> {
    typedef std::int64_t type;
};

/// A number that is encoded as its own bytes, so that a run of them is, too.
template <class M>
inline constexpr bool IS_NUMBER = kind_of<M>() == MemberKind::INTEGER || kind_of<M>() == MemberKind::FLOATING;

/// What a number or enumeration is encoded as.
template <class M>
constexpr auto wire_value() noexcept {
    if constexpr (kind_of<M>() == MemberKind::FLOATING) {
        return M();
    } else if constexpr (std::is_same<M, std::byte>::value) {
        return std::uint8_t();
    } else if constexpr (kind_of<M>() == MemberKind::ENUMERATION) {
        return typename IntegerOf<4, std::is_signed<std::underlying_type_t<M>>::value>::type();
    } else {
        return typename IntegerOf<sizeof(M), std::is_signed<M>::value>::type();
    }
}
template <class M>
using Wire = decltype(wire_value<M>());

/// Whether a number is a value of the enumeration: one of its enumerators if they are described.
template <class E, class Number>
constexpr bool is_value_of(Number number) noexcept {
    typedef std::underlying_type_t<E> Underlying;
    const auto value = static_cast<Underlying>(number);
    bool is_value = static_cast<Number>(value) == number;
    if constexpr (boost::describe::has_describe_enumerators<E>::value) {
        bool is_enumerator = false;
        boost::mp11::mp_for_each<boost::describe::describe_enumerators<E>>(
            [&](auto described) { is_enumerator = is_enumerator || static_cast<Underlying>(described.value) == value; });
        is_value = is_value && is_enumerator;
    }
    return is_value;
}

/// The members, inherited ones first. Private ones count: what is described is sent.
template <class T>
using MembersOf = boost::describe::describe_members<T, static_cast<boost::describe::modifiers>(boost::describe::mod_any_access |
                                                                                               boost::describe::mod_inherited |
                                                                                               boost::describe::mod_hidden)>;

template <class Pointer>
struct PointedMember;
template <class T, class M>
struct PointedMember<M T::*> {
    typedef M type;
};
/// Type of the member that a descriptor stands for.
template <class Descriptor>
using MemberType = typename PointedMember<std::remove_cv_t<decltype(Descriptor::pointer)>>::type;

template <template <class...> class List, class... D, class Visit>
constexpr bool all_members(List<D...>*, Visit& visit) {
    [[maybe_unused]] std::uint32_t index = 0;
    return (visit(D(), index++) && ...);
}
/// Calls `visit(descriptor, index)` for each member, until one gives false. @return whether none did.
template <class T, class Visit>
constexpr bool all_members(Visit&& visit) {
    return all_members(static_cast<MembersOf<T>*>(nullptr), visit);
}

template <class Initialisers, class = void>
inline constexpr bool IS_INITIALISED_BY = false;
template <class T, class... M>
inline constexpr bool IS_INITIALISED_BY<T(M...), std::void_t<decltype(T{std::declval<M>()...})>> = true;

template <class Initialisers, class = void>
inline constexpr bool TAKES_ONE_MORE = false;
template <class T, class... M>
inline constexpr bool TAKES_ONE_MORE<T(M...), std::void_t<decltype(T{std::declval<M>()..., {}})>> = true;

/// Whether an aggregate takes the described members as initialisers, and no more. (A C array is no expression: nothing is known
/// then.)
template <class T, template <class...> class List, class... D>
constexpr bool has_no_other_member(List<D...>*) noexcept {
    if constexpr ((std::is_array<MemberType<D>>::value || ...)) {
        return true;
    } else {
        return IS_INITIALISED_BY<T(MemberType<D>...)> && !TAKES_ONE_MORE<T(MemberType<D>...)>;
    }
}

/// @return octets that an object of these members has at most, whatever their order, when it has no others.
template <class T, template <class...> class List, class... D>
constexpr std::size_t most_octets(List<D...>*) noexcept {
    const std::size_t of_vtable = std::is_polymorphic<T>::value ? sizeof(void*) : 0;
    std::size_t least_alignment = of_vtable != 0 ? alignof(void*) : alignof(T);
    ((least_alignment = alignof(MemberType<D>) < least_alignment ? alignof(MemberType<D>) : least_alignment), ...);
    // Each starts at a multiple of the least alignment, and so needs no more padding in front than its own alignment asks for
    // beyond that.
    std::size_t octets = of_vtable;
    ((octets += sizeof(MemberType<D>) + alignof(MemberType<D>) - least_alignment), ...);
    octets = (octets + alignof(T) - 1) / alignof(T) * alignof(T);
    return octets != 0 ? octets : alignof(T);
}

/// Whether the described members are all members. One that was left out would be lost on the way to another process, without an
/// error.
///
/// Only a class without described bases can be checked. An aggregate: by its size (where members lie is not known before run time,
/// but without alignment of its own each lies where the ones before it end), and, for those that hide in padding, by its
/// initialisers. Another class, whose members are described by access and not in their order, by the largest size that those
/// described can need.
template <class T>
constexpr bool describes_whole() noexcept {
    if constexpr (std::is_aggregate<T>::value &&
                  boost::mp11::mp_empty<boost::describe::describe_bases<T, boost::describe::mod_any_access>>::value) {
        std::size_t end = 0;
        all_members<T>([&](auto descriptor, std::uint32_t) {
            typedef MemberType<decltype(descriptor)> M;
            end = (end + alignof(M) - 1) / alignof(M) * alignof(M) + sizeof(M);
            return true;
        });
        end = (end + alignof(T) - 1) / alignof(T) * alignof(T);
        return (end != 0 ? end : alignof(T)) == sizeof(T) && has_no_other_member<T>(static_cast<MembersOf<T>*>(nullptr));
    } else if constexpr (boost::mp11::mp_empty<boost::describe::describe_bases<T, boost::describe::mod_any_access>>::value) {
        return sizeof(T) <= most_octets<T>(static_cast<MembersOf<T>*>(nullptr));
    } else {
        return true;
    }
}

template <class E, class = void>
inline constexpr bool HAS_FIXED_TYPE = false;
template <class E>
inline constexpr bool HAS_FIXED_TYPE<E, std::void_t<decltype(E{std::declval<std::underlying_type_t<E>>()})>> = true;

/// Whether it is known which numbers are values of an enumeration: all of its fixed underlying type, or the enumerators that are
/// described. A number from the network that is neither would have no defined meaning.
template <class E>
constexpr bool has_known_values() noexcept {
    return HAS_FIXED_TYPE<E> || boost::describe::has_describe_enumerators<E>::value;
}

/// Whether an enumeration can be encoded in 32 bits: its underlying type has no more, or it has no enumerator that needs more.
template <class E>
constexpr bool fits_wire() noexcept {
    typedef std::underlying_type_t<E> Underlying;
    bool fits = sizeof(E) <= sizeof(Wire<E>);
    if constexpr (boost::describe::has_describe_enumerators<E>::value) {
        fits = true;
        boost::mp11::mp_for_each<boost::describe::describe_enumerators<E>>([&](auto described) {
            const auto number = static_cast<Underlying>(described.value);
            fits = fits && static_cast<Underlying>(static_cast<Wire<E>>(number)) == number;
        });
    }
    return fits;
}

/// Least octets of an encoding, wherever it starts. Only for what can be encoded.
template <class M>
constexpr std::size_t min_size() noexcept {
    constexpr MemberKind KIND = kind_of<M>();
    if constexpr (KIND == MemberKind::BOOLEAN) {
        return 1;
    } else if constexpr (KIND == MemberKind::STRING) {
        return sizeof(std::uint32_t) + 1;
    } else if constexpr (KIND == MemberKind::SEQUENCE || KIND == MemberKind::OPTIONAL) {
        return sizeof(std::uint32_t);
    } else if constexpr (KIND == MemberKind::ARRAY) {
        return Container<M>::COUNT * min_size<typename Container<M>::Element>();
    } else if constexpr (KIND == MemberKind::STRUCTURE) {
        std::size_t sum = 0;
        all_members<M>([&](auto descriptor, std::uint32_t) {
            sum += min_size<MemberType<decltype(descriptor)>>();
            return true;
        });
        return sum;
    } else {
        return sizeof(Wire<M>);
    }
}

template <class M, class Outer>
constexpr bool is_encodable() noexcept;

template <class Outer, template <class...> class List, class... D>
constexpr bool are_encodable(List<D...>*) noexcept;

/// Whether a value can be encoded that is a member. Only there may it be optional.
/// @tparam Outer  mp_list of the structs around it: none may hold itself.
template <class M, class Outer>
constexpr bool is_encodable_member() noexcept {
    if constexpr (kind_of<M>() == MemberKind::OPTIONAL) {
        typedef typename Container<M>::Element E;
        if constexpr (is_encodable<E, Outer>()) {
            return min_size<E>() > 0;  // length 0 means absent
        } else {
            return false;
        }
    } else {
        return is_encodable<M, Outer>();
    }
}

/// Whether a value can be encoded that is the sample, a member, or an element.
template <class M, class Outer>
constexpr bool is_encodable() noexcept {
    constexpr MemberKind KIND = kind_of<M>();
    if constexpr (KIND == MemberKind::SEQUENCE) {
        typedef typename Container<M>::Element E;
        if constexpr (is_encodable<E, Outer>()) {
            return min_size<E>() > 0;  // else a few octets could claim any number of elements
        } else {
            return false;
        }
    } else if constexpr (KIND == MemberKind::ARRAY) {
        return is_encodable<typename Container<M>::Element, Outer>();
    } else if constexpr (KIND == MemberKind::STRUCTURE) {
        if constexpr (boost::mp11::mp_contains<Outer, M>::value || !describes_whole<M>()) {
            return false;
        } else {
            return are_encodable<boost::mp11::mp_push_back<Outer, M>>(static_cast<MembersOf<M>*>(nullptr));
        }
    } else if constexpr (KIND == MemberKind::ENUMERATION) {
        return has_known_values<M>() && fits_wire<M>();
    } else {
        return KIND != MemberKind::NONE && KIND != MemberKind::OPTIONAL;
    }
}

template <class Outer, template <class...> class List, class... D>
constexpr bool are_encodable(List<D...>*) noexcept {
    return (is_encodable_member<MemberType<D>, Outer>() && ...);
}

/// Whether all encodings have one size, in whatever place they start that is as well aligned.
template <class M>
constexpr bool is_fixed() noexcept {
    constexpr MemberKind KIND = kind_of<M>();
    if constexpr (KIND == MemberKind::ARRAY) {
        return is_fixed<typename Container<M>::Element>();
    } else if constexpr (KIND == MemberKind::STRUCTURE) {
        return all_members<M>([](auto descriptor, std::uint32_t) { return is_fixed<MemberType<decltype(descriptor)>>(); });
    } else {
        return KIND != MemberKind::STRING && KIND != MemberKind::SEQUENCE && KIND != MemberKind::OPTIONAL;
    }
}

constexpr std::size_t aligned(std::size_t at, std::size_t alignment) noexcept {
    return (at + alignment - 1) / alignment * alignment;
}

/// @return where a value of fixed size ends that is encoded at `at`, both counted from the origin of the alignment.
template <class M>
constexpr std::size_t fixed_end(std::size_t at) noexcept {
    constexpr MemberKind KIND = kind_of<M>();
    if constexpr (KIND == MemberKind::BOOLEAN) {
        return at + 1;
    } else if constexpr (KIND == MemberKind::ARRAY) {
        typedef typename Container<M>::Element E;
        if constexpr (IS_NUMBER<E> && Container<M>::COUNT > 0) {
            return aligned(at, sizeof(E)) + Container<M>::COUNT * sizeof(E);
        } else {
            for (std::size_t index = 0; index < Container<M>::COUNT; ++index) {
                at = fixed_end<E>(at);
            }
            return at;
        }
    } else if constexpr (KIND == MemberKind::STRUCTURE) {
        all_members<M>([&](auto descriptor, std::uint32_t) {
            at = fixed_end<MemberType<decltype(descriptor)>>(at);
            return true;
        });
        return at;
    } else {
        return aligned(at, sizeof(Wire<M>)) + sizeof(Wire<M>);
    }
}

/// @return a hash of names, kinds and nesting. What differs in memory differs here, too: an enumeration's size.
template <class M>
constexpr std::uint64_t layout_hash(std::uint64_t hash) noexcept {
    constexpr MemberKind KIND = kind_of<M>();
    hash = hash_octet(hash, static_cast<std::uint64_t>(KIND));
    if constexpr (KIND == MemberKind::SEQUENCE || KIND == MemberKind::OPTIONAL) {
        return layout_hash<typename Container<M>::Element>(hash);
    } else if constexpr (KIND == MemberKind::ARRAY) {
        return layout_hash<typename Container<M>::Element>(hash_number(hash, Container<M>::COUNT));
    } else if constexpr (KIND == MemberKind::STRUCTURE) {
        all_members<M>([&](auto descriptor, std::uint32_t) {
            hash = layout_hash<MemberType<decltype(descriptor)>>(hash_octet(hash_text(hash, descriptor.name), ':'));
            return true;
        });
        return hash_octet(hash, ';');
    } else if constexpr (KIND == MemberKind::INTEGER || KIND == MemberKind::ENUMERATION) {
        return hash_octet(hash_octet(hash, sizeof(M)), std::is_signed<Wire<M>>::value ? 's' : 'u');
    } else if constexpr (KIND == MemberKind::FLOATING) {
        return hash_octet(hash, sizeof(M));
    } else {
        return hash;
    }
}

}  // namespace details
}  // namespace norvane

#endif
