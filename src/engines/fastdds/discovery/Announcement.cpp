// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/discovery/Announcement.hpp"

#include <cstring>
#include <string>
#include <utility>

namespace norvane {
namespace fastdds {

namespace {

// [application's octets][fields][length of the fields: 4][version: 1][magic: 8]
constexpr std::uint8_t MAGIC[8] = {'n', 'o', 'r', 'v', 'a', 'n', 'e', 0x1a};
constexpr std::uint8_t VERSION = 1;
constexpr std::size_t TRAILER = 4 + 1 + sizeof MAGIC;

// A field is a tag, a length of four octets (little-endian), and its octets. Unknown tags are skipped: later versions may add some.
enum Tag : std::uint8_t {
    VIRTUAL_GUID = 1,
    TYPE_HASH = 2,
    PARTNER = 3,
    NAME = 4,
    ROLE = 5,
    PROPERTY = 6,
    ROUTE = 7,
    SHARED = 8,
    ANSWERS_GUID = 9,
    ANSWERS_TOPIC = 10,
    ANSWERS_NAME = 11,
    ANSWERS_ROLE = 12
};

class FieldWriter {
public:
    explicit FieldWriter(std::vector<std::uint8_t>& octets) : _octets(octets) {}

    void number(std::uint64_t value, int octets) {
        for (int octet = 0; octet < octets; ++octet) {
            _octets.push_back(static_cast<std::uint8_t>(value >> (8 * octet)));
        }
    }
    void raw(const void* data, std::size_t length) {
        const std::uint8_t* const first = static_cast<const std::uint8_t*>(data);
        _octets.insert(_octets.end(), first, first + length);
    }
    void field(Tag tag, const void* data, std::size_t length) {
        _octets.push_back(tag);
        number(length, 4);
        raw(data, length);
    }
    void guid(Tag tag, const DDS_GUID_t& guid) { field(tag, guid.value, sizeof guid.value); }
    void text(Tag tag, const std::string& text) {
        if (!text.empty()) {
            field(tag, text.data(), text.size());
        }
    }

private:
    std::vector<std::uint8_t>& _octets;
};

std::uint64_t number_at(const std::uint8_t* place, std::size_t octets) noexcept {
    std::uint64_t value = 0;
    for (std::size_t octet = 0; octet < octets; ++octet) {
        value |= static_cast<std::uint64_t>(place[octet]) << (8 * octet);
    }
    return value;
}

bool read_guid(const std::uint8_t* value, std::size_t length, DDS_GUID_t& guid) noexcept {
    if (length != sizeof guid.value) {
        return false;
    }
    std::memcpy(guid.value, value, length);
    return true;
}

bool read_field(std::uint8_t tag, const std::uint8_t* value, std::size_t length, Discovered& endpoint) {
    const char* const text = reinterpret_cast<const char*>(value);
    switch (tag) {
        case VIRTUAL_GUID:
            return read_guid(value, length, endpoint.info.guid) && endpoint.info.guid != DDS_GUID_UNKNOWN &&
                   endpoint.info.guid != DDS_GUID_AUTO;
        case TYPE_HASH:
            endpoint.info.type_hash = length == 8 ? number_at(value, 8) : 0;
            return length == 8;
        case PARTNER:
            return read_guid(value, length, endpoint.info.partner_guid);
        case ROUTE:
            endpoint.routing = Routing::OWN;
            return read_guid(value, length, endpoint.route);
        case SHARED:
            endpoint.routing = Routing::SHARED;
            return true;
        case ANSWERS_GUID:
            return read_guid(value, length, endpoint.answers.guid);
        case ANSWERS_TOPIC:
            endpoint.answers.topic_name.assign(text, length);
            return true;
        case ANSWERS_NAME:
            endpoint.answers.name.assign(text, length);
            return true;
        case ANSWERS_ROLE:
            endpoint.answers.role_name.assign(text, length);
            return true;
        case NAME:
            endpoint.info.name.assign(text, length);
            return true;
        case ROLE:
            endpoint.info.role_name.assign(text, length);
            return true;
        case PROPERTY: {
            const void* const end_of_name = std::memchr(value, 0, length);
            if (end_of_name == nullptr) {
                return false;
            }
            if (endpoint.info.properties.size() == MOST_PROPERTIES) {
                return true;
            }
            const std::size_t name_length = static_cast<std::size_t>(static_cast<const char*>(end_of_name) - text);
            endpoint.info.properties.emplace_back(std::string(text, name_length),
                                                  std::string(text + name_length + 1, length - name_length - 1));
            return true;
        }
        default:
            return true;
    }
}

bool read_fields(const std::uint8_t* place, std::size_t length, Discovered& endpoint) {
    while (length > 0) {
        if (length < 5) {
            return false;
        }
        const std::uint8_t tag = place[0];
        const std::size_t size = static_cast<std::size_t>(number_at(place + 1, 4));
        place += 5;
        length -= 5;
        if (size > length || !read_field(tag, place, size, endpoint)) {
            return false;
        }
        place += size;
        length -= size;
    }
    return true;
}

void write_fields(FieldWriter& writer, const mw::EndpointInfo& info) {
    writer.guid(VIRTUAL_GUID, info.guid);
    std::uint8_t hash[8];
    for (int octet = 0; octet < 8; ++octet) {
        hash[octet] = static_cast<std::uint8_t>(info.type_hash >> (8 * octet));
    }
    writer.field(TYPE_HASH, hash, sizeof hash);
    if (info.partner_guid != DDS_GUID_UNKNOWN) {
        writer.guid(PARTNER, info.partner_guid);
    }
    writer.text(NAME, info.name);
    writer.text(ROLE, info.role_name);
    for (const auto& property : info.properties) {
        writer.text(PROPERTY, property.first + '\0' + property.second);
    }
}

void write_trailer(FieldWriter& writer, std::size_t length) {
    writer.number(length, 4);
    writer.number(VERSION, 1);
    writer.raw(MAGIC, sizeof MAGIC);
}

}  // namespace

std::vector<std::uint8_t> announce_reader(const mw::EndpointInfo& info, Routing routing, const DDS_GUID_t& route) {
    std::vector<std::uint8_t> octets(info.user_data);
    FieldWriter writer(octets);
    write_fields(writer, info);
    if (routing == Routing::OWN) {
        writer.guid(ROUTE, route);
    } else if (routing == Routing::SHARED) {
        writer.field(SHARED, nullptr, 0);
    }
    write_trailer(writer, octets.size() - info.user_data.size());
    return octets;
}

std::vector<std::uint8_t> announce_writer(const mw::EndpointInfo& info, const mw::EndpointInfo* answers) {
    std::vector<std::uint8_t> octets(info.user_data);
    FieldWriter writer(octets);
    write_fields(writer, info);
    if (answers != nullptr) {
        writer.guid(ANSWERS_GUID, answers->guid);
        writer.text(ANSWERS_TOPIC, answers->topic_name);
        writer.text(ANSWERS_NAME, answers->name);
        writer.text(ANSWERS_ROLE, answers->role_name);
    }
    write_trailer(writer, octets.size() - info.user_data.size());
    return octets;
}

bool is_announceable(const mw::EndpointInfo& info, std::string& failure) {
    const std::size_t octets = announce_reader(info, Routing::NONE).size();
    if (octets > MOST_USER_DATA) {
        failure = "user data, names and propagated properties take " + std::to_string(octets) +
                  " octets to announce, and peers find " + "no endpoint that takes more than " + std::to_string(MOST_USER_DATA);
    } else if (info.properties.size() > MOST_PROPERTIES) {
        failure = std::to_string(info.properties.size()) + " propagated properties, of which peers keep " +
                  std::to_string(MOST_PROPERTIES);
    }
    return failure.empty();
}

void read_announcement(const std::vector<std::uint8_t>& user_data, Discovered& endpoint) {
    const std::size_t size = user_data.size();
    const std::uint8_t* const end = user_data.data() + size;
    if (size >= TRAILER && std::memcmp(end - sizeof MAGIC, MAGIC, sizeof MAGIC) == 0 && *(end - sizeof MAGIC - 1) == VERSION) {
        const std::size_t length = static_cast<std::size_t>(number_at(end - TRAILER, 4));
        const mw::EndpointInfo plain = endpoint.info;
        if (length <= size - TRAILER && read_fields(end - TRAILER - length, length, endpoint)) {
            endpoint.ours = true;
            endpoint.info.user_data.assign(user_data.data(), end - TRAILER - length);
            endpoint.answers.participant_guid = endpoint.info.participant_guid;
            endpoint.answers.partner_guid = endpoint.info.guid;
            return;
        }
        endpoint.info = plain;
        endpoint.answers = mw::EndpointInfo();
        endpoint.routing = Routing::NONE;
    }
    endpoint.info.user_data = user_data;
}

}  // namespace fastdds
}  // namespace norvane
