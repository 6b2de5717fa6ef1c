// SPDX-License-Identifier: Apache-2.0
// The writers that an RTPS reader has matched, and the metadata of their samples. Guarded by the mutex of that reader.
#ifndef NORVANE_ENGINES_FASTDDS_DISCOVERY_MATCHEDWRITERS_HPP
#define NORVANE_ENGINES_FASTDDS_DISCOVERY_MATCHEDWRITERS_HPP

#include <memory>
#include <unordered_map>

#include <fastdds/rtps/common/CacheChange.h>
#include <fastdds/rtps/writer/WriterDiscoveryInfo.h>

#include "engines/fastdds/discovery/Domain.hpp"

namespace norvane {
namespace fastdds {

class MatchedWriters {
public:
    struct Match {
        std::shared_ptr<const Discovered> peer;
        bool fits;       ///< Of the reader's type. Samples of other writers are not for it.
        bool confirmed;  ///< Fast DDS has reported the match.
    };

    /// @param reader  describes the reader; borrowed.
    MatchedWriters(Domain& domain, const mw::EndpointInfo& reader) noexcept : _domain(domain), _reader(reader) {}

    /// @return the writer, listed now if it is discovered but its match has not been reported yet; null if it is not discovered.
    /// @throws std::bad_alloc
    const Match* find(const rtps::GUID_t& writer);
    /// Fast DDS reports a match, or the end of one.
    /// @return what the reader's peer sink is to hear of it. No peer: nothing, since the writer does not fit, or was reported before,
    ///         or memory is short; it is not listed then.
    mw::PeerEvent report(rtps::WriterDiscoveryInfo::DISCOVERY_STATUS reason, const rtps::GUID_t& writer) noexcept;
    /// @param each  gets every writer that fits and was confirmed.
    template <typename Each>
    void for_each_confirmed(Each each) const {
        for (const auto& entry : _matches) {
            if (entry.second.fits && entry.second.confirmed) {
                each(entry.second.peer);
            }
        }
    }

    /// @throws std::bad_alloc
    mw::SampleMetadata metadata_of(const rtps::CacheChange_t& change);

private:
    // The writer if it fits and was not confirmed before; otherwise null. Throws std::bad_alloc.
    std::shared_ptr<const Discovered> confirm(const rtps::GUID_t& writer);
    // The writer if it fits and was confirmed; otherwise null.
    std::shared_ptr<const Discovered> remove(const rtps::GUID_t& writer) noexcept;

    Domain& _domain;
    const mw::EndpointInfo& _reader;
    std::unordered_map<DDS_GUID_t, Match, GuidHash> _matches;  // by the RTPS GUID of the writer
};

/// @return the virtual GUID of the writer that a received sample answers; unknown if it answers none.
DDS_GUID_t answered_writer(const rtps::CacheChange_t& change) noexcept;

}  // namespace fastdds
}  // namespace norvane

#endif
