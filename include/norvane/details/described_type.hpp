// SPDX-License-Identifier: Apache-2.0
// Structs that are described with Boost.Describe as types of samples: their table of operations, and the compile
// errors for those that cannot be sent.
//
// What a described type may hold, and how it is encoded: docstring of norvane::dds_type_traits.
// Thread rule: everything here may be used from any thread at once.
#ifndef NORVANE_DETAILS_DESCRIBED_TYPE_HPP
#define NORVANE_DETAILS_DESCRIBED_TYPE_HPP

#include <cstring>
#include <exception>

#include "norvane/details/CdrDecoder.hpp"
#include "norvane/details/CdrEncoder.hpp"
#include "norvane/details/described_fields.hpp"
#include "norvane/details/encodability.hpp"
#include "norvane/details/plain_type.hpp"

namespace norvane {
namespace details {

typedef boost::mp11::mp_list<> NoStruct;

/// Whether T can be a sample: members that can be encoded, and the operations that the library needs of a sample.
template <class T>
constexpr bool is_described_sample() noexcept {
    if constexpr (std::is_default_constructible<T>::value && std::is_copy_assignable<T>::value &&
                  std::is_nothrow_move_constructible<T>::value) {
        return is_encodable<T, NoStruct>();
    } else {
        return false;
    }
}

template <class Struct, class Member>
struct Refused {
    static constexpr bool MEMBER = false;
};

/// Fails to compile with a sentence that says what to do; the compiler's note on the instantiation shows struct and member.
template <class Struct, class Member>
constexpr void refuse_member() noexcept {
    if constexpr (std::is_const<Member>::value || std::is_volatile<Member>::value) {
        static_assert(
            Refused<Struct, Member>::MEMBER,
            "norvane: a member of a described type must be neither const nor volatile, since a received value is written into it.");
    } else if constexpr (std::is_enum<Member>::value && !has_known_values<Member>()) {
        static_assert(
            Refused<Struct, Member>::MEMBER,
            "norvane: describe this enumeration with BOOST_DESCRIBE_ENUM, or give it an underlying type (enum E : int), since a "
            "number that is received must be a value of it.");
    } else if constexpr (std::is_enum<Member>::value) {
        static_assert(
            Refused<Struct, Member>::MEMBER,
            "norvane: an enumeration is sent in 32 bits: give this one an underlying type of at most 32 bits, or describe it with "
            "BOOST_DESCRIBE_ENUM and keep every enumerator within 32 bits.");
    } else {
        static_assert(
            Refused<Struct, Member>::MEMBER,
            "norvane: give this member of the described type a type that can be sent: a number (no wchar_t or long double), "
            "bool, an enumeration, std::string, a std::vector or std::array of such (no other container, no pointer of any "
            "kind), a std::optional (as a member only), or another described struct (BOOST_DESCRIBE_STRUCT beside it, or "
            "BOOST_DESCRIBE_CLASS inside it where members are private).");
    }
}

template <class T, class Outer>
constexpr void refuse_struct() noexcept;

/// Goes down to the member of which a struct cannot be encoded.
template <class Struct, class Member, class Outer>
constexpr void refuse_if_not_encodable() noexcept {
    if constexpr (!is_encodable_member<Member, Outer>()) {
        constexpr MemberKind KIND = kind_of<Member>();
        if constexpr (KIND == MemberKind::STRUCTURE && !boost::mp11::mp_contains<Outer, Member>::value) {
            refuse_struct<Member, Outer>();
        } else if constexpr (KIND == MemberKind::SEQUENCE || KIND == MemberKind::ARRAY || KIND == MemberKind::OPTIONAL) {
            typedef typename Container<Member>::Element E;
            if constexpr (kind_of<E>() != MemberKind::OPTIONAL && !is_encodable<E, Outer>()) {
                refuse_if_not_encodable<Struct, E, Outer>();
            } else {
                refuse_member<Struct, Member>();
            }
        } else {
            refuse_member<Struct, Member>();
        }
    }
}

template <class Struct, class Outer, template <class...> class List, class... D>
constexpr void refuse_members(List<D...>*) noexcept {
    (refuse_if_not_encodable<Struct, MemberType<D>, Outer>(), ...);
}

template <class T, class Outer>
constexpr void refuse_struct() noexcept {
    static_assert(
        describes_whole<T>(),
        "norvane: name every member of the struct in its BOOST_DESCRIBE_STRUCT (private ones need BOOST_DESCRIBE_CLASS, inside the "
        "class), in the order of their declaration, since one that is left out would not be sent.");
    if constexpr (describes_whole<T>()) {
        refuse_members<T, boost::mp11::mp_push_back<Outer, T>>(static_cast<MembersOf<T>*>(nullptr));
    }
}

/// Fails to compile for a described type that cannot be a sample.
template <class T>
constexpr void refuse_described() noexcept {
    // Members first: one that cannot be sent is often also what keeps the type from being copied or moved.
    if constexpr (!is_encodable<T, NoStruct>()) {
        refuse_struct<T, NoStruct>();
    } else if constexpr (!std::is_default_constructible<T>::value) {
        static_assert(
            std::is_default_constructible<T>::value,
            "norvane: give the described type a default constructor, since a received sample is decoded into an empty one.");
    } else if constexpr (!std::is_copy_assignable<T>::value) {
        static_assert(std::is_copy_assignable<T>::value,
                      "norvane: give the described type a copy assignment, since a sample is copied when it is sent.");
    } else {
        static_assert(std::is_nothrow_move_constructible<T>::value,
                      "norvane: give the described type a move constructor that is noexcept.");
    }
}

constexpr std::size_t ENCAPSULATION_SIZE = 4;
/// XCDR1, little-endian, no options.
constexpr std::uint8_t ENCAPSULATION[ENCAPSULATION_SIZE] = {0x00, 0x01, 0x00, 0x00};

/// @return whether what follows is XCDR1, little-endian. The two octets behind that are options, which say nothing about it.
inline bool is_encapsulated(const std::uint8_t* buffer, std::size_t length) noexcept {
    return length >= ENCAPSULATION_SIZE && std::memcmp(buffer, ENCAPSULATION, 2) == 0;
}

/// Runs an encoding behind the encapsulation. @param put  called with (char* buffer, std::size_t capacity); returns octets written,
/// and whether all went well.
template <class Put>
std::size_t encode_encapsulated(std::uint8_t* buffer, std::size_t capacity, Put&& put) noexcept {
    if (capacity < ENCAPSULATION_SIZE) {
        return 0;
    }
    try {
        std::memcpy(buffer, ENCAPSULATION, ENCAPSULATION_SIZE);
        std::size_t size = 0;
        return put(reinterpret_cast<char*>(buffer) + ENCAPSULATION_SIZE, capacity - ENCAPSULATION_SIZE, size)
                   ? ENCAPSULATION_SIZE + size
                   : 0;
    } catch (const std::exception&) {
        return 0;
    }
}

template <class T>
std::size_t encoded_size_of_described(const DDS_TypeOperations&, const void* sample) {
    if constexpr (is_fixed<T>()) {
        return ENCAPSULATION_SIZE + fixed_end<T>(0);
    } else {
        return ENCAPSULATION_SIZE + encoded_end(0, *static_cast<const T*>(sample));
    }
}

template <class T>
std::size_t encode_described(const DDS_TypeOperations&, const void* sample, std::uint8_t* buffer, std::size_t capacity) {
    return encode_encapsulated(buffer, capacity, [&](char* place, std::size_t room, std::size_t& size) {
        CdrEncoder encoder(place, room);
        const bool done = encoder.put(*static_cast<const T*>(sample));
        size = encoder.size();
        return done;
    });
}

template <class T>
bool decode_described(const DDS_TypeOperations&, void* sample, const std::uint8_t* buffer, std::size_t length) {
    if (!is_encapsulated(buffer, length)) {
        return false;
    }
    try {
        CdrDecoder decoder(reinterpret_cast<const char*>(buffer) + ENCAPSULATION_SIZE, length - ENCAPSULATION_SIZE);
        return decoder.get(*static_cast<T*>(sample)) && decoder.is_at_end();
    } catch (const std::exception&) {
        return false;  // the input is too short, or memory is
    }
}

template <class T>
constexpr DDS_TypeOperations described_operations() noexcept {
    DDS_TypeOperations table = cxx_operations<T>();
    table.layout_hash = layout_hash<T>(HASH_SEED);
    if constexpr (std::is_trivially_copyable<T>::value) {
        table.copy = copy_octets<T>;
    } else {
        table.copy = copy_sample<T>;
        table.clear = clear_sample<T>;
    }
    table.encoded_size = encoded_size_of_described<T>;
    table.encode = encode_described<T>;
    table.decode = decode_described<T>;
    if constexpr (!is_always_encodable<T>()) {
        table.unencodable = unencodable_described<T>;
    }
    table.find_field = [](const DDS_TypeOperations&, const char* path, DDS_FieldKind* kind) {
        return find_field<T>(std::string_view(path), kind, 0);
    };
    table.read_field = [](const DDS_TypeOperations&, const void* sample, int field, DDS_FieldValue* value) {
        return read_field(*static_cast<const T*>(sample), field, *value);
    };
    return table;
}

template <class T>
inline constexpr DDS_TypeOperations DESCRIBED_OPERATIONS = described_operations<T>();

}  // namespace details
}  // namespace norvane

#endif
