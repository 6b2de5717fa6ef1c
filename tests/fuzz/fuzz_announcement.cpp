// SPDX-License-Identifier: Apache-2.0
// User data of a peer's endpoint. What is read from it is announced again, and is read as the same.
#include <cstdlib>
#include <vector>

#include "engines/fastdds/discovery/Announcement.hpp"

using namespace norvane::fastdds;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::uint8_t TRAILER[] = {1, 'n', 'o', 'r', 'v', 'a', 'n', 'e', 0x1a};
    std::vector<std::uint8_t> user_data(data, data + size);
    user_data.insert(user_data.end(), TRAILER, TRAILER + sizeof TRAILER);
    user_data.shrink_to_fit();
    Discovered peer;
    peer.info.guid.value[0] = 1;  // that of the endpoint, unless the block has another
    read_announcement(user_data, peer);
    if (!peer.ours) {
        return peer.info.user_data == user_data && peer.info.properties.empty() ? 0 : (std::abort(), 0);
    }
    Discovered again;
    again.info.guid = peer.info.guid;
    read_announcement(announce_reader(peer.info, peer.routing, peer.route), again);
    if (!again.ours || peer.info.properties.size() > MOST_PROPERTIES || again.info.properties != peer.info.properties ||
        again.info.user_data != peer.info.user_data || again.routing != peer.routing || !(again.info.guid == peer.info.guid)) {
        std::abort();
    }
    return 0;
}
