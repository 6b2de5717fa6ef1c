// SPDX-License-Identifier: Apache-2.0
// One submessage of an RTPS message, in place. Thread rule: plain values.
#ifndef NORVANE_ENGINES_FASTDDS_QUIRKS_2_9_SUBMESSAGE_HPP
#define NORVANE_ENGINES_FASTDDS_QUIRKS_2_9_SUBMESSAGE_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace norvane {
namespace fastdds {

struct Submessage {
    enum Kind : std::uint8_t {
        PAD = 0x01,
        ACKNACK = 0x06,
        HEARTBEAT = 0x07,
        GAP = 0x08,
        INFO_TS = 0x09,
        INFO_SRC = 0x0c,
        INFO_REPLY_IP4 = 0x0d,
        INFO_DST = 0x0e,
        INFO_REPLY = 0x0f,
        NACK_FRAG = 0x12,
        HEARTBEAT_FRAG = 0x13,
        DATA = 0x15,
        DATA_FRAG = 0x16,
        FIRST_OF_SECURITY = 0x30,
        SRTPS_PREFIX = 0x33,
        LAST_OF_SECURITY = 0x34,
        FIRST_OF_VENDORS = 0x80
    };
    static constexpr std::uint8_t LITTLE_ENDIAN_FLAG = 0x01;
    static constexpr std::size_t HEADER = 4;
    /// Octets before the first submessage.
    static constexpr std::size_t MESSAGE_HEADER = 20;

    // Places in the bodies, and lengths of what does not vary.
    static constexpr std::size_t WRITER_OF_DATA = 8;  ///< Of DATA and DATA_FRAG; so are the next five.
    static constexpr std::size_t NUMBER_OF_DATA = 12;
    static constexpr std::size_t FIRST_FRAGMENT = 20;
    static constexpr std::size_t FRAGMENT_COUNT = 24;
    static constexpr std::size_t FRAGMENT_SIZE = 26;
    static constexpr std::size_t SAMPLE_SIZE = 28;
    static constexpr std::size_t DATA_FRAG_HEAD = 32;
    static constexpr std::size_t WRITER = 4;             ///< Of the others.
    static constexpr std::size_t FIRST_NUMBER = 8;       ///< Of HEARTBEAT and GAP; of NACK_FRAG the only one.
    static constexpr std::size_t SET_OF_ACKNACK = 8;     ///< Base of 8 octets, count of bits, bits.
    static constexpr std::size_t SET_OF_NACK_FRAG = 16;  ///< Base of 4 octets, count of bits, bits.
    /// In the last octet of an entity: it belongs to discovery.
    static constexpr std::uint8_t BUILTIN_ENTITY = 0xc0;

    /// @return whether the octets begin like a message with a submessage.
    static bool begin_a_message(const std::uint8_t* octets, std::size_t length) noexcept {
        return length >= MESSAGE_HEADER + HEADER && std::memcmp(octets, "RTPS", 4) == 0;
    }

    /// Reads the submessage that begins at a place. @return false if it is not complete.
    bool read(const std::uint8_t* message, std::size_t message_length, std::size_t place) noexcept {
        if (place + HEADER > message_length) {
            return false;
        }
        const std::uint8_t* const header = message + place;
        kind = header[0];
        flags = header[1];
        body = header + HEADER;
        length = is_little() ? header[2] + 256U * header[3] : header[3] + 256U * header[2];
        // The last submessage may leave its length out.
        lasts_to_the_end = length == 0 && kind != PAD && kind != INFO_TS;
        length = lasts_to_the_end ? message_length - place - HEADER : length;
        return place + HEADER + length <= message_length;
    }

    bool is_little() const noexcept { return (flags & LITTLE_ENDIAN_FLAG) != 0; }
    /// Integers of the body, in the submessage's order of octets. They must lie in it.
    std::uint32_t read_u16(std::size_t place) const noexcept {
        const std::uint32_t first = body[place];
        const std::uint32_t second = body[place + 1];
        return is_little() ? first | second << 8U : second | first << 8U;
    }
    std::uint32_t read_u32(std::size_t place) const noexcept {
        return is_little() ? read_u16(place) | read_u16(place + 2) << 16U : read_u16(place + 2) | read_u16(place) << 16U;
    }
    std::int64_t read_number(std::size_t place) const noexcept {
        return static_cast<std::int64_t>(static_cast<std::uint64_t>(read_u32(place)) << 32U | read_u32(place + 4));
    }

    std::uint8_t kind = 0;
    std::uint8_t flags = 0;
    const std::uint8_t* body = nullptr;
    std::size_t length = 0;  ///< Of the body.
    bool lasts_to_the_end = false;
};

}  // namespace fastdds
}  // namespace norvane

#endif
