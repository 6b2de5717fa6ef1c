// SPDX-License-Identifier: Apache-2.0
// Answers that wait because their requester cannot receive them yet: its reader has not matched, or it was lost a short while ago
// and may only have been stopped. Later answers to the same requester wait behind them.
//
// Thread rule: under the mutex of the writer's RTPS writer, except `has_any`.
#ifndef NORVANE_ENGINES_FASTDDS_WRITING_HELDANSWERS_HPP
#define NORVANE_ENGINES_FASTDDS_WRITING_HELDANSWERS_HPP

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <deque>

#include <fastdds/rtps/common/CacheChange.h>
#include <fastdds/rtps/common/WriteParams.h>

#include "engines/fastdds/writing/MatchedReaders.hpp"
#include "platform/Clock.hpp"

namespace norvane {
namespace fastdds {

struct HeldAnswer {
    rtps::CacheChange_t* change;
    rtps::WriteParams params;
    DDS_GUID_t requester;
    DDS_GUID_t participant;  ///< Of a requester that was lost: one of another participant with the same GUID does not get it.
    std::int64_t deadline_ns;
};

class HeldAnswers {
public:
    /// @param patience  longest time that an answer waits.
    /// @param most  with so many answers waiting, none is held for a lost requester: the room is left to the others.
    HeldAnswers(Domain& domain, const MatchedReaders& audience, const DDS_Duration_t& patience, std::int64_t most) noexcept
        : _domain(domain), _readers(audience), _patience(patience), _most_for_lost(most) {}
    HeldAnswers(const HeldAnswers&) = delete;
    HeldAnswers& operator=(const HeldAnswers&) = delete;

    /// @param participant  gets the participant of a lost requester.
    /// @return 0 if an answer to it can be sent now; otherwise the time until which it waits.
    std::int64_t deadline_of(const DDS_GUID_t& requester, DDS_GUID_t& participant) const noexcept;
    /// @throws std::bad_alloc
    void add(const HeldAnswer& answer);

    std::int64_t size() const noexcept { return static_cast<std::int64_t>(_answers.size()); }
    bool is_empty() const noexcept { return _answers.empty(); }
    /// May be out of date when it returns. Any thread.
    bool has_any() const noexcept { return _has_any.load(); }

    /// Releases the answers whose requester can receive them, has left, or has been waited for long enough.
    /// @param has_room  whether one more may be sent; if not, all answers behind it wait.
    /// @param let_go  gets the answer, whether to send it, and whether a reader receives it. It owns the change from then on, and
    ///         does not throw.
    /// @return when the next answer will have waited long enough; NO_DEADLINE for none.
    template <typename HasRoom, typename LetGo>
    std::int64_t release(std::int64_t now_ns, const HasRoom& has_room, const LetGo& let_go) {
        std::int64_t next_ns = platform::NO_DEADLINE;
        auto kept = _answers.begin();
        auto place = _answers.begin();
        for (; place != _answers.end(); ++place) {
            std::int64_t heard_ns = 0;
            const bool is_alive = is_requester_alive(*place, heard_ns);
            if (is_alive && heard_ns != 0 && now_ns < place->deadline_ns) {
                next_ns = std::min({next_ns, place->deadline_ns, heard_ns});
                *kept++ = *place;
            } else if (!is_alive || has_room()) {
                let_go(*place, is_alive, heard_ns == 0 || _readers.has_unrouted());
            } else {
                break;
            }
        }
        _answers.erase(kept, place);
        _has_any.store(!_answers.empty());
        return next_ns;
    }

    /// @param let_go  gets the change of each answer.
    template <typename LetGo>
    void clear(const LetGo& let_go) {
        for (const HeldAnswer& answer : _answers) {
            let_go(answer.change);
        }
        _answers.clear();
    }

private:
    std::int64_t time_of_hearing(const Discovered& requester) const noexcept;
    bool is_requester_alive(const HeldAnswer& answer, std::int64_t& heard_ns) const noexcept;

    Domain& _domain;
    const MatchedReaders& _readers;
    const DDS_Duration_t _patience;
    const std::int64_t _most_for_lost;
    std::deque<HeldAnswer> _answers;
    std::atomic<bool> _has_any{false};
};

}  // namespace fastdds
}  // namespace norvane

#endif
