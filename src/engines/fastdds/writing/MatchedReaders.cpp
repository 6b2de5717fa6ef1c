// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/writing/MatchedReaders.hpp"

#include <exception>
#include <utility>

namespace norvane {
namespace fastdds {

MatchedReaders::Match MatchedReaders::match_with(const std::shared_ptr<const Discovered>& peer) const noexcept {
    const bool fits = are_of_one_type(_writer.info(), peer->info);
    // Inside a process Fast DDS takes samples before a gap as acknowledged, although a bounded reader may have refused some of
    // them. Such a reader gets every sample, and filters itself. (Shared readers refuse nothing.)
    const bool in_this_process = peer->rtps_guid.is_on_same_process_as(_domain.participant().getGuid());
    const bool may_see_gaps = peer->routing == Routing::SHARED || (peer->routing == Routing::OWN && !in_this_process);
    const bool filtered = fits && may_see_gaps && (_most_filtered == DDS_LENGTH_UNLIMITED || _filtered < _most_filtered);
    return {peer, fits, filtered};
}

bool MatchedReaders::add(const DDS_GUID_t& reader, const std::shared_ptr<const Discovered>& peer) noexcept {
    const Match match = match_with(peer);
    const bool fits = match.fits;
    try {
        if (!_matches.emplace(reader, match).second) {
            return false;
        }
        if (fits) {
            count(peer, 1);
        }
    } catch (const std::exception&) {
        _matches.erase(reader);
        return false;
    }
    _filtered += match.filtered ? 1 : 0;
    if (fits && peer->routing != Routing::SHARED) {
        _writer.note({mw::PeerEventKind::MATCHED, info_of(peer)});
    }
    return true;
}

bool MatchedReaders::remove(const DDS_GUID_t& reader) noexcept {
    const auto place = _matches.find(reader);
    if (place == _matches.end()) {
        return false;
    }
    const Match gone = std::move(place->second);
    _matches.erase(place);
    _filtered -= gone.filtered ? 1 : 0;
    if (gone.fits) {
        count(gone.peer, -1);
        if (gone.peer->routing != Routing::SHARED) {
            _writer.note({_domain.kind_of_leaving(), info_of(gone.peer)});
        }
    }
    return true;
}

bool MatchedReaders::is_in_reach(const Discovered& requester) const noexcept {
    return has_reader_of(requester.info.guid) ||
           (requester.answers.topic_name == _writer.info().topic_name && _shared.count(requester.info.participant_guid) != 0);
}

bool MatchedReaders::is_in_reach(const DDS_GUID_t& requester) const noexcept {
    return has_reader_of(requester) ||
           _domain.has_requester(requester, [this](const Discovered& claimant) { return is_in_reach(claimant); });
}

bool MatchedReaders::has_addressee(const DDS_GUID_t& related) const noexcept {
    if (has_unrouted() || related == DDS_GUID_UNKNOWN || !has_routed()) {
        return has_unrouted();
    }
    return is_in_reach(related);
}

bool MatchedReaders::is_for(const DDS_GUID_t& reader, const DDS_GUID_t& related) const noexcept {
    const auto place = _matches.find(reader);
    if (place != _matches.end()) {
        return is_for(place->second, related);
    }
    // Fast DDS offers samples to a reader from the moment of the match, and reports the match afterwards. A local reader refuses
    // what comes before it has matched the writer; at the next gap that counts as acknowledged, and the reader goes on waiting for
    // it. So it is offered its own samples only, which come later. One that is not in the directory any more would not acknowledge.
    const std::shared_ptr<const Discovered> peer = _domain.find(to_rtps(reader));
    return peer && is_for(match_with(peer), related);
}

bool MatchedReaders::is_for(const Match& match, const DDS_GUID_t& related) const noexcept {
    if (!match.fits || !match.filtered) {
        return match.fits;
    }
    if (match.peer->routing == Routing::OWN) {
        return related == match.peer->route;
    }
    return _domain.has_requester(related, [&](const Discovered& claimant) {
        return claimant.answers.topic_name == _writer.info().topic_name &&
               claimant.info.participant_guid == match.peer->info.participant_guid;
    });
}

bool MatchedReaders::refresh() noexcept {
    try {
        if (_is_outdated.exchange(false)) {
            update_shares();
        }
        return true;
    } catch (const std::exception&) {
        outdate();
        return false;
    }
}

// @throws std::bad_alloc  when a reader is added; never when one is removed
void MatchedReaders::count(const std::shared_ptr<const Discovered>& reader, int change) {
    if (reader->routing == Routing::NONE) {
        _unrouted += change;
    } else if (reader->routing == Routing::OWN) {
        int& count = _routes[reader->route];
        count += change;
        if (count == 0) {
            _routes.erase(reader->route);
        }
    } else {
        SharedReader& shared = _shared[reader->info.participant_guid];
        shared.count += change;
        shared.peer = reader;
        if (shared.count == 0) {
            _shared.erase(reader->info.participant_guid);
        }
        outdate();
        refresh();
    }
}

// Reports the shares of shared readers to the middleware, as they are now.
// @throws std::bad_alloc
void MatchedReaders::update_shares() {
    std::unordered_map<DDS_GUID_t, std::shared_ptr<const Discovered>, GuidHash> in_reach;
    for (std::shared_ptr<const Discovered>& requester : _domain.find_sharing_requesters(_writer.info().topic_name)) {
        if (_shared.count(requester->info.participant_guid) != 0) {
            in_reach.emplace(requester->info.guid, std::move(requester));
        }
    }
    for (auto place = _shares.begin(); place != _shares.end();) {
        const auto found = in_reach.find(place->first);
        if (found != in_reach.end() && found->second->answers.guid == place->second.reader->guid) {
            place->second.requester = found->second;
            ++place;
            continue;
        }
        const bool is_lost = place->second.requester->is_lost.load() || _domain.kind_of_leaving() == mw::PeerEventKind::LOST;
        _writer.note({is_lost ? mw::PeerEventKind::LOST : mw::PeerEventKind::DELETED, place->second.reader});
        place = _shares.erase(place);
    }
    for (const auto& entry : in_reach) {
        if (_shares.count(entry.first) == 0) {
            const mw::EndpointInfo& shared = _shared[entry.second->info.participant_guid].peer->info;
            mw::EndpointInfo reader = entry.second->answers;
            reader.type_name = shared.type_name;
            reader.type_hash = shared.type_hash;
            reader.reliability = shared.reliability;
            reader.durability = shared.durability;
            const ReaderShare sharer = {entry.second, std::make_shared<const mw::EndpointInfo>(std::move(reader))};
            _shares.emplace(entry.first, sharer);
            _writer.note({mw::PeerEventKind::MATCHED, sharer.reader});
        }
    }
}

}  // namespace fastdds
}  // namespace norvane
