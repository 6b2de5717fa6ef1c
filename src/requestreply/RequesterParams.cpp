// SPDX-License-Identifier: Apache-2.0
// The setters of a requester's configuration: it writes requests and reads replies.
#include "norvane/RequesterParams.hpp"

namespace norvane {

RequesterParams::RequesterParams(DDSDomainParticipant* participant) : details::EntityParams(participant) {}

RequesterParams::~RequesterParams() = default;

RequesterParams& RequesterParams::participant(DDSDomainParticipant* participant) {
    _participant = participant;
    return *this;
}

RequesterParams& RequesterParams::service_name(const std::string& name) {
    _service_name = name;
    return *this;
}

RequesterParams& RequesterParams::request_topic_name(const std::string& name) {
    _request_topic_name = name;
    return *this;
}

RequesterParams& RequesterParams::reply_topic_name(const std::string& name) {
    _reply_topic_name = name;
    return *this;
}

RequesterParams& RequesterParams::qos_profile(const std::string& library_name, const std::string& profile_name) {
    _qos_library_name = library_name;
    _qos_profile_name = profile_name;
    return *this;
}

RequesterParams& RequesterParams::datawriter_qos(const DDS_DataWriterQos& qos) {
    _datawriter_qos = &qos;
    return *this;
}

RequesterParams& RequesterParams::datareader_qos(const DDS_DataReaderQos& qos) {
    _datareader_qos = &qos;
    return *this;
}

RequesterParams& RequesterParams::publisher(DDSPublisher* publisher) {
    _publisher = publisher;
    return *this;
}

RequesterParams& RequesterParams::subscriber(DDSSubscriber* subscriber) {
    _subscriber = subscriber;
    return *this;
}

RequesterParams& RequesterParams::request_type_support(DDSTypeSupport* type_support) {
    _datawriter_type_support = type_support;
    return *this;
}

RequesterParams& RequesterParams::reply_type_support(DDSTypeSupport* type_support) {
    _datareader_type_support = type_support;
    return *this;
}

}  // namespace norvane
