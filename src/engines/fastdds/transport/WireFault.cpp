// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/transport/WireFault.hpp"

#include <algorithm>

#include "engines/fastdds/quirks_2_9/Submessage.hpp"

namespace norvane {
namespace fastdds {

namespace {

constexpr std::size_t VERSION_IN_HEADER = 4;
constexpr std::size_t VENDOR_IN_HEADER = 6;
constexpr std::uint8_t FAST_DDS[] = {0x01, 0x0f};
constexpr std::uint8_t STATISTICS = Submessage::FIRST_OF_VENDORS;
// Fast DDS fails an assertion when its statistics, taken for such by their size, do not end the message.
constexpr std::size_t STATISTICS_SIZE = 56;

// Octets of a body before what varies.
constexpr std::size_t TIME = 8;
constexpr std::size_t DESTINATION = 12;
constexpr std::size_t SOURCE = 20;
constexpr std::size_t DATA_HEAD = 20;
constexpr std::size_t HEARTBEAT_SIZE = 28;
constexpr std::size_t HEARTBEAT_FRAG_SIZE = 24;
constexpr std::size_t COUNT_SIZE = 4;
// Places in the bodies.
constexpr std::size_t OCTETS_TO_PARAMETERS = 2;
constexpr std::size_t AFTER_OCTETS_TO_PARAMETERS = 4;
constexpr std::size_t LAST_NUMBER = 16;
constexpr std::size_t SET_OF_GAP = 16;

constexpr std::uint8_t NO_TIME_FLAG = 0x02;
constexpr std::uint8_t PARAMETERS_FLAG = 0x02;
constexpr std::uint8_t DATA_FLAG = 0x04;
constexpr std::uint8_t KEY_FLAG = 0x08;
constexpr std::uint8_t KEY_FLAG_OF_FRAGMENT = 0x04;
constexpr std::uint32_t MOST_OCTETS_TO_PARAMETERS = 0x7fff;  // above, Fast DDS takes them for negative
constexpr std::uint32_t SENTINEL = 1;
constexpr std::size_t ENCAPSULATION = 4;
constexpr std::uint32_t MOST_BITS = 256;

// Fast DDS counts from the last number that a reader has passed on to the first that a heartbeat says is left, one by one, with the
// reader locked. These are three years of ten thousand samples a second, and as many announcements as no participant makes.
constexpr std::int64_t HIGHEST_NUMBER = 1LL << 40;
constexpr std::int64_t HIGHEST_BUILTIN_NUMBER = 1LL << 30;
// Fast DDS keeps an entry for each number of a gap. What a writer has on the way is less; a wider gap is asked for in pieces.
constexpr std::int64_t WIDEST_GAP = 1LL << 16;
// A fragment has room for Fast DDS's index of those that are missing, and is copied at its full size: it lies in a receive buffer
// behind the heads of its message.
constexpr std::uint32_t LEAST_FRAGMENT = 64;
constexpr std::uint32_t LARGEST_FRAGMENT = 65400;

std::int64_t highest_number(const Submessage& each, std::size_t writer) noexcept {
    return (each.body[writer + 3] & Submessage::BUILTIN_ENTITY) == Submessage::BUILTIN_ENTITY ? HIGHEST_BUILTIN_NUMBER
                                                                                              : HIGHEST_NUMBER;
}

bool is_number(const Submessage& each, std::size_t place, std::size_t writer) noexcept {
    const std::int64_t number = each.read_number(place);
    return number >= 1 && number <= highest_number(each, writer);
}

// @param place  of the count of bits of a set. @return octets of count and bits; 0 if they leave the submessage.
std::size_t size_of_bits(const Submessage& each, std::size_t place) noexcept {
    if (each.length < place + 4) {
        return 0;
    }
    const std::uint32_t count = each.read_u32(place);
    const std::size_t size = 4 + (static_cast<std::size_t>(count) + 31) / 32 * 4;
    return count <= MOST_BITS && each.length >= place + size ? size : 0;
}

// @param place  where the list begins; behind it afterwards.
bool skip_parameters(const Submessage& each, std::size_t& place) noexcept {
    while (place + 4 <= each.length) {
        const bool is_last = each.read_u16(place) == SENTINEL;
        place += 4 + (is_last ? 0 : (each.read_u16(place + 2) + 3U) & ~3U);
        if (is_last) {
            return true;
        }
    }
    return false;
}

// @param head  octets before the parameters at least. @param payload  gets the octets behind them.
WireFault find_payload(const Submessage& each, std::size_t head, std::size_t& payload) noexcept {
    if (each.length < head) {
        return WireFault::LENGTH;
    }
    const std::uint32_t octets_to_parameters = each.read_u16(OCTETS_TO_PARAMETERS);
    std::size_t place = AFTER_OCTETS_TO_PARAMETERS + octets_to_parameters;
    if (place < head || place > each.length || octets_to_parameters > MOST_OCTETS_TO_PARAMETERS) {
        return WireFault::PARAMETERS;
    }
    if ((each.flags & PARAMETERS_FLAG) != 0 && !skip_parameters(each, place)) {
        return WireFault::PARAMETERS;
    }
    payload = each.length - place;
    return WireFault::NONE;
}

WireFault fault_of_data(const Submessage& each) noexcept {
    std::size_t payload = 0;
    const WireFault fault = find_payload(each, DATA_HEAD, payload);
    if (fault != WireFault::NONE) {
        return fault;
    }
    if (!is_number(each, Submessage::NUMBER_OF_DATA, Submessage::WRITER_OF_DATA)) {
        return WireFault::NUMBER;
    }
    const std::size_t least = (each.flags & DATA_FLAG) != 0 ? ENCAPSULATION : (each.flags & KEY_FLAG) != 0 ? 1 : 0;
    return payload < least ? WireFault::LENGTH : WireFault::NONE;
}

WireFault fault_of_fragment(const Submessage& each, std::uint32_t largest_sample) noexcept {
    std::size_t payload = 0;
    const WireFault fault = find_payload(each, Submessage::DATA_FRAG_HEAD, payload);
    if (fault != WireFault::NONE) {
        return fault;
    }
    if (!is_number(each, Submessage::NUMBER_OF_DATA, Submessage::WRITER_OF_DATA)) {
        return WireFault::NUMBER;
    }
    const std::uint32_t first = each.read_u32(Submessage::FIRST_FRAGMENT);
    const std::uint32_t size = each.read_u16(Submessage::FRAGMENT_SIZE);
    const std::uint32_t sample = each.read_u32(Submessage::SAMPLE_SIZE);
    // With several fragments, Fast DDS copies the size of as many that it knows from the first one, whatever is there. It has no
    // payload for a key.
    const bool is_one = each.read_u16(Submessage::FRAGMENT_COUNT) == 1 && (each.flags & KEY_FLAG_OF_FRAGMENT) == 0;
    const bool is_sized = size >= LEAST_FRAGMENT && size <= LARGEST_FRAGMENT && sample >= 1;
    if (!is_one || !is_sized || first == 0) {
        return WireFault::FRAGMENT;
    }
    if (sample > largest_sample) {
        return WireFault::SIZE;
    }
    const std::uint64_t before = static_cast<std::uint64_t>(first - 1) * size;
    return before < sample && payload >= std::min<std::uint64_t>(size, sample - before) ? WireFault::NONE : WireFault::FRAGMENT;
}

WireFault fault_of_heartbeat(const Submessage& each) noexcept {
    if (each.length < HEARTBEAT_SIZE) {
        return WireFault::LENGTH;
    }
    const std::int64_t last = each.read_number(LAST_NUMBER);
    const bool is_range =
        last >= 0 && last <= highest_number(each, Submessage::WRITER) && each.read_number(Submessage::FIRST_NUMBER) <= last + 1;
    return is_range && each.read_number(Submessage::FIRST_NUMBER) >= 1 ? WireFault::NONE : WireFault::NUMBER;
}

WireFault fault_of_gap(const Submessage& each) noexcept {
    if (size_of_bits(each, SET_OF_GAP + 8) == 0) {
        return WireFault::LENGTH;
    }
    const std::int64_t behind = each.read_number(SET_OF_GAP);
    const bool is_range = is_number(each, Submessage::FIRST_NUMBER, Submessage::WRITER) &&
                          behind >= each.read_number(Submessage::FIRST_NUMBER) &&
                          behind <= highest_number(each, Submessage::WRITER);
    return is_range && behind - each.read_number(Submessage::FIRST_NUMBER) <= WIDEST_GAP ? WireFault::NONE : WireFault::NUMBER;
}

WireFault fault_of_acknack(const Submessage& each) noexcept {
    const std::size_t bits = size_of_bits(each, Submessage::SET_OF_ACKNACK + 8);
    if (bits == 0 || each.length < Submessage::SET_OF_ACKNACK + 8 + bits + COUNT_SIZE) {
        return WireFault::LENGTH;
    }
    const std::int64_t base = each.read_number(Submessage::SET_OF_ACKNACK);  // 0 before anything has come
    return base >= 0 && base <= highest_number(each, Submessage::WRITER) ? WireFault::NONE : WireFault::NUMBER;
}

WireFault fault_of_nack_frag(const Submessage& each) noexcept {
    const std::size_t bits = size_of_bits(each, Submessage::SET_OF_NACK_FRAG + 4);
    if (bits == 0 || each.length < Submessage::SET_OF_NACK_FRAG + 4 + bits + COUNT_SIZE) {
        return WireFault::LENGTH;
    }
    const std::uint32_t base = each.read_u32(Submessage::SET_OF_NACK_FRAG);
    return !is_number(each, Submessage::FIRST_NUMBER, Submessage::WRITER) ? WireFault::NUMBER
           : base == 0 || base > LARGEST_SAMPLE / LEAST_FRAGMENT          ? WireFault::FRAGMENT
                                                                          : WireFault::NONE;
}

WireFault fault_of(const Submessage& each, std::uint32_t largest_sample) noexcept {
    const auto needs = [&](std::size_t size) { return each.length < size ? WireFault::LENGTH : WireFault::NONE; };
    switch (each.kind) {
        case Submessage::DATA:
            return fault_of_data(each);
        case Submessage::DATA_FRAG:
            return fault_of_fragment(each, largest_sample);
        case Submessage::HEARTBEAT:
            return fault_of_heartbeat(each);
        case Submessage::GAP:
            return fault_of_gap(each);
        case Submessage::ACKNACK:
            return fault_of_acknack(each);
        case Submessage::NACK_FRAG:
            return fault_of_nack_frag(each);
        case Submessage::HEARTBEAT_FRAG:
            return needs(HEARTBEAT_FRAG_SIZE);
        case Submessage::INFO_TS:
            return needs((each.flags & NO_TIME_FLAG) != 0 ? 0 : TIME);
        case Submessage::INFO_DST:
            return needs(DESTINATION);
        case Submessage::INFO_SRC:
            return needs(SOURCE);
        default:
            return WireFault::NONE;  // skipped, or checked when it has been decrypted
    }
}

}  // namespace

WireFault find_wire_fault(const std::uint8_t* octets, std::size_t length, std::uint32_t largest_sample) noexcept {
    constexpr std::uint8_t VERSION = 2;
    if (length < Submessage::MESSAGE_HEADER || std::memcmp(octets, "RTPS", 4) != 0 || octets[VERSION_IN_HEADER] != VERSION) {
        return WireFault::NO_MESSAGE;
    }
    const bool is_of_fast_dds = std::memcmp(octets + VENDOR_IN_HEADER, FAST_DDS, sizeof FAST_DDS) == 0;
    Submessage each;
    for (std::size_t place = Submessage::MESSAGE_HEADER; place != length; place += Submessage::HEADER + each.length) {
        if (!each.read(octets, length, place)) {
            return WireFault::LENGTH;
        }
        const bool is_last = place + Submessage::HEADER + each.length == length;
        // Programs differ in where they look for the next one behind a length that is not a multiple of 4.
        if (each.length % 4 != 0 && !is_last) {
            return WireFault::LENGTH;
        }
        if (is_of_fast_dds && each.kind == STATISTICS && (each.length != STATISTICS_SIZE || !is_last)) {
            return WireFault::VENDOR;
        }
        const WireFault fault = fault_of(each, largest_sample);
        if (fault != WireFault::NONE) {
            return fault;
        }
    }
    return WireFault::NONE;
}

const char* text_of(WireFault fault) noexcept {
    constexpr const char* TEXTS[WIRE_FAULTS] = {"no fault",
                                                "not an RTPS message",
                                                "a submessage of a wrong length",
                                                "parameters that leave their submessage",
                                                "a sequence number or range that no writer gets to",
                                                "a fragment that is not one of its sample",
                                                "a sample longer than norvane.fastdds.max_sample_size",
                                                "a vendor's submessage of a wrong size or place"};
    return TEXTS[static_cast<std::size_t>(fault)];
}

}  // namespace fastdds
}  // namespace norvane
