// SPDX-License-Identifier: Apache-2.0
// The free samples of a pool: a ring of places in front of a stack.
//
// A place is filled and emptied by one compare-and-swap. What finds no place near the end of the filled ones goes to the stack,
// which is filled without a lock and emptied under one. Closed, it keeps nothing more: each place, and the stack, then hold a mark.
// Thread rule: any thread that holds a share in the pool, by its ownership or by a sample.
#ifndef NORVANE_MIDDLEWARE_FREESAMPLES_HPP
#define NORVANE_MIDDLEWARE_FREESAMPLES_HPP

#include <array>
#include <atomic>
#include <cstddef>

#include "middleware/Engine.hpp"
#include "platform/BriefMutex.hpp"
#include "platform/Processor.hpp"

namespace norvane {
namespace mw {

class FreeSamples {
public:
    /// @param capacity  samples kept at most, at least 8; threads that put at the same time may each exceed it by one.
    explicit FreeSamples(std::size_t capacity) noexcept;
    FreeSamples(const FreeSamples&) = delete;
    FreeSamples& operator=(const FreeSamples&) = delete;

    /// @return a sample; null when all places and the stack were found empty, or closed.
    Sample* take() noexcept;
    /// @return whether the sample is kept; not when there is no room, or after `close`. Once it is kept the pool may be gone.
    bool put(Sample& sample) noexcept;
    /// Keeps nothing more. Called once. @return what was kept, linked by `next`.
    Sample* close() noexcept;

private:
    static constexpr std::size_t MOST_PLACES = 64;
    static constexpr std::size_t FEWEST_PLACES = 8;

    Sample* take_from_places(std::size_t looks) noexcept;
    Sample* take_from_stack() noexcept;
    Sample* empty_stack(Sample* replacement) noexcept;
    bool put_on_stack(Sample& sample) noexcept;
    // Never dereferenced; no sample has this address.
    Sample* closed_mark() noexcept { return reinterpret_cast<Sample*>(this); }

    const std::size_t _places_in_use;  // a power of two
    const std::size_t _stack_capacity;

    alignas(platform::CACHE_LINE) std::array<std::atomic<Sample*>, MOST_PLACES> _places{};
    alignas(platform::CACHE_LINE) std::atomic<std::size_t> _end{0};  // where the filled places are believed to end

    alignas(platform::CACHE_LINE) platform::BriefMutex _mutex;
    Sample* _emptied = nullptr;  // what is left of the stack as it was last emptied; guarded by the mutex

    alignas(platform::CACHE_LINE) std::atomic<Sample*> _stack{nullptr};
    std::atomic<std::size_t> _stacked{0};  // on the stack and in what is left of it
};

}  // namespace mw
}  // namespace norvane

#endif
