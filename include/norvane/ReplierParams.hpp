// SPDX-License-Identifier: Apache-2.0
// Configuration of a replier: it reads requests and writes replies.
#ifndef NORVANE_REPLIERPARAMS_HPP
#define NORVANE_REPLIERPARAMS_HPP

#include "norvane/EntityParams.hpp"

namespace norvane {

/// Builder of a replier's configuration. Setters chain, check nothing, and may be called again: the last value wins.
///
/// Needed: a participant, and either a service name or both topic names.
/// @par Threads  A plain value; one thread at a time.
class NORVANE_EXPORT ReplierParams : public details::EntityParams {
public:
    ReplierParams(DDSDomainParticipant* participant);
    ReplierParams(const ReplierParams&) = default;
    ReplierParams& operator=(const ReplierParams&) = default;
    ~ReplierParams() override;

    ReplierParams& participant(DDSDomainParticipant* participant);
    /// Requests travel on the topic of that name followed by "Request", replies on the one followed by "Reply".
    ReplierParams& service_name(const std::string& name);
    /// May name a content-filtered topic of the application's own: the replier then reads only the requests that pass it.
    ReplierParams& request_topic_name(const std::string& name);
    ReplierParams& reply_topic_name(const std::string& name);
    /// Takes the QoS of both endpoints from a profile, unless one is given explicitly.
    ReplierParams& qos_profile(const std::string& library_name, const std::string& profile_name);
    /// QoS of the reply writer. Only the address is kept: the record must live until the replier is made.
    ReplierParams& datawriter_qos(const DDS_DataWriterQos& qos);
    ReplierParams& datawriter_qos(const DDS_DataWriterQos&& qos) = delete;  // only its address is kept: use a variable
    /// QoS of the request reader. Only the address is kept.
    ReplierParams& datareader_qos(const DDS_DataReaderQos& qos);
    ReplierParams& datareader_qos(const DDS_DataReaderQos&& qos) = delete;  // only its address is kept: use a variable
    ReplierParams& publisher(DDSPublisher* publisher);
    ReplierParams& subscriber(DDSSubscriber* subscriber);
    ReplierParams& request_type_support(DDSTypeSupport* type_support);
    ReplierParams& reply_type_support(DDSTypeSupport* type_support);
    /// Limits the requests that are queued: received, and not yet taken or still on loan. At the limit a requester's write waits
    /// for room, up to its `max_blocking_time` and the time-out of its call, and then fails with TimeoutException (of a call:
    /// CallTimeoutException, NO_ROOM): nothing is dropped.
    /// @param count  at least 1; DDS_LENGTH_UNLIMITED, as at start, for what the QoS of the reader says.
    ReplierParams& max_queued_requests(int count);
    int max_queued_requests() const { return _max_queued_requests; }

    using details::EntityParams::datareader_qos;
    using details::EntityParams::datawriter_qos;
    using details::EntityParams::participant;
    using details::EntityParams::publisher;
    using details::EntityParams::reply_topic_name;
    using details::EntityParams::request_topic_name;
    using details::EntityParams::service_name;
    using details::EntityParams::subscriber;

private:
    int _max_queued_requests;
};

}  // namespace norvane

#endif
