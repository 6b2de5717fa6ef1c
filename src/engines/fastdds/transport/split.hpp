// SPDX-License-Identifier: Apache-2.0
// An RTPS message that is longer than a datagram may be, as several. Thread rule: plain functions on memory.
#ifndef NORVANE_ENGINES_FASTDDS_TRANSPORT_SPLIT_HPP
#define NORVANE_ENGINES_FASTDDS_TRANSPORT_SPLIT_HPP

#include <cstddef>
#include <cstdint>
#include <vector>

#include "engines/fastdds/quirks_2_9/Submessage.hpp"

namespace norvane {
namespace fastdds {

/// Hands out the submessages of a message in messages of their own, each as long as possible and at most `limit` octets. Each
/// begins with the destination and the time that hold at its place of the whole. A submessage that is longer than the limit has a
/// message for itself.
/// @param part     memory that is used again and again.
/// @param hand_out gets each message: `const std::uint8_t*`, `std::size_t`.
/// @return false, and nothing has been handed out, when the message cannot be taken apart: it is sealed, or names a source of its
/// own.
template <typename HandOut>
bool split(const std::uint8_t* message, std::size_t length, std::size_t limit, std::vector<std::uint8_t>& part,
           const HandOut& hand_out) {
    constexpr std::size_t HEADER = Submessage::MESSAGE_HEADER;
    if (!Submessage::begin_a_message(message, length)) {
        return false;
    }
    Submessage each;
    for (std::size_t place = HEADER; place != length; place += Submessage::HEADER + each.length) {
        const bool is_readable = each.read(message, length, place);
        const bool is_sealed = each.kind >= Submessage::FIRST_OF_SECURITY && each.kind <= Submessage::LAST_OF_SECURITY;
        if (!is_readable || is_sealed || each.kind == Submessage::INFO_SRC || each.kind == Submessage::INFO_REPLY ||
            each.kind == Submessage::INFO_REPLY_IP4) {
            return false;
        }
    }
    // What a destination and a time are, with the headers of their submessages.
    struct Span {
        const std::uint8_t* octets = nullptr;
        std::size_t length = 0;
        bool is_said = true;  // in the part that is being made
    };
    Span destination;
    Span time;
    const auto append = [&](const std::uint8_t* octets, std::size_t count) { part.insert(part.end(), octets, octets + count); };
    const auto begin_part = [&] {
        part.assign(message, message + HEADER);
        destination.is_said = destination.length == 0;
        time.is_said = time.length == 0;
    };
    begin_part();
    for (std::size_t place = HEADER; place != length;) {
        each.read(message, length, place);
        const std::uint8_t* const begin = message + place;
        const std::size_t whole = Submessage::HEADER + each.length;
        place += whole;
        if (each.kind == Submessage::INFO_DST || each.kind == Submessage::INFO_TS) {
            Span& span = each.kind == Submessage::INFO_DST ? destination : time;
            span = {begin, whole, false};
            continue;
        }
        if (each.kind == Submessage::PAD || each.kind >= Submessage::FIRST_OF_VENDORS) {
            continue;
        }
        const std::size_t with_context = whole + (destination.is_said ? 0 : destination.length) + (time.is_said ? 0 : time.length);
        if (part.size() > HEADER && part.size() + with_context > limit) {
            hand_out(part.data(), part.size());
            begin_part();
        }
        for (Span* const span : {&destination, &time}) {
            if (!span->is_said) {
                append(span->octets, span->length);
                span->is_said = true;
            }
        }
        append(begin, whole);
    }
    if (part.size() > HEADER) {
        hand_out(part.data(), part.size());
    }
    return true;
}

}  // namespace fastdds
}  // namespace norvane

#endif
