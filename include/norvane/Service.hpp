// SPDX-License-Identifier: Apache-2.0
// A replier with threads of its own: a handler function turns each request into its reply.
//
// Thread rule: any number of threads, handlers included. Construction overlaps with nothing, nor does destruction but with
// handlers.
#ifndef NORVANE_SERVICE_HPP
#define NORVANE_SERVICE_HPP

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "norvane/Replier.hpp"
#include "norvane/details/WorkerCrew.hpp"

namespace norvane {

/// How a service works. Setters chain.
/// @par Threads  A plain value; one thread at a time.
template <class Reply>
class ServiceOptions {
public:
    typedef std::function<Reply(std::exception_ptr)> ErrorHandler;

    /// Handlers that may run at once, each on a thread of its own; at least 1, which is what it is at start. With 1, requests are
    /// handled in the order in which they came, and a handler needs no lock.
    ServiceOptions& workers(int count) {
        _workers = count;
        return *this;
    }
    /// Makes the reply to a request whose handler threw. None, as at start: such a request gets no reply, and its caller a
    /// time-out.
    ServiceOptions& on_error(ErrorHandler on_error) {
        _on_error = std::move(on_error);
        return *this;
    }
    int workers() const noexcept { return _workers; }
    const ErrorHandler& on_error() const noexcept { return _on_error; }

private:
    int _workers = 1;
    ErrorHandler _on_error;
};

namespace details {

template <class Request, class Reply>
class ServiceWork : public WorkSource {
public:
    typedef std::function<Reply(const Request&)> Handler;
    typedef std::function<Reply(const Request&, const DDS_SampleInfo&)> InfoHandler;

    ServiceWork(const ReplierParams& params, Handler handler, InfoHandler info_handler, const ServiceOptions<Reply>& options)
        : WorkSource(params, options.workers()),
          _handler(std::move(handler)),
          _info_handler(std::move(info_handler)),
          _on_error(options.on_error()),
          _replier(params),
          _leader_wait(*_replier.get_request_datareader()) {
        if (!_handler && !_info_handler) {
            check_retcode(DDS_RETCODE_BAD_PARAMETER, "Service::Service", DDS_LOG_BAD_PARAMETER_s, "null handler", false);
        }
    }

    std::unique_ptr<Worker> new_worker() override { return std::make_unique<TypedWorker>(*this); }
    bool wait() override { return _leader_wait.wait(); }
    void stop_receiving() override { _replier.stop_receiving(); }
    int discard_some() override { return _replier.take_requests().length(); }
    bool wait_for_acknowledgments(const Timeout& max_wait) override { return _replier.wait_for_acknowledgments(max_wait); }
    void close() override { _replier.close(); }

    ReplierStatistics replier_stats() const override { return _replier.stats(); }

private:
    class TypedWorker : public Worker {
    public:
        explicit TypedWorker(ServiceWork& work) : _work(work) {}

        bool take() override {
            _loan = _work._replier.take_requests(1);
            return !_loan.empty();
        }
        void handle() noexcept override {
            const DDS_SampleIdentity_t request_id = _loan[0].identity();
            bool returned = false;
            const std::optional<Reply> reply = reply_to_request(returned);
            // Before the reply: its requester may send the next request at once, and there must be room for that.
            _loan.return_loan();
            if (!reply.has_value()) {
                return;
            }
            try {
                _work._replier.send_reply(*reply, request_id);
            } catch (...) {
                _work.reply_failed();
                return;
            }
            if (returned) {
                _work.count_handled();
            }
        }

    private:
        std::optional<Reply> reply_to_request(bool& returned) {
            try {
                std::optional<Reply> reply(call_handler());
                returned = true;
                return reply;
            } catch (...) {
                _work.handler_failed();
                if (!_work._on_error) {
                    return std::nullopt;
                }
                try {
                    return _work._on_error(std::current_exception());
                } catch (...) {
                    _work.error_handler_failed();
                    return std::nullopt;
                }
            }
        }
        Reply call_handler() {
            const auto request = _loan[0];
            const auto call = [&](const Request& data) {
                return _work._handler ? _work._handler(data) : _work._info_handler(data, request.info());
            };
            if constexpr (IS_STRING<Request>) {
                _text = request.c_str();
                return call(_text);
            } else {
                return call(request.data());
            }
        }

        ServiceWork& _work;
        LoanedSamples<Request> _loan;  // of one while a request is handled
        std::string _text;             // of a request that is a text; keeps its memory
    };

    const Handler _handler;
    const InfoHandler _info_handler;
    const typename ServiceOptions<Reply>::ErrorHandler _on_error;
    Replier<Request, Reply> _replier;
    LeaderWait _leader_wait;
};

}  // namespace details

/// Answers the requests that are sent to a service by calling a function.
///
/// @code
///     norvane::Service<Question, Answer> service(norvane::ReplierParams(participant).service_name("Oracle"),
///                                                [](const Question& question) { return Answer{question.number * 2}; });
/// @endcode
/// Starts `workers` threads, which sleep until a request comes. A request waits in the reader until a worker is free: see
/// ReplierParams::max_queued_requests for a limit.
///
/// Handlers may call services. One that calls its own service needs another worker that is free: with one worker, or when every
/// worker does so at once, the call times out.
///
/// A handler cannot be ended from outside. When `drain` or `stop` returns before a handler does, the handler goes on, its reply is
/// sent, and the service must still live. The destructor therefore waits for every handler, however long that takes (and logs that
/// it does): what a handler uses may be destroyed right after the service. Give a handler that may take long a flag or a deadline
/// of its own.
/// @tparam Request, Reply  as for Replier.
/// @par Threads  Same object: any. Destruction overlaps with nothing but handlers.
template <class Request, class Reply>
class Service {
    typedef details::ServiceWork<Request, Reply> Work;

public:
    /// Offers the service, and starts its workers.
    /// @param params   read during the call only.
    /// @param handler  copyable; called as `Reply(const Request&)` or `Reply(const Request&, const DDS_SampleInfo&)`, by several
    ///                 workers at once if there are several. What it is given is valid until it returns. When it throws, that is
    ///                 logged and counted, and the request is answered by `on_error`, or not at all.
    /// @throws BadParameterException    the parameters are invalid; fewer than one worker; a null function.
    /// @throws OutOfResourcesException  a thread could not be started.
    /// @throws as Replier::Replier.
    /// @par Blocks  Never.
    template <class Handler>
    Service(const ReplierParams& params, Handler handler, const ServiceOptions<Reply>& options = ServiceOptions<Reply>())
        : _work(make_work(params, std::move(handler), options)), _crew(_work) {}
    /// As `stop`, but waits for every handler, and ends the threads. Allowed in a handler: its reply is still written, and the
    /// participant must live until then.
    /// @par Blocks  While other handlers run, without limit, and then up to DEFAULT_TIMEOUT until the last replies are
    /// acknowledged.
    ~Service() = default;
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    /// Leaves the service without losing a request: takes no more in, has the queued ones handled, and waits until every reply has
    /// reached its requester. What is not done in time goes on without the caller: call it again to wait longer, or `stop` to
    /// discard what is queued.
    /// @param max_wait  longest time for all of it. Zero begins, and looks once; infinite never gives up.
    /// @return true when all was done; else what is left, which is also logged. Called from a handler of this service, it only
    ///         begins: it returns at once, with what is left, and logs nothing.
    /// @throws RuntimeException           the middleware could not leave the topic.
    /// @throws IllegalOperationException  this is a child process made by fork() after the service was made.
    /// @par Threads  Any.
    /// @par Blocks   Up to `max_wait`.
    ShutdownResult drain(const Timeout& max_wait = DEFAULT_TIMEOUT) { return _crew.drain(max_wait); }

    /// Leaves the service quickly: as `drain`, but requests that no handler has begun with are discarded and counted.
    /// @param max_wait  longest time until the running handlers have returned and every reply has reached its requester.
    /// @return as `drain`. @throws as `drain`.
    /// @par Threads  Any.
    /// @par Blocks   Up to `max_wait`.
    ShutdownResult stop(const Timeout& max_wait = DEFAULT_TIMEOUT) { return _crew.stop(max_wait); }

    /// @return what was done with the requests. @par Blocks  Never.
    ServiceStatistics stats() const { return _work->stats(); }
    /// @return what the replier inside counted. @par Blocks  Never.
    ReplierStatistics replier_stats() const { return _work->replier_stats(); }

private:
    template <class Handler>
    static std::shared_ptr<Work> make_work(const ReplierParams& params, Handler handler, const ServiceOptions<Reply>& options) {
        if constexpr (std::is_invocable_r<Reply, Handler&, const Request&, const DDS_SampleInfo&>::value) {
            return std::make_shared<Work>(params, nullptr, std::move(handler), options);
        } else {
            static_assert(std::is_invocable_r<Reply, Handler&, const Request&>::value,
                          "a handler is called as Reply(const Request&), or as Reply(const Request&, const DDS_SampleInfo&)");
            return std::make_shared<Work>(params, std::move(handler), nullptr, options);
        }
    }

    std::shared_ptr<Work> _work;  // shared with the crew
    details::WorkerCrew _crew;    // destroyed first: ends the threads
};

}  // namespace norvane

#endif
