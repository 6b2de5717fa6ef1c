// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/EventThread.hpp"

#include <chrono>

namespace norvane {
namespace fastdds {

namespace {

// It may be sending, or waiting for a lock, when it is asked to stand still.
constexpr std::chrono::milliseconds PATIENCE{1000};
// Whoever had it stand still may be waiting for it after all.
constexpr std::chrono::milliseconds LONGEST{500};

}  // namespace

EventThread::EventThread(rtps::RTPSParticipant& participant)
    : _event(std::make_unique<rtps::TimedEvent>(
          participant.get_resource_event(),
          [this] {
              stand_still();
              return false;
          },
          0)) {
    _event->restart_timer();
}

void EventThread::pause() noexcept {
    std::lock_guard<std::mutex> lock(_mutex);
    ++_pauses;
    if (!_stands_still) {
        _event->restart_timer();
    }
}

void EventThread::wait_until_still() noexcept {
    std::unique_lock<std::mutex> lock(_mutex);
    _standing.wait_for(lock, PATIENCE, [this] { return _stands_still; });
}

void EventThread::resume() noexcept {
    std::lock_guard<std::mutex> lock(_mutex);
    if (--_pauses == 0) {
        _resumed.notify_one();
    }
}

void EventThread::stand_still() noexcept {
    _id.store(std::this_thread::get_id());
    std::unique_lock<std::mutex> lock(_mutex);
    if (_pauses == 0) {
        return;
    }
    _stands_still = true;
    _standing.notify_all();
    _resumed.wait_for(lock, LONGEST, [this] { return _pauses == 0; });
    _stands_still = false;
}

}  // namespace fastdds
}  // namespace norvane
