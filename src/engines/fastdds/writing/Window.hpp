// SPDX-License-Identifier: Apache-2.0
// The samples of a writer that are on the way: sent, and not yet acknowledged by every reader. Numbers are those of Fast DDS.
//
// Invariants:
// 1. The numbers after `acknowledged()` up to `last_sent()` are on the way. Each of them has one entry, in order.
// 2. `octets()` is the sum of the entries.
// 3. `acknowledged()` never decreases.
//
// Thread rule: under the mutex of the writer's RTPS writer.
#ifndef NORVANE_ENGINES_FASTDDS_WRITING_WINDOW_HPP
#define NORVANE_ENGINES_FASTDDS_WRITING_WINDOW_HPP

#include <cstddef>
#include <cstdint>
#include <deque>

namespace norvane {
namespace fastdds {

class Window {
public:
    /// Most octets on the way, whatever the number of samples. A single sample may exceed it.
    static constexpr std::int64_t MOST_OCTETS = 64 * 1024 * 1024;

    /// @param most  samples on the way at most.
    explicit Window(std::int64_t most) noexcept : _most(most) {}
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

    std::int64_t most() const noexcept { return _most; }
    std::int64_t last_sent() const noexcept { return _last_sent; }
    /// @return the number up to which every reader has every sample.
    std::int64_t acknowledged() const noexcept { return _acknowledged; }
    std::int64_t on_the_way() const noexcept { return _last_sent - _acknowledged; }
    std::int64_t octets() const noexcept { return _octets; }
    bool has_too_many_octets() const noexcept { return _octets >= MOST_OCTETS; }
    bool is_full() const noexcept { return on_the_way() >= _most || has_too_many_octets(); }
    /// @return when the oldest sample on the way was sent. There must be one.
    std::int64_t oldest_sent_ns() const noexcept { return _sent.front().when_ns; }

    /// Assigns the next number to a sample that is about to be sent. @throws std::bad_alloc
    void add(std::uint32_t octets, std::int64_t when_ns) {
        _sent.push_back({octets, when_ns});
        _octets += octets;
        ++_last_sent;
    }
    /// The sample added last was not sent: its number is free again. It must not be acknowledged.
    void take_back() noexcept {
        _octets -= _sent.back().octets;
        _sent.pop_back();
        --_last_sent;
    }

    /// Acknowledges samples in order until one has not arrived.
    /// @param proven  the number up to which arrival is known.
    /// @param has_arrived  asked for each number beyond.
    template <typename HasArrived>
    void advance(std::int64_t proven, const HasArrived& has_arrived) noexcept {
        while (_acknowledged < _last_sent && (_acknowledged < proven || has_arrived(_acknowledged + 1))) {
            ++_acknowledged;
            _octets -= _sent.front().octets;
            _sent.pop_front();
        }
    }
    /// For a best-effort writer, which waits for nothing.
    void acknowledge_all() noexcept {
        _acknowledged = _last_sent;
        _sent.clear();
        _octets = 0;
    }
    /// A sample on the way has left the history: every reader that needs it has it, although one before it is missing.
    void release_octets_of(std::int64_t number) noexcept {
        std::uint32_t& octets = _sent[static_cast<std::size_t>(number - _acknowledged - 1)].octets;
        _octets -= octets;
        octets = 0;
    }

private:
    struct Sent {
        std::uint32_t octets;
        std::int64_t when_ns;
    };

    const std::int64_t _most;
    std::int64_t _last_sent = 0;
    std::int64_t _acknowledged = 0;
    std::int64_t _octets = 0;
    std::deque<Sent> _sent;
};

}  // namespace fastdds
}  // namespace norvane

#endif
