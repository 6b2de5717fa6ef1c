// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/writing/HeldAnswers.hpp"

#include <memory>
#include "middleware/clock.hpp"

namespace norvane {
namespace fastdds {

namespace {

// A requester and its reader are announced together, and matched within a moment.
constexpr std::int64_t SUCCESSION_NS = 1000LL * 1000 * 1000;

}  // namespace

std::int64_t HeldAnswers::deadline_of(const DDS_GUID_t& requester, DDS_GUID_t& participant) const noexcept {
    if (requester == DDS_GUID_UNKNOWN || (_readers.has_reader_of(requester) && _answers.empty())) {
        return 0;
    }
    const std::int64_t patience_ends_ns = mw::deadline_after(_patience);
    const bool has_one_before =
        std::any_of(_answers.begin(), _answers.end(), [&](const HeldAnswer& held) { return held.requester == requester; });
    const std::shared_ptr<const Discovered> announced = _domain.find_requester(requester);
    if (announced) {
        const std::int64_t heard_ns = time_of_hearing(*announced);
        return has_one_before ? patience_ends_ns : heard_ns == 0 ? 0 : std::min(patience_ends_ns, heard_ns);
    }
    const std::int64_t return_ns = size() < _most_for_lost ? _domain.return_deadline_ns(requester, participant) : 0;
    if (return_ns != 0) {
        return std::min(patience_ends_ns, return_ns);
    }
    return has_one_before ? patience_ends_ns : 0;
}

void HeldAnswers::add(const HeldAnswer& answer) {
    _answers.push_back(answer);
    _has_any.store(true);
}

// @return 0 if a reader receives what is written now; otherwise the time from which one does, as far as is known.
std::int64_t HeldAnswers::time_of_hearing(const Discovered& requester) const noexcept {
    if (_readers.is_in_reach(requester)) {
        return 0;
    }
    if (!_readers.is_in_reach(requester.info.guid)) {
        return platform::NO_DEADLINE;
    }
    // Another one with its GUID is: the one that was killed, so that this one, its successor, is waited for; or the true one, which
    // a stranger must not keep waiting.
    const std::int64_t heard_ns = requester.since_ns + SUCCESSION_NS;
    return heard_ns <= platform::monotonic_ns() ? 0 : heard_ns;
}

// @return whether the requester is there, or may come back. @param heard_ns  as of `time_of_hearing`.
bool HeldAnswers::is_requester_alive(const HeldAnswer& answer, std::int64_t& heard_ns) const noexcept {
    heard_ns = platform::NO_DEADLINE;
    const std::shared_ptr<const Discovered> announced = _domain.find_requester(answer.requester);
    if (announced) {
        const bool is_another =
            answer.participant != DDS_GUID_UNKNOWN && !_domain.has_requester(answer.requester, [&](const Discovered& claimant) {
                return claimant.info.participant_guid == answer.participant;
            });
        heard_ns = is_another ? platform::NO_DEADLINE : time_of_hearing(*announced);
        return !is_another;
    }
    if (_readers.has_reader_of(answer.requester)) {
        heard_ns = 0;
        return true;
    }
    DDS_GUID_t participant;
    return _domain.return_deadline_ns(answer.requester, participant) != 0;
}

}  // namespace fastdds
}  // namespace norvane
