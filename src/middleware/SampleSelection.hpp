// SPDX-License-Identifier: Apache-2.0
// A reader's samples in their slots, and the selections they are found by: the whole store, or one key of its index.
//
// Invariants:
// 1. A selection lists its samples in order of reception, and the unread ones in a second list: an operation costs what it returns.
// 2. The counters agree with the lists whenever the store's lock is free. They change under it, and are atomic for the triggers,
//    which read them without it.
// Thread rule: none of its own, but for the counters and the interruption; guarded by the store's lock.
#ifndef NORVANE_MIDDLEWARE_SAMPLESELECTION_HPP
#define NORVANE_MIDDLEWARE_SAMPLESELECTION_HPP

#include <atomic>
#include <cstdint>

#include "middleware/Engine.hpp"
#include "middleware/IntrusiveList.hpp"
#include "middleware/ReadCondition.hpp"
#include "platform/Processor.hpp"

namespace norvane {
namespace mw {

struct SampleSlot;

/// The place of a slot in a selection.
struct SamplePlace {
    explicit SamplePlace(SampleSlot& owner) noexcept : slot(owner) {}

    SampleSlot& slot;
    ListHook in_all;
    ListHook in_unread;
};

/// One sample of a store. Writers and readers change it in turn, from different processors: neighbours share no cache line.
struct alignas(platform::CACHE_LINE) SampleSlot {
    SampleSlot() = default;
    SampleSlot(const SampleSlot&) = delete;
    SampleSlot& operator=(const SampleSlot&) = delete;

    Sample* sample = nullptr;
    SampleSelection* key = nullptr;  // null without an index, or for a sample that answers none
    std::int64_t reception_number = 0;
    std::uint32_t pins = 0;  // loans that it is part of
    bool listed = false;
    bool read = false;
    SamplePlace in_whole{*this};
    SamplePlace in_key{*this};
    SampleSlot* next_free = nullptr;
};

/// What every sample changes stands first, in one cache line.
struct alignas(platform::CACHE_LINE) SampleSelection {
    typedef IntrusiveList<SamplePlace, &SamplePlace::in_all> AllPlaces;
    typedef IntrusiveList<SamplePlace, &SamplePlace::in_unread> UnreadPlaces;

    typedef IntrusiveList<ReadCondition, &ReadCondition::in_selection> Conditions;

    AllPlaces all;
    UnreadPlaces unread;
    std::atomic<std::int64_t> unread_count{0};
    std::atomic<std::int64_t> read_count{0};
    Conditions conditions;
    SamplePlace SampleSlot::*place = &SampleSlot::in_key;
    std::uint64_t key = 0;
    std::atomic<int> interruption{DDS_RETCODE_OK};
    SampleSelection* next_free = nullptr;

    /// Appends a slot, read or not.
    void add(SampleSlot& slot) noexcept {
        all.push_back(slot.*place);
        if (slot.read) {
            change(read_count, 1);
        } else {
            unread.push_back(slot.*place);
            change(unread_count, 1);
        }
    }

    void remove(SampleSlot& slot) noexcept {
        all.erase(AllPlaces::s_iterator_to(slot.*place));
        if (slot.read) {
            change(read_count, -1);
        } else {
            unread.erase(UnreadPlaces::s_iterator_to(slot.*place));
            change(unread_count, -1);
        }
    }

    /// A slot of this selection was not read, and is now.
    void note_read(SampleSlot& slot) noexcept {
        unread.erase(UnreadPlaces::s_iterator_to(slot.*place));
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
