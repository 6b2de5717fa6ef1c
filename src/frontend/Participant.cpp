// SPDX-License-Identifier: Apache-2.0
#include "norvane/Participant.hpp"

#include "norvane/Exception.hpp"
#include "norvane/dds/DomainParticipantFactory.hpp"

namespace norvane {

Participant::Participant(const ParticipantParams& params) : _participant(nullptr) {
    const char* const METHOD_NAME = "Participant::Participant";
    DDS_DomainParticipantQos qos;
    std::string told;
    for (const auto& property : params.properties()) {
        if (!property.second.empty()) {
            check_retcode(DDSPropertyQosPolicyHelper::assert_property(qos.property, property.first.c_str(), property.second.c_str(),
                                                                      DDS_BOOLEAN_FALSE),
                          METHOD_NAME, VOST_LOG_ANY_FAILURE_s, "set Participant qos property", true);
            // The values of security properties may be secret.
            told += ", " + property.first;
            told += property.first.compare(0, 8, "dds.sec.") == 0 ? "" : " \"" + property.second + "\"";
        }
    }
    DDSDomainParticipantFactory& factory = *DDSDomainParticipantFactory::get_instance();
    _participant = factory.create_participant(params.domain_id(), qos, nullptr, DDS_STATUS_MASK_NONE);
    if (_participant == nullptr) {
        check_retcode(DDS_RETCODE_ERROR, METHOD_NAME, VOST_LOG_CREATION_FAILURE_s,
                      "participant of domain " + std::to_string(params.domain_id()) + told + " (see the previous log lines)", true);
    }
}

Participant::~Participant() { DDSDomainParticipantFactory::get_instance()->release_participant(_participant); }

}  // namespace norvane
