// SPDX-License-Identifier: Apache-2.0
// The threads of a participant. Announcers run listeners: usually one, more while listeners block, so that a listener may wait for
// the effect of another. One worker runs the timers of endpoints: held samples, heartbeats, retries. It never runs user code.
//
// The mutex is a leaf: it is taken under locks of Fast DDS, and never held while an endpoint is called.
#ifndef NORVANE_ENGINES_FASTDDS_DISPATCHER_HPP
#define NORVANE_ENGINES_FASTDDS_DISPATCHER_HPP

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace norvane {
namespace fastdds {

class Endpoint;

class Dispatcher {
public:
    /// @throws std::exception  no thread can be started.
    Dispatcher();
    ~Dispatcher();
    Dispatcher(const Dispatcher&) = delete;
    Dispatcher& operator=(const Dispatcher&) = delete;

    /// Ends the threads, and releases every endpoint. Not from a listener. A second call only releases endpoints.
    void stop() noexcept;

    /// Queues the endpoint for its listeners, unless it is queued already.
    void announce(const std::shared_ptr<Endpoint>& endpoint) noexcept;
    /// Runs the endpoint's timer on the worker, not later than a time; an earlier time that is set already stays. @param due_ns  of
    /// monotonic_ns.
    void start_timer(const std::shared_ptr<Endpoint>& endpoint, std::int64_t due_ns) noexcept;

private:
    struct Timer {
        std::int64_t due_ns;
        std::shared_ptr<Endpoint> endpoint;
        bool operator<(const Timer& other) const noexcept { return due_ns > other.due_ns; }  // the earliest on top of the heap
    };

    void run_announcer() noexcept;
    void run_worker() noexcept;
    void add_announcer_locked() noexcept;

    std::mutex _mutex;
    bool _ending = false;
    std::condition_variable _announcements_wanted;
    std::deque<std::shared_ptr<Endpoint>> _announcements;
    std::int64_t _waiting_since_ns = 0;  // of the first in the queue
    std::size_t _idle_announcers = 0;
    std::vector<std::thread> _announcers;
    std::condition_variable _timers_changed;
    std::vector<Timer> _timers;         // a heap; an entry is ignored if the endpoint has a newer time
    std::int64_t _worker_wakes_ns = 0;  // 0: it is awake
    std::thread _worker;
};

}  // namespace fastdds
}  // namespace norvane

#endif
