// SPDX-License-Identifier: Apache-2.0
// Subscribers: names under which a participant keeps readers.
#ifndef NORVANE_MIDDLEWARE_SUBSCRIBERENTITY_HPP
#define NORVANE_MIDDLEWARE_SUBSCRIBERENTITY_HPP

#include "middleware/ParticipantEntity.hpp"

namespace norvane {
namespace mw {

class SubscriberEntity final : public DDSSubscriber {
public:
    SubscriberEntity(ParticipantEntity& participant, const DDS_SubscriberQos& qos) : _participant(participant), _qos(qos) {}

    DDSDomainParticipant* get_participant() override { return &_participant; }
    DDS_ReturnCode_t get_qos(DDS_SubscriberQos& qos) override {
        qos = _qos;
        return DDS_RETCODE_OK;
    }
    DDSDataReader* create_datareader(DDSTopicDescription* topic, const DDS_DataReaderQos& qos, DDSDataReaderListener* listener,
                                     DDS_StatusMask mask) override {
        return _participant.create_reader(*this, topic, qos, listener, mask);
    }
    DDS_ReturnCode_t delete_datareader(DDSDataReader* reader) override { return _participant.delete_reader(*this, reader, false); }
    DDSStatusCondition* get_statuscondition() override { return _status.condition(); }
    DDS_StatusMask get_status_changes() override { return 0; }
    DDS_InstanceHandle_t get_instance_handle() override { return DDS_HANDLE_NIL; }

private:
    ParticipantEntity& _participant;
    const DDS_SubscriberQos _qos;
    QuietStatus _status{*this};
};

}  // namespace mw
}  // namespace norvane

#endif
