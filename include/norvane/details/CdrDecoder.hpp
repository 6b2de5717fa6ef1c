// SPDX-License-Identifier: Apache-2.0
// Decodes described structs from XCDR1, little-endian, with Fast-CDR. The octets are untrusted.
//
// Everything gives false for what is no encoding of the type. Fast-CDR throws at the end of the buffer. No length is believed
// before as many octets are seen to be there as that many elements need at least.
// Thread rule: one thread at a time.
#ifndef NORVANE_DETAILS_CDRDECODER_HPP
#define NORVANE_DETAILS_CDRDECODER_HPP

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

#include "norvane/details/CdrEncoder.hpp"

namespace norvane {
namespace details {

class CdrDecoder {
public:
    /// @param buffer  borrowed, and only read; alignment counts from its start.
    CdrDecoder(const char* buffer, std::size_t length)
        : _end(buffer + length),
          _octets(const_cast<char*>(buffer), length),
          _cdr(_octets, eprosima::fastcdr::Cdr::LITTLE_ENDIANNESS) {}

    /// @return whether nothing is left but what pads an encoding to a multiple of four.
    bool is_at_end() { return remaining() < 4; }

    template <class M>
    bool get(M& value) {
        constexpr MemberKind KIND = kind_of<M>();
        if constexpr (KIND == MemberKind::BOOLEAN) {
            std::uint8_t octet;
            _cdr.deserialize(octet);
            value = octet == 1;
            return octet <= 1;
        } else if constexpr (IS_NUMBER<M>) {
            Wire<M> wire;
            _cdr.deserialize(wire);
            value = static_cast<M>(wire);
            return true;
        } else if constexpr (KIND == MemberKind::ENUMERATION) {
            Wire<M> wire;
            _cdr.deserialize(wire);
            if (!is_value_of<M>(wire)) {
                return false;
            }
            value = static_cast<M>(wire);
            return true;
        } else if constexpr (KIND == MemberKind::STRING) {
            return get_text(value);
        } else if constexpr (KIND == MemberKind::SEQUENCE) {
            std::uint32_t count;
            _cdr.deserialize(count);
            if (count > remaining() / min_size<typename Container<M>::Element>()) {
                return false;
            }
            return get_sequence(value, count);
        } else if constexpr (KIND == MemberKind::ARRAY) {
            return get_elements(value, Container<M>::COUNT);
        } else {
            return all_members<M>([&](auto descriptor, std::uint32_t index) {
                auto& member = value.*descriptor.pointer;
                if constexpr (kind_of<MemberType<decltype(descriptor)>>() == MemberKind::OPTIONAL) {
                    return get_optional(member, index);
                } else {
                    return get(member);
                }
            });
        }
    }

private:
    std::size_t remaining() { return static_cast<std::size_t>(_end - _cdr.getCurrentPosition()); }

    bool get_text(std::string& text) {
        std::uint32_t length;
        _cdr.deserialize(length);
        if (length == 0 || length > remaining()) {
            return false;
        }
        const char* const start = _cdr.getCurrentPosition();
        if (std::memchr(start, 0, length) != start + length - 1) {
            return false;
        }
        text.assign(start, length - 1);
        return pass(length);
    }

    /// Memory follows what has been decoded: elements of many absent members need few octets, and much memory.
    template <class Sequence>
    bool get_sequence(Sequence& elements, std::size_t count) {
        if constexpr (is_fixed<typename Container<Sequence>::Element>()) {
            elements.resize(count);
            return get_elements(elements, count);
        } else {
            if (count < elements.size()) {
                elements.resize(count);
            }
            for (std::size_t index = 0; index < count; ++index) {
                if (index == elements.size()) {
                    elements.resize(std::min(count, 2 * index + 8));
                }
                if (!get(elements[index])) {
                    return false;
                }
            }
            return true;
        }
    }

    template <class Elements>
    bool get_elements(Elements& elements, std::size_t count) {
        typedef typename Container<Elements>::Element E;
        if constexpr (IS_NUMBER<E>) {
            if (count > 0) {
                _cdr.deserializeArray(reinterpret_cast<Wire<E>*>(&elements[0]), count);
            }
        } else {
            for (std::size_t index = 0; index < count; ++index) {
                if constexpr (kind_of<E>() == MemberKind::BOOLEAN) {
                    // (The element of a std::vector<bool> is no bool.)
                    bool element;
                    if (!get(element)) {
                        return false;
                    }
                    elements[index] = element;
                } else if (!get(elements[index])) {
                    return false;
                }
            }
        }
        return true;
    }

    template <class E>
    bool get_optional(std::optional<E>& value, std::uint32_t expected_id) {
        std::uint32_t header;
        _cdr.deserialize(header);
        std::uint32_t id = header & ID_MASK;
        std::uint32_t length = header >> 16;
        if (id == EXTENDED_ID) {
            if (length != EXTENDED_LENGTH) {
                return false;
            }
            _cdr.deserialize(id);
            id &= EXTENDED_ID_MASK;
            _cdr.deserialize(length);
        }
        if (id != expected_id || length > remaining()) {
            return false;
        }
        if (length == 0) {
            value.reset();
            return true;
        }
        CdrDecoder inner(_cdr.getCurrentPosition(), length);
        return inner.get(value.has_value() ? *value : value.emplace()) && inner.is_at_end() && pass(length);
    }

    /// Passes over octets that were looked at, at least one. A jump alone would leave it to Fast-CDR what the alignment is now;
    /// after a character it is none.
    bool pass(std::uint32_t length) {
        char last;
        return _cdr.jump(length - 1) && (_cdr.deserialize(last), true);
    }

    const char* const _end;
    eprosima::fastcdr::FastBuffer _octets;
    eprosima::fastcdr::Cdr _cdr;
};

}  // namespace details
}  // namespace norvane

#endif
