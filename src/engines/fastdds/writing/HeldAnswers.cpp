// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/writing/HeldAnswers.hpp"

#include <memory>
#include "middleware/clock.hpp"

namespace norvane {
namespace fastdds {

std::int64_t HeldAnswers::deadline_of(const DDS_GUID_t& requester, DDS_GUID_t& participant) const noexcept {
    if (requester == DDS_GUID_UNKNOWN || (_readers.has_reader_of(requester) && _answers.empty())) {
        return 0;
    }
    const std::int64_t patience_ends_ns = mw::deadline_after(_patience);
    const bool has_one_before =
        std::any_of(_answers.begin(), _answers.end(), [&](const HeldAnswer& held) { return held.requester == requester; });
    const std::shared_ptr<const Discovered> announced = _domain.find_requester(requester);
    if (announced) {
        return has_one_before || !_readers.is_in_reach(requester, announced.get()) ? patience_ends_ns : 0;
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

// @return whether the requester is there, or may come back. @param is_heard  gets whether a reader for its answers has matched.
bool HeldAnswers::is_requester_alive(const HeldAnswer& answer, bool& is_heard) const noexcept {
    const std::shared_ptr<const Discovered> announced = _domain.find_requester(answer.requester);
    const bool is_another =
        announced && answer.participant != DDS_GUID_UNKNOWN && announced->info.participant_guid != answer.participant;
    is_heard = !is_another && _readers.is_in_reach(answer.requester, announced.get());
    DDS_GUID_t participant;
    return is_heard || (announced ? !is_another : _domain.return_deadline_ns(answer.requester, participant) != 0);
}

}  // namespace fastdds
}  // namespace norvane
