// SPDX-License-Identifier: Apache-2.0
// A writer on the bus: sequence numbers, matched readers, routing of each sample, and the history for late readers.
//
// 1. One mutex orders the writes; deliveries run under it. A write takes no lock above it, so it never waits for other matches.
// 2. Matches change under the bus's mutex and this one, locked in that order; either suffices to read them.
// 3. A match with a backlog counts as full: nothing newer overtakes it.
// 4. A failed write stores nothing, uses no number, and leaves no room reserved.
// 5. After a write has unlocked, it accesses no member: the listeners that it runs may delete the writer.
#ifndef NORVANE_ENGINES_EMBEDDED_WRITER_HPP
#define NORVANE_ENGINES_EMBEDDED_WRITER_HPP

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "engines/embedded/Endpoint.hpp"
#include "engines/embedded/Reader.hpp"
#include "engines/embedded/SampleQueue.hpp"
#include "engines/embedded/guid.hpp"
#include "platform/BriefMutex.hpp"
#include "platform/Processor.hpp"

namespace norvane {
namespace embedded {

class Bus;

/// A reader as its writer sees it.
struct Match {
    mw::SampleSink* sink;
    bool reliable;        ///< Both ends are reliable.
    SampleQueue backlog;  ///< Samples written before the match, and not yet accepted by the reader. Reliable matches only.
    std::shared_ptr<Reader> reader;
    std::size_t position;   ///< Among the writer's matches.
    bool announce = false;  ///< For whoever takes the matches apart.
};

class Writer : public Endpoint, public std::enable_shared_from_this<Writer> {
public:
    Writer(std::shared_ptr<const mw::EndpointInfo> info, const mw::WriterSettings& settings) noexcept;

    /// Called before the writer joins the bus.
    void open(mw::PeerSink& sink, std::shared_ptr<Bus> bus) noexcept;

    /// As mw::WriterPort.
    [[nodiscard]] DDS_ReturnCode_t write(const mw::WriteRequest& request, DDS_SampleIdentity_t& identity, bool& addressed) noexcept;
    mw::WriteCounts counts() noexcept;
    [[nodiscard]] DDS_ReturnCode_t wait_for_acknowledgments(const DDS_Duration_t& max_wait) noexcept;

    // The rest is for the bus, which holds its mutex, except for the last.

    /// Matches a reader: it gets the history first, then what is written.
    /// @param announce  set when the reader wants `announce`.
    /// @throws std::bad_alloc  the reader is not matched.
    void connect_locked(const std::shared_ptr<Reader>& reader, platform::WakeBatch& wake, bool& announce);
    /// Removes a matched reader. Once it returns, no upcall to the reader runs or will run for this writer.
    void disconnect_locked(const Reader& reader) noexcept;
    /// Sends as much of the reader's backlog as there is room for.
    void send_backlog_locked(const Reader& reader, platform::WakeBatch& wake, bool& announce) noexcept;
    /// Ends writing: blocked threads return. @return the matches.
    std::vector<std::unique_ptr<Match>> shut_locked() noexcept;
    /// Blocks until no thread is asleep in a call of this writer.
    void wait_until_nobody_sleeps() noexcept;

private:
    struct Outgoing;
    enum class Attempt { OVER, RETRY };
    struct Claim {
        Match* match;
        bool admitted;  ///< Otherwise the reader is full, best-effort, and loses the sample.
    };
    typedef std::vector<Match*> MatchList;

    Attempt attempt(Outgoing& out) noexcept;
    [[nodiscard]] DDS_ReturnCode_t attempt_locked(Outgoing& out) noexcept;
    [[nodiscard]] DDS_ReturnCode_t next_number_locked(const DDS_SequenceNumber_t& wanted, std::int64_t& number) const noexcept;
    [[nodiscard]] DDS_ReturnCode_t make_history_room_locked(Outgoing& out) noexcept;
    [[nodiscard]] DDS_ReturnCode_t deliver_locked(Match& match, Outgoing& out) noexcept;
    [[nodiscard]] DDS_ReturnCode_t deliver_to_all_locked(const MatchList* routed, const MatchList& unrouted,
                                                         Outgoing& out) noexcept;
    [[nodiscard]] DDS_ReturnCode_t claim_locked(const MatchList& matches, Outgoing& out) noexcept;
    template <typename Ask>
    mw::Admission ask_locked(const Match& match, Outgoing& out, Ask ask) noexcept;
    void replay_locked(Match& match, platform::WakeBatch& wake, bool& announce);
    MatchList* list_of_locked(const Reader& reader) noexcept;
    Match* match_of_locked(const Reader& reader) noexcept;
    void drop_empty_route_locked(const Reader& reader) noexcept;
    void wake_up_locked() noexcept;
    void settle_backlog_locked(Match& match) noexcept;

    mw::SamplePool& _pool;
    const std::shared_ptr<std::atomic<std::int64_t>> _given_number;  // the last one, before a reader can have it
    std::shared_ptr<Bus> _bus;
    const bool _reliable;
    const bool _keeps;  // transient-local
    const bool _keeps_last_only;
    const std::size_t _history_limit;

    alignas(platform::CACHE_LINE) platform::BriefMutex _mutex;
    bool _closed = false;
    std::atomic<bool> _needs_copies;  // changes under the mutex; read without it as a hint
    std::int64_t _last_number = 0;
    mw::WriteCounts _counts;
    std::unordered_map<DDS_GUID_t, MatchList, GuidHash>
        _routes;  // by the related writer GUID that the readers want; no list is empty
    MatchList _unrouted;
    std::vector<Claim> _claims;  // scratch of one delivery, with room for every match
    std::vector<std::unique_ptr<Match>> _matches;
    SampleQueue _history;
    std::uint32_t _backlogs = 0;      // matches that have one
    std::uint32_t _sleepers = 0;      // threads blocked in a call of this writer
    platform::FutexWord _changes{0};  // backlog gone, match gone, closed, last sleeper gone
};

}  // namespace embedded
}  // namespace norvane

#endif
