// SPDX-License-Identifier: Apache-2.0
// Strings and octet buffers. All memory comes from operator new(std::nothrow), so that a program can replace the allocator.
// Thread rule: free functions without state.
#include "norvane/dds/string.hpp"

#include <cstring>
#include <new>

char* DDS_String_alloc(std::size_t length) {
    if (length == static_cast<std::size_t>(-1)) {
        return nullptr;
    }
    char* const string = static_cast<char*>(::operator new(length + 1, std::nothrow));
    if (string != nullptr) {
        string[0] = '\0';
    }
    return string;
}

char* DDS_String_dup(const char* source) {
    if (source == nullptr) {
        return nullptr;
    }
    const std::size_t length = std::strlen(source);
    char* const copy = DDS_String_alloc(length);
    if (copy != nullptr) {
        std::memcpy(copy, source, length + 1);
    }
    return copy;
}

char* DDS_String_replace(char** target, const char* source) {
    // Copy before release: the source may lie in the old string.
    char* const copy = DDS_String_dup(source);
    DDS_String_free(*target);
    *target = copy;
    return copy;
}

void DDS_String_free(char* string) { ::operator delete(string); }

unsigned char* DDS_OctetBuffer_alloc(int length) {
    if (length < 0) {
        return nullptr;
    }
    const std::size_t size = static_cast<std::size_t>(length);
    unsigned char* const buffer = static_cast<unsigned char*>(::operator new(size, std::nothrow));
    if (buffer != nullptr) {
        std::memset(buffer, 0, size);
    }
    return buffer;
}

unsigned char* DDS_OctetBuffer_dup(const unsigned char* buffer, int length) {
    if (length < 0 || (buffer == nullptr && length > 0)) {
        return nullptr;
    }
    const std::size_t size = static_cast<std::size_t>(length);
    unsigned char* const copy = static_cast<unsigned char*>(::operator new(size, std::nothrow));
    if (copy != nullptr && size > 0) {
        std::memcpy(copy, buffer, size);
    }
    return copy;
}

void DDS_OctetBuffer_free(unsigned char* buffer) { ::operator delete(buffer); }
