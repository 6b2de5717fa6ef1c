// SPDX-License-Identifier: Apache-2.0
// Threads to wake once every lock has been released: a thread woken earlier would block on the lock at once.
//
// The words must stay readable until the batch is flushed, although the wait set they belong to may be gone by then; waking a
// word that another wait set has reused meanwhile is a spurious wake-up and harmless.
#ifndef NORVANE_PLATFORM_WAKEBATCH_HPP
#define NORVANE_PLATFORM_WAKEBATCH_HPP

#include "platform/FutexWord.hpp"

namespace norvane {
namespace platform {

class WakeBatch {
public:
    WakeBatch() = default;
    WakeBatch(const WakeBatch&) = delete;
    WakeBatch& operator=(const WakeBatch&) = delete;
    ~WakeBatch() { flush(); }

    /// Notes a sleeper. When the batch is full the sleeper is woken immediately: slower, but not lost.
    void add(FutexWord& word) noexcept {
        if (_count == ROOM) {
            wake_one(word);
            return;
        }
        _words[_count++] = &word;
    }

    /// Wakes the sleepers noted.
    void flush() noexcept {
        for (int index = 0; index < _count; ++index) {
            wake_one(*_words[index]);
        }
        _count = 0;
    }

private:
    static constexpr int ROOM = 32;

    int _count = 0;
    FutexWord* _words[ROOM];
};

}  // namespace platform
}  // namespace norvane

#endif
