// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/Dispatcher.hpp"

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>

#include "engines/fastdds/Endpoint.hpp"
#include "engines/fastdds/transport/Outbox.hpp"
#include "platform/Clock.hpp"

namespace norvane {
namespace fastdds {

namespace {

// After this time a running listener may be waiting for one of those that are queued.
constexpr std::int64_t PATIENCE_NS = 5 * 1000 * 1000;
// Most listeners that can block at once.
constexpr std::size_t MOST_ANNOUNCERS = 64;

}  // namespace

Dispatcher::Dispatcher() {
    _announcers.reserve(MOST_ANNOUNCERS);
    _announcers.emplace_back([this] { run_announcer(); });
    try {
        _worker = std::thread([this] { run_worker(); });
    } catch (...) {
        {
            std::lock_guard<std::mutex> lock(_mutex);
            _ending = true;
        }
        _announcements_wanted.notify_all();
        _announcers.front().join();
        throw;
    }
}

Dispatcher::~Dispatcher() { stop(); }

void Dispatcher::stop() noexcept {
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _ending = true;
    }
    _announcements_wanted.notify_all();
    _timers_changed.notify_all();
    // The worker first: it may be adding an announcer.
    if (_worker.joinable()) {
        _worker.join();
        for (std::thread& announcer : _announcers) {
            announcer.join();
        }
    }
    std::deque<std::shared_ptr<Endpoint>> announcements;
    std::vector<Timer> timers;
    std::lock_guard<std::mutex> lock(_mutex);
    announcements.swap(_announcements);
    timers.swap(_timers);
}

void Dispatcher::announce(const std::shared_ptr<Endpoint>& endpoint) noexcept {
    if (!endpoint->take_place_in_queue()) {
        return;
    }
    bool worker_looks = false;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        try {
            _announcements.push_back(endpoint);
        } catch (const std::exception&) {
            return;  // memory is short: the listener is not called for this
        }
        if (_announcements.size() == 1) {
            _waiting_since_ns = platform::monotonic_ns();
        }
        worker_looks = _idle_announcers == 0;
    }
    if (worker_looks) {
        _timers_changed.notify_one();
    } else {
        _announcements_wanted.notify_one();
    }
}

void Dispatcher::start_timer(const std::shared_ptr<Endpoint>& endpoint, std::int64_t due_ns) noexcept {
    bool too_late = false;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        if (endpoint->due_ns() <= due_ns) {
            return;
        }
        try {
            _timers.push_back({due_ns, endpoint});
        } catch (const std::exception&) {
            return;  // memory is short: the next write or wait does it
        }
        std::push_heap(_timers.begin(), _timers.end());
        endpoint->set_due(due_ns);
        too_late = due_ns < _worker_wakes_ns;
    }
    if (too_late) {
        _timers_changed.notify_one();
    }
}

void Dispatcher::run_announcer() noexcept {
    std::unique_lock<std::mutex> lock(_mutex);
    for (;;) {
        ++_idle_announcers;
        _announcements_wanted.wait(lock, [this] { return _ending || !_announcements.empty(); });
        --_idle_announcers;
        if (_ending) {
            return;
        }
        std::shared_ptr<Endpoint> endpoint = std::move(_announcements.front());
        _announcements.pop_front();
        _waiting_since_ns = platform::monotonic_ns();
        // More may have been queued before this thread woke up, when it still counted as idle.
        if (!_announcements.empty() && _idle_announcers == 0 && _waiting_since_ns + PATIENCE_NS < _worker_wakes_ns) {
            _timers_changed.notify_one();
        }
        lock.unlock();
        endpoint->announce();
        Outbox::send_deferred();  // what listeners wrote
        endpoint.reset();
        lock.lock();
    }
}

void Dispatcher::add_announcer_locked() noexcept {
    if (_announcers.size() == MOST_ANNOUNCERS) {
        return;
    }
    try {
        _announcers.emplace_back([this] { run_announcer(); });
    } catch (const std::exception&) {
        // No thread can be started: what is queued goes on waiting.
    }
}

void Dispatcher::run_worker() noexcept {
    std::vector<std::shared_ptr<Endpoint>> due;
    std::vector<std::shared_ptr<Endpoint>> passed_over;  // the last reference to an endpoint is not released under the mutex
    std::unique_lock<std::mutex> lock(_mutex);
    while (!_ending) {
        const std::int64_t now_ns = platform::monotonic_ns();
        std::int64_t next_ns = platform::NO_DEADLINE;
        if (!_announcements.empty() && _idle_announcers == 0) {
            if (now_ns - _waiting_since_ns >= PATIENCE_NS) {
                add_announcer_locked();
                _waiting_since_ns = now_ns;
            }
            next_ns = _waiting_since_ns + PATIENCE_NS;
        }
        while (!_timers.empty() && _timers.front().due_ns <= now_ns) {
            std::pop_heap(_timers.begin(), _timers.end());
            Timer timer = std::move(_timers.back());
            _timers.pop_back();
            if (timer.endpoint->due_ns() == timer.due_ns) {
                timer.endpoint->set_due(platform::NO_DEADLINE);
                due.push_back(std::move(timer.endpoint));
            } else {
                passed_over.push_back(std::move(timer.endpoint));
            }
        }
        if (due.empty() && passed_over.empty()) {
            next_ns = _timers.empty() ? next_ns : std::min(next_ns, _timers.front().due_ns);
            _worker_wakes_ns = next_ns;
            if (next_ns == platform::NO_DEADLINE) {
                _timers_changed.wait(lock);
            } else {
                _timers_changed.wait_for(lock, std::chrono::nanoseconds(next_ns - now_ns));
            }
            _worker_wakes_ns = 0;
            continue;
        }
        lock.unlock();
        for (std::shared_ptr<Endpoint>& endpoint : due) {
            const std::int64_t again_ns = endpoint->run_timer();
            if (again_ns != platform::NO_DEADLINE) {
                start_timer(endpoint, again_ns);
            }
        }
        due.clear();
        passed_over.clear();
        lock.lock();
    }
}

}  // namespace fastdds
}  // namespace norvane
