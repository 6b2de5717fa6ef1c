// SPDX-License-Identifier: Apache-2.0
// The typed replier: receives requests of one type, and answers them with replies of another.
//
// Thread rule: any number of threads may take requests and send replies. Waiting for requests is for one thread at a time.
// Construction and destruction overlap with nothing.
#ifndef NORVANE_REPLIER_HPP
#define NORVANE_REPLIER_HPP

#include <optional>
#include <type_traits>

#include "norvane/LoanedSamples.hpp"
#include "norvane/ReplierParams.hpp"
#include "norvane/Sample.hpp"
#include "norvane/Timeout.hpp"
#include "norvane/WriteSample.hpp"
#include "norvane/details/AnsweringReplier.hpp"
#include "norvane/details/sample_argument.hpp"
#include "norvane/details/sample_copy.hpp"

namespace norvane {

/// Receives the requests that are sent to a service, and answers each with any number of replies.
///
/// @snippet examples/hello/main.cpp replier
/// @tparam Request, Reply  as for Requester.
/// @par Threads  Same object: any number of threads, except where an operation says otherwise.
template <class Request, class Reply>
class Replier : protected details::AnsweringReplier {
public:
    /// Offers the service: makes a reader of requests and a writer of replies.
    /// @param params  read during the call only.
    /// @throws as the other constructor.
    explicit Replier(const ReplierParams& params) : Replier(params, nullptr) {}

    /// Offers the service, and calls a listener when requests come.
    /// @param params    read during the call only.
    /// @param listener  its `on_data_available` is called, maybe before the constructor has returned; borrowed until the replier is
    ///                  destroyed; null for none.
    /// @throws BadParameterException        the parameters are invalid; or a type support is given for samples of another size.
    /// @throws PreconditionNotMetException  a topic of the service carries another type, or the participant knows another type
    ///                                      under one of the names: topic or name, expected and found type are named.
    /// @throws RuntimeException             a topic or endpoint could not be made.
    /// @throws std::bad_alloc               memory is short.
    /// @par Blocks  Never.
    Replier(const ReplierParams& params, DDSDataReaderListener* listener) : _request_reader(nullptr) {
        _max_queued_requests = params.max_queued_requests();
        initialize(params, &details::register_sample_type<Request>, &details::register_sample_type<Reply>,
                   details::sample_size<Request>(), listener, details::IS_STRING<Request>);
        details::require_topic_type(*get_datareader()->get_topicdescription(),
                                    details::chosen_type_support<Request>(params.datareader_type_support()), "Replier::Replier");
        details::require_topic_type(*get_datawriter()->get_topic(),
                                    details::chosen_type_support<Reply>(params.datawriter_type_support()), "Replier::Replier");
        _request_reader = details::typed_datareader<Request>(get_datareader());
    }

    // ---- the service

    using details::AnsweringReplier::close;
    using details::AnsweringReplier::stats;
    using details::AnsweringReplier::stop_receiving;
    using details::AnsweringReplier::wait_for_acknowledgments;

    // ---- requests

    /// Waits until requests are available. They stay in the reader, so a later take returns them all.
    /// @param max_wait   longest time blocked. Zero polls; infinite never gives up.
    /// @param min_count  requests wanted, or DDS_LENGTH_UNLIMITED to wait out the whole time.
    /// @return true when enough requests are there; false on time-out, which is not an error.
    /// @throws PreconditionNotMetException  another thread is in this wait.
    /// @throws AlreadyDeletedException      the replier was closed; or it takes no more requests in, and fewer than that are
    ///                                      queued.
    /// @par Threads  One at a time.
    /// @par Blocks   Up to `max_wait`.
    bool wait_for_requests(const Timeout& max_wait, int min_count = 1) {
        return details::AnsweringReplier::wait_for_requests(max_wait, min_count);
    }

    /// Takes requests out of the reader. SampleRef::identity of each is what `send_reply` asks for.
    /// @param max_count  at most so many; DDS_LENGTH_UNLIMITED for all; 0 finds nothing.
    /// @return the requests in the order in which they came; empty when there are none.
    /// @throws BadParameterException  `max_count` is negative and not DDS_LENGTH_UNLIMITED.
    /// @par Threads  Any.
    /// @par Blocks   Never.
    LoanedSamples<Request> take_requests(int max_count = DDS_LENGTH_UNLIMITED) { return requests(max_count, true); }
    /// As `take_requests`, but leaves the requests in the reader.
    LoanedSamples<Request> read_requests(int max_count = DDS_LENGTH_UNLIMITED) { return requests(max_count, false); }

    /// Takes one request, as an owned copy. @return the request that came first; nothing when there is none.
    std::optional<Sample<Request>> take_request() { return details::first_of(take_requests(1)); }
    /// As `take_request`, but leaves the request in the reader.
    std::optional<Sample<Request>> read_request() { return details::first_of(read_requests(1)); }

    /// Waits for a request and takes it.
    /// @param max_wait  longest time blocked; not zero (that is `take_request`).
    /// @return the request, as an owned copy; nothing on time-out.
    /// @throws as receive_requests.
    /// @par Threads  One at a time.
    /// @par Blocks   Up to `max_wait`.
    std::optional<Sample<Request>> receive_request(const Timeout& max_wait = DEFAULT_TIMEOUT) {
        return details::first_of(receive_requests(1, 1, max_wait));
    }

    /// Waits for requests and takes them.
    /// @param min_count  requests to wait for. @param max_count  requests to take at most, or DDS_LENGTH_UNLIMITED.
    /// @param max_wait   longest time blocked; not zero, and not infinite when `max_count` is unlimited.
    /// @return at least `min_count` requests; none on time-out: fewer than that stay in the reader.
    /// @throws BadParameterException  the limits contradict each other; the message says how.
    /// @throws as wait_for_requests.
    /// @par Threads  One at a time.
    /// @par Blocks   Up to `max_wait`.
    LoanedSamples<Request> receive_requests(int min_count, int max_count, const Timeout& max_wait) {
        validate(min_count, max_count, max_wait);
        return wait_for_requests(max_wait, min_count) ? take_requests(max_count) : LoanedSamples<Request>();
    }

    /// The same with at least one request, and as many as there are.
    LoanedSamples<Request> receive_requests(const Timeout& max_wait) { return receive_requests(1, DDS_LENGTH_UNLIMITED, max_wait); }

    // ---- replies

    /// Answers a request. A request may be answered several times, from any thread, and after its loan went back.
    /// @param reply       copied or encoded before the call returns.
    /// @param request_id  SampleRef::identity of the request.
    /// @throws BadParameterException    `request_id` is no identity of a request; or a string that is null or holds a NUL.
    /// @throws TimeoutException         no room within the writer's `max_blocking_time`.
    /// @throws OutOfResourcesException  memory is short.
    /// @throws AlreadyDeletedException  the replier was closed.
    /// @throws RuntimeException         any other failure of the write.
    /// @par Threads  Any.
    /// @par Blocks   Up to the writer's `max_blocking_time`, while the requester has no room; never inside a listener.
    void send_reply(const Reply& reply, const DDS_SampleIdentity_t& request_id) {
        send(details::SampleArgument<Reply>(reply, "Replier::send_reply"), request_id);
    }
    /// The same for a text, without making a std::string. Only where Reply is std::string.
    template <class R = Reply, typename std::enable_if<details::IS_STRING<R>, int>::type = 0>
    void send_reply(const char* reply, const DDS_SampleIdentity_t& request_id) {
        send(details::SampleArgument<Reply>(reply, "Replier::send_reply"), request_id);
    }
    /// The same with parameters of the write.
    /// @param reply  its `identity()` is the reply's afterwards.
    void send_reply(WriteSample<Reply>& reply, const DDS_SampleIdentity_t& request_id) {
        const details::SampleArgument<Reply> argument(reply.data(), "Replier::send_reply");
        details::AnsweringReplier::send_reply(argument.sample(), request_id, reply.info());
    }

    /// @return the replier's own writer of replies; not to be deleted.
    DDSDataWriter* get_reply_datawriter() const { return get_datawriter(); }
    /// @return the replier's own reader of requests; not to be deleted.
    DDSDataReader* get_request_datareader() const { return get_datareader(); }

private:
    void send(const details::SampleArgument<Reply>& reply, const DDS_SampleIdentity_t& request_id) {
        DDS_WriteParams_t params;
        details::AnsweringReplier::send_reply(reply.sample(), request_id, params);
    }

    LoanedSamples<Request> requests(int max_count, bool take) {
        return details::read_loaned_samples<Request>(_request_reader, [&](void*** data, int* count, DDS_SampleInfoSeq& infos) {
            get_sample_loaned(data, count, infos, max_count, take, nullptr);
        });
    }

    typename dds_type_traits<Request>::DataReader* _request_reader;  // the core's reader
};

}  // namespace norvane

#endif
