// SPDX-License-Identifier: Apache-2.0
// The configuration record from which a requester or a replier is built. It owns nothing but its strings.
#ifndef NORVANE_ENTITYPARAMS_HPP
#define NORVANE_ENTITYPARAMS_HPP

#include <string>

#include "norvane/export.hpp"

class DDSDomainParticipant;
class DDSPublisher;
class DDSSubscriber;
class DDSTypeSupport;
struct DDS_DataReaderQos;
struct DDS_DataWriterQos;

namespace norvane {
namespace details {

/// Configuration of a requester or replier.
///
/// Read only during the call that receives it. What it points at belongs to the application and must live until that call returns.
/// An empty string means "not set".
/// @par Threads  A plain value; one thread at a time.
class NORVANE_EXPORT EntityParams {
public:
    /// @param participant  where topics and endpoints are made; checked by `validate`, not here.
    EntityParams(DDSDomainParticipant* participant);
    EntityParams(const EntityParams&) = default;
    EntityParams& operator=(const EntityParams&) = default;

    /// Checks that the record is complete and consistent. Changes nothing.
    /// @throws BadParameterException  the participant is null; neither a service name nor both topic names are given, or a service
    ///         name and a topic name are; the publisher or the subscriber is of another participant. Only the first failure is
    ///         reported.
    virtual void validate() const;
    virtual ~EntityParams();

    DDSDomainParticipant* participant() const { return _participant; }
    const std::string& service_name() const { return _service_name; }
    const std::string& request_topic_name() const { return _request_topic_name; }
    const std::string& reply_topic_name() const { return _reply_topic_name; }
    const std::string& qos_library_name() const { return _qos_library_name; }
    const std::string& qos_profile_name() const { return _qos_profile_name; }
    /// @return null when not set.
    const DDS_DataWriterQos* datawriter_qos() const { return _datawriter_qos; }
    const DDS_DataReaderQos* datareader_qos() const { return _datareader_qos; }
    /// @return null: the participant makes the endpoint.
    DDSPublisher* publisher() const { return _publisher; }
    DDSSubscriber* subscriber() const { return _subscriber; }
    /// @return null: the type's own.
    DDSTypeSupport* datawriter_type_support() const { return _datawriter_type_support; }
    DDSTypeSupport* datareader_type_support() const { return _datareader_type_support; }

protected:
    DDSDomainParticipant* _participant;
    std::string _service_name;
    std::string _request_topic_name;
    std::string _reply_topic_name;
    std::string _qos_library_name;
    std::string _qos_profile_name;
    const DDS_DataWriterQos* _datawriter_qos;
    const DDS_DataReaderQos* _datareader_qos;
    DDSPublisher* _publisher;
    DDSSubscriber* _subscriber;
    DDSTypeSupport* _datawriter_type_support;
    DDSTypeSupport* _datareader_type_support;
};

}  // namespace details
}  // namespace norvane

#endif
