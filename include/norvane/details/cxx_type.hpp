// SPDX-License-Identifier: Apache-2.0
// The part of a type's table of operations that every C++ type has: name, construction, destruction, copies; and the hash of
// layouts. Names and hashes are the same in every module of the process.
#ifndef NORVANE_DETAILS_CXX_TYPE_HPP
#define NORVANE_DETAILS_CXX_TYPE_HPP

#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <new>
#include <string_view>
#include <type_traits>
#include <utility>

#include "norvane/dds/TypeSupport.hpp"

namespace norvane {
namespace details {

template <class T>
constexpr auto compiler_text() noexcept {
    return std::string_view(__PRETTY_FUNCTION__);
}

// The position of the type's name in the compiler's text is measured with a type whose name is known.
constexpr std::size_t COMPILER_TEXT_BEFORE = compiler_text<double>().find("double");
constexpr std::size_t COMPILER_TEXT_AROUND = compiler_text<double>().size() - std::string_view("double").size();
static_assert(COMPILER_TEXT_BEFORE != std::string_view::npos, "the compiler's text does not hold the name of the type");

template <class T>
constexpr auto terminated_compiler_name() noexcept {
    constexpr std::string_view TEXT = compiler_text<T>();
    std::array<char, TEXT.size() - COMPILER_TEXT_AROUND + 1> name{};
    for (std::size_t index = 0; index + 1 < name.size(); ++index) {
        name[index] = TEXT[COMPILER_TEXT_BEFORE + index];
    }
    return name;
}

template <class T>
inline constexpr auto COMPILER_NAME = terminated_compiler_name<T>();

// FNV-1a.
constexpr std::uint64_t HASH_SEED = 0xcbf29ce484222325U;
constexpr std::uint64_t hash_octet(std::uint64_t hash, std::uint64_t octet) noexcept { return (hash ^ octet) * 0x100000001b3U; }

constexpr std::uint64_t hash_text(std::uint64_t hash, std::string_view text) noexcept {
    for (const char character : text) {
        hash = hash_octet(hash, static_cast<unsigned char>(character));
    }
    return hash;
}

constexpr std::uint64_t hash_number(std::uint64_t hash, std::uint64_t number) noexcept {
    for (int shift = 0; shift < 64; shift += 8) {
        hash = hash_octet(hash, number >> shift & 0xffU);
    }
    return hash;
}

}  // namespace details

/// Name under which a type of the application's own is registered: as the compiler writes it, namespaces included.
///
/// Specialise it for a name of your own, at most 255 characters, where the type is defined:
/// `template <> inline constexpr const char* norvane::type_name<shop::Order> = "Order";`
template <class T>
inline constexpr const char* type_name = details::COMPILER_NAME<T>.data();

namespace details {

/// The part of a table that is the same for every kind of C++ type: name, size, construction, destruction. The rest is null.
template <class T>
constexpr DDS_TypeOperations cxx_operations() noexcept {
    constexpr std::string_view NAME = type_name<T>;
    static_assert(!NAME.empty() && NAME.size() <= 255, "norvane: specialise norvane::type_name with 1 to 255 characters.");
    static_assert(sizeof(T) <= INT_MAX, "norvane: a sample must be smaller than 2 GiB.");
    DDS_TypeOperations table{};
    table.name = type_name<T>;
    table.size = sizeof(T);
    table.alignment = alignof(T);
    table.construct = [](const DDS_TypeOperations&, void* place) { new (place) T(); };
    table.destroy = [](const DDS_TypeOperations&, void* sample) { static_cast<T*>(sample)->~T(); };
    return table;
}

/// Copies by assignment, so that a sample that is used again keeps its heap memory.
/// @return false when memory is short; the destination is a sample still, of whatever content.
template <class T>
bool copy_sample(const DDS_TypeOperations&, void* destination, const void* source) {
    try {
        *static_cast<T*>(destination) = *static_cast<const T*>(source);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

/// Releases what a sample holds. The empty one is made first: when that fails, all stays as it is.
template <class T>
void clear_sample(const DDS_TypeOperations&, void* sample) noexcept {
    static_assert(std::is_nothrow_move_constructible<T>::value, "between the two lines below there would be no sample");
    try {
        T fresh{};
        static_cast<T*>(sample)->~T();
        new (sample) T(std::move(fresh));
    } catch (const std::exception&) {
        // It keeps its memory until it is used again or destroyed.
        return;
    }
}

/// A type support whose table is a constant of the program, and so has no owner.
template <class T, const DDS_TypeOperations& TABLE>
class CxxTypeSupport : public DDSTypeSupport {
public:
    const char* get_type_name() const override { return TABLE.name; }
    std::shared_ptr<const DDS_TypeOperations> get_type_operations() const override {
        return std::shared_ptr<const DDS_TypeOperations>(std::shared_ptr<const void>(), &TABLE);
    }
};

}  // namespace details
}  // namespace norvane

#endif
