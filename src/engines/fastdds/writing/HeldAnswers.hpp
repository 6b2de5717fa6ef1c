// SPDX-License-Identifier: Apache-2.0
// Answers that wait, because their requester cannot hear them yet: its reader is to come, or it was lost a short while ago and may only have been stopped.
// Those behind one that waits, for the same requester, wait too.
//
// Thread rule: under the mutex of the writer's RTPS writer, but for `has_any`.
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
    DDS_GUID_t participant;  ///< Of a requester that was lost: another that comes under its name is not meant.
    std::int64_t deadline_ns;
};

class HeldAnswers {
public:
    /// @param patience  how long an answer waits.
    /// @param most      with so many waiting none is held for a requester that is lost: the others keep that room.
    HeldAnswers(Domain& domain, const MatchedReaders& audience, const DDS_Duration_t& patience, std::int64_t most) noexcept
        : _domain(domain), _readers(audience), _patience(patience), _most_for_lost(most) {}
    HeldAnswers(const HeldAnswers&) = delete;
    HeldAnswers& operator=(const HeldAnswers&) = delete;

    /// @param participant  gets that of a requester that was lost.
    /// @return 0 to send an answer to it now; else until when it is to wait.
    std::int64_t deadline_of(const DDS_GUID_t& requester, DDS_GUID_t& participant) const noexcept;
    /// @throws std::bad_alloc
    void add(const HeldAnswer& answer);

    std::int64_t size() const noexcept { return static_cast<std::int64_t>(_answers.size()); }
    bool is_empty() const noexcept { return _answers.empty(); }
    /// As it was a moment ago. Any thread.
    bool has_any() const noexcept { return _has_any.load(); }

    /// Lets go of those whose requester hears them, is gone, or was waited for long enough.
    /// @param has_room  whether one more may be sent; when not, all that come behind it wait.
    /// @param let_go    gets the answer, whether it is to be sent, and whether anybody hears it. It owns the change from then on, and does not throw.
    /// @return when the next one will have waited long enough; NO_DEADLINE for none.
    template <typename HasRoom, typename LetGo>
    std::int64_t release(std::int64_t now_ns, const HasRoom& has_room, const LetGo& let_go) {
        std::int64_t next_ns = platform::NO_DEADLINE;
        auto kept = _answers.begin();
        auto place = _answers.begin();
        for (; place != _answers.end(); ++place) {
            bool is_heard = false;
            const bool is_alive = is_requester_alive(*place, is_heard);
            if (is_alive && !is_heard && now_ns < place->deadline_ns) {
                next_ns = std::min(next_ns, place->deadline_ns);
                *kept++ = *place;
            } else if (!is_alive || has_room()) {
                let_go(*place, is_alive, is_heard || _readers.has_unrouted());
            } else {
                break;
            }
        }
        _answers.erase(kept, place);
        _has_any.store(!_answers.empty());
        return next_ns;
    }

    /// @param let_go  gets the change of each.
    template <typename LetGo>
    void clear(const LetGo& let_go) {
        for (const HeldAnswer& answer : _answers) {
            let_go(answer.change);
        }
        _answers.clear();
    }

private:
    bool is_requester_alive(const HeldAnswer& answer, bool& is_heard) const noexcept;

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
