// SPDX-License-Identifier: Apache-2.0
// The threads of a participant. Announcers run listeners: one as a rule, more when listeners block, so that a listener may wait for what
// another listener does. One worker does for endpoints what has become due: held samples, sweeps, retries. It never runs user code.
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
    /// @throws std::exception  no thread is to be had.
    Dispatcher();
    ~Dispatcher();
    Dispatcher(const Dispatcher&) = delete;
    Dispatcher& operator=(const Dispatcher&) = delete;

    /// Ends the threads, and lets go of every endpoint. From a listener it must not be called. A second time it only lets go.
    void stop() noexcept;

    /// Has the endpoint's listeners run, unless they are waiting to already.
    void announce(const std::shared_ptr<Endpoint>& endpoint) noexcept;
    /// Has the worker attend to the endpoint at the latest then. @param due_ns  of monotonic_ns.
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
    std::vector<Timer> _timers;         // a heap. What an endpoint has put forward since is still in it, and is passed over
    std::int64_t _worker_wakes_ns = 0;  // 0: it is awake
    std::thread _worker;
};

}  // namespace fastdds
}  // namespace norvane

#endif
