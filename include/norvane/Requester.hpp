// SPDX-License-Identifier: Apache-2.0
// The typed requester: sends requests of one type, and gets the replies of another that answer them.
//
// Thread rule: any number of threads may call, send, wait for the replies to a request, and collect them. Waiting for any reply
// (without an identity) is for one thread at a time. Construction and destruction overlap with nothing.
#ifndef NORVANE_REQUESTER_HPP
#define NORVANE_REQUESTER_HPP

#include <future>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "norvane/CallResult.hpp"
#include "norvane/LoanedSamples.hpp"
#include "norvane/RequesterParams.hpp"
#include "norvane/Sample.hpp"
#include "norvane/Timeout.hpp"
#include "norvane/WriteSample.hpp"
#include "norvane/details/CallingRequester.hpp"
#include "norvane/details/async_call.hpp"
#include "norvane/details/sample_argument.hpp"
#include "norvane/details/sample_copy.hpp"

namespace norvane {

/// Sends requests to the repliers of a service, and collects their replies: only those to its own requests, told apart by request.
///
/// Most programs need `call` only:
/// @snippet examples/hello/main.cpp requester
/// Those that expect several replies to a request, or look for them later, use `send_request`, and wait for and take the replies to
/// its identity. (Operations without an identity are about all replies, those to `call` included: beside calls, name the request.)
/// @tparam Request, Reply  a described aggregate, a built-in type, a type generated from IDL, or a trivially copyable struct (which
///                         stays in its process): see dds_type_traits.hpp.
/// @par Threads  Same object: any number of threads, except where an operation says otherwise.
template <class Request, class Reply>
class Requester : protected details::CallingRequester {
public:
    /// Joins the service: makes a writer of requests and a reader of the replies to them. A requester made so makes no asynchronous
    /// calls.
    /// @param params  read during the call only.
    /// @throws as the other constructor.
    explicit Requester(const RequesterParams& params) : Requester(params, nullptr) {}

    /// Joins the service, and has a dispatcher serve the requester's asynchronous calls.
    /// @param params      read during the call only.
    /// @param dispatcher  may be destroyed before or after the requester. Once it is destroyed or closed, asynchronous calls end,
    ///                    and are refused, with AlreadyDeletedException.
    /// @throws BadParameterException        the parameters are invalid; or a type support is given for samples of another size.
    /// @throws PreconditionNotMetException  a topic of the service carries another type, or the participant knows another type
    ///                                      under one of the names: topic or name, expected and found type are named.
    /// @throws RuntimeException             a topic or endpoint could not be made.
    /// @throws IllegalOperationException    the dispatcher was made before this process was forked.
    /// @throws std::bad_alloc               memory is short.
    /// @par Blocks  Never.
    Requester(const RequesterParams& params, Dispatcher& dispatcher) : Requester(params, &dispatcher) {}
    /// Leaves the service. Asynchronous calls end as they do in `close`. No other operation may be running; a callback may.
    /// @par Blocks  While a callback of this requester runs in another thread; not inside a callback.
    ~Requester() override { end_async_calls(); }

    // ---- the service

    using details::CallingRequester::close;
    using details::CallingRequester::forget;
    using details::CallingRequester::is_service_ready;
    using details::CallingRequester::matched_repliers;
    using details::CallingRequester::stats;
    using details::CallingRequester::wait_for_service;

    // ---- one request, one reply

    /// Sends a request and waits for the first reply to it. Further replies to it are dropped. No state remains afterwards, however
    /// it ends.
    /// @param request       copied or encoded before it is sent.
    /// @param timeout       of the whole call: waiting for a replier, for room, and for the reply. Zero finds only a reply that is
    ///                      sent at once.
    /// @param when_nobody   whether to wait for a replier when none is ready, or to fail at once.
    /// @return the reply.
    /// @throws CallTimeoutException     no reply in time. Its `reason()` and its message say why, as far as it is known.
    /// @throws AlreadyDeletedException  the requester was closed.
    /// @throws BadParameterException    a string that is null or holds a NUL.
    /// @throws OutOfResourcesException  memory is short.
    /// @par Threads  Any number.
    /// @par Blocks   Up to `timeout`.
    Reply call(const Request& request, const Timeout& timeout = DEFAULT_TIMEOUT,
               WhenNobodyIsThere when_nobody = WhenNobodyIsThere::WAIT) {
        const details::SampleArgument<Request> argument(request, "Requester::call");
        const LoanedSamples<Reply> reply =
            details::read_loaned_samples<Reply>(_reply_reader, [&](void*** data, int* count, DDS_SampleInfoSeq& infos) {
                details::CallingRequester::call(argument.sample(), timeout, when_nobody, data, count, infos);
            });
        return details::copy_of<Reply>(reply[0]);
    }

    // ---- asynchronous calls
    //
    // A call that expires ends with CallTimeoutException, one of a requester or dispatcher that is closed with
    // AlreadyDeletedException. Arguments that are refused, and a write that fails, are thrown by call_async instead, and the future
    // or callback is not completed. While no replier is ready, or one has no room, a copy of the request waits in the dispatcher,
    // inside the call's time-out. In steady state, when the request can be sent at once, nothing is allocated here: a callback of
    // up to 80 octets is kept in place.

    /// As `call`, but returns at once.
    /// @param request  copied or encoded before this returns.
    /// @return the reply to come. The future may be dropped: the call then ends unnoticed. (Allocates what std::promise does.)
    /// @throws PreconditionNotMetException  the requester was given no dispatcher.
    /// @throws AlreadyDeletedException      the requester or its dispatcher was closed.
    /// @throws IllegalOperationException    this is a child process made by fork() after the requester was made.
    /// @throws BadParameterException        a string that is null or holds a NUL.
    /// @throws OutOfResourcesException      memory is short. @throws std::bad_alloc  so it is.
    /// @par Threads  Any number.
    /// @par Blocks   Never.
    std::future<Reply> call_async(const Request& request, const Timeout& timeout = DEFAULT_TIMEOUT) {
        details::FulfilPromise<Reply> promise;
        std::future<Reply> reply = promise.get_future();
        call_async(request, timeout, std::move(promise));
        return reply;
    }

    /// The same, with a callback. (norvane/coroutines.hpp adds a form that is awaited.)
    /// @param callback  invocable with CallResult<Reply>: takes it by value or const reference. Moved in; called once, and dropped
    ///                  after. It runs in the dispatcher's loop, or in the thread that closes, without any lock of the library; it
    ///                  may make calls, and close and destroy requesters and dispatchers. What it throws is logged and counted.
    /// @throws as above, and then the callback is not called.
    /// @par Threads  Any number.
    /// @par Blocks   Never.
    template <class Form>
    auto call_async(const Request& request, const Timeout& timeout, Form&& callback) {
        typedef typename dds_type_traits<Reply>::DataReader Reader;
        return details::AsyncForm<std::decay_t<Form>>::begin(
            details::AsyncCall<Request, Reply, Reader>(_dispatcher_link, _reply_reader, request, timeout),
            std::forward<Form>(callback));
    }

    // ---- requests

    /// Sends a request to every replier of the service. A request sent while no replier is there is counted, and the first one is
    /// logged.
    ///
    /// Its replies stay until they are taken, or until `forget`. (Beside calls: a request is forgotten by itself once 65,536 later
    /// calls are over.)
    /// @param request  copied or encoded before the call returns.
    /// @return the identity of the request, for `wait_for_replies` and `take_replies`.
    /// @throws TimeoutException         no room within the writer's `max_blocking_time`.
    /// @throws BadParameterException    a string that is null or holds a NUL.
    /// @throws OutOfResourcesException  memory is short.
    /// @throws AlreadyDeletedException  the requester was closed.
    /// @throws RuntimeException         any other failure of the write.
    /// @par Threads  Any.
    /// @par Blocks   Up to the writer's `max_blocking_time`, while a replier has no room; never inside a listener.
    DDS_SampleIdentity_t send_request(const Request& request) {
        return send(details::SampleArgument<Request>(request, "Requester::send_request"));
    }
    /// The same for a text, without making a std::string. Only where Request is std::string.
    template <class R = Request, typename std::enable_if<details::IS_STRING<R>, int>::type = 0>
    DDS_SampleIdentity_t send_request(const char* request) {
        return send(details::SampleArgument<Request>(request, "Requester::send_request"));
    }
    /// The same with parameters of the write.
    /// @param request  its `identity()` is the request's afterwards.
    void send_request(WriteSample<Request>& request) {
        const details::SampleArgument<Request> argument(request.data(), "Requester::send_request");
        details::CallingRequester::send_request(argument.sample(), request.info());
    }

    // ---- waiting for replies

    /// Waits until replies are available, whichever of the requests they answer.
    ///
    /// Replies already received count. They stay in the reader, so a later take returns them all.
    /// @param max_wait   longest time blocked. Zero polls; infinite never gives up.
    /// @param min_count  replies wanted, or DDS_LENGTH_UNLIMITED to wait out the whole time.
    /// @return true when enough replies are there; false on time-out, which is not an error.
    /// @throws PreconditionNotMetException  another thread is in this wait.
    /// @throws AlreadyDeletedException      the requester was closed.
    /// @par Threads  One at a time.
    /// @par Blocks   Up to `max_wait`.
    bool wait_for_replies(const Timeout& max_wait, int min_count = 1) {
        return unless_closed("wait_for_replies", [&] { return wait_for_any_sample(max_wait, min_count); });
    }

    /// Waits until replies to one request are available.
    ///
    /// Replies already received count. They stay in the reader, so a later take returns them all.
    /// @param max_wait    longest time blocked. Zero polls; infinite never gives up.
    /// @param min_count   replies wanted, or DDS_LENGTH_UNLIMITED to wait out the whole time.
    /// @param request_id  what `send_request` returned.
    /// @return true when enough replies are there; false on time-out, which is not an error.
    /// @throws BadParameterException    `request_id` is no identity of a request.
    /// @throws RuntimeException         the middleware could not make a condition.
    /// @throws AlreadyDeletedException  the requester was closed.
    /// @throws std::bad_alloc           no wait set could be had.
    /// @par Threads  Any number, for the same or different requests.
    /// @par Blocks   Up to `max_wait`.
    bool wait_for_replies(const Timeout& max_wait, int min_count, const DDS_SampleIdentity_t& request_id) {
        return unless_closed("wait_for_replies",
                             [&] { return details::RequesterUntypedImpl::wait_for_replies(max_wait, min_count, request_id); });
    }
    /// Waits until one reply to one request is available. Else as above.
    bool wait_for_replies(const Timeout& max_wait, const DDS_SampleIdentity_t& request_id) {
        return wait_for_replies(max_wait, 1, request_id);
    }

    // ---- collecting replies

    /// Takes replies out of the reader, whichever of the requests they answer (SampleRef::related_identity tells).
    /// @code
    ///     for (const auto& reply : requester.take_replies(id)) {
    ///         use(reply.data(), reply.info());
    ///     }
    /// @endcode
    /// @param max_count  at most so many; DDS_LENGTH_UNLIMITED for all; 0 finds nothing.
    /// @return the replies in the order in which they came; empty when there are none.
    /// @throws BadParameterException  `max_count` is negative and not DDS_LENGTH_UNLIMITED.
    /// @par Threads  Any.
    /// @par Blocks   Never.
    LoanedSamples<Reply> take_replies(int max_count = DDS_LENGTH_UNLIMITED) { return any_replies(max_count, true); }
    /// Takes the replies to one request. Else as above.
    /// @throws BadParameterException  also when `request_id` is no identity of a request.
    LoanedSamples<Reply> take_replies(int max_count, const DDS_SampleIdentity_t& request_id) {
        return replies_to(request_id, max_count, true);
    }
    /// Takes all replies to one request. Else as above.
    LoanedSamples<Reply> take_replies(const DDS_SampleIdentity_t& request_id) {
        return take_replies(DDS_LENGTH_UNLIMITED, request_id);
    }
    /// As `take_replies`, but leaves the replies in the reader.
    LoanedSamples<Reply> read_replies(int max_count = DDS_LENGTH_UNLIMITED) { return any_replies(max_count, false); }
    /// As `take_replies`, but leaves the replies in the reader.
    LoanedSamples<Reply> read_replies(int max_count, const DDS_SampleIdentity_t& request_id) {
        return replies_to(request_id, max_count, false);
    }
    /// As `take_replies`, but leaves the replies in the reader.
    LoanedSamples<Reply> read_replies(const DDS_SampleIdentity_t& request_id) {
        return read_replies(DDS_LENGTH_UNLIMITED, request_id);
    }

    /// Takes one reply, as an owned copy. @return the reply that came first; nothing when there is none.
    std::optional<Sample<Reply>> take_reply() { return details::first_of(take_replies(1)); }
    /// Takes one reply to one request, as an owned copy. @return the reply that came first; nothing when there is none.
    std::optional<Sample<Reply>> take_reply(const DDS_SampleIdentity_t& request_id) {
        return details::first_of(take_replies(1, request_id));
    }
    /// As `take_reply`, but leaves the reply in the reader.
    std::optional<Sample<Reply>> read_reply() { return details::first_of(read_replies(1)); }
    /// As `take_reply`, but leaves the reply in the reader.
    std::optional<Sample<Reply>> read_reply(const DDS_SampleIdentity_t& request_id) {
        return details::first_of(read_replies(1, request_id));
    }

    /// Waits for a reply, whichever of the requests it answers, and takes it.
    /// @param max_wait  longest time blocked; not zero (that is `take_reply`).
    /// @return the reply, as an owned copy; nothing on time-out.
    /// @throws as receive_replies.
    /// @par Threads  One at a time.
    /// @par Blocks   Up to `max_wait`.
    std::optional<Sample<Reply>> receive_reply(const Timeout& max_wait = DEFAULT_TIMEOUT) {
        return details::first_of(receive_replies(1, 1, max_wait));
    }

    /// Waits for replies, whichever of the requests they answer, and takes them.
    /// @param min_count  replies to wait for. @param max_count  replies to take at most, or DDS_LENGTH_UNLIMITED.
    /// @param max_wait   longest time blocked; not zero, and not infinite when `max_count` is unlimited.
    /// @return at least `min_count` replies; none on time-out: fewer than that stay in the reader.
    /// @throws BadParameterException  the limits contradict each other; the message says how.
    /// @throws as wait_for_replies.
    /// @par Threads  One at a time.
    /// @par Blocks   Up to `max_wait`.
    LoanedSamples<Reply> receive_replies(int min_count, int max_count, const Timeout& max_wait) {
        return unless_closed("receive_replies", [&] {
            return details::read_loaned_samples<Reply>(_reply_reader, [&](void*** data, int* count, DDS_SampleInfoSeq& infos) {
                receive_sample_loaned(data, count, infos, max_count, max_wait, min_count);
            });
        });
    }

    /// @return the requester's own writer of requests; not to be deleted. Its listener is the requester's: leave it.
    DDSDataWriter* get_request_datawriter() const { return get_datawriter(); }
    /// @return the requester's own reader of replies; not to be deleted. Its listener is the requester's: leave it.
    DDSDataReader* get_reply_datareader() const { return get_datareader(); }

private:
    Requester(const RequesterParams& params, Dispatcher* dispatcher)
        : details::CallingRequester(params, dispatcher, &details::register_sample_type<Request>,
                                    &details::register_sample_type<Reply>, details::sample_size<Reply>(),
                                    details::IS_STRING<Reply>),
          _reply_reader(nullptr) {
        details::require_topic_type(*get_datawriter()->get_topic(),
                                    details::chosen_type_support<Request>(params.datawriter_type_support()),
                                    "Requester::Requester");
        details::require_topic_type(*get_datareader()->get_topicdescription(),
                                    details::chosen_type_support<Reply>(params.datareader_type_support()), "Requester::Requester");
        _reply_reader = details::typed_datareader<Reply>(get_datareader());
    }

    DDS_SampleIdentity_t send(const details::SampleArgument<Request>& request) {
        DDS_WriteParams_t params;
        details::CallingRequester::send_request(request.sample(), params);
        return params.identity;
    }

    LoanedSamples<Reply> any_replies(int max_count, bool take) {
        return details::read_loaned_samples<Reply>(_reply_reader, [&](void*** data, int* count, DDS_SampleInfoSeq& infos) {
            get_sample_loaned(data, count, infos, max_count, take, nullptr);
        });
    }

    LoanedSamples<Reply> replies_to(const DDS_SampleIdentity_t& request_id, int max_count, bool take) {
        return details::read_loaned_samples<Reply>(_reply_reader, [&](void*** data, int* count, DDS_SampleInfoSeq& infos) {
            get_reply_loaned(data, count, infos, max_count, request_id, take);
        });
    }

    typename dds_type_traits<Reply>::DataReader* _reply_reader;  // the core's reader
};

}  // namespace norvane

#endif
