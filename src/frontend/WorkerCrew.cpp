// SPDX-License-Identifier: Apache-2.0
#include "norvane/details/WorkerCrew.hpp"

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

CrewHand::~CrewHand() = default;

// ---- waiting ----------------------------------------------------------------------------------------------------------------------

RequestWatch::RequestWatch(DDSDataReader& reader)
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
RequestWatch::~RequestWatch() { _reader.delete_readcondition(_any_request); }

bool RequestWatch::wait() {
    DDSConditionSeq active(0);
    const DDS_ReturnCode_t code = _waitset.wait(active, DDS_DURATION_INFINITE);
    if (code == DDS_RETCODE_ALREADY_DELETED) {
        return false;
    }
    require_ok(code, "Service", VOST_LOG_ANY_FAILURE_s, "wait for requests");
    return true;
}

// ---- counting and reporting -------------------------------------------------------------------------------------------------------

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

CrewWork::CrewWork(const EntityParams& params, int workers)
    : _name("Service(" + (params.service_name().empty() ? params.request_topic_name() : params.service_name()) + ")"),
      _workers(workers) {
    if (workers < 1) {
        check_retcode(DDS_RETCODE_BAD_PARAMETER, "Service::Service", DDS_LOG_BAD_PARAMETER_s, "workers must be at least 1", false);
    }
}

CrewWork::~CrewWork() = default;

ServiceStatistics CrewWork::stats() const noexcept {
    ServiceStatistics statistics;
    statistics.handled = _handled.load(std::memory_order_relaxed);
    statistics.failed = _failed.load(std::memory_order_relaxed);
    statistics.unsent = _unsent.load(std::memory_order_relaxed);
    statistics.discarded = _discarded.load(std::memory_order_relaxed);
    return statistics;
}

void CrewWork::report(const char* what) const noexcept { log_failure(_name, what); }

void CrewWork::handler_failed() noexcept {
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

void CrewWork::error_handler_failed() noexcept { report("on_error threw too, the request gets no reply"); }

void CrewWork::reply_failed() noexcept {
    _unsent.fetch_add(1, std::memory_order_relaxed);
    report("a reply could not be written");
}

// ---- the crew ---------------------------------------------------------------------------------------------------------------------

// 1. Who holds _lead may wait, take, and pause; nobody else does. The lock is the lead: it is held while its holder sleeps in the reader.
// 2. _over never goes back to false. Once it is true, and receiving has stopped, every worker ends after the handler that it is in.
// 3. Whoever ends last, a worker or a thread in `halt`, discards what is queued: when all this is over, and before anybody learns of it.
// Lock order: _lead, then _mutex. Neither is held while a handler runs.
class WorkerCrew::State {
public:
    explicit State(std::shared_ptr<CrewWork> work) : _work(std::move(work)) {}
    // On the thread that lets go last: that of the destructor, or a worker whose handler destroyed the service.
    ~State() {
        if (!wait_for_acknowledgments(DEFAULT_TIMEOUT)) {
            log_line(LOG_ERROR, _work->_name.c_str(), "destroyed before the last replies were acknowledged");
        }
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    static void start(const std::shared_ptr<State>& self) {
        for (int worker = 0; worker < self->_work->_workers; ++worker) {
            std::unique_ptr<CrewHand> hand = self->_work->new_hand();
            self->_threads.reserve(self->_threads.size() + 1);
            self->count_worker(1);
            try {
                self->_threads.emplace_back(&State::run, self, std::move(hand));
            } catch (...) {
                self->count_worker(-1);
                throw;
            }
        }
    }

    /// No more requests are taken in; those that are queued are handled.
    void stop_receiving() { _work->stop_receiving(); }
    /// No more requests are taken in, nor out of the queue.
    void halt() {
        {
            const std::lock_guard<std::mutex> guard(_mutex);
            ++_working;  // requests may come until receiving has stopped: the workers must not be the last before
            mark_over();
        }
        try {
            stop_receiving();
        } catch (...) {
            count_worker(-1);
            throw;
        }
        count_worker(-1);
    }
    /// @return whether all workers have ended, and all replies were acknowledged in time. false at once inside a handler, for which there is
    ///         no waiting here.
    bool wait_until_ended(const Timeout& max_wait) {
        if (_crew_of_this_thread == this) {
            return false;
        }
        {
            std::unique_lock<std::mutex> guard(_mutex);
            _changed.wait(guard, [this] { return _working == 0; });
        }
        return wait_for_acknowledgments(max_wait);
    }
    bool wait_for_acknowledgments(const Timeout& max_wait) noexcept {
        try {
            return _work->wait_for_acknowledgments(max_wait);
        } catch (...) {
            _work->report("waiting for acknowledgments failed");
            return false;
        }
    }
    void end() noexcept {
        try {
            halt();
        } catch (...) {
            _work->report("leaving the service failed");
            close();
        }
        for (std::thread& thread : _threads) {
            if (thread.get_id() == std::this_thread::get_id()) {
                thread.detach();
            } else {
                thread.join();
            }
        }
    }

private:
    static void run(std::shared_ptr<State> self, std::unique_ptr<CrewHand> hand) noexcept {
        _crew_of_this_thread = self.get();
        while (self->take_in_turn(*hand)) {
            hand->handle();
        }
        hand.reset();  // before the work, whose reader may have lent to it
        self->count_worker(-1);
        // Here `self` may be the last to hold the work, when a handler has destroyed the service.
    }

    /// @return false when there is no more to do.
    bool take_in_turn(CrewHand& hand) noexcept {
        const std::lock_guard<std::mutex> lead(_lead);
        while (!_over.load(std::memory_order_acquire)) {
            try {
                // First the wait, which is cheap when a request is there: a take that finds nothing is not.
                _received_all = _received_all || !_work->wait();
                if (hand.take()) {
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

    // What keeps failing must not keep a processor and the log busy as well.
    void pause() {
        std::unique_lock<std::mutex> guard(_mutex);
        _changed.wait_for(guard, std::chrono::milliseconds(100), [this] { return _over.load(std::memory_order_relaxed); });
    }

    void mark_over() noexcept {
        _over.store(true, std::memory_order_release);
        _changed.notify_all();
    }

    void count_worker(int change) noexcept {
        std::unique_lock<std::mutex> guard(_mutex);
        if (_working + change == 0) {
            guard.unlock();
            discard_queued();
            guard.lock();
        }
        _working += change;
        _changed.notify_all();
    }

    void discard_queued() noexcept {
        try {
            while (const int discarded = _work->discard_some()) {
                _work->count_discarded(discarded);
            }
        } catch (...) {
            _work->report("queued requests could not be discarded");
        }
    }

    void close() noexcept {
        try {
            _work->close();
        } catch (...) {
            _work->report("closing the replier failed");
        }
    }

    static thread_local const State* _crew_of_this_thread;

    const std::shared_ptr<CrewWork> _work;
    std::mutex _lead;
    bool _received_all = false;  // of the leader
    std::atomic<bool> _over{false};

    std::mutex _mutex;
    std::condition_variable _changed;  // _over or _working
    int _working = 0;                  // workers, and threads in `halt`

    std::vector<std::thread> _threads;  // of the one who constructs and destroys
};

thread_local const WorkerCrew::State* WorkerCrew::State::_crew_of_this_thread = nullptr;

WorkerCrew::WorkerCrew(std::shared_ptr<CrewWork> work) : _state(std::make_shared<State>(std::move(work))) {
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

WorkerCrew::~WorkerCrew() { _state->end(); }

bool WorkerCrew::drain(const Timeout& max_wait) {
    _state->stop_receiving();
    return _state->wait_until_ended(max_wait);
}

bool WorkerCrew::stop(const Timeout& max_wait) {
    _state->halt();
    return _state->wait_until_ended(max_wait);
}

}  // namespace details
}  // namespace norvane
