// SPDX-License-Identifier: Apache-2.0
// The setters of a replier's configuration: it reads requests and writes replies.
#include "norvane/ReplierParams.hpp"

#include "norvane/dds/types.hpp"

namespace norvane {

ReplierParams::ReplierParams(DDSDomainParticipant* participant)
    : details::EntityParams(participant), _max_queued_requests(DDS_LENGTH_UNLIMITED) {}

ReplierParams::~ReplierParams() = default;

ReplierParams& ReplierParams::participant(DDSDomainParticipant* participant) {
    _participant = participant;
    return *this;
}

ReplierParams& ReplierParams::service_name(const std::string& name) {
    _service_name = name;
    return *this;
}

ReplierParams& ReplierParams::request_topic_name(const std::string& name) {
    _request_topic_name = name;
    return *this;
}

ReplierParams& ReplierParams::reply_topic_name(const std::string& name) {
    _reply_topic_name = name;
    return *this;
}

ReplierParams& ReplierParams::qos_profile(const std::string& library_name, const std::string& profile_name) {
    _qos_library_name = library_name;
    _qos_profile_name = profile_name;
    return *this;
}

ReplierParams& ReplierParams::datawriter_qos(const DDS_DataWriterQos& qos) {
    _datawriter_qos = &qos;
    return *this;
}

ReplierParams& ReplierParams::datareader_qos(const DDS_DataReaderQos& qos) {
    _datareader_qos = &qos;
    return *this;
}

ReplierParams& ReplierParams::publisher(DDSPublisher* publisher) {
    _publisher = publisher;
    return *this;
}

ReplierParams& ReplierParams::subscriber(DDSSubscriber* subscriber) {
    _subscriber = subscriber;
    return *this;
}

ReplierParams& ReplierParams::request_type_support(DDSTypeSupport* type_support) {
    _datareader_type_support = type_support;
    return *this;
}

ReplierParams& ReplierParams::reply_type_support(DDSTypeSupport* type_support) {
    _datawriter_type_support = type_support;
    return *this;
}

ReplierParams& ReplierParams::max_queued_requests(int count) {
    _max_queued_requests = count;
    return *this;
}

}  // namespace norvane
