// SPDX-License-Identifier: Apache-2.0
// A flat open-addressing map from a 64-bit key to a pointer. Growing is separate from inserting, so that an insertion for which
// room was made cannot fail.
// Thread rule: none of its own; guarded by the store's lock.
#ifndef NORVANE_MIDDLEWARE_SAMPLEINDEX_HPP
#define NORVANE_MIDDLEWARE_SAMPLEINDEX_HPP

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

#include "platform/Secret.hpp"

namespace norvane {
namespace mw {

template <typename Value>
class SampleIndex {
public:
    std::size_t size() const noexcept { return _size; }

    /// @return the value of the key; null when there is none.
    Value* find(std::uint64_t key) const noexcept {
        if (_size == 0) {
            return nullptr;
        }
        for (std::size_t place = home(key); _entries[place].value != nullptr; place = (place + 1) & _mask) {
            if (_entries[place].key == key) {
                return _entries[place].value;
            }
        }
        return nullptr;
    }

    /// Makes room for `count` entries in all. @return false when memory is short.
    bool reserve(std::size_t count) noexcept {
        if (count * 4 <= capacity() * 3) {
            return true;
        }
        std::size_t fresh_capacity = capacity() == 0 ? 16 : capacity() * 2;
        while (count * 4 > fresh_capacity * 3) {
            fresh_capacity *= 2;
        }
        std::unique_ptr<Entry[]> fresh(new (std::nothrow) Entry[fresh_capacity]);
        if (fresh == nullptr) {
            return false;
        }
        const std::size_t old_capacity = capacity();
        std::swap(_entries, fresh);
        _mask = fresh_capacity - 1;
        for (std::size_t place = 0; place < old_capacity; ++place) {
            if (fresh[place].value != nullptr) {
                put(fresh[place].key, fresh[place].value);
            }
        }
        return true;
    }

    /// @param key  not in the map. Room was made for it. @param value  not null.
    void insert(std::uint64_t key, Value* value) noexcept {
        put(key, value);
        ++_size;
    }

    /// @return whether the key was there.
    bool erase(std::uint64_t key) noexcept {
        if (_size == 0) {
            return false;
        }
        std::size_t place = home(key);
        while (_entries[place].value != nullptr && _entries[place].key != key) {
            place = (place + 1) & _mask;
        }
        if (_entries[place].value == nullptr) {
            return false;
        }
        --_size;
        // Entries behind the gap move up, so that no look-up stops short of them.
        std::size_t gap = place;
        for (std::size_t next = (gap + 1) & _mask; _entries[next].value != nullptr; next = (next + 1) & _mask) {
            if (((next - home(_entries[next].key)) & _mask) >= ((next - gap) & _mask)) {
                _entries[gap] = _entries[next];
                gap = next;
            }
        }
        _entries[gap].value = nullptr;
        return true;
    }

    /// Erases every key below `limit`. Costs the whole capacity.
    void erase_below(std::uint64_t limit) noexcept {
        for (std::size_t place = 0; place < capacity();) {
            if (_entries[place].value == nullptr || _entries[place].key >= limit || !erase(_entries[place].key)) {
                ++place;  // after an erasure another entry may have moved up into this place
            }
        }
    }

private:
    struct Entry {
        std::uint64_t key = 0;
        Value* value = nullptr;
    };

    std::size_t capacity() const noexcept { return _entries == nullptr ? 0 : _mask + 1; }

    // Mixed with a secret of the process, since a peer chooses the keys: it could otherwise put them all in one place.
    std::size_t home(std::uint64_t key) const noexcept {
        key = (key ^ _secret) * 0x9e3779b97f4a7c15U;
        key = (key ^ (key >> 32U) ^ _secret) * 0xd6e8feb86659fd93U;
        return static_cast<std::size_t>(key >> 32U) & _mask;
    }

    void put(std::uint64_t key, Value* value) noexcept {
        std::size_t place = home(key);
        while (_entries[place].value != nullptr) {
            place = (place + 1) & _mask;
        }
        _entries[place].key = key;
        _entries[place].value = value;
    }

    const std::uint64_t _secret = platform::process_secret();
    std::unique_ptr<Entry[]> _entries;
    std::size_t _mask = 0;
    std::size_t _size = 0;
};

}  // namespace mw
}  // namespace norvane

#endif
