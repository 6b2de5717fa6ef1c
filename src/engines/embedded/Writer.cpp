// SPDX-License-Identifier: Apache-2.0
#include "engines/embedded/Writer.hpp"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <mutex>
#include <new>
#include <utility>

#include "engines/embedded/Bus.hpp"
#include "engines/embedded/Deadline.hpp"
#include "engines/embedded/PendingAnnouncements.hpp"
#include "middleware/SequenceNumber.hpp"
#include "middleware/clock.hpp"

namespace norvane {
namespace embedded {

namespace {

typedef std::lock_guard<platform::BriefMutex> Lock;

std::size_t history_limit(const DDS_DataWriterQos& qos) noexcept {
    const bool bounded = qos.resource_limits.max_samples != DDS_LENGTH_UNLIMITED;
    std::size_t limit = bounded ? static_cast<std::size_t>(qos.resource_limits.max_samples) : SIZE_MAX;
    if (qos.history.kind == DDS_KEEP_LAST_HISTORY_QOS) {
        limit = std::min(limit, static_cast<std::size_t>(qos.history.depth));
    }
    return std::max<std::size_t>(limit, 1);
}

// Not reserve(size + 1), which would reallocate each time.
template <typename Element>
void make_room_for_one(std::vector<Element>& list) {
    if (list.size() == list.capacity()) {
        list.reserve(std::max<std::size_t>(4, list.size() * 2));
    }
}

}  // namespace

// One write on its way.
struct Writer::Outgoing {
    Outgoing(const mw::WriteRequest& write_request, const DDS_GUID_t& writer_guid) noexcept
        : request(write_request), deadline(write_request.max_blocking_time) {
        metadata.identity.writer_guid = writer_guid;
        metadata.related_identity = request.related_identity;
        metadata.reception_timestamp = mw::current_time();
        metadata.source_timestamp =
            request.source_timestamp == DDS_TIME_INVALID ? metadata.reception_timestamp : request.source_timestamp;
    }

    // Sets the word to sleep on. The keeper keeps it alive; null when it is the writer's own.
    void sleep_at(platform::FutexWord& place, std::shared_ptr<Endpoint> place_keeper) noexcept {
        word = &place;
        keeper = std::move(place_keeper);
        seen = place.load();
    }

    const mw::WriteRequest& request;
    mw::SampleMetadata metadata;
    DDS_ReturnCode_t code = DDS_RETCODE_OK;  // of the last attempt
    bool addressed = false;
    Deadline deadline;
    platform::FutexWord* word = nullptr;
    std::uint32_t seen = 0;
    bool sleeper = false;              // counted as one
    std::shared_ptr<Reader> relieved;  // regained room, which a writer with a backlog for it may wait for
    std::shared_ptr<Writer> writer;    // keeps the writer for another attempt: a close waits for sleepers, not for their frames
    std::shared_ptr<Endpoint> keeper;
    mw::SampleReference evicted;  // from the history; released with no lock held, since that may run the type's destructor
    mw::SampleReference sample;
    platform::WakeBatch wake;
    PendingAnnouncements announcements;
};

Writer::Writer(std::shared_ptr<const mw::EndpointInfo> info, const mw::WriterSettings& settings) noexcept
    : Endpoint(std::move(info)),
      _pool(*settings.pool),
      _given_number(settings.last_number),
      _reliable(settings.qos->reliability.kind == DDS_RELIABLE_RELIABILITY_QOS),
      _keeps(settings.qos->durability.kind == DDS_TRANSIENT_LOCAL_DURABILITY_QOS),
      _keeps_last_only(settings.qos->history.kind == DDS_KEEP_LAST_HISTORY_QOS),
      _history_limit(history_limit(*settings.qos)),
      _needs_copies(_keeps) {}

void Writer::open(mw::PeerSink& sink, std::shared_ptr<Bus> bus) noexcept {
    attach(sink);
    _bus = std::move(bus);
}

DDS_ReturnCode_t Writer::write(const mw::WriteRequest& request, DDS_SampleIdentity_t& identity, bool& addressed) noexcept {
    identity = DDS_UNKNOWN_SAMPLE_IDENTITY;
    addressed = false;
    Outgoing out(request, info()->guid);
    do {
        if (out.relieved) {
            _bus->send_backlogs(std::exchange(out.relieved, nullptr));
        } else if (out.sleeper) {
            out.deadline.sleep(*out.word, out.seen);
            out.metadata.reception_timestamp = mw::current_time();
        } else if (_needs_copies.load(std::memory_order_relaxed)) {
            // Before the lock: a large sample must not keep other writes waiting.
            out.sample.reset(_pool.make_copy(request.data));
            if (!out.sample) {
                return DDS_RETCODE_OUT_OF_RESOURCES;
            }
        }
    } while (attempt(out) == Attempt::RETRY);
    if (out.code != DDS_RETCODE_OK) {
        return out.code;
    }
    identity = out.metadata.identity;
    addressed = out.addressed;
    // Before the wake-up: a reader that finds itself the only one to hold the sample gives it back without an atomic decrement.
    out.sample.reset();
    out.wake.flush();
    out.announcements.run();
    return DDS_RETCODE_OK;
}

// RETRY: send the backlogs of `out.relieved` if it is set, else sleep if `out.sleeper` is set, else copy the sample; then try
// again.
Writer::Attempt Writer::attempt(Outgoing& out) noexcept {
    Lock lock(_mutex);
    if (out.sleeper) {
        out.sleeper = false;
        if (--_sleepers == 0 && _closed) {
            wake_up_locked();
        }
    }
    if (!_closed && !out.sample && _needs_copies.load(std::memory_order_relaxed)) {
        return Attempt::RETRY;  // a reader has matched since `write` chose not to copy
    }
    out.code = attempt_locked(out);
    if (out.code == DDS_RETCODE_TIMEOUT && !out.relieved && out.deadline.is_ahead()) {
        out.sleeper = true;
        ++_sleepers;
    }
    if (!out.sleeper && !out.relieved) {
        return Attempt::OVER;
    }
    if (!out.writer) {
        out.writer = shared_from_this();
    }
    return Attempt::RETRY;
}

DDS_ReturnCode_t Writer::attempt_locked(Outgoing& out) noexcept {
    if (_closed) {
        return DDS_RETCODE_ALREADY_DELETED;
    }
    std::int64_t number = 0;
    DDS_ReturnCode_t code = next_number_locked(out.request.sequence_number, number);
    if (code != DDS_RETCODE_OK) {
        return code;
    }
    out.metadata.identity.sequence_number = mw::to_sequence_number(number);
    out.addressed = false;
    _given_number->store(number, std::memory_order_release);
    if (_needs_copies.load(std::memory_order_relaxed)) {
        if (_keeps) {
            code = make_history_room_locked(out);
            if (code != DDS_RETCODE_OK) {
                return code;
            }
        }
        // Field by field, from where each came: a copy of the whole would wait for the narrower stores that have just been made.
        mw::SampleMetadata& metadata = out.sample->metadata;
        metadata.identity.writer_guid = info()->guid;
        metadata.identity.sequence_number = mw::to_sequence_number(number);
        metadata.related_identity = out.request.related_identity;
        metadata.source_timestamp = out.metadata.source_timestamp;
        metadata.reception_timestamp = out.metadata.reception_timestamp;
        const MatchList* routed = nullptr;
        if (!_routes.empty()) {
            const auto place = _routes.find(out.metadata.related_identity.writer_guid);
            routed = place == _routes.end() ? nullptr : &place->second;
        }
        mw::SampleReference kept = _keeps ? mw::share(*out.sample) : nullptr;
        const std::size_t addressees = _unrouted.size() + (routed == nullptr ? 0 : routed->size());
        if (addressees == 1) {
            code = deliver_locked(routed == nullptr ? *_unrouted.front() : *routed->front(), out);
        } else if (addressees > 1) {
            code = out.announcements.make_room(addressees) ? deliver_to_all_locked(routed, _unrouted, out)
                                                           : DDS_RETCODE_OUT_OF_RESOURCES;
        }
        if (code != DDS_RETCODE_OK) {
            return code;
        }
        if (_keeps) {
            if (_history.size() == _history_limit) {
                out.evicted = _history.pop();
            }
            _history.push(std::move(kept));
        }
    }
    _last_number = number;
    ++_counts.written;
    _counts.unaddressed += out.addressed ? 0 : 1;
    return DDS_RETCODE_OK;
}

mw::WriteCounts Writer::counts() noexcept {
    Lock lock(_mutex);
    return _counts;
}

DDS_ReturnCode_t Writer::next_number_locked(const DDS_SequenceNumber_t& wanted, std::int64_t& number) const noexcept {
    // The greatest number is never assigned: it means "none" where samples are identified by number.
    if (wanted != DDS_AUTO_SEQUENCE_NUMBER) {
        number = mw::to_integer(wanted);
        return number > _last_number && wanted != DDS::SEQUENCE_NUMBER_MAX ? DDS_RETCODE_OK : DDS_RETCODE_BAD_PARAMETER;
    }
    number = _last_number + 1;
    return number < INT64_MAX ? DDS_RETCODE_OK : DDS_RETCODE_OUT_OF_RESOURCES;
}

DDS_ReturnCode_t Writer::make_history_room_locked(Outgoing& out) noexcept {
    if (_history.size() == _history_limit) {
        if (_keeps_last_only) {
            return DDS_RETCODE_OK;
        }
        out.sleep_at(_changes, nullptr);
        return DDS_RETCODE_TIMEOUT;
    }
    try {
        _history.make_room(_history.size() + 1);
    } catch (const std::exception&) {
        return DDS_RETCODE_OUT_OF_RESOURCES;
    }
    return DDS_RETCODE_OK;
}

// Asks a reader for room. A thread that may sleep asks once more after it has read the word: otherwise it would miss room that was
// freed between the refusal and the reading.
template <typename Ask>
mw::Admission Writer::ask_locked(const Match& match, Outgoing& out, Ask ask) noexcept {
    mw::Admission answer = match.backlog.empty() ? ask() : mw::Admission::FULL;
    if (answer == mw::Admission::FULL && match.reliable && out.deadline.is_ahead()) {
        out.sleep_at(match.reader->room(), match.reader);
        answer = match.backlog.empty() ? ask() : mw::Admission::FULL;
    }
    return answer;
}

DDS_ReturnCode_t Writer::deliver_locked(Match& match, Outgoing& out) noexcept {
    bool announce = false;
    switch (ask_locked(match, out, [&] { return match.sink->deliver(out.sample, out.wake, announce); })) {
        case mw::Admission::SLOT:
        case mw::Admission::UNWANTED:
            out.addressed = true;
            break;
        case mw::Admission::FILTERED:
            break;
        case mw::Admission::FULL:
            if (match.reliable) {
                return DDS_RETCODE_TIMEOUT;
            }
            out.addressed = true;
            announce = match.sink->sample_lost();
            break;
        case mw::Admission::NO_MEMORY:
            return DDS_RETCODE_OUT_OF_RESOURCES;
    }
    if (announce) {
        out.announcements.add(match.reader);
    }
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t Writer::deliver_to_all_locked(const MatchList* routed, const MatchList& unrouted, Outgoing& out) noexcept {
    _claims.clear();
    DDS_ReturnCode_t code = routed == nullptr ? DDS_RETCODE_OK : claim_locked(*routed, out);
    if (code == DDS_RETCODE_OK) {
        code = claim_locked(unrouted, out);
    }
    for (const Claim& claim : _claims) {
        if (code == DDS_RETCODE_OK) {
            if (claim.admitted ? claim.match->sink->commit(mw::share(*out.sample), out.wake) : claim.match->sink->sample_lost()) {
                out.announcements.add(claim.match->reader);
            }
        } else if (claim.admitted) {
            claim.match->sink->abandon();
            // Another writer may have found the reader full only because of this claim, for a new sample or for its backlog.
            claim.match->reader->signal_room();
            if (claim.match->reader->debtors().load() != 0) {
                out.relieved = claim.match->reader;
            }
        }
    }
    return code;
}

// Reserves a slot in each reader. On failure the caller releases the claims made so far.
DDS_ReturnCode_t Writer::claim_locked(const MatchList& matches, Outgoing& out) noexcept {
    for (Match* match : matches) {
        switch (ask_locked(*match, out, [&] { return match->sink->admit(out.metadata, out.sample->data); })) {
            case mw::Admission::SLOT:
                out.addressed = true;
                _claims.push_back({match, true});
                break;
            case mw::Admission::UNWANTED:
                out.addressed = true;
                break;
            case mw::Admission::FILTERED:
                break;
            case mw::Admission::FULL:
                if (match->reliable) {
                    return DDS_RETCODE_TIMEOUT;
                }
                // Counted as lost only when the write succeeds: it may be retried before.
                out.addressed = true;
                _claims.push_back({match, false});
                break;
            case mw::Admission::NO_MEMORY:
                return DDS_RETCODE_OUT_OF_RESOURCES;
        }
    }
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t Writer::wait_for_acknowledgments(const DDS_Duration_t& max_wait) noexcept {
    Deadline deadline(max_wait);
    std::shared_ptr<Writer> writer;
    std::unique_lock<platform::BriefMutex> lock(_mutex);
    while (!_closed && _backlogs != 0 && deadline.is_ahead()) {
        if (!writer) {
            writer = shared_from_this();
        }
        ++_sleepers;
        const std::uint32_t seen = _changes.load();
        lock.unlock();
        deadline.sleep(_changes, seen);
        lock.lock();
        if (--_sleepers == 0 && _closed) {
            wake_up_locked();
        }
    }
    if (_closed) {
        return DDS_RETCODE_ALREADY_DELETED;
    }
    return _backlogs == 0 ? DDS_RETCODE_OK : DDS_RETCODE_TIMEOUT;
}

void Writer::connect_locked(const std::shared_ptr<Reader>& reader, platform::WakeBatch& wake, bool& announce) {
    const bool reliable = _reliable && reader->info()->reliability.kind == DDS_RELIABLE_RELIABILITY_QOS;
    std::unique_ptr<Match> match(new Match{&reader->sink(), reliable, SampleQueue(), reader, 0});
    Lock lock(_mutex);
    try {
        // First what can fail.
        make_room_for_one(_matches);
        _claims.reserve(_matches.capacity());
        MatchList& list = reader->routed() ? _routes[reader->route()] : _unrouted;
        make_room_for_one(list);
        if (reader->info()->durability.kind == DDS_TRANSIENT_LOCAL_DURABILITY_QOS) {
            replay_locked(*match, wake, announce);
        }
        list.push_back(match.get());
    } catch (...) {
        drop_empty_route_locked(*reader);
        throw;
    }
    _backlogs += match->backlog.empty() ? 0 : 1;
    match->position = _matches.size();
    _matches.push_back(std::move(match));
    _needs_copies.store(true, std::memory_order_relaxed);
}

// Sends the history to a newly matched reader. What it cannot accept stays in the backlog of the match.
void Writer::replay_locked(Match& match, platform::WakeBatch& wake, bool& announce) {
    if (_history.empty()) {
        return;
    }
    if (match.reliable) {
        match.backlog.make_room(_history.size());
    }
    match.reader->debtors().fetch_add(1);
    for (std::size_t position = 0; position < _history.size(); ++position) {
        mw::Sample& sample = _history[position];
        if (match.reader->routed() && sample.metadata.related_identity.writer_guid != match.reader->route()) {
            continue;
        }
        bool wanted = false;
        mw::SampleReference sent = mw::share(sample);
        const mw::Admission answer = match.backlog.empty() ? match.sink->deliver(sent, wake, wanted) : mw::Admission::FULL;
        if (answer == mw::Admission::NO_MEMORY) {
            match.reader->debtors().fetch_sub(1);
            throw std::bad_alloc();
        }
        if (answer == mw::Admission::FULL && match.reliable) {
            match.backlog.push(std::move(sent));
        } else if (answer == mw::Admission::FULL) {
            wanted = match.sink->sample_lost();
        }
        announce = announce || wanted;
    }
    if (match.backlog.empty()) {
        match.reader->debtors().fetch_sub(1);
    }
}

void Writer::send_backlog_locked(const Reader& reader, platform::WakeBatch& wake, bool& announce) noexcept {
    for (bool more = true; more;) {
        // Released before the next round, but with the writer unlocked.
        mw::SampleReference sent;
        Lock lock(_mutex);
        Match* match = match_of_locked(reader);
        if (match == nullptr || match->backlog.empty()) {
            return;
        }
        bool wanted = false;
        sent = mw::share(match->backlog[0]);
        const mw::Admission answer = match->sink->deliver(sent, wake, wanted);
        if (answer == mw::Admission::FULL) {
            return;  // its next `room_freed` comes here again
        }
        if (answer == mw::Admission::NO_MEMORY) {
            // No `room_freed` would follow: one sample counted as lost is better than a writer that is stuck.
            wanted = match->sink->sample_lost();
        }
        announce = announce || wanted;
        sent = match->backlog.pop();
        if (match->backlog.empty()) {
            settle_backlog_locked(*match);
            more = false;
        }
    }
}

void Writer::disconnect_locked(const Reader& reader) noexcept {
    std::unique_ptr<Match> gone;
    Lock lock(_mutex);
    Match* match = match_of_locked(reader);
    if (match == nullptr) {
        return;
    }
    MatchList& list = *list_of_locked(reader);
    *std::find(list.begin(), list.end(), match) = list.back();
    list.pop_back();
    drop_empty_route_locked(reader);
    if (!match->backlog.empty()) {
        settle_backlog_locked(*match);
    }
    gone.swap(_matches.back());
    _matches.pop_back();
    if (gone.get() != match) {
        gone->position = match->position;
        gone.swap(_matches[gone->position]);
    }
    _needs_copies.store(_keeps || !_matches.empty(), std::memory_order_relaxed);
}

std::vector<std::unique_ptr<Match>> Writer::shut_locked() noexcept {
    SampleQueue history;
    std::vector<std::unique_ptr<Match>> matches;
    {
        Lock lock(_mutex);
        _closed = true;
        matches.swap(_matches);
        std::swap(history, _history);
        _routes.clear();
        _unrouted.clear();
        for (const std::unique_ptr<Match>& match : matches) {
            if (!match->backlog.empty()) {
                settle_backlog_locked(*match);
            }
        }
        wake_up_locked();
    }
    // Threads that wait for room in a reader find the writer closed when they wake.
    for (const std::unique_ptr<Match>& match : matches) {
        match->reader->signal_room();
    }
    return matches;
}

void Writer::wait_until_nobody_sleeps() noexcept {
    std::unique_lock<platform::BriefMutex> lock(_mutex);
    while (_sleepers != 0) {
        const std::uint32_t seen = _changes.load();
        lock.unlock();
        platform::wait_on(_changes, seen, platform::NO_DEADLINE);
        lock.lock();
    }
}

Writer::MatchList* Writer::list_of_locked(const Reader& reader) noexcept {
    if (!reader.routed()) {
        return &_unrouted;
    }
    const auto place = _routes.find(reader.route());
    return place == _routes.end() ? nullptr : &place->second;
}

Match* Writer::match_of_locked(const Reader& reader) noexcept {
    MatchList* list = list_of_locked(reader);
    if (list == nullptr) {
        return nullptr;
    }
    const auto place = std::find_if(list->begin(), list->end(), [&](const Match* match) { return match->reader.get() == &reader; });
    return place == list->end() ? nullptr : *place;
}

void Writer::drop_empty_route_locked(const Reader& reader) noexcept {
    const auto place = reader.routed() ? _routes.find(reader.route()) : _routes.end();
    if (place != _routes.end() && place->second.empty()) {
        _routes.erase(place);
    }
}

// The match has no backlog any more, or is gone with it.
void Writer::settle_backlog_locked(Match& match) noexcept {
    --_backlogs;
    match.reader->debtors().fetch_sub(1);
    wake_up_locked();
}

void Writer::wake_up_locked() noexcept {
    _changes.fetch_add(1);
    platform::wake_all(_changes);
}

}  // namespace embedded
}  // namespace norvane
