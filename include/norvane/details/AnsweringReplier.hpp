// SPDX-License-Identifier: Apache-2.0
// The untyped half of the typed replier: what it announces of itself, the limit of its queue, counters, and closing.
// Thread rule: any number of threads, but for construction and destruction.
#ifndef NORVANE_DETAILS_ANSWERINGREPLIER_HPP
#define NORVANE_DETAILS_ANSWERINGREPLIER_HPP

#include <atomic>

#include "norvane/ReplierParams.hpp"
#include "norvane/Statistics.hpp"
#include "norvane/Timeout.hpp"
#include "norvane/details/ReplierUntypedImpl.hpp"

namespace norvane {
namespace details {

class NORVANE_EXPORT AnsweringReplier : public ReplierUntypedImpl {
public:
    ~AnsweringReplier() override;

    /// @return what was counted since the replier was made.
    /// @par Blocks  Never.
    ReplierStatistics stats() const;

    /// Takes no more requests in: requesters see the replier go. Those that are queued can still be taken and answered; a wait for
    /// requests ends with AlreadyDeletedException once fewer than it wants are queued. Calling it again does nothing.
    /// @throws PreconditionNotMetException  called from inside the replier's listener.
    /// @par Blocks  While the listener runs.
    void stop_receiving();

    /// Waits until every reply written so far has reached its requester, or the requester is gone.
    /// @return false on time-out.
    /// @throws AlreadyDeletedException  the replier was closed.
    /// @par Blocks  Up to `max_wait`. On the embedded engine never: a reply that was written has arrived.
    bool wait_for_acknowledgments(const Timeout& max_wait = DEFAULT_TIMEOUT);

    /// Leaves the service. Every wait, running or later, and every later reply ends with AlreadyDeletedException within
    /// milliseconds. Requests that are queued can still be looked at. Calling it again does nothing.
    /// @throws PreconditionNotMetException  called from inside the replier's listener.
    /// @par Threads  Any.
    /// @par Blocks   While the listener runs.
    void close();

protected:
    AnsweringReplier();

    /// As ReplierUntypedImpl::initialize; the participant learns that the endpoints have a holder.
    void initialize(const EntityParams& params, RegisterTypeFunc register_request_type, RegisterTypeFunc register_reply_type,
                    int request_size, DDSDataReaderListener* reader_listener, bool is_string);

    void get_datareader_qos(DDS_DataReaderQos& qos, const EntityParams& params, const char* topic_name,
                            const char* role_name) override;

    /// Waits for requests. @throws AlreadyDeletedException  closed, or too little is queued and nothing is received any more.
    bool wait_for_requests(const Timeout& max_wait, int min_count);
    /// @throws AlreadyDeletedException  closed. @throws as ReplierUntypedImpl::send_sample.
    void send_reply(const void* reply, const DDS_SampleIdentity_t& request_id, DDS_WriteParams_t& params);
    /// @throws AlreadyDeletedException  closed.
    void throw_if_closed(const char* method_name) const;

    /// Requests that the reader holds at most; set before `initialize`, by the parameters.
    int _max_queued_requests;

private:
    std::atomic<bool> _receiving{true};
    std::atomic<bool> _closed{false};
};

}  // namespace details
}  // namespace norvane

#endif
