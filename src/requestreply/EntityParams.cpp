// SPDX-License-Identifier: Apache-2.0
// Validation of the configuration record.
#include "norvane/EntityParams.hpp"

#include "norvane/Exception.hpp"
#include "norvane/dds/Publisher.hpp"
#include "norvane/dds/Subscriber.hpp"

namespace norvane {
namespace details {
namespace {

[[noreturn]] void refuse(const char* message) {
    check_retcode(DDS_RETCODE_BAD_PARAMETER, "EntityParams::validate", DDS_LOG_BAD_PARAMETER_s, message, false);
    throw_retcode(DDS_RETCODE_BAD_PARAMETER, message);  // not reached: check_retcode throws for this code
}

}  // namespace

EntityParams::EntityParams(DDSDomainParticipant* participant)
    : _participant(participant),
      _datawriter_qos(nullptr),
      _datareader_qos(nullptr),
      _publisher(nullptr),
      _subscriber(nullptr),
      _datawriter_type_support(nullptr),
      _datareader_type_support(nullptr) {}

EntityParams::~EntityParams() = default;

void EntityParams::validate() const {
    if (_participant == nullptr) {
        refuse("NULL participant");
    }
    if (_service_name.empty()) {
        if (_request_topic_name.empty() || _reply_topic_name.empty()) {
            refuse("either service name or topic names are required");
        }
    } else if (!_request_topic_name.empty() || !_reply_topic_name.empty()) {
        refuse("service name and topic names cannot be set at the same time");
    }
    if (_publisher != nullptr && _publisher->get_participant() != _participant) {
        refuse("publisher belongs to different participant");
    }
    if (_subscriber != nullptr && _subscriber->get_participant() != _participant) {
        refuse("subscriber belongs to different participant");
    }
}

}  // namespace details
}  // namespace norvane
