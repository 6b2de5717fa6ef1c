// SPDX-License-Identifier: Apache-2.0
// Strings and octet buffers as the object API holds them: plain pointers, allocated with operator new(std::nothrow).
#ifndef NORVANE_DDS_STRING_HPP
#define NORVANE_DDS_STRING_HPP

#include <cstddef>

#include "norvane/dds/types.hpp"
#include "norvane/export.hpp"

/// Allocates an empty string with room for `length` characters and the terminator.
/// @return the string, to be given to DDS_String_free; null when memory is short.
NORVANE_EXPORT char* DDS_String_alloc(std::size_t length);

/// Copies a string.
/// @param source  may be null, which gives null.
/// @return the copy, to be given to DDS_String_free; null when memory is short.
NORVANE_EXPORT char* DDS_String_dup(const char* source);

/// Makes `*target` a fresh copy of `source` and releases what it pointed at.
///
/// `source` may be (part of) the old string. Afterwards `*target` is null when `source` is null or no copy could be made.
/// @param target  not null; `*target` is null or a string of DDS_String_alloc, DDS_String_dup or this function.
/// @return `*target`.
NORVANE_EXPORT char* DDS_String_replace(char** target, const char* source);

/// Releases a string. Null is ignored.
NORVANE_EXPORT void DDS_String_free(char* string);

/// Allocates `length` octets, all zero. A length of 0 gives a buffer that is not null; a negative one gives null.
/// @return the buffer, to be given to DDS_OctetBuffer_free; null when memory is short.
NORVANE_EXPORT unsigned char* DDS_OctetBuffer_alloc(int length);

/// Copies `length` octets.
/// @param buffer  may be null when `length` is 0; otherwise null gives null.
/// @param length  0 gives a buffer that is not null; a negative one gives null.
/// @return the copy, to be given to DDS_OctetBuffer_free; null when memory is short.
NORVANE_EXPORT unsigned char* DDS_OctetBuffer_dup(const unsigned char* buffer, int length);

/// Releases an octet buffer. Null is ignored.
NORVANE_EXPORT void DDS_OctetBuffer_free(unsigned char* buffer);

#endif
