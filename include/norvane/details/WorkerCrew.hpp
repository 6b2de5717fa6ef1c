// SPDX-License-Identifier: Apache-2.0
// The threads of a service. Of n workers one at a time leads: it waits for a request, takes exactly one, passes the lead on, handles it and
// answers. Requests wait in the reader, where their limit holds; there is no second queue, and no thread that only hands over.
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

/// One worker's own part of the work: the request that it has in hand.
class NORVANE_EXPORT CrewHand {
public:
    virtual ~CrewHand();
    /// Takes one request, if there is one. Called with the lead.
    /// @return whether there was one.
    virtual bool take() = 0;
    /// Handles the request that was taken, answers it, and logs and counts what fails. Called without the lead.
    virtual void handle() noexcept = 0;
};

/// Waits for the requests of a reader. A wait that ends because the replier leaves is in good order: no exception, and no line in the log.
/// @par Threads  `wait`: one at a time.
class NORVANE_EXPORT RequestWatch {
public:
    /// @param reader  outlives the watch.
    /// @throws RuntimeException  the middleware could not make a condition.
    explicit RequestWatch(DDSDataReader& reader);
    ~RequestWatch();
    RequestWatch(const RequestWatch&) = delete;
    RequestWatch& operator=(const RequestWatch&) = delete;

    /// As CrewWork::wait.
    bool wait();

private:
    DDSDataReader& _reader;
    DDSReadCondition* _any_request;  // owned
    DDSWaitSet _waitset;
};

/// What a crew works at: a replier and a handler, typed by whoever derives. Counts and reports for them.
class NORVANE_EXPORT CrewWork {
public:
    virtual ~CrewWork();

    /// @return the part of one more worker; does not outlive the work.
    virtual std::unique_ptr<CrewHand> new_hand() = 0;
    /// Waits without limit until there is a request. Called with the lead.
    /// @return false when no more requests are received: those that are queued are the last.
    virtual bool wait() = 0;
    virtual void stop_receiving() = 0;
    /// Takes some of the queued requests and lets them go. @return how many; 0 when none was there.
    virtual int discard_some() = 0;
    virtual bool wait_for_acknowledgments(const Timeout& max_wait) = 0;
    /// The last resort: ends every wait, whatever else fails.
    virtual void close() = 0;

    ServiceStatistics stats() const noexcept;
    void count_discarded(int count) noexcept { _discarded.fetch_add(count, std::memory_order_relaxed); }
    /// Logs a failure of the crew. Called from a catch clause: the exception says what happened.
    void report(const char* what) const noexcept;

protected:
    /// @param params  name the service in the log; read during the call only. @param workers  at least 1.
    /// @throws BadParameterException  `workers` is below 1.
    CrewWork(const EntityParams& params, int workers);

    // Called by the hands; those that report, from a catch clause.
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
    explicit WorkerCrew(std::shared_ptr<CrewWork> work);
    /// Stops. From inside a handler: all but the handler that calls have ended afterwards, and its worker keeps the work alive until it has
    /// answered.
    ~WorkerCrew();
    WorkerCrew(const WorkerCrew&) = delete;
    WorkerCrew& operator=(const WorkerCrew&) = delete;

    /// What Service says.
    bool drain(const Timeout& max_wait);
    bool stop(const Timeout& max_wait);

private:
    class State;

    std::shared_ptr<State> _state;  // shared with the workers
};

}  // namespace details
}  // namespace norvane

#endif
