// SPDX-License-Identifier: Apache-2.0
// Which keys are over. Keys count upwards; each is opened, later closed, and never used again.
//
// All keys below a floor are over unless they are open. A key from the floor up is over only when it was closed: one that has not
// been opened counts as open, since a sample can arrive before the thread that caused it has opened its key. The floor follows the
// keys, so memory is needed only for the keys in between. A key that is never opened holds the floor back for at most MAX_BEHIND
// closed keys, and then counts as over.
// Thread rule: none of its own; guarded by the store's lock.
#ifndef NORVANE_MIDDLEWARE_OPENKEYS_HPP
#define NORVANE_MIDDLEWARE_OPENKEYS_HPP

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "middleware/SampleIndex.hpp"

namespace norvane {
namespace mw {

class OpenKeys {
public:
    static constexpr std::size_t MAX_BEHIND = 65536;

    bool is_over(std::uint64_t key) const noexcept { return !is_open(key) && (key < _floor || _closed.find(key) != nullptr); }
    bool is_open(std::uint64_t key) const noexcept { return _open.find(key) != nullptr; }

    /// @return false when memory is short.
    bool open(std::uint64_t key) noexcept {
        if (is_open(key)) {
            return true;
        }
        if (!_open.reserve(_open.size() + 1)) {
            return false;
        }
        _closed.erase(key);
        _open.insert(key, &_mark);
        advance();
        return true;
    }

    /// @return false when memory is short: the key stays as it was.
    bool close(std::uint64_t key) noexcept {
        if (key >= _floor && _closed.find(key) == nullptr) {
            if (!_closed.reserve(_closed.size() + 1)) {
                return false;
            }
            _closed.insert(key, &_mark);
            _highest_closed = std::max(_highest_closed, key);
        }
        _open.erase(key);
        advance();
        return true;
    }

private:
    void advance() noexcept {
        while (_closed.erase(_floor) || is_open(_floor)) {
            ++_floor;
        }
        if (_closed.size() > MAX_BEHIND) {
            // Half of the distance at once, so that the cost of the walk is amortised over the keys closed since the last one.
            _floor = std::max(_floor, _highest_closed - MAX_BEHIND / 2);
            _closed.erase_below(_floor);
        }
    }

    // The indexes are used as sets: every key has the same value.
    static inline char _mark = 0;

    std::uint64_t _floor = 1;  // the first number that a writer gives
    std::uint64_t _highest_closed = 0;
    SampleIndex<char> _open;
    SampleIndex<char> _closed;
};

}  // namespace mw
}  // namespace norvane

#endif
