// SPDX-License-Identifier: Apache-2.0
// What our endpoints announce beyond what Fast DDS carries: virtual GUID, layout of the type, partner, names, properties, route. It
// follows the application's own octets in the endpoint's user data, so that other vendors see those first; a trailer gives its
// length.
// Thread rule: plain functions on values.
#ifndef NORVANE_ENGINES_FASTDDS_DISCOVERY_ANNOUNCEMENT_HPP
#define NORVANE_ENGINES_FASTDDS_DISCOVERY_ANNOUNCEMENT_HPP

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "engines/fastdds/identity.hpp"
#include "middleware/Engine.hpp"
#include "norvane/dds/qos.hpp"

namespace norvane {
namespace fastdds {

/// Which answers a reader takes.
enum class Routing {
    NONE,   ///< Every sample.
    OWN,    ///< The answers to one writer, its route.
    SHARED  ///< The answers to every writer of its participant that announces to use it.
};

/// An endpoint, as far as it is known here.
struct Discovered {
    rtps::GUID_t rtps_guid;
    bool is_writer = false;
    std::int64_t since_ns = 0;  ///< When it was first announced.
    /// Announced by norvane. Otherwise the endpoint is plain, and nothing beyond the standard is expected of it.
    bool ours = false;
    Routing routing = Routing::NONE;
    DDS_GUID_t route = DDS_GUID_UNKNOWN;
    mw::EndpointInfo info;
    /// Of a writer: the reader of the answers if the requester uses a share of a participant-wide reader, which is not announced
    /// separately; otherwise its topic is empty. Type and QoS are those of the shared reader.
    mw::EndpointInfo answers;
    mutable std::atomic<bool> is_lost{false};  ///< Its lease expired.
};

/// @return what sinks get to know of the endpoint; shares its ownership.
inline std::shared_ptr<const mw::EndpointInfo> info_of(const std::shared_ptr<const Discovered>& endpoint) noexcept {
    return std::shared_ptr<const mw::EndpointInfo>(endpoint, &endpoint->info);
}

/// @return whether that is the writer of a requester, which waits for answers.
inline bool is_requester(const mw::EndpointInfo& writer) noexcept {
    return std::any_of(writer.properties.begin(), writer.properties.end(),
                       [](const auto& property) { return property.first == AWAITS_REPLIES_PROPERTY && property.second == "true"; });
}

/// A plain peer announces no hash: only the names of the types are compared.
inline bool are_of_one_type(const mw::EndpointInfo& left, const mw::EndpointInfo& right) noexcept {
    return left.type_name == right.type_name && (left.type_hash == right.type_hash || left.type_hash == 0 || right.type_hash == 0);
}

/// @return the user data to announce: the application's octets, and the block for our own endpoints.
/// @throws std::bad_alloc
std::vector<std::uint8_t> announce_reader(const mw::EndpointInfo& info, Routing routing,
                                          const DDS_GUID_t& route = DDS_GUID_UNKNOWN);
/// As above. @param answers  the reader of the answers if it is a share of a common one; otherwise null.
std::vector<std::uint8_t> announce_writer(const mw::EndpointInfo& info, const mw::EndpointInfo* answers);

/// Octets of user data in an announcement that still arrives: it travels in one parameter, whose length has 16 bits, and in one
/// sample. Some are left for names, and for the reader of the answers.
constexpr std::size_t MOST_USER_DATA = 60000;
/// Properties of a peer that are kept.
constexpr std::size_t MOST_PROPERTIES = 256;

/// @return whether peers get to know everything about such an endpoint; if not, `failure` says why.
/// @throws std::bad_alloc
bool is_announceable(const mw::EndpointInfo& info, std::string& failure);

/// Parses announced user data. If the block is missing or damaged, all octets are the application's, and the endpoint is plain.
/// @param endpoint  with its RTPS GUID in place; gets the rest.
/// @throws std::bad_alloc
void read_announcement(const std::vector<std::uint8_t>& user_data, Discovered& endpoint);

}  // namespace fastdds
}  // namespace norvane

#endif
