// SPDX-License-Identifier: Apache-2.0
// The timer thread of Fast DDS of one participant, and a way to pause it.
//
// Fast DDS removes an endpoint of a peer under its discovery mutex, and there waits for this thread if that is just answering the
// endpoint. But this thread may first need that mutex itself, for leases and announcements: a deadlock. So it is paused, in a timer
// of ours, while endpoints are removed: then it is answering none.
//
// Thread rule: any thread at once, except the timer thread itself.
#ifndef NORVANE_ENGINES_FASTDDS_QUIRKS_2_9_EVENTTHREAD_HPP
#define NORVANE_ENGINES_FASTDDS_QUIRKS_2_9_EVENTTHREAD_HPP

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

#include <fastdds/rtps/participant/RTPSParticipant.h>
#include <fastdds/rtps/resources/TimedEvent.h>

#include "engines/fastdds/identity.hpp"

namespace norvane {
namespace fastdds {

class EventThread {
public:
    /// @throws std::bad_alloc
    explicit EventThread(rtps::RTPSParticipant& participant);
    EventThread(const EventThread&) = delete;
    EventThread& operator=(const EventThread&) = delete;

    /// @return whether the calling thread is the timer thread. False until that has run for the first time.
    bool is_current() const noexcept { return std::this_thread::get_id() == _id.load(); }

    /// Detaches from the participant before it is destroyed. Later pauses do nothing; `is_current` still works.
    void end() noexcept { _event.reset(); }

    /// Asks for a pause, as soon as the thread can, shared by all who have asked by then. Those who ask later get the next pause;
    /// in between the thread runs other timers. @return the number of the pause; `resume` must follow with it.
    std::uint64_t pause() noexcept;
    /// Waits until that pause begins, for a bounded time. Not with locks of Fast DDS held.
    void wait_until_paused(std::uint64_t time) noexcept;
    /// Ends the pause when all who asked have called it. A pause that lasts too long ends by itself.
    void resume(std::uint64_t time) noexcept;

private:
    void run_pause() noexcept;

    std::atomic<std::thread::id> _id{};
    std::mutex _mutex;         // a leaf
    std::uint64_t _times = 0;  // pauses so far, the present one included
    int _asking = 0;           // who asked for the next pause
    int _inside = 0;           // who have not resumed the present one
    std::condition_variable _paused;
    std::condition_variable _resumed;
    std::unique_ptr<rtps::TimedEvent> _event;  // last: its destructor waits for the thread, which uses the others
};

}  // namespace fastdds
}  // namespace norvane

#endif
