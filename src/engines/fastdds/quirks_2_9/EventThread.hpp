// SPDX-License-Identifier: Apache-2.0
// Fast DDS's thread for the timers of a participant, and a way to make it stand still.
//
// Fast DDS removes an endpoint of a peer under the mutex of its discovery. It waits there for this thread when that is just answering the endpoint; and
// this thread may, before it comes back, want that mutex itself, to look after leases and announcements: both wait for ever. So it stands still, in a
// timer of ours, while endpoints are removed: then it is not answering anybody.
//
// Thread rule: any thread at once, but for the timer thread itself.
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

    /// @return whether the calling thread is it. False until it has run for the first time.
    bool is_current() const noexcept { return std::this_thread::get_id() == _id.load(); }

    /// Takes leave of the participant, which goes: after it nothing pauses. `is_current` remains.
    void end() noexcept { _event.reset(); }

    /// Has it stand still as soon as it can, for all who have asked by then. Those who ask later wait for the next time: in between it does what else is
    /// due. @return which time that will be; `resume` must follow with it.
    std::uint64_t pause() noexcept;
    /// Waits until it does; not for ever, should it be held up. With locks of Fast DDS held this must not be called.
    void wait_until_paused(std::uint64_t time) noexcept;
    /// Lets it go on, when all have. It goes on by itself when it has to stand still for too long.
    void resume(std::uint64_t time) noexcept;

private:
    void run_pause() noexcept;

    std::atomic<std::thread::id> _id{};
    std::mutex _mutex;         // a leaf
    std::uint64_t _times = 0;  // that it has stood still, the present one included
    int _asking = 0;           // for the next
    int _inside = 0;           // who have not had it go on again
    std::condition_variable _paused;
    std::condition_variable _resumed;
    std::unique_ptr<rtps::TimedEvent> _event;  // last: its end waits for the thread, which uses the others
};

}  // namespace fastdds
}  // namespace norvane

#endif
