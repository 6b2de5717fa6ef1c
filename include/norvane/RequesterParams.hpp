// SPDX-License-Identifier: Apache-2.0
// Configuration of a requester: it writes requests and reads replies.
#ifndef NORVANE_REQUESTERPARAMS_HPP
#define NORVANE_REQUESTERPARAMS_HPP

#include "norvane/EntityParams.hpp"

namespace norvane {

/// Builder of a requester's configuration. Setters chain, check nothing, and may be called again: the last value wins.
///
/// Needed: a participant, and either a service name or both topic names.
/// @par Threads  A plain value; one thread at a time.
class NORVANE_EXPORT RequesterParams : public details::EntityParams {
public:
    RequesterParams(DDSDomainParticipant* participant);
    RequesterParams(const RequesterParams&) = default;
    RequesterParams& operator=(const RequesterParams&) = default;
    ~RequesterParams() override;

    RequesterParams& participant(DDSDomainParticipant* participant);
    /// Requests travel on the topic of that name followed by "Request", replies on the one followed by "Reply".
    RequesterParams& service_name(const std::string& name);
    RequesterParams& request_topic_name(const std::string& name);
    RequesterParams& reply_topic_name(const std::string& name);
    /// Takes the QoS of both endpoints from a profile, unless one is given explicitly.
    RequesterParams& qos_profile(const std::string& library_name, const std::string& profile_name);
    /// QoS of the request writer. Only the address is kept: the record must live until the requester is made.
    RequesterParams& datawriter_qos(const DDS_DataWriterQos& qos);
    RequesterParams& datawriter_qos(const DDS_DataWriterQos&& qos) = delete;  // only its address is kept: use a variable
    /// QoS of the reply reader. Only the address is kept.
    RequesterParams& datareader_qos(const DDS_DataReaderQos& qos);
    RequesterParams& datareader_qos(const DDS_DataReaderQos&& qos) = delete;  // only its address is kept: use a variable
    RequesterParams& publisher(DDSPublisher* publisher);
    RequesterParams& subscriber(DDSSubscriber* subscriber);
    RequesterParams& request_type_support(DDSTypeSupport* type_support);
    RequesterParams& reply_type_support(DDSTypeSupport* type_support);

    using details::EntityParams::datareader_qos;
    using details::EntityParams::datawriter_qos;
    using details::EntityParams::participant;
    using details::EntityParams::publisher;
    using details::EntityParams::reply_topic_name;
    using details::EntityParams::request_topic_name;
    using details::EntityParams::service_name;
    using details::EntityParams::subscriber;
};

}  // namespace norvane

#endif
