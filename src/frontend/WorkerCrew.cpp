// SPDX-License-Identifier: Apache-2.0
#include "norvane/details/WorkerCrew.hpp"

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "frontend/log_line.hpp"
#include "frontend/require_ok.hpp"
#include "norvane/Exception.hpp"

namespace norvane {
namespace details {

Worker::~Worker() = default;

// ---- waiting --------------------------------------------------------------------------------------------------------------------

LeaderWait::LeaderWait(DDSDataReader& reader)
    : _reader(reader), _any_request(reader.create_readcondition(DDS_ANY_SAMPLE_STATE, DDS_ANY_VIEW_STATE, DDS_ANY_INSTANCE_STATE)) {
    if (_any_request == nullptr) {
        check_retcode(DDS_RETCODE_ERROR, "Service::Service", VOST_LOG_CREATION_FAILURE_s, "read condition", false);
    }
    const DDS_ReturnCode_t code = _waitset.attach_condition(_any_request);
    if (code != DDS_RETCODE_OK) {
        _reader.delete_readcondition(_any_request);
        require_ok(code, "Service::Service", VOST_LOG_ANY_FAILURE_s, "attach read condition");
    }
}

// Before the reader goes: one that still has a condition refuses to be deleted.
LeaderWait::~LeaderWait() { _reader.delete_readcondition(_any_request); }

bool LeaderWait::wait() {
    DDSConditionSeq active(0);
    const DDS_ReturnCode_t code = _waitset.wait(active, DDS_DURATION_INFINITE);
    if (code == DDS_RETCODE_ALREADY_DELETED) {
        return false;
    }
    require_ok(code, "Service", VOST_LOG_ANY_FAILURE_s, "wait for requests");
    return true;
}

// ---- counting and reporting -----------------------------------------------------------------------------------------------------

namespace {

// What the exception being handled says. Memory may be short, so nothing is allocated.
template <class Say>
void with_current_message(Say say) noexcept {
    try {
        throw;
    } catch (const std::exception& exception) {
        say(exception.what());
    } catch (...) {
        say("an exception that is no std::exception");
    }
}

void log_failure(const std::string& name, const char* what, const char* hint = "") noexcept {
    with_current_message([&](const char* message) {
        char text[1024];
        std::snprintf(text, sizeof text, "%s: %s%s", what, message, hint);
        log_line(LOG_ERROR, name.c_str(), text);
    });
}

}  // namespace

WorkSource::WorkSource(const EntityParams& params, int workers)
    : _name("Service(" + (params.service_name().empty() ? params.request_topic_name() : params.service_name()) + ")"),
      _workers(workers) {
    if (workers < 1) {
        check_retcode(DDS_RETCODE_BAD_PARAMETER, "Service::Service", DDS_LOG_BAD_PARAMETER_s, "workers must be at least 1", false);
    }
}

WorkSource::~WorkSource() = default;

ServiceStatistics WorkSource::stats() const noexcept {
    ServiceStatistics statistics;
    statistics.handled = _handled.load(std::memory_order_relaxed);
    statistics.failed = _failed.load(std::memory_order_relaxed);
    statistics.unsent = _unsent.load(std::memory_order_relaxed);
    statistics.discarded = _discarded.load(std::memory_order_relaxed);
    return statistics;
}

void WorkSource::report(const char* what) const noexcept { log_failure(_name, what); }

void WorkSource::handler_failed() noexcept {
    _failed.fetch_add(1, std::memory_order_relaxed);
    try {
        throw;
    } catch (const TimeoutException&) {
        char hint[160];
        std::snprintf(hint, sizeof hint,
                      " (a handler that calls its own service needs another worker that is free; there %s %d in all)",
                      _workers == 1 ? "is" : "are", _workers);
        log_failure(_name, "a handler threw", hint);
    } catch (...) {
        log_failure(_name, "a handler threw");
    }
}

void WorkSource::error_handler_failed() noexcept { report("on_error threw too, the request gets no reply"); }

void WorkSource::reply_failed() noexcept {
    _unsent.fetch_add(1, std::memory_order_relaxed);
    report("a reply could not be written");
}

// ---- the workers ----------------------------------------------------------------------------------------------------------------

// 1. Only the thread that holds _lead waits, takes, pauses and discards. The leader holds it while it sleeps in the reader.
// 2. _over never goes back to false. Once it is true, and receiving has stopped, every worker ends after the handler that it is in.
// 3. What is queued is discarded after receiving has stopped, and before a waiting thread is told that all is over.
// 4. _handling is counted up under _lead: a thread that holds it sees each request either queued or handled.
// Lock order: _lead, then _mutex. Neither is held while a handler runs.
class WorkerCrew::State {
public:
    explicit State(std::shared_ptr<WorkSource> work) : _work(std::move(work)) {}
    // On the last thread that refers to it: that of the destructor, or a worker whose handler destroyed the service.
    ~State() {
        if (!wait_for_acknowledgments(DEFAULT_TIMEOUT)) {
            log("destroyed before the last replies were acknowledged");
        }
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    static void start(const std::shared_ptr<State>& self) {
        for (int number = 0; number < self->_work->_workers; ++number) {
            std::unique_ptr<Worker> worker = self->_work->new_worker();
            self->_threads.reserve(self->_threads.size() + 1);
            self->count_worker(1);
            try {
                self->_threads.emplace_back(&State::run, self, std::move(worker));
            } catch (...) {
                self->count_worker(-1);
                throw;
            }
        }
    }

    /// No more requests are taken in; those that are queued are handled.
    void stop_receiving() { _work->stop_receiving(); }
    /// No more requests are taken in; those that are queued are discarded.
    void halt() {
        {
            const std::lock_guard<std::mutex> guard(_mutex);
            ++_working;  // until what is queued is discarded: see 3.
            mark_over();
        }
        try {
            stop_receiving();
            discard_queued();
        } catch (...) {
            count_worker(-1);
            throw;
        }
        count_worker(-1);
    }
    /// Waits until all workers have ended and all replies are acknowledged. Inside a handler it does not wait.
    /// @param what  what the caller does, for the log.
    ShutdownResult wait_until_ended(const char* what, const Deadline& deadline) {
        ShutdownResult result;
        if (_crew_of_this_thread == this) {
            note_what_is_left(result);
            return result;
        }
        result.complete = wait_for_workers(deadline, 0) && wait_for_acknowledgments(deadline.left());
        if (!result.complete) {
            note_what_is_left(result);
            char text[200];
            std::snprintf(text, sizeof text,
                          "%s is not complete: %d handler(s) running, %lld request(s) queued, %lld reply(s) not acknowledged", what,
                          result.running_handlers, static_cast<long long>(result.queued_requests),
                          static_cast<long long>(result.unacknowledged_replies));
            log(text);
        }
        return result;
    }
    /// Ends the threads. Inside a handler the caller's own is left to end by itself.
    void end() noexcept {
        try {
            halt();
        } catch (...) {
            _work->report("leaving the service failed");
            close();
        }
        if (!wait_for_workers(Deadline(DEFAULT_TIMEOUT), _crew_of_this_thread == this ? 1 : 0)) {
            char text[120];
            std::snprintf(text, sizeof text, "the destructor waits for %d handler(s) still running", _handling.load());
            log(text);
        }
        for (std::thread& thread : _threads) {
            if (thread.get_id() == std::this_thread::get_id()) {
                thread.detach();
            } else {
                thread.join();
            }
        }
    }

    /// In a child made by fork(): the threads do not exist there, and can neither end nor be joined.
    void leak(const std::shared_ptr<State>& self) noexcept { _leaked = self; }

private:
    static void run(std::shared_ptr<State> self, std::unique_ptr<Worker> worker) noexcept {
        _crew_of_this_thread = self.get();
        while (self->take_in_turn(*worker)) {
            worker->handle();
            self->_handling.fetch_sub(1, std::memory_order_relaxed);
        }
        worker.reset();  // before the work source, whose reader may have lent to it
        self->count_worker(-1);
        // Here `self` may be the last reference to the work source, when a handler has destroyed the service.
    }

    /// @return false when there is no more to do.
    bool take_in_turn(Worker& worker) noexcept {
        const std::lock_guard<std::mutex> lead(_lead);
        while (!_over.load(std::memory_order_acquire)) {
            try {
                // First the wait, which is cheap when a request is there: a take that finds nothing is not.
                _received_all = _received_all || !_work->wait();
                // It may have waited while the service was stopped.
                if (!_over.load(std::memory_order_acquire) && worker.take()) {
                    _handling.fetch_add(1, std::memory_order_relaxed);
                    return true;
                }
                if (_received_all) {
                    const std::lock_guard<std::mutex> guard(_mutex);
                    mark_over();  // drained
                }
            } catch (...) {
                _work->report("waiting for a request failed, the worker goes on");
                pause();
            }
        }
        return false;
    }

    // A wait that keeps failing must not keep a processor busy and fill the log.
    void pause() {
        std::unique_lock<std::mutex> guard(_mutex);
        _changed.wait_for(guard, std::chrono::milliseconds(100), [this] { return _over.load(std::memory_order_relaxed); });
    }

    void mark_over() noexcept {
        _over.store(true, std::memory_order_release);
        _changed.notify_all();
    }

    void count_worker(int change) noexcept {
        const std::lock_guard<std::mutex> guard(_mutex);
        _working += change;
        _changed.notify_all();
    }

    /// @return false when the time ran out, and more than so many were still there.
    bool wait_for_workers(const Deadline& deadline, int left) {
        std::unique_lock<std::mutex> guard(_mutex);
        const auto have_ended = [&] { return _working <= left; };
        if (!deadline.is_infinite()) {
            return _changed.wait_until(guard, deadline.time(), have_ended);
        }
        _changed.wait(guard, have_ended);
        return true;
    }

    bool wait_for_acknowledgments(const Timeout& max_wait) noexcept {
        try {
            return _work->wait_for_acknowledgments(max_wait);
        } catch (...) {
            _work->report("waiting for acknowledgments failed");
            return false;
        }
    }

    void discard_queued() noexcept {
        const std::lock_guard<std::mutex> lead(_lead);
        try {
            while (const int discarded = _work->discard_some()) {
                _work->count_discarded(discarded);
            }
        } catch (...) {
            _work->report("queued requests could not be discarded");
        }
    }

    void note_what_is_left(ShutdownResult& result) {
        // The leader may keep it, when its waits fail: then a request that is just being taken may be missing.
        const std::unique_lock<std::mutex> lead(_lead, std::try_to_lock);
        const ReplierStatistics statistics = _work->replier_stats();
        result.running_handlers = _handling.load(std::memory_order_relaxed);
        result.queued_requests = statistics.queued;
        result.unacknowledged_replies = statistics.unacknowledged;
    }

    void log(const char* text) const noexcept { log_line(LOG_ERROR, _work->_name.c_str(), text); }

    void close() noexcept {
        try {
            _work->close();
        } catch (...) {
            _work->report("closing the replier failed");
        }
    }

    static thread_local const State* _crew_of_this_thread;

    const std::shared_ptr<WorkSource> _work;
    std::mutex _lead;
    bool _received_all = false;  // of the leader
    std::atomic<bool> _over{false};
    std::atomic<int> _handling{0};

    std::mutex _mutex;
    std::condition_variable _changed;  // _over or _working
    int _working = 0;                  // workers, and threads in `halt`

    std::vector<std::thread> _threads;  // only for the thread that constructs and destroys
    std::shared_ptr<State> _leaked;     // this one, or null
};

thread_local const WorkerCrew::State* WorkerCrew::State::_crew_of_this_thread = nullptr;

WorkerCrew::WorkerCrew(std::shared_ptr<WorkSource> work) : _process(::getpid()), _state(std::make_shared<State>(std::move(work))) {
    try {
        State::start(_state);
    } catch (const std::system_error& error) {
        _state->end();
        throw OutOfResourcesException(std::string("Service::Service: a worker thread could not be started: ") + error.what());
    } catch (...) {
        _state->end();
        throw;
    }
}

WorkerCrew::~WorkerCrew() {
    if (is_of_this_process()) {
        _state->end();
    } else {
        _state->leak(_state);
    }
}

bool WorkerCrew::is_of_this_process() const noexcept { return ::getpid() == _process; }

void WorkerCrew::throw_if_forked(const char* method_name) const {
    if (!is_of_this_process()) {
        throw IllegalOperationException(std::string("Service::") + method_name +
                                        ": the process was forked after the service was made; make one in the child");
    }
}

ShutdownResult WorkerCrew::drain(const Timeout& max_wait) {
    throw_if_forked("drain");
    const Deadline deadline(max_wait);
    _state->stop_receiving();
    return _state->wait_until_ended("drain", deadline);
}

ShutdownResult WorkerCrew::stop(const Timeout& max_wait) {
    throw_if_forked("stop");
    const Deadline deadline(max_wait);
    _state->halt();
    return _state->wait_until_ended("stop", deadline);
}

}  // namespace details
}  // namespace norvane
