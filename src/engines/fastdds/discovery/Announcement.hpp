// SPDX-License-Identifier: Apache-2.0
// What our endpoints tell each other beyond what Fast DDS carries: virtual GUID, layout of the type, partner, names, properties, route.
// It travels behind the application's own octets in the endpoint's user data, so that others see those first; a trailer says how long it is.
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
    NONE,   ///< Whatever comes.
    OWN,    ///< Those to one writer, its route.
    SHARED  ///< Those to all writers of its participant that say so.
};

/// An endpoint of somebody's, as far as it is known here.
struct Discovered {
    rtps::GUID_t rtps_guid;
    bool is_writer = false;
    bool ours = false;  ///< It announces itself as norvane does. Any other is plain, and nothing is expected of it.
    Routing routing = Routing::NONE;
    DDS_GUID_t route = DDS_GUID_UNKNOWN;
    mw::EndpointInfo info;
    /// Of a writer: the reader that gets the answers, where that is a part of a shared one, and nobody tells of it otherwise; its topic is
    /// empty else. Type and QoS are those of the shared reader.
    mw::EndpointInfo answers;
    mutable std::atomic<bool> is_lost{false};  ///< It did not leave in good order.
};

/// @return what sinks are told of the endpoint: a part of it, and alive as long.
inline std::shared_ptr<const mw::EndpointInfo> info_of(const std::shared_ptr<const Discovered>& endpoint) noexcept {
    return std::shared_ptr<const mw::EndpointInfo>(endpoint, &endpoint->info);
}

/// @return whether that is the writer of a requester, which waits for answers.
inline bool is_requester(const mw::EndpointInfo& writer) noexcept {
    return std::any_of(writer.properties.begin(), writer.properties.end(),
                       [](const auto& property) { return property.first == AWAITS_REPLIES_PROPERTY && property.second == "true"; });
}

/// A plain peer has no hash: its type is taken at its name.
inline bool are_of_one_type(const mw::EndpointInfo& left, const mw::EndpointInfo& right) noexcept {
    return left.type_name == right.type_name && (left.type_hash == right.type_hash || left.type_hash == 0 || right.type_hash == 0);
}

/// @return the user data to announce: the application's octets, and what is told to our own kind.
/// @throws std::bad_alloc
std::vector<std::uint8_t> announce_reader(const mw::EndpointInfo& info, Routing routing,
                                          const DDS_GUID_t& route = DDS_GUID_UNKNOWN);
/// As above. @param answers  the reader that gets the answers, if it is a part of a shared one; else null.
std::vector<std::uint8_t> announce_writer(const mw::EndpointInfo& info, const mw::EndpointInfo* answers);

/// Takes announced user data apart. Octets that are not ours, or are damaged, are the application's, and the endpoint is plain.
/// @param endpoint  with its RTPS GUID in place; gets the rest.
/// @throws std::bad_alloc
void read_announcement(const std::vector<std::uint8_t>& user_data, Discovered& endpoint);

}  // namespace fastdds
}  // namespace norvane

#endif
