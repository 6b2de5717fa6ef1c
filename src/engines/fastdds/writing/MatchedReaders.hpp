// SPDX-License-Identifier: Apache-2.0
// The matched readers of a writer: which of its samples each of them gets, and the requesters whose answers go to shared readers.
//
// Thread rule: under the mutex of the writer's RTPS writer, except `outdate` and `is_outdated`. Order: it, then the participant's
// directory or a sink.
#ifndef NORVANE_ENGINES_FASTDDS_WRITING_MATCHEDREADERS_HPP
#define NORVANE_ENGINES_FASTDDS_WRITING_MATCHEDREADERS_HPP

#include <atomic>
#include <cstddef>
#include <memory>
#include <unordered_map>

#include "engines/fastdds/Endpoint.hpp"
#include "engines/fastdds/discovery/Domain.hpp"

namespace norvane {
namespace fastdds {

class MatchedReaders {
public:
    /// @param writer  is told of readers that come and go.
    /// @param most_filtered  readers whose samples are chosen at the writer, at most; DDS_LENGTH_UNLIMITED for no limit.
    MatchedReaders(Domain& domain, Endpoint& writer, DDS_Long most_filtered) noexcept
        : _domain(domain), _writer(writer), _most_filtered(most_filtered) {}
    MatchedReaders(const MatchedReaders&) = delete;
    MatchedReaders& operator=(const MatchedReaders&) = delete;

    /// @return false if it is listed already, or memory is short.
    bool add(const DDS_GUID_t& reader, const std::shared_ptr<const Discovered>& peer) noexcept;
    /// @return false if it is not listed.
    bool remove(const DDS_GUID_t& reader) noexcept;

    /// @return the number of readers.
    std::size_t size() const noexcept { return _matches.size(); }
    template <typename Visit>
    void for_each(const Visit& visit) const {
        for (const auto& entry : _matches) {
            visit(entry.first, *entry.second.peer);
        }
    }

    /// @return whether a reader takes every sample.
    bool has_unrouted() const noexcept { return _unrouted > 0; }
    /// @return whether a reader takes only some of the answers.
    bool has_routed() const noexcept { return !_routes.empty() || !_shared.empty(); }
    /// @return whether a reader takes the answers to that requester alone.
    bool has_reader_of(const DDS_GUID_t& requester) const noexcept { return _routes.count(requester) != 0; }
    /// @return whether a matched reader takes the answers to it.
    bool is_in_reach(const Discovered& requester) const noexcept;
    /// As above, to any requester with that GUID.
    bool is_in_reach(const DDS_GUID_t& requester) const noexcept;
    /// @param related  the writer that a sample answers, or DDS_GUID_UNKNOWN.
    /// @return whether any reader takes the sample.
    bool has_addressee(const DDS_GUID_t& related) const noexcept;
    /// @param reader  matched, even if it is not listed yet.
    /// @return whether to send the sample to that reader: it has the writer's type, and a sample chosen at the writer is for it.
    bool is_for(const DDS_GUID_t& reader, const DDS_GUID_t& related) const noexcept;

    /// The requesters that use shared readers have changed: `refresh` must follow. Any thread.
    void outdate() noexcept { _is_outdated.store(true); }
    bool is_outdated() const noexcept { return _is_outdated.load(); }
    /// Reports new and departed requesters of shared readers to the writer. @return false if memory is short: call again later.
    bool refresh() noexcept;

private:
    struct Match {
        std::shared_ptr<const Discovered> peer;
        bool fits;      // of the writer's type; otherwise it gets nothing
        bool filtered;  // samples are chosen for it at the writer; otherwise it filters them itself
    };
    // One or more readers that the requesters of a participant share.
    struct SharedReader {
        int count = 0;
        std::shared_ptr<const Discovered> peer;
    };
    // A requester and its share of a shared reader, which the middleware sees as a reader.
    struct ReaderShare {
        std::shared_ptr<const Discovered> requester;
        std::shared_ptr<const mw::EndpointInfo> reader;
    };

    Match match_with(const std::shared_ptr<const Discovered>& peer) const noexcept;
    bool is_for(const Match& match, const DDS_GUID_t& related) const noexcept;
    void count(const std::shared_ptr<const Discovered>& reader, int change);
    void update_shares();

    Domain& _domain;
    Endpoint& _writer;
    const DDS_Long _most_filtered;
    std::unordered_map<DDS_GUID_t, Match, GuidHash> _matches;        // by the RTPS GUID of the reader
    std::unordered_map<DDS_GUID_t, int, GuidHash> _routes;           // how many readers take the answers to that writer
    std::unordered_map<DDS_GUID_t, SharedReader, GuidHash> _shared;  // by participant
    std::unordered_map<DDS_GUID_t, ReaderShare, GuidHash>
        _shares;  // by the virtual GUID of the requester: as reported to the middleware
    int _unrouted = 0;
    int _filtered = 0;
    std::atomic<bool> _is_outdated{false};
};

}  // namespace fastdds
}  // namespace norvane

#endif
