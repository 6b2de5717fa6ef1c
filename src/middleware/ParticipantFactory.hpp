// SPDX-License-Identifier: Apache-2.0
// The participant factory: chooses the engine of a participant, and keeps the QoS profiles.
#ifndef NORVANE_MIDDLEWARE_PARTICIPANTFACTORY_HPP
#define NORVANE_MIDDLEWARE_PARTICIPANTFACTORY_HPP

#include <map>
#include <memory>
#include <mutex>

#include "middleware/ParticipantEntity.hpp"
#include "middleware/QosProfiles.hpp"
#include "norvane/dds/DomainParticipantFactory.hpp"

namespace norvane {
namespace mw {

class ParticipantFactory final : public DDSDomainParticipantFactory {
public:
    DDSDomainParticipant* create_participant(DDS_DomainId_t domain_id, const DDS_DomainParticipantQos& qos,
                                             DDSDomainParticipantListener* listener, DDS_StatusMask mask) override;
    DDS_ReturnCode_t delete_participant(DDSDomainParticipant* participant) override;
    DDS_ReturnCode_t release_participant(DDSDomainParticipant* participant) override;

    DDS_ReturnCode_t get_datawriter_qos_from_profile_for_topic(DDS_DataWriterQos& qos, const char* library_name,
                                                               const char* profile_name, const char* topic_name) override {
        return _profiles.get(qos, library_name, profile_name, topic_name);
    }
    DDS_ReturnCode_t get_datareader_qos_from_profile_for_topic(DDS_DataReaderQos& qos, const char* library_name,
                                                               const char* profile_name, const char* topic_name) override {
        return _profiles.get(qos, library_name, profile_name, topic_name);
    }
    DDS_ReturnCode_t add_qos_profile(const char* library_name, const char* profile_name) override {
        return _profiles.add_profile(library_name, profile_name);
    }
    DDS_ReturnCode_t add_datawriter_qos_to_profile(const char* library_name, const char* profile_name, const char* topic_filter,
                                                   const DDS_DataWriterQos& qos) override {
        return _profiles.add(library_name, profile_name, topic_filter, qos);
    }
    DDS_ReturnCode_t add_datareader_qos_to_profile(const char* library_name, const char* profile_name, const char* topic_filter,
                                                   const DDS_DataReaderQos& qos) override {
        return _profiles.add(library_name, profile_name, topic_filter, qos);
    }
    DDS_ReturnCode_t remove_qos_profile(const char* library_name, const char* profile_name) override {
        return _profiles.remove_profile(library_name, profile_name);
    }

private:
    QosProfiles _profiles;
    std::mutex _mutex;
    std::map<const DDSDomainParticipant*, std::unique_ptr<ParticipantEntity>> _participants;
};

}  // namespace mw
}  // namespace norvane

#endif
