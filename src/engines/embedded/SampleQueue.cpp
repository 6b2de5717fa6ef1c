// SPDX-License-Identifier: Apache-2.0
#include "engines/embedded/SampleQueue.hpp"

#include <algorithm>
#include <utility>

namespace norvane {
namespace embedded {

void SampleQueue::make_room(std::size_t count) {
    if (count <= _slots.size()) {
        return;
    }
    std::vector<mw::SampleReference> roomier(std::max(count, _slots.size() * 2));
    for (std::size_t position = 0; position < _count; ++position) {
        roomier[position] = std::move(_slots[(_first + position) % _slots.size()]);
    }
    _slots.swap(roomier);
    _first = 0;
}

void SampleQueue::push(mw::SampleReference sample) noexcept {
    _slots[(_first + _count) % _slots.size()] = std::move(sample);
    ++_count;
}

mw::SampleReference SampleQueue::pop() noexcept {
    mw::SampleReference oldest = std::move(_slots[_first]);
    _first = (_first + 1) % _slots.size();
    --_count;
    return oldest;
}

}  // namespace embedded
}  // namespace norvane
