// SPDX-License-Identifier: Apache-2.0
// What the front-ends must know of a data type: its middleware types, its name, and how it is registered.
//
// A type is std::string (the built-in string type), or a trivially copyable struct, which needs no description and stays in
// its process: an engine that goes further refuses it by name.
// Thread rule: everything here may be used from any thread at once.
#ifndef NORVANE_DDS_TYPE_TRAITS_HPP
#define NORVANE_DDS_TYPE_TRAITS_HPP

#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>

#include "norvane/SampleRef.hpp"
#include "norvane/dds/DataReader.hpp"
#include "norvane/dds/TypeSupport.hpp"
#include "norvane/details/topic_type.hpp"

namespace norvane {

template <class T>
class LoanedSamples;

/// The middleware types that go with a data type of the application's own.
template <class T>
struct dds_type_traits {
    typedef Sequence<T> Seq;
    typedef DDSDataReader DataReader;
    typedef SampleRef<const T> SampleIteratorValueType;
    typedef SampleRef<const T> ConstSampleIteratorValueType;
    typedef LoanedSamples<T> LoanedSamplesType;
};

/// Of the strings as the middleware holds them.
template <>
struct dds_type_traits<const char*> {
    typedef DDS_StringSeq Seq;
    typedef SampleRef<const char*> SampleIteratorValueType;
    typedef SampleRef<const char*> ConstSampleIteratorValueType;
    typedef DDSStringDataReader DataReader;
};

/// Of the built-in string type.
template <>
struct dds_type_traits<std::string> : dds_type_traits<const char*> {
    typedef LoanedSamples<std::string> LoanedSamplesType;
};

template <>
struct dds_type_traits<DDS_SampleInfo> {
    typedef DDS_SampleInfoSeq Seq;
};

namespace details {

template <class T>
constexpr auto compiler_text() noexcept {
    return std::string_view(__PRETTY_FUNCTION__);
}

// Where the compiler puts the type into its text is measured with a type whose name is known.
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

}  // namespace details

/// Name under which a type of the application's own is registered: as the compiler writes it, namespaces included.
///
/// Specialise it for a name of your own, at most 255 characters, where the type is defined:
/// `template <> inline constexpr const char* norvane::type_name<shop::Order> = "Order";`
template <class T>
inline constexpr const char* type_name = details::COMPILER_NAME<T>.data();

namespace details {

/// Whether T travels as a copy of its bytes. A pointer would arrive, but what it points at would not.
template <class T>
inline constexpr bool IS_PLAIN_SAMPLE =
    std::conjunction<std::is_trivially_copyable<T>, std::is_default_constructible<T>, std::is_copy_assignable<T>,
                     std::negation<std::is_pointer<T>>, std::negation<std::is_member_pointer<T>>,
                     std::negation<std::is_null_pointer<T>>>::value;

template <class T>
inline constexpr bool IS_STRING = std::is_same<T, std::string>::value;

// FNV-1a: the same number for the same type in every module of the process.
constexpr std::uint64_t hash_octet(std::uint64_t hash, std::uint64_t octet) noexcept { return (hash ^ octet) * 0x100000001b3U; }

constexpr std::uint64_t plain_layout_hash(std::string_view name, std::uint64_t size, std::uint64_t alignment) noexcept {
    std::uint64_t hash = 0xcbf29ce484222325U;
    for (const char character : name) {
        hash = hash_octet(hash, static_cast<unsigned char>(character));
    }
    for (int shift = 0; shift < 64; shift += 8) {
        hash = hash_octet(hash_octet(hash, size >> shift & 0xffU), alignment >> shift & 0xffU);
    }
    return hash;
}

/// The operations of a type that is copied as bytes. No encoding: it stays in its process.
template <class T>
constexpr DDS_TypeOperations plain_operations() noexcept {
    constexpr std::string_view NAME = type_name<T>;
    static_assert(!NAME.empty() && NAME.size() <= 255, "norvane: specialise norvane::type_name with 1 to 255 characters.");
    static_assert(sizeof(T) <= INT_MAX, "norvane: a sample must be smaller than 2 GiB.");
    DDS_TypeOperations table{};
    table.name = type_name<T>;
    table.layout_hash = plain_layout_hash(NAME, sizeof(T), alignof(T));
    table.size = sizeof(T);
    table.alignment = alignof(T);
    table.construct = [](const DDS_TypeOperations&, void* place) { new (place) T(); };
    table.copy = [](const DDS_TypeOperations&, void* destination, const void* source) {
        std::memcpy(destination, source, sizeof(T));
        return true;
    };
    table.destroy = [](const DDS_TypeOperations&, void*) {};
    return table;
}

template <class T>
inline constexpr DDS_TypeOperations PLAIN_OPERATIONS = plain_operations<T>();

template <class T>
class PlainTypeSupport : public DDSTypeSupport {
public:
    const char* get_type_name() const override { return type_name<T>; }
    // The table is a constant of the program: nobody need own it.
    std::shared_ptr<const DDS_TypeOperations> get_type_operations() const override {
        return std::shared_ptr<const DDS_TypeOperations>(std::shared_ptr<const void>(), &PLAIN_OPERATIONS<T>);
    }
};

/// @return the type support of a type, which lives as long as the process.
template <class T>
DDSTypeSupport& type_support() {
    if constexpr (IS_STRING<T>) {
        return DDSStringTypeSupport::get_instance();
    } else {
        static_assert(
            IS_PLAIN_SAMPLE<T>,
            "norvane: make the request or reply type std::string, or a trivially copyable struct with a default constructor "
            "(char arrays in place of strings, arrays in place of vectors, no pointers).");
        static PlainTypeSupport<T> type;
        return type;
    }
}

/// @param given  from the parameters; null means the type's own.
template <class T>
DDSTypeSupport& chosen_type_support(DDSTypeSupport* given) {
    return given != nullptr ? *given : type_support<T>();
}

/// Registers a type: the front-ends' EntityUntypedImpl::RegisterTypeFunc. Throws rather than returning null, so that the error names the type.
/// @throws as register_type_support.
template <class T>
const char* register_sample_type(DDSTypeSupport* given, DDSDomainParticipant* participant) {
    return register_type_support(chosen_type_support<T>(given), *type_support<T>().get_type_operations(), IS_STRING<T>,
                                 *participant);
}

/// @return octets of one sample in a loan; a string's is a `char*`.
template <class T>
constexpr int sample_size() noexcept {
    return IS_STRING<T> ? static_cast<int>(sizeof(char*)) : static_cast<int>(sizeof(T));
}

}  // namespace details
}  // namespace norvane

#endif
