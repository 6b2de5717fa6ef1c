// SPDX-License-Identifier: Apache-2.0
// Reads XCDR1, little-endian, behind its encapsulation header. The octets are untrusted: every bound is checked before use.
//
// The first thing that is missing or malformed spoils the reader: every later read gives false.
// Thread rule: one thread at a time.
#ifndef NORVANE_MIDDLEWARE_XCDR1READER_HPP
#define NORVANE_MIDDLEWARE_XCDR1READER_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "norvane/dds/string.hpp"

namespace norvane {
namespace mw {

class Xcdr1Reader {
public:
    /// @param buffer  borrowed.
    Xcdr1Reader(const std::uint8_t* buffer, std::size_t length) noexcept : _buffer(buffer), _length(length) {
        // The last two octets of the header are options, which say nothing about what follows here.
        _spoilt = length < HEADER_SIZE || buffer[0] != 0x00 || buffer[1] != 0x01;
        _at = HEADER_SIZE;
    }

    /// Reads an integer at its alignment.
    template <typename Integer>
    [[nodiscard]] bool get(Integer& value) noexcept {
        typedef typename std::make_unsigned<Integer>::type Bits;
        align(sizeof(Bits));
        const std::uint8_t* const octets = get_raw(sizeof(Bits));
        if (octets == nullptr) {
            return false;
        }
        std::uint64_t bits = 0;
        for (std::size_t index = 0; index < sizeof(Bits); ++index) {
            bits |= static_cast<std::uint64_t>(octets[index]) << (8 * index);
        }
        value = static_cast<Integer>(static_cast<Bits>(bits));
        return true;
    }

    [[nodiscard]] bool get_double(double& value) noexcept {
        std::uint64_t bits;
        if (!get(bits)) {
            return false;
        }
        std::memcpy(&value, &bits, sizeof value);
        return true;
    }

    /// Reads an octet that may be 0 or 1 only.
    [[nodiscard]] bool get_boolean(bool& value) noexcept {
        std::uint8_t octet;
        if (!get(octet) || octet > 1) {
            return spoil();
        }
        value = octet == 1;
        return true;
    }

    /// Reads a string without making a copy. One with an octet 0 inside is refused, as no C string can hold it.
    /// @param text  gets its characters, part of the buffer, not terminated. @param length  gets their number.
    [[nodiscard]] bool get_string(const char*& text, std::size_t& length) noexcept {
        const std::uint8_t* octets;
        if (!get_sequence(octets, length)) {
            return false;
        }
        text = reinterpret_cast<const char*>(octets);
        if (length == 0) {
            return true;  // some encoders leave the terminator of the empty string away
        }
        --length;
        return std::memchr(octets, 0, length + 1) == octets + length || spoil();
    }

    /// Reads a string into one of DDS_String_alloc, which replaces the one that is there.
    /// @return false also when memory is short; the old string stays then.
    [[nodiscard]] bool get_owned_string(char*& string) noexcept {
        const char* text;
        std::size_t length;
        if (!get_string(text, length)) {
            return false;
        }
        char* const fresh = DDS_String_alloc(length);
        if (fresh == nullptr) {
            return spoil();
        }
        std::memcpy(fresh, text, length);
        fresh[length] = '\0';
        DDS_String_free(string);
        string = fresh;
        return true;
    }

    /// Reads a length and that many octets, without making a copy.
    [[nodiscard]] bool get_sequence(const std::uint8_t*& octets, std::size_t& length) noexcept {
        std::uint32_t count;
        if (!get(count)) {
            return false;
        }
        length = count;
        octets = get_raw(count);
        return octets != nullptr;
    }

    /// @return whether all was well, and nothing is left but what pads the encoding to a multiple of four.
    [[nodiscard]] bool is_at_end() const noexcept { return !_spoilt && _length - _at < 4; }

private:
    static constexpr std::size_t HEADER_SIZE = 4;  // alignment counts from behind it

    bool spoil() noexcept {
        _spoilt = true;
        return false;
    }

    void align(std::size_t alignment) noexcept { (void)get_raw((alignment - (_at - HEADER_SIZE) % alignment) % alignment); }

    const std::uint8_t* get_raw(std::size_t length) noexcept {
        if (_spoilt || length > _length - _at) {
            _spoilt = true;
            return nullptr;
        }
        const std::uint8_t* const octets = _buffer + _at;
        _at += length;
        return octets;
    }

    const std::uint8_t* _buffer;
    std::size_t _length;
    std::size_t _at;
    bool _spoilt;
};

}  // namespace mw
}  // namespace norvane

#endif
