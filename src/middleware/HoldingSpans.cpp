// SPDX-License-Identifier: Apache-2.0
#include "middleware/HoldingSpans.hpp"

#include <algorithm>
#include <iterator>

#include "middleware/ListenerGate.hpp"

namespace norvane {
namespace mw {

void HoldingSpans::begin(const char* holder) { _spans.push_back({std::this_thread::get_id(), listener_depth::depth, holder}); }

bool HoldingSpans::end() noexcept {
    const auto last = last_of_this_thread();
    if (last == _spans.rend()) {
        return false;
    }
    _spans.erase(std::next(last).base());
    return true;
}

const char* HoldingSpans::current() const noexcept {
    const auto last = last_of_this_thread();
    return last != _spans.rend() && last->listener_depth == listener_depth::depth ? last->holder : nullptr;
}

HoldingSpans::Spans::const_reverse_iterator HoldingSpans::last_of_this_thread() const noexcept {
    return std::find_if(_spans.rbegin(), _spans.rend(), [](const Span& span) { return span.thread == std::this_thread::get_id(); });
}

}  // namespace mw
}  // namespace norvane
