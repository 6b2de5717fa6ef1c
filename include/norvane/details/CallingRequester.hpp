// SPDX-License-Identifier: Apache-2.0
// The untyped half of the typed requester: whole calls, readiness, counters, and closing.
//
// A call waits on a condition of any sample state that is keyed by its request, and takes by it: no other wait of the requester,
// keyed or not, consumes its wake-up. Its key is open for as long as it runs; a reply that comes later is dropped before it takes
// room.
// Thread rule: any number of threads, but for construction and destruction.
#ifndef NORVANE_DETAILS_CALLINGREQUESTER_HPP
#define NORVANE_DETAILS_CALLINGREQUESTER_HPP

#include <atomic>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>

#include "norvane/Statistics.hpp"
#include "norvane/Timeout.hpp"
#include "norvane/details/MatchedRepliers.hpp"
#include "norvane/details/RequesterUntypedImpl.hpp"

namespace norvane {

/// What a call does when no replier is ready.
enum class WhenNobodyIsThere {
    WAIT,  ///< Waits for one, inside its time-out.
    FAIL   ///< Fails at once.
};

class Dispatcher;

namespace details {

/// A request whose reply is waited for: the key is open, and the condition is true while the reply is there.
struct OpenCall {
    DDS_SampleIdentity_t request_id;
    DDSReadCondition* condition = nullptr;
    std::uint64_t newest_replier = 0;  ///< MatchedRepliers::newest when it was sent.
};

/// Where asynchronous calls wait for their replies. See norvane::Dispatcher.
class DispatcherLink;
class HoldingSpan;

class NORVANE_EXPORT CallingRequester : public RequesterUntypedImpl {
public:
    ~CallingRequester() override;

    /// Waits until so many repliers are ready: each has been matched in both directions.
    /// @param max_wait  zero looks once; infinite never gives up. @param count  at least 1.
    /// @return false on time-out.
    /// @throws AlreadyDeletedException  the requester was closed.
    /// @throws BadParameterException    `count` is below 1.
    /// @par Threads  Any number.
    /// @par Blocks   Up to `max_wait`.
    bool wait_for_service(const Timeout& max_wait = DEFAULT_TIMEOUT, int count = 1);
    /// @return whether a replier is ready: a request sent now reaches it, and its reply comes back. Never blocks.
    bool is_service_ready() const noexcept { return matched_repliers() > 0; }
    /// @return how many repliers are ready. Never blocks.
    int matched_repliers() const noexcept { return _repliers.count(); }

    /// Says that no reply to a request is wanted any more. Those that are there are dropped, those that come are dropped and
    /// counted as late.
    ///
    /// `call` and `call_async` do so themselves. For requests of `send_request` it saves memory: replies that are not taken stay in
    /// the reader.
    /// @throws BadParameterException  `request_id` is no identity of a request of this requester.
    /// @par Blocks  Never.
    void forget(const DDS_SampleIdentity_t& request_id);

    /// @return what was counted since the requester was made.
    /// @par Blocks  Never.
    RequesterStatistics stats() const;

    /// Leaves the service. Every wait and call, running or later, ends with AlreadyDeletedException within milliseconds; so do
    /// asynchronous calls, on this thread. Replies that have come can still be taken. Calling it again does nothing.
    /// @par Threads  Any, also inside a callback.
    /// @par Blocks   While a callback of this requester runs in another thread.
    void close();

protected:
    /// @param dispatcher  of the asynchronous calls; null for none. It must live during the constructor, and may be destroyed
    ///                    before or after the requester.
    CallingRequester(const RequesterParams& params, Dispatcher* dispatcher, RegisterTypeFunc register_request_type,
                     RegisterTypeFunc register_reply_type, int reply_size, bool is_string);

    /// Writes a request.
    /// @throws AlreadyDeletedException  closed. @throws as EntityUntypedImpl::send_sample.
    void send_request(const void* request, DDS_WriteParams_t& params);

    /// One whole call. On return exactly one reply is lent: give it back with `return_loan`. On an exception nothing of the call
    /// remains.
    /// @throws CallTimeoutException     no reply in time.
    /// @throws AlreadyDeletedException  closed.
    void call(const void* request, const Timeout& timeout, WhenNobodyIsThere when_nobody, void*** reply, int* count,
              DDS_SampleInfoSeq& infos);

    /// Runs an operation of the core, and turns the interruption of a closed requester into an exception that says so.
    template <class Operation>
    auto unless_closed(const char* method_name, Operation operation) {
        try {
            return operation();
        } catch (const AlreadyDeletedException&) {
            throw_if_closed(method_name);
            throw;
        }
    }
    /// @throws AlreadyDeletedException  closed.
    void throw_if_closed(const char* method_name) const;
    /// Ends every asynchronous call, for good. The first step of every destructor: callbacks may still use the whole object.
    void end_async_calls() noexcept;

    // ---- the steps of a call, for the dispatcher

    friend class norvane::Dispatcher;
    friend class DispatcherLink;

    /// Waits for a replier if need be, writes the request, opens its key and makes its condition.
    /// @throws as `call`.
    OpenCall open_call(const void* request, const Deadline& deadline, WhenNobodyIsThere when_nobody);
    /// The same without blocking. @return false when no replier is ready, or one has no room: nothing was sent.
    bool try_open_call(const void* request, OpenCall& call);
    /// Takes the reply, as a loan of one. @return false when it is not there (yet).
    bool take_reply(const OpenCall& call, void*** reply, int* count, DDS_SampleInfoSeq& infos);
    /// Ends a call: the condition is deleted, the key is closed. Must follow every `open_call`.
    void close_call(const OpenCall& call) noexcept;
    /// @return what a call that got no reply in time ends with; it is counted. @param sent  null when its request was not sent.
    std::exception_ptr timeout_of(const Timeout& timeout, const OpenCall* sent);
    /// @return what ends the calls of a closed requester.
    std::exception_ptr closure(const char* method_name) const;
    void count_completed() noexcept { _completed.fetch_add(1, std::memory_order_relaxed); }

    /// Null without a dispatcher. Declared before the repliers, which report their changes to it.
    std::shared_ptr<DispatcherLink> _dispatcher_link;

private:
    /// @param span  lasts until the endpoints are made.
    CallingRequester(const HoldingSpan& span, const RequesterParams& params, Dispatcher* dispatcher,
                     RegisterTypeFunc register_request_type, RegisterTypeFunc register_reply_type, int reply_size, bool is_string);

    [[noreturn]] void throw_nobody(const char* method_name, const Timeout& timeout);
    DDS_ReturnCode_t write_request(const void* request, DDS_WriteParams_t& params, const char* method_name);
    OpenCall opened(const DDS_SampleIdentity_t& request_id, std::uint64_t newest_replier);
    std::string title() const;

    DDS_GUID_t _writer_guid = DDS_GUID_UNKNOWN;  // in the identity of each of its requests
    MatchedRepliers _repliers;
    std::atomic<bool> _closed{false};
    std::atomic<bool> _said_unmatched{false};
    std::atomic<std::int64_t> _pending{0};
    std::atomic<std::int64_t> _completed{0};
    std::atomic<std::int64_t> _timed_out{0};
};

}  // namespace details
}  // namespace norvane

#endif
