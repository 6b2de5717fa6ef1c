// SPDX-License-Identifier: Apache-2.0
// The typed requester: sends requests of one type, and gets the replies of another that answer them.
//
// Thread rule: any number of threads may send, wait for the replies to a request, and collect them. Waiting for whatever reply comes
// first (no request named) is for one thread at a time. Construction and destruction overlap with nothing.
#ifndef NORVANE_REQUESTER_HPP
#define NORVANE_REQUESTER_HPP

#include <chrono>
#include <string>
#include <type_traits>

#include "norvane/LoanedSamples.hpp"
#include "norvane/RequesterParams.hpp"
#include "norvane/details/RequesterUntypedImpl.hpp"
#include "norvane/details/sample_argument.hpp"

namespace norvane {

/// Sends requests to the repliers of a service, and collects their replies: only those to its own requests, told apart by request.
///
/// @snippet examples/calculator/main.cpp requester
/// @tparam Request, Reply  std::string, or a trivially copyable struct (which stays in its process).
/// @par Threads  Same object: any number of threads, except where an operation says otherwise.
template <class Request, class Reply>
class Requester : protected details::RequesterUntypedImpl {
public:
    /// Joins the service: makes a writer of requests and a reader of the replies to them.
    /// @param params  read during the call only.
    /// @throws BadParameterException        the parameters are invalid; or a type support is given for samples of another size.
    /// @throws PreconditionNotMetException  a topic of the service carries another type, or the participant knows another type under one of
    ///                                      the names: topic or name, expected and found type are named.
    /// @throws RuntimeException             a topic or endpoint could not be made.
    /// @throws std::bad_alloc               memory is short.
    /// @par Blocks  Never.
    explicit Requester(const RequesterParams& params)
        : details::RequesterUntypedImpl(params, &details::register_sample_type<Request>, &details::register_sample_type<Reply>,
                                        details::sample_size<Reply>(), details::IS_STRING<Reply>),
          _reply_reader(nullptr) {
        details::require_topic_type(*get_datawriter()->get_topic(),
                                    details::chosen_type_support<Request>(params.datawriter_type_support()),
                                    "Requester::Requester");
        details::require_topic_type(*get_datareader()->get_topicdescription(),
                                    details::chosen_type_support<Reply>(params.datareader_type_support()), "Requester::Requester");
        _reply_reader = details::typed_datareader<Reply>(get_datareader());
    }

    /// Sends a request to every replier of the service.
    /// @param request  copied or encoded before the call returns.
    /// @return the identity of the request, for `wait_for_replies` and `take_replies`.
    /// @throws TimeoutException         no room within the writer's `max_blocking_time`.
    /// @throws BadParameterException    a string that is null or holds a NUL.
    /// @throws OutOfResourcesException  memory is short.
    /// @throws AlreadyDeletedException  the requester's writer was deleted meanwhile.
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

    /// Waits until replies are available, whichever of the requests they answer.
    ///
    /// Replies already received count. They stay in the reader, so a later take returns them all.
    /// @param max_wait   longest time blocked. DDS_DURATION_ZERO polls; DDS_DURATION_INFINITE never gives up.
    /// @param min_count  replies wanted, or DDS_LENGTH_UNLIMITED to wait out the whole time.
    /// @return true when enough replies are there; false on time-out, which is not an error.
    /// @throws PreconditionNotMetException  another thread is in this wait.
    /// @throws the class of the code with which the reader was interrupted.
    /// @par Threads  One at a time.
    /// @par Blocks   Up to `max_wait`.
    bool wait_for_replies(const DDS_Duration_t& max_wait, int min_count = 1) { return wait_for_any_sample(max_wait, min_count); }
    template <class Rep, class Period>
    bool wait_for_replies(const std::chrono::duration<Rep, Period>& max_wait, int min_count = 1) {
        return wait_for_replies(details::to_dds_duration(max_wait), min_count);
    }

    /// Waits until replies to one request are available.
    ///
    /// Replies already received count. They stay in the reader, so a later take returns them all.
    /// @param max_wait    longest time blocked. DDS_DURATION_ZERO polls; DDS_DURATION_INFINITE never gives up.
    /// @param min_count   replies wanted, or DDS_LENGTH_UNLIMITED to wait out the whole time.
    /// @param request_id  what `send_request` returned.
    /// @return true when enough replies are there; false on time-out, which is not an error.
    /// @throws BadParameterException  `request_id` is no identity of a request.
    /// @throws RuntimeException       the middleware could not make a condition.
    /// @throws std::bad_alloc         no wait set could be had.
    /// @throws the class of the code with which the reader, or the request's key, was interrupted.
    /// @par Threads  Any number, for the same or different requests.
    /// @par Blocks   Up to `max_wait`.
    bool wait_for_replies(const DDS_Duration_t& max_wait, int min_count, const DDS_SampleIdentity_t& request_id) {
        return details::RequesterUntypedImpl::wait_for_replies(max_wait, min_count, request_id);
    }
    template <class Rep, class Period>
    bool wait_for_replies(const std::chrono::duration<Rep, Period>& max_wait, int min_count,
                          const DDS_SampleIdentity_t& request_id) {
        return wait_for_replies(details::to_dds_duration(max_wait), min_count, request_id);
    }

    /// Waits until one reply to one request is available. Else as above.
    bool wait_for_replies(const DDS_Duration_t& max_wait, const DDS_SampleIdentity_t& request_id) {
        return wait_for_replies(max_wait, 1, request_id);
    }
    template <class Rep, class Period>
    bool wait_for_replies(const std::chrono::duration<Rep, Period>& max_wait, const DDS_SampleIdentity_t& request_id) {
        return wait_for_replies(details::to_dds_duration(max_wait), 1, request_id);
    }

    /// Takes replies out of the reader, whichever of the requests they answer (SampleRef::related_identity tells).
    /// @param max_count  at most so many; DDS_LENGTH_UNLIMITED for all; 0 finds nothing.
    /// @return the replies in the order in which they came; empty when there are none.
    /// @throws BadParameterException  `max_count` is negative and not DDS_LENGTH_UNLIMITED.
    /// @par Threads  Any.
    /// @par Blocks   Never.
    LoanedSamples<Reply> take_replies(int max_count = DDS_LENGTH_UNLIMITED) { return any_replies(max_count, true); }
    /// Takes the replies to one request. Else as above.
    /// @throws BadParameterException  also when `request_id` is no identity of a request.
    LoanedSamples<Reply> take_replies(const DDS_SampleIdentity_t& request_id, int max_count = DDS_LENGTH_UNLIMITED) {
        return replies_to(request_id, max_count, true);
    }
    /// As `take_replies`, but leaves the replies in the reader.
    LoanedSamples<Reply> read_replies(int max_count = DDS_LENGTH_UNLIMITED) { return any_replies(max_count, false); }
    /// As `take_replies`, but leaves the replies in the reader.
    LoanedSamples<Reply> read_replies(const DDS_SampleIdentity_t& request_id, int max_count = DDS_LENGTH_UNLIMITED) {
        return replies_to(request_id, max_count, false);
    }

    /// Waits for replies, whichever of the requests they answer, and takes them.
    /// @param min_count  replies to wait for. @param max_count  replies to take at most, or DDS_LENGTH_UNLIMITED.
    /// @param max_wait   longest time blocked; not zero, and not infinite when `max_count` is unlimited.
    /// @return at least `min_count` replies; none on time-out: fewer than that stay in the reader.
    /// @throws BadParameterException  the limits contradict each other; the message says how.
    /// @throws as wait_for_replies.
    /// @par Threads  One at a time.
    /// @par Blocks   Up to `max_wait`.
    LoanedSamples<Reply> receive_replies(int min_count, int max_count, const DDS_Duration_t& max_wait) {
        return details::read_loaned_samples<Reply>(_reply_reader, [&](void*** data, int* count, DDS_SampleInfoSeq& infos) {
            receive_sample_loaned(data, count, infos, max_count, max_wait, min_count);
        });
    }
    template <class Rep, class Period>
    LoanedSamples<Reply> receive_replies(int min_count, int max_count, const std::chrono::duration<Rep, Period>& max_wait) {
        return receive_replies(min_count, max_count, details::to_dds_duration(max_wait));
    }

    /// @return the requester's own writer of requests; not to be deleted.
    DDSDataWriter* get_request_datawriter() const { return get_datawriter(); }
    /// @return the requester's own reader of replies; not to be deleted.
    DDSDataReader* get_reply_datareader() const { return get_datareader(); }

private:
    DDS_SampleIdentity_t send(const details::SampleArgument<Request>& request) {
        DDS_WriteParams_t params;
        send_sample(request.sample(), params);
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
