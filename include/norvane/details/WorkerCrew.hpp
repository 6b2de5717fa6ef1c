// SPDX-License-Identifier: Apache-2.0
// The threads of a service. One of n workers at a time is the leader: it waits for a request, takes exactly one, passes the lead
// on, handles the request and answers it. Requests wait in the reader, where their limit holds; there is no second queue, and no
// dispatching thread.
//
// Thread rule: any number of threads, handlers included; construction and destruction overlap with nothing else.
#ifndef NORVANE_DETAILS_WORKERCREW_HPP
#define NORVANE_DETAILS_WORKERCREW_HPP

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "norvane/EntityParams.hpp"
#include "norvane/Statistics.hpp"
#include "norvane/Timeout.hpp"
#include "norvane/dds/DataReader.hpp"
#include "norvane/dds/WaitSet.hpp"
#include "norvane/export.hpp"

namespace norvane {
namespace details {

/// What one worker thread has of its own: the request that it handles.
class NORVANE_EXPORT Worker {
public:
    virtual ~Worker();
    /// Takes one request, if there is one. Called with the lead.
    /// @return whether there was one.
    virtual bool take() = 0;
    /// Handles the request that was taken, answers it, and logs and counts what fails. Called without the lead.
    virtual void handle() noexcept = 0;
};

/// How the leader waits for the requests of a reader. A wait that ends because the replier leaves is no error: no exception, no log
/// line.
/// @par Threads  `wait`: one at a time.
class NORVANE_EXPORT LeaderWait {
public:
    /// @param reader  outlives this object.
    /// @throws RuntimeException  the middleware could not make a condition.
    explicit LeaderWait(DDSDataReader& reader);
    ~LeaderWait();
    LeaderWait(const LeaderWait&) = delete;
    LeaderWait& operator=(const LeaderWait&) = delete;

    /// As WorkSource::wait.
    bool wait();

private:
    DDSDataReader& _reader;
    DDSReadCondition* _any_request;  // owned
    DDSWaitSet _waitset;
};

/// Where the workers get requests and leave replies: a replier and a handler, typed by the derived class. Counts, and reports to
/// the log.
class NORVANE_EXPORT WorkSource {
public:
    virtual ~WorkSource();

    /// @return one more worker; does not outlive this object.
    virtual std::unique_ptr<Worker> new_worker() = 0;
    /// Waits without limit until there is a request. Called with the lead.
    /// @return false when no more requests are received: those that are queued are the last.
    virtual bool wait() = 0;
    virtual void stop_receiving() = 0;
    /// Takes some of the queued requests and drops them. @return how many; 0 when none was queued.
    virtual int discard_some() = 0;
    virtual bool wait_for_acknowledgments(const Timeout& max_wait) = 0;
    virtual ReplierStatistics replier_stats() const = 0;
    /// Ends every wait, also when `stop_receiving` has failed.
    virtual void close() = 0;

    ServiceStatistics stats() const noexcept;
    void count_discarded(int count) noexcept { _discarded.fetch_add(count, std::memory_order_relaxed); }
    /// Logs a failure of a worker. Called from a catch clause: the exception says what happened.
    void report(const char* what) const noexcept;

protected:
    /// @param params  name the service in the log; read during the call only. @param workers  at least 1.
    /// @throws BadParameterException  `workers` is below 1.
    WorkSource(const EntityParams& params, int workers);

    // Called by the workers; those that report, from a catch clause.
    void count_handled() noexcept { _handled.fetch_add(1, std::memory_order_relaxed); }
    void handler_failed() noexcept;
    void error_handler_failed() noexcept;
    void reply_failed() noexcept;

private:
    friend class WorkerCrew;

    const std::string _name;
    const int _workers;
    std::atomic<std::int64_t> _handled{0};
    std::atomic<std::int64_t> _failed{0};
    std::atomic<std::int64_t> _unsent{0};
    std::atomic<std::int64_t> _discarded{0};
};

class NORVANE_EXPORT WorkerCrew {
public:
    /// Starts the workers.
    /// @throws OutOfResourcesException  a thread could not be started; none is left then.
    explicit WorkerCrew(std::shared_ptr<WorkSource> work);
    /// Stops, and waits for every handler; logs once when that takes longer than DEFAULT_TIMEOUT. Called inside a handler, it waits
    /// for the others; the calling worker keeps the work source until it has answered. In a
    /// child process made by fork() it does nothing.
    ~WorkerCrew();
    WorkerCrew(const WorkerCrew&) = delete;
    WorkerCrew& operator=(const WorkerCrew&) = delete;

    /// What Service says.
    ShutdownResult drain(const Timeout& max_wait);
    ShutdownResult stop(const Timeout& max_wait);

private:
    class State;

    bool is_of_this_process() const noexcept;
    void throw_if_forked(const char* method_name) const;

    const int _process;             // id of the process that has the threads
    std::shared_ptr<State> _state;  // shared with the workers
};

}  // namespace details
}  // namespace norvane

#endif
