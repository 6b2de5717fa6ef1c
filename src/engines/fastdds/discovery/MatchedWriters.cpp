// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/discovery/MatchedWriters.hpp"

#include <exception>
#include <utility>

#include "engines/fastdds/discovery/LocalWriters.hpp"
#include "middleware/clock.hpp"

namespace norvane {
namespace fastdds {

const MatchedWriters::Match* MatchedWriters::find(const rtps::GUID_t& writer) {
    const auto place = _matches.find(to_guid(writer));
    if (place != _matches.end()) {
        return &place->second;
    }
    // Its first sample may precede the report of the match.
    std::shared_ptr<const Discovered> peer = _domain.find(writer);
    if (!peer) {
        return nullptr;
    }
    const bool fits = are_of_one_type(_reader, peer->info);
    return &_matches.emplace(to_guid(writer), Match{std::move(peer), fits, false}).first->second;
}

std::shared_ptr<const Discovered> MatchedWriters::confirm(const rtps::GUID_t& writer) {
    Match* const match = const_cast<Match*>(find(writer));
    if (match == nullptr || match->confirmed) {
        return nullptr;
    }
    match->confirmed = true;
    return match->fits ? match->peer : nullptr;
}

std::shared_ptr<const Discovered> MatchedWriters::remove(const rtps::GUID_t& writer) noexcept {
    const auto place = _matches.find(to_guid(writer));
    if (place == _matches.end()) {
        return nullptr;
    }
    const Match gone = std::move(place->second);
    _matches.erase(place);
    return gone.fits && gone.confirmed ? gone.peer : nullptr;
}

mw::PeerEvent MatchedWriters::report(rtps::WriterDiscoveryInfo::DISCOVERY_STATUS reason, const rtps::GUID_t& writer) noexcept {
    try {
        if (reason == rtps::WriterDiscoveryInfo::DISCOVERED_WRITER) {
            _domain.note_match();
            const std::shared_ptr<const Discovered> peer = confirm(writer);
            return {mw::PeerEventKind::MATCHED, peer ? info_of(peer) : nullptr};
        }
        if (reason == rtps::WriterDiscoveryInfo::REMOVED_WRITER) {
            const std::shared_ptr<const Discovered> gone = remove(writer);
            return {_domain.kind_of_leaving(), gone ? info_of(gone) : nullptr};
        }
    } catch (const std::exception&) {
        // Memory is short: the peer is not listed.
    }
    return {mw::PeerEventKind::MATCHED, nullptr};
}

mw::SampleMetadata MatchedWriters::metadata_of(const rtps::CacheChange_t& change) {
    mw::SampleMetadata metadata;
    const Match* const match = find(change.writerGUID);
    metadata.identity.writer_guid = match == nullptr ? to_guid(change.writerGUID) : match->peer->info.guid;
    metadata.identity.sequence_number = to_sequence_number(change.sequenceNumber);
    metadata.related_identity = to_identity(change.write_params.sample_identity());
    metadata.related_identity.writer_guid = answered_writer(change);
    metadata.source_timestamp = to_time(change.sourceTimestamp);
    metadata.reception_timestamp = mw::current_time();
    return metadata;
}

DDS_GUID_t answered_writer(const rtps::CacheChange_t& change) noexcept {
    // Fast DDS puts the related identity of a received sample in the place of its own identity. A plain peer answers the RTPS GUID.
    const DDS_GUID_t related = to_guid(change.write_params.sample_identity().writer_guid());
    return related == DDS_GUID_UNKNOWN ? related : LocalWriters::get().name_of(related);
}

}  // namespace fastdds
}  // namespace norvane
