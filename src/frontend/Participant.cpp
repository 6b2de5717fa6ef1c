// SPDX-License-Identifier: Apache-2.0
#include "norvane/Participant.hpp"

#include "frontend/log_line.hpp"
#include "norvane/Exception.hpp"
#include "norvane/dds/DomainParticipantFactory.hpp"

namespace norvane {

namespace {

constexpr const char* ENGINE_PROPERTY = "norvane.engine";

}  // namespace

Participant::Participant(int domain_id, const std::string& engine) : _participant(nullptr) {
    DDSDomainParticipantFactory& factory = *DDSDomainParticipantFactory::get_instance();
    DDS_DomainParticipantQos qos;
    if (!engine.empty()) {
        check_retcode(DDSPropertyQosPolicyHelper::assert_property(qos.property, ENGINE_PROPERTY, engine.c_str(), DDS_BOOLEAN_FALSE),
                      "Participant::Participant", VOST_LOG_ANY_FAILURE_s, "set Participant qos property", true);
    }
    _participant = factory.create_participant(domain_id, qos, nullptr, DDS_STATUS_MASK_NONE);
    if (_participant == nullptr) {
        check_retcode(DDS_RETCODE_ERROR, "Participant::Participant", VOST_LOG_CREATION_FAILURE_s,
                      "participant of domain " + std::to_string(domain_id) +
                          (engine.empty() ? "" : " on engine \"" + engine + "\"") + " (see the previous log lines)",
                      true);
    }
}

Participant::~Participant() {
    if (_participant->delete_contained_entities() != DDS_RETCODE_OK ||
        DDSDomainParticipantFactory::get_instance()->delete_participant(_participant) != DDS_RETCODE_OK) {
        details::log_line(details::LOG_ERROR, "Participant::~Participant",
                          "the participant could not be deleted: something made in it is still in use");
    }
}

}  // namespace norvane
