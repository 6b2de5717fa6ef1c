// SPDX-License-Identifier: Apache-2.0
// Writes XCDR1, little-endian, behind its encapsulation header; or only counts the octets that it would write.
//
// The first thing that does not fit, or cannot be encoded, spoils the writer: `size()` is 0 from then on.
// Thread rule: one thread at a time.
#ifndef NORVANE_MIDDLEWARE_XCDR1WRITER_HPP
#define NORVANE_MIDDLEWARE_XCDR1WRITER_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace norvane {
namespace mw {

class Xcdr1Writer {
public:
    /// Counts only.
    Xcdr1Writer() noexcept : Xcdr1Writer(nullptr, static_cast<std::size_t>(-1)) {}
    /// Writes into `buffer`, which is borrowed.
    Xcdr1Writer(std::uint8_t* buffer, std::size_t capacity) noexcept : _buffer(buffer), _capacity(capacity) {
        static constexpr std::uint8_t HEADER[4] = {0x00, 0x01, 0x00, 0x00};
        put_raw(HEADER, sizeof HEADER);
    }

    /// Writes an integer at its alignment.
    template <typename Integer>
    void put(Integer value) noexcept {
        static_assert(std::is_integral<Integer>::value, "a boolean goes as an octet, a double as its bits");
        const auto bits = static_cast<typename std::make_unsigned<Integer>::type>(value);
        std::uint8_t octets[sizeof bits];
        for (std::size_t index = 0; index < sizeof bits; ++index) {
            octets[index] = static_cast<std::uint8_t>(static_cast<std::uint64_t>(bits) >> (8 * index));
        }
        align(sizeof bits);
        put_raw(octets, sizeof bits);
    }

    void put_double(double value) noexcept {
        std::uint64_t bits;
        std::memcpy(&bits, &value, sizeof bits);
        put(bits);
    }

    /// Null is written as the empty string.
    void put_string(const char* string) noexcept {
        const char* const text = string != nullptr ? string : "";
        put_sequence(text, std::strlen(text) + 1);
    }

    /// Writes a length and that many octets.
    void put_sequence(const void* octets, std::size_t length) noexcept {
        if (length > UINT32_MAX) {
            spoil();
            return;
        }
        put(static_cast<std::uint32_t>(length));
        put_raw(octets, length);
    }

    /// Makes the sample one that cannot be encoded.
    void spoil() noexcept { _spoilt = true; }

    /// @return octets written or counted; 0 when something did not fit.
    std::size_t size() const noexcept { return _spoilt ? 0 : _size; }

private:
    static constexpr std::size_t HEADER_SIZE = 4;  // alignment counts from behind it

    void align(std::size_t alignment) noexcept {
        static constexpr std::uint8_t ZERO[8] = {};
        put_raw(ZERO, (alignment - (_size - HEADER_SIZE) % alignment) % alignment);
    }

    void put_raw(const void* octets, std::size_t length) noexcept {
        if (_spoilt || length > _capacity - _size) {
            _spoilt = true;
            return;
        }
        if (_buffer != nullptr && length > 0) {
            std::memcpy(_buffer + _size, octets, length);
        }
        _size += length;
    }

    std::uint8_t* _buffer;
    std::size_t _capacity;
    std::size_t _size = 0;
    bool _spoilt = false;
};

}  // namespace mw
}  // namespace norvane

#endif
