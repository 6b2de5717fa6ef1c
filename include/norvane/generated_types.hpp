// SPDX-License-Identifier: Apache-2.0
// Classes that the Fast DDS generator made from IDL (those of Fast-CDR 1.0), as types of samples.
//
// Nothing is to be declared: such a class is known by its three encoding operations, in every translation unit alike. Only the
// type's own files are needed (Order.h and Order.cxx of Order.idl), not those of its Fast DDS type support.
// Thread rule: everything here may be used from any thread at once.
#ifndef NORVANE_GENERATED_TYPES_HPP
#define NORVANE_GENERATED_TYPES_HPP

#include <fastcdr/Cdr.h>
#include <fastcdr/FastBuffer.h>

#include <cstddef>
#include <type_traits>
#include <utility>

#include "norvane/details/described_type.hpp"

namespace norvane {

namespace details {

template <class T, class = void>
struct HasGeneratedShape : std::false_type {};
template <class T>
struct HasGeneratedShape<
    T, std::void_t<decltype(std::declval<const T&>().serialize(std::declval<eprosima::fastcdr::Cdr&>())),
                   decltype(std::declval<T&>().deserialize(std::declval<eprosima::fastcdr::Cdr&>())),
                   decltype(static_cast<std::size_t>(T::getCdrSerializedSize(std::declval<const T&>(), std::size_t())))>>
    : std::true_type {};

}  // namespace details

/// Whether T is a class generated from IDL.
///
/// It is a request or reply type as it is. Its name is that of the IDL, "module::Type"; of its layout nothing is known but the size
/// in memory, so that two versions of an IDL may pass for one type.
///
/// Octets from the network are decoded by the generated code and Fast-CDR. What they throw is caught, an allocation that fails
/// included, and the sample is dropped. A sequence is sized before its elements are seen: a hostile sample can make it allocate for
/// as many elements as it has octets.
template <class T>
inline constexpr bool is_generated_type = details::HasGeneratedShape<T>::value;

namespace details {

template <class T>
constexpr DDS_TypeOperations generated_operations() noexcept {
    static_assert(std::is_default_constructible<T>::value && std::is_copy_assignable<T>::value,
                  "norvane: leave the default constructor and the copy assignment of the generated class as they are.");
    DDS_TypeOperations table = cxx_operations<T>();
    table.layout_hash = opaque_layout_hash<T>();
    table.copy = copy_sample<T>;
    if constexpr (std::is_nothrow_move_constructible<T>::value) {
        table.clear = clear_sample<T>;
    }
    table.encoded_size = [](const DDS_TypeOperations&, const void* sample) {
        return ENCAPSULATION_SIZE + T::getCdrSerializedSize(*static_cast<const T*>(sample), std::size_t());
    };
    table.encode = [](const DDS_TypeOperations&, const void* sample, std::uint8_t* buffer, std::size_t capacity) {
        return encode_encapsulated(buffer, capacity, [&](char* place, std::size_t room, std::size_t& size) {
            eprosima::fastcdr::FastBuffer octets(place, room);
            eprosima::fastcdr::Cdr cdr(octets, eprosima::fastcdr::Cdr::LITTLE_ENDIANNESS);
            static_cast<const T*>(sample)->serialize(cdr);
            size = cdr.getSerializedDataLength();
            return true;
        });
    };
    table.decode = [](const DDS_TypeOperations&, void* sample, const std::uint8_t* buffer, std::size_t length) {
        if (!is_encapsulated(buffer, length)) {
            return false;
        }
        try {
            char* const place = reinterpret_cast<char*>(const_cast<std::uint8_t*>(buffer)) + ENCAPSULATION_SIZE;  // only read
            eprosima::fastcdr::FastBuffer octets(place, length - ENCAPSULATION_SIZE);
            eprosima::fastcdr::Cdr cdr(octets, eprosima::fastcdr::Cdr::LITTLE_ENDIANNESS);
            static_cast<T*>(sample)->deserialize(cdr);
            return length - ENCAPSULATION_SIZE - cdr.getSerializedDataLength() < 4;  // padding
        } catch (const std::exception&) {
            return false;
        }
    };
    return table;
}

template <class T>
inline constexpr DDS_TypeOperations GENERATED_OPERATIONS = generated_operations<T>();

}  // namespace details
}  // namespace norvane

#endif
