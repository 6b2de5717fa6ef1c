// SPDX-License-Identifier: Apache-2.0
// Who hears a writer: its matched readers, which of its samples each of them gets, and the requesters that take their answers from shared ones.
//
// Thread rule: under the mutex of the writer's RTPS writer, but for `outdate` and `is_outdated`. Order: it, then the participant's directory or a sink.
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
    /// @param writer         is told of who comes and goes.
    /// @param most_filtered  readers whose samples are chosen here at most; DDS_LENGTH_UNLIMITED for no limit.
    MatchedReaders(Domain& domain, Endpoint& writer, DDS_Long most_filtered) noexcept
        : _domain(domain), _writer(writer), _most_filtered(most_filtered) {}
    MatchedReaders(const MatchedReaders&) = delete;
    MatchedReaders& operator=(const MatchedReaders&) = delete;

    /// @param in_this_process  the reader is.
    /// @return false when it was there already, or there is no memory.
    bool add(const DDS_GUID_t& reader, const std::shared_ptr<const Discovered>& peer, bool in_this_process) noexcept;
    /// @return false when it is not there.
    bool remove(const DDS_GUID_t& reader) noexcept;

    /// @return how many readers there are.
    std::size_t size() const noexcept { return _matches.size(); }
    template <typename Visit>
    void for_each(const Visit& visit) const {
        for (const auto& entry : _matches) {
            visit(entry.first, *entry.second.peer);
        }
    }

    /// @return whether there is a reader that wants everything.
    bool has_unrouted() const noexcept { return _unrouted > 0; }
    /// @return whether there are readers that want some of many answers.
    bool has_routed() const noexcept { return !_routes.empty() || !_shared.empty(); }
    /// @return whether there is a reader for the answers to that requester alone.
    bool has_reader_of(const DDS_GUID_t& requester) const noexcept { return _routes.count(requester) != 0; }
    /// @param announced  what is known of the requester; null when nothing is.
    /// @return whether a reader is there that takes the answers to it.
    bool is_in_reach(const DDS_GUID_t& requester, const Discovered* announced) const noexcept;
    /// @param related  the writer that a sample answers, or DDS_GUID_UNKNOWN.
    /// @return whether anybody wants the sample.
    bool has_addressee(const DDS_GUID_t& related) const noexcept;
    /// @return whether that reader may get the sample: it is not of another type, and the sample is not chosen here for others.
    bool is_for(const DDS_GUID_t& reader, const DDS_GUID_t& related) const noexcept;

    /// Something is new of requesters that take their answers from shared readers: `refresh` is to follow. Any thread.
    void outdate() noexcept { _is_outdated.store(true); }
    bool is_outdated() const noexcept { return _is_outdated.load(); }
    /// Tells the writer of the requesters that are new, or gone. @return false when there is no memory: to be tried again.
    bool refresh() noexcept;

private:
    struct Match {
        std::shared_ptr<const Discovered> peer;
        bool fits;      // of one type: else it gets nothing
        bool filtered;  // its route is looked at here, else at its end
    };
    // A reader that requesters of a participant share, or several.
    struct SharedReader {
        int count = 0;
        std::shared_ptr<const Discovered> peer;
    };
    // A requester, and the part of a shared reader that gets its answers: to the middleware a reader of its own.
    struct ReaderShare {
        std::shared_ptr<const Discovered> requester;
        std::shared_ptr<const mw::EndpointInfo> reader;
    };

    void count(const std::shared_ptr<const Discovered>& reader, int change);
    void update_shares();

    Domain& _domain;
    Endpoint& _writer;
    const DDS_Long _most_filtered;
    std::unordered_map<DDS_GUID_t, Match, GuidHash> _matches;        // by the RTPS GUID of the reader
    std::unordered_map<DDS_GUID_t, int, GuidHash> _routes;           // readers that want the answers to a writer
    std::unordered_map<DDS_GUID_t, SharedReader, GuidHash> _shared;  // by participant
    std::unordered_map<DDS_GUID_t, ReaderShare, GuidHash>
        _shares;  // by the virtual GUID of the requester: what the middleware was told
    int _unrouted = 0;
    int _filtered = 0;
    std::atomic<bool> _is_outdated{false};
};

}  // namespace fastdds
}  // namespace norvane

#endif
