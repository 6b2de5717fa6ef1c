// SPDX-License-Identifier: Apache-2.0
// The writers that an RTPS reader has matched, and what they tell about a sample of theirs. Guarded by the mutex of that reader.
#ifndef NORVANE_ENGINES_FASTDDS_DISCOVERY_MATCHEDWRITERS_HPP
#define NORVANE_ENGINES_FASTDDS_DISCOVERY_MATCHEDWRITERS_HPP

#include <memory>
#include <unordered_map>

#include <fastdds/rtps/common/CacheChange.h>

#include "engines/fastdds/discovery/Domain.hpp"

namespace norvane {
namespace fastdds {

class MatchedWriters {
public:
    struct Match {
        std::shared_ptr<const Discovered> peer;
        bool fits;       ///< Of one type with the reader. What others write is not for it.
        bool confirmed;  ///< Fast DDS has said that they are matched.
    };

    /// @param reader  what the reader is; borrowed.
    MatchedWriters(Domain& domain, const mw::EndpointInfo& reader) noexcept : _domain(domain), _reader(reader) {}

    /// @return the writer, listed now when it is known but its match has not been told yet; null when nobody knows it.
    /// @throws std::bad_alloc
    const Match* find(const rtps::GUID_t& writer);
    /// Fast DDS says that they are matched. @return the writer, when it fits and that is news; else null.
    /// @throws std::bad_alloc
    std::shared_ptr<const Discovered> confirm(const rtps::GUID_t& writer);
    /// Fast DDS says that they no longer are. @return the writer, when it fits and its match was told; else null.
    std::shared_ptr<const Discovered> remove(const rtps::GUID_t& writer) noexcept;
    /// @param each  gets every writer that fits and whose match was told.
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
    Domain& _domain;
    const mw::EndpointInfo& _reader;
    std::unordered_map<DDS_GUID_t, Match, GuidHash> _matches;  // by the RTPS GUID of the writer
};

/// @return the writer that a sample that has arrived answers, as it calls itself; unknown when it answers none.
DDS_GUID_t answered_writer(const rtps::CacheChange_t& change) noexcept;

}  // namespace fastdds
}  // namespace norvane

#endif
