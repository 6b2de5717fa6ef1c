// SPDX-License-Identifier: Apache-2.0
#include "middleware/FreeSamples.hpp"

#include <mutex>

namespace norvane {
namespace mw {

namespace {

// Few: with more samples in use than there are places, each take and each put looks at so many in vain.
constexpr std::size_t NEAR = 4;

}  // namespace

FreeSamples::FreeSamples(std::size_t capacity) noexcept
    : _places_in_use(capacity < MOST_PLACES ? FEWEST_PLACES : MOST_PLACES), _stack_capacity(capacity - _places_in_use) {}

Sample* FreeSamples::take() noexcept {
    Sample* sample = take_from_places(NEAR);
    if (sample == nullptr) {
        sample = take_from_stack();
    }
    if (sample == nullptr) {
        sample = take_from_places(_places_in_use);
    }
    return sample;
}

Sample* FreeSamples::take_from_places(std::size_t looks) noexcept {
    const std::size_t end = _end.load(std::memory_order_relaxed);
    for (std::size_t step = 1; step <= looks; ++step) {
        const std::size_t index = (end - step) & (_places_in_use - 1);
        std::atomic<Sample*>& place = _places[index];
        Sample* sample = place.load(std::memory_order_relaxed);
        if (sample == closed_mark()) {
            return nullptr;
        }
        // A sample that left the place and came back meanwhile is as good.
        if (sample != nullptr &&
            place.compare_exchange_strong(sample, nullptr, std::memory_order_acquire, std::memory_order_relaxed)) {
            _end.store(index, std::memory_order_relaxed);
            return sample;
        }
    }
    return nullptr;
}

Sample* FreeSamples::take_from_stack() noexcept {
    // Without the lock when there is nothing: a sample that is put there meanwhile comes too late.
    if (_stacked.load(std::memory_order_relaxed) == 0) {
        return nullptr;
    }
    std::lock_guard<platform::BriefMutex> lock(_mutex);
    if (_emptied == nullptr) {
        _emptied = empty_stack(nullptr);
    }
    Sample* sample = _emptied;
    if (sample != nullptr) {
        _emptied = sample->next;
        _stacked.fetch_sub(1, std::memory_order_relaxed);
    }
    return sample;
}

Sample* FreeSamples::empty_stack(Sample* replacement) noexcept {
    Sample* top = _stack.load(std::memory_order_relaxed);
    while (top != closed_mark()) {
        if (_stack.compare_exchange_weak(top, replacement, std::memory_order_acquire, std::memory_order_relaxed)) {
            return top;
        }
    }
    return nullptr;
}

bool FreeSamples::put(Sample& sample) noexcept {
    const std::size_t end = _end.load(std::memory_order_relaxed);
    for (std::size_t step = 0; step < NEAR; ++step) {
        const std::size_t index = (end + step) & (_places_in_use - 1);
        std::atomic<Sample*>& place = _places[index];
        Sample* found = place.load(std::memory_order_relaxed);
        if (found == closed_mark()) {
            return false;
        }
        if (found == nullptr) {
            _end.store(index + 1, std::memory_order_relaxed);  // first: the pool may be gone once the sample is in its place
            if (place.compare_exchange_strong(found, &sample, std::memory_order_release, std::memory_order_relaxed)) {
                return true;
            }
        }
    }
    return put_on_stack(sample);
}

bool FreeSamples::put_on_stack(Sample& sample) noexcept {
    if (_stacked.load(std::memory_order_relaxed) >= _stack_capacity) {
        return false;
    }
    _stacked.fetch_add(1, std::memory_order_relaxed);  // first, as above
    Sample* top = _stack.load(std::memory_order_relaxed);
    while (top != closed_mark()) {
        sample.next = top;
        if (_stack.compare_exchange_weak(top, &sample, std::memory_order_release, std::memory_order_relaxed)) {
            return true;
        }
    }
    return false;
}

Sample* FreeSamples::close() noexcept {
    Sample* kept = nullptr;
    for (std::atomic<Sample*>& place : _places) {
        Sample* sample = place.exchange(closed_mark(), std::memory_order_acquire);
        if (sample != nullptr) {
            sample->next = kept;
            kept = sample;
        }
    }
    std::lock_guard<platform::BriefMutex> lock(_mutex);
    for (Sample* list : {_emptied, empty_stack(closed_mark())}) {
        while (list != nullptr) {
            Sample* next = list->next;
            list->next = kept;
            kept = list;
            list = next;
        }
    }
    _emptied = nullptr;
    return kept;
}

}  // namespace mw
}  // namespace norvane
