// SPDX-License-Identifier: Apache-2.0
// The built-in data types that are records. Each pointer is owned by its record alone; null is a legal state.
// (A sample of the fourth built-in type, the string, is a plain char*.)
#ifndef NORVANE_DDS_BUILTIN_TYPES_HPP
#define NORVANE_DDS_BUILTIN_TYPES_HPP

#include "norvane/dds/string.hpp"
#include "norvane/export.hpp"

/// A run of octets.
///
/// Copies are deep. A copy that could not be allocated leaves a null `value` behind while `length` is copied all the same;
/// `is_allocated()` tells.
struct NORVANE_EXPORT DDS_Octets {
    int length;            ///< Number of octets in `value`; a plain number, never adjusted to it.
    unsigned char* value;  ///< Owned, made with DDS_OctetBuffer_dup; may be null.

    /// Holds nothing: length 0, null.
    DDS_Octets();
    /// Allocates `size` octets, all zero, and sets `length` to `size`. A negative size holds nothing.
    explicit DDS_Octets(int size);
    DDS_Octets(const DDS_Octets& other);
    /// Releases the old octets first. Assigning a record to itself changes nothing.
    DDS_Octets& operator=(const DDS_Octets& other);
    ~DDS_Octets();

    /// Exchanges the fields. Nothing is allocated.
    void swap(DDS_Octets& other) noexcept;
    /// @return 1 when `value` is not null, else 0.
    unsigned int is_allocated() const noexcept;
};

/// A string with a key string.
struct NORVANE_EXPORT DDS_KeyedString {
    char* key;    ///< Owned, made with DDS_String_replace; may be null.
    char* value;  ///< Owned, made with DDS_String_replace; may be null.

    /// Holds nothing: both null.
    DDS_KeyedString();
    /// Allocates two empty strings with room for `key_size` and `value_size` characters. A negative size leaves that one null.
    DDS_KeyedString(int key_size, int value_size);
    DDS_KeyedString(const DDS_KeyedString& other);
    /// Replaces key, then value. Assigning a record to itself changes nothing.
    DDS_KeyedString& operator=(const DDS_KeyedString& other);
    ~DDS_KeyedString();

    /// Exchanges the fields. Nothing is allocated.
    void swap(DDS_KeyedString& other) noexcept;
    /// @return 1 when key and value are both not null, else 0.
    unsigned int is_allocated() const noexcept;
};

/// A run of octets with a key string.
struct NORVANE_EXPORT DDS_KeyedOctets {
    char* key;             ///< Owned, made with DDS_String_replace; may be null.
    int length;            ///< Number of octets in `value`; a plain number, never adjusted to it.
    unsigned char* value;  ///< Owned, made with DDS_OctetBuffer_dup; may be null.

    /// Holds nothing: null, 0, null.
    DDS_KeyedOctets();
    /// Allocates an empty key with room for `key_size` characters and `size` octets, all zero. A negative size leaves that one
    /// null.
    DDS_KeyedOctets(int key_size, int size);
    DDS_KeyedOctets(const DDS_KeyedOctets& other);
    /// Replaces key, then octets, then length. Assigning a record to itself changes nothing.
    DDS_KeyedOctets& operator=(const DDS_KeyedOctets& other);
    ~DDS_KeyedOctets();

    /// Exchanges the fields. Nothing is allocated.
    void swap(DDS_KeyedOctets& other) noexcept;
    /// @return 1 when key and value are both not null (the length is not looked at), else 0.
    unsigned int is_allocated() const noexcept;
};

namespace DDS {
typedef DDS_Octets Octets;
typedef DDS_KeyedString KeyedString;
typedef DDS_KeyedOctets KeyedOctets;

/// Exchanges key, then value. Nothing is allocated.
NORVANE_EXPORT void swap(DDS_KeyedString& ks1, DDS_KeyedString& ks2) noexcept;
/// Exchanges key, then length, then value. Nothing is allocated.
NORVANE_EXPORT void swap(DDS_KeyedOctets& ko1, DDS_KeyedOctets& ko2) noexcept;
}  // namespace DDS

#endif
