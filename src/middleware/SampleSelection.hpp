// SPDX-License-Identifier: Apache-2.0
// A reader's samples in their slots, and the selections they are found by: the whole store, or one key of its index.
//
// Invariants:
// 1. A selection holds its samples in order of reception, and those that were not read once more: an operation costs what it returns.
// 2. The counters agree with the lists whenever the store's lock is free. They change under it, and are atomic for the triggers, which read
//    them without it.
// Thread rule: none of its own, but for the counters and the interruption; guarded by the store's lock.
#ifndef NORVANE_MIDDLEWARE_SAMPLESELECTION_HPP
#define NORVANE_MIDDLEWARE_SAMPLESELECTION_HPP

#include <atomic>
#include <cstdint>

#include "middleware/Engine.hpp"
#include "middleware/IntrusiveList.hpp"
#include "middleware/ReadCondition.hpp"

namespace norvane {
namespace mw {

/// One sample of a store.
struct SampleSlot {
    Sample* sample = nullptr;
    SampleSelection* key = nullptr;  // null without an index, or for a sample that answers none
    std::int64_t reception_number = 0;
    std::uint32_t pins = 0;  // loans that it is part of
    bool listed = false;
    bool read = false;
    ListLink<SampleSlot> links[4];  // in the whole store: all, not read; under the key: all, not read
    SampleSlot* next_free = nullptr;
};

/// The slots of a selection, through one of their four links.
class SlotList {
public:
    SampleSlot* front() const noexcept { return _first; }

    void push_back(SampleSlot& slot, int link) noexcept {
        slot.links[link].previous = _last;
        slot.links[link].next = nullptr;
        if (_last != nullptr) {
            _last->links[link].next = &slot;
        } else {
            _first = &slot;
        }
        _last = &slot;
    }

    void remove(SampleSlot& slot, int link) noexcept {
        const ListLink<SampleSlot>& out = slot.links[link];
        if (out.previous != nullptr) {
            out.previous->links[link].next = out.next;
        } else {
            _first = out.next;
        }
        if (out.next != nullptr) {
            out.next->links[link].previous = out.previous;
        } else {
            _last = out.previous;
        }
    }

private:
    SampleSlot* _first = nullptr;
    SampleSlot* _last = nullptr;
};

struct SampleSelection {
    static constexpr int WHOLE_LINK = 0;
    static constexpr int KEY_LINK = 2;

    int link = WHOLE_LINK;  // of `all`; that of `unread` is the next
    std::uint64_t key = 0;
    SlotList all;
    SlotList unread;
    std::atomic<std::int64_t> unread_count{0};
    std::atomic<std::int64_t> read_count{0};
    std::atomic<int> interruption{DDS_RETCODE_OK};
    IntrusiveList<ReadCondition, &ReadCondition::in_selection> conditions;
    SampleSelection* next_free = nullptr;

    /// Appends a slot, read or not.
    void add(SampleSlot& slot) noexcept {
        all.push_back(slot, link);
        if (slot.read) {
            change(read_count, 1);
        } else {
            unread.push_back(slot, link + 1);
            change(unread_count, 1);
        }
    }

    void remove(SampleSlot& slot) noexcept {
        all.remove(slot, link);
        if (slot.read) {
            change(read_count, -1);
        } else {
            unread.remove(slot, link + 1);
            change(unread_count, -1);
        }
    }

    /// A slot of this selection was not read, and is now.
    void note_read(SampleSlot& slot) noexcept {
        unread.remove(slot, link + 1);
        change(unread_count, -1);
        change(read_count, 1);
    }

private:
    static void change(std::atomic<std::int64_t>& counter, std::int64_t difference) noexcept {
        counter.store(counter.load(std::memory_order_relaxed) + difference, std::memory_order_relaxed);
    }
};

}  // namespace mw
}  // namespace norvane

#endif
