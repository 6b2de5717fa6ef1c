// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/quirks_2_9/EventThread.hpp"

#include <chrono>

namespace norvane {
namespace fastdds {

namespace {

// The thread may be sending, or waiting for a lock, when it is asked to pause.
constexpr std::chrono::milliseconds PATIENCE{1000};
// Upper bound, in case the thread that paused it is itself waiting for it.
constexpr std::chrono::milliseconds LONGEST{500};

}  // namespace

EventThread::EventThread(rtps::RTPSParticipant& participant)
    : _event(std::make_unique<rtps::TimedEvent>(
          participant.get_resource_event(),
          [this] {
              run_pause();
              return false;
          },
          0)) {
    _event->restart_timer();
}

std::uint64_t EventThread::pause() noexcept {
    std::lock_guard<std::mutex> lock(_mutex);
    ++_asking;
    _event->restart_timer();
    return _times + 1;
}

void EventThread::wait_until_paused(std::uint64_t time) noexcept {
    std::unique_lock<std::mutex> lock(_mutex);
    _paused.wait_for(lock, PATIENCE, [&] { return _times >= time; });
}

void EventThread::resume(std::uint64_t time) noexcept {
    std::lock_guard<std::mutex> lock(_mutex);
    if (time > _times) {
        --_asking;  // the pause never began
    } else if (time == _times && --_inside == 0) {
        _resumed.notify_one();
    }
}

void EventThread::run_pause() noexcept {
    _id.store(std::this_thread::get_id());
    std::unique_lock<std::mutex> lock(_mutex);
    if (_asking == 0) {
        return;
    }
    ++_times;
    _inside = _asking;
    _asking = 0;
    _paused.notify_all();
    _resumed.wait_for(lock, LONGEST, [this] { return _inside == 0; });
}

}  // namespace fastdds
}  // namespace norvane
