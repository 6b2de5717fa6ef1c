// SPDX-License-Identifier: Apache-2.0
// Samples in order, each held by one reference: the history of a transient-local writer, and the backlog of a full reader.
// A ring that grows and never shrinks. Thread rule: its owner's lock.
#ifndef NORVANE_ENGINES_EMBEDDED_SAMPLEQUEUE_HPP
#define NORVANE_ENGINES_EMBEDDED_SAMPLEQUEUE_HPP

#include <cstddef>
#include <vector>

#include "middleware/Engine.hpp"

namespace norvane {
namespace embedded {

class SampleQueue {
public:
    bool empty() const noexcept { return _count == 0; }
    std::size_t size() const noexcept { return _count; }
    /// @param position  0 is the oldest.
    mw::Sample& operator[](std::size_t position) const noexcept { return *_slots[(_first + position) % _slots.size()]; }

    /// Makes room for `count` samples in total.
    /// @throws std::bad_alloc  nothing has changed.
    void make_room(std::size_t count);
    /// Appends a sample. There must be room.
    void push(mw::SampleReference sample) noexcept;
    /// @return the reference to the oldest sample. There must be one.
    mw::SampleReference pop() noexcept;

private:
    std::vector<mw::SampleReference> _slots;
    std::size_t _first = 0;
    std::size_t _count = 0;
};

}  // namespace embedded
}  // namespace norvane

#endif
