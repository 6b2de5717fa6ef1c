// SPDX-License-Identifier: Apache-2.0
// Encodes described structs as XCDR1, little-endian, with Fast-CDR.
//
// Everything gives false for what cannot be encoded. Fast-CDR throws when the buffer is too small.
// Thread rule: one thread at a time.
#ifndef NORVANE_DETAILS_CDRENCODER_HPP
#define NORVANE_DETAILS_CDRENCODER_HPP

#include <fastcdr/Cdr.h>
#include <fastcdr/FastBuffer.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

#include "norvane/details/member_kinds.hpp"

namespace norvane {
namespace details {

// An optional member goes behind a parameter header: u16 id, u16 length. A longer value takes the extended header: this id and
// length, then u32 id, u32 length. Ids carry flags above the mask, which say what a receiver that does not know the member should
// do.
constexpr std::uint32_t EXTENDED_ID = 0x3f01;
constexpr std::uint32_t EXTENDED_LENGTH = 8;
constexpr std::uint32_t ID_MASK = 0x3fff;
constexpr std::uint32_t EXTENDED_ID_MASK = 0x0fffffff;

/// @return where the value ends when it is encoded at `at`; both counted from the origin of the alignment.
template <class M>
std::size_t encoded_end(std::size_t at, const M& value) {
    constexpr MemberKind KIND = kind_of<M>();
    if constexpr (is_fixed<M>()) {
        return fixed_end<M>(at);
    } else if constexpr (KIND == MemberKind::STRING) {
        return aligned(at, sizeof(std::uint32_t)) + sizeof(std::uint32_t) + value.size() + 1;
    } else if constexpr (KIND == MemberKind::OPTIONAL) {
        at = aligned(at, sizeof(std::uint32_t)) + sizeof(std::uint32_t);
        if (!value.has_value()) {
            return at;
        }
        const std::size_t length = encoded_end(0, *value);
        return at + (length > UINT16_MAX ? EXTENDED_LENGTH : 0) + length;
    } else if constexpr (KIND == MemberKind::STRUCTURE) {
        all_members<M>([&](auto descriptor, std::uint32_t) {
            at = encoded_end(at, value.*descriptor.pointer);
            return true;
        });
        return at;
    } else {
        typedef typename Container<M>::Element E;
        if constexpr (KIND == MemberKind::SEQUENCE) {
            at = aligned(at, sizeof(std::uint32_t)) + sizeof(std::uint32_t);
            if constexpr (IS_NUMBER<E>) {
                return value.empty() ? at : aligned(at, sizeof(E)) + value.size() * sizeof(E);
            } else if constexpr (kind_of<E>() == MemberKind::BOOLEAN) {
                return at + value.size();
            }
        }
        for (const E& element : value) {
            at = encoded_end(at, element);
        }
        return at;
    }
}

class CdrEncoder {
public:
    /// @param buffer  borrowed; alignment counts from its start.
    CdrEncoder(char* buffer, std::size_t capacity)
        : _end(buffer + capacity), _octets(buffer, capacity), _cdr(_octets, eprosima::fastcdr::Cdr::LITTLE_ENDIANNESS) {}

    std::size_t size() const { return _cdr.getSerializedDataLength(); }

    template <class M>
    bool put(const M& value) {
        constexpr MemberKind KIND = kind_of<M>();
        if constexpr (KIND == MemberKind::BOOLEAN) {
            _cdr.serialize(static_cast<std::uint8_t>(value ? 1 : 0));
            return true;
        } else if constexpr (IS_NUMBER<M>) {
            _cdr.serialize(static_cast<Wire<M>>(value));
            return true;
        } else if constexpr (KIND == MemberKind::ENUMERATION) {
            const auto number = static_cast<std::underlying_type_t<M>>(value);
            const auto wire = static_cast<Wire<M>>(number);
            _cdr.serialize(wire);
            return static_cast<std::underlying_type_t<M>>(wire) == number && is_value_of<M>(wire);
        } else if constexpr (KIND == MemberKind::STRING) {
            return put_length(value.size() + 1) && put_text(value);
        } else if constexpr (KIND == MemberKind::SEQUENCE) {
            return put_length(value.size()) && put_elements(value, value.size());
        } else if constexpr (KIND == MemberKind::ARRAY) {
            return put_elements(value, Container<M>::COUNT);
        } else {
            return all_members<M>([&](auto descriptor, std::uint32_t index) {
                const auto& member = value.*descriptor.pointer;
                if constexpr (kind_of<MemberType<decltype(descriptor)>>() == MemberKind::OPTIONAL) {
                    return put_optional(member, index);
                } else {
                    return put(member);
                }
            });
        }
    }

private:
    bool put_length(std::size_t length) {
        if (length > UINT32_MAX) {
            return false;
        }
        _cdr.serialize(static_cast<std::uint32_t>(length));
        return true;
    }

    /// A receiver takes the text up to its first NUL, or refuses it.
    bool put_text(const std::string& text) {
        _cdr.serializeArray(text.c_str(), text.size() + 1);
        return std::memchr(text.data(), 0, text.size()) == nullptr;
    }

    template <class Elements>
    bool put_elements(const Elements& elements, std::size_t count) {
        typedef typename Container<Elements>::Element E;
        if constexpr (IS_NUMBER<E>) {
            if (count > 0) {
                _cdr.serializeArray(reinterpret_cast<const Wire<E>*>(&elements[0]), count);
            }
        } else {
            for (std::size_t index = 0; index < count; ++index) {
                // (The element of a std::vector<bool> is no bool.)
                if (!put<E>(elements[index])) {
                    return false;
                }
            }
        }
        return true;
    }

    template <class E>
    bool put_optional(const std::optional<E>& value, std::uint32_t id) {
        if (!value.has_value()) {
            _cdr.serialize(id);
            return true;
        }
        const std::size_t length = encoded_end(0, *value);
        if (length <= UINT16_MAX) {
            _cdr.serialize(id | static_cast<std::uint32_t>(length) << 16);
        } else {
            _cdr.serialize(EXTENDED_ID | EXTENDED_LENGTH << 16);
            _cdr.serialize(id);
            if (!put_length(length)) {
                return false;
            }
        }
        // The value's alignment counts from its own start; behind it, it counts as before.
        char* const start = _cdr.getCurrentPosition();
        if (length > static_cast<std::size_t>(_end - start)) {
            return false;
        }
        CdrEncoder inner(start, length);
        if (!inner.put(*value) || inner.size() != length) {
            return false;
        }
        // A jump alone would leave it to Fast-CDR what the alignment is now; after a character it is none.
        const char last = start[length - 1];
        return _cdr.jump(length - 1) && (_cdr.serialize(last), true);
    }

    const char* const _end;
    eprosima::fastcdr::FastBuffer _octets;
    eprosima::fastcdr::Cdr _cdr;
};

}  // namespace details
}  // namespace norvane

#endif
