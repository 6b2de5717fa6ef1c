// SPDX-License-Identifier: Apache-2.0
// Publishers: names under which a participant keeps writers.
#ifndef NORVANE_MIDDLEWARE_PUBLISHERENTITY_HPP
#define NORVANE_MIDDLEWARE_PUBLISHERENTITY_HPP

#include "middleware/ParticipantEntity.hpp"

namespace norvane {
namespace mw {

class PublisherEntity final : public DDSPublisher {
public:
    PublisherEntity(ParticipantEntity& participant, const DDS_PublisherQos& qos) : _participant(participant), _qos(qos) {}

    DDSDomainParticipant* get_participant() override { return &_participant; }
    DDS_ReturnCode_t get_qos(DDS_PublisherQos& qos) override {
        qos = _qos;
        return DDS_RETCODE_OK;
    }
    DDSDataWriter* create_datawriter(DDSTopic* topic, const DDS_DataWriterQos& qos, DDSDataWriterListener* listener,
                                     DDS_StatusMask mask) override {
        return _participant.create_writer(*this, topic, qos, listener, mask);
    }
    DDS_ReturnCode_t delete_datawriter(DDSDataWriter* writer) override { return _participant.delete_writer(*this, writer); }
    DDSStatusCondition* get_statuscondition() override { return _status.condition(); }
    DDS_StatusMask get_status_changes() override { return 0; }
    DDS_InstanceHandle_t get_instance_handle() override { return DDS_HANDLE_NIL; }

private:
    ParticipantEntity& _participant;
    const DDS_PublisherQos _qos;
    QuietStatus _status{*this};
};

}  // namespace mw
}  // namespace norvane

#endif
