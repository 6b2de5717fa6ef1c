// SPDX-License-Identifier: Apache-2.0
// The data writer: a port of the engine, with statuses and a listener.
#ifndef NORVANE_MIDDLEWARE_DATAWRITERENTITY_HPP
#define NORVANE_MIDDLEWARE_DATAWRITERENTITY_HPP

#include <atomic>
#include <memory>

#include "middleware/Engine.hpp"
#include "middleware/ListenerGate.hpp"
#include "middleware/PeerRegister.hpp"
#include "middleware/StatusCondition.hpp"
#include "middleware/TopicEntity.hpp"
#include "norvane/dds/Publisher.hpp"
#include "platform/ProcessMark.hpp"

namespace norvane {
namespace mw {

class DataWriterEntity final : public DDSDataWriter, public DDS_DataWriter, private PeerSink, private StatusSource {
public:
    DataWriterEntity(DDSPublisher& publisher, TopicEntity& topic);
    ~DataWriterEntity() override;

    /// Makes the port, disabled. @param code  gets the reason when the result is false; the log has it in words.
    [[nodiscard]] bool prepare(DomainPort& domain, const DDS_DataWriterQos& qos, DDSDataWriterListener* listener,
                               DDS_StatusMask mask, DDS_ReturnCode_t& code);
    [[nodiscard]] DDS_ReturnCode_t enable() noexcept { return _port->enable(*this); }
    /// Leaves the domain; no listener runs afterwards.
    void close() noexcept;
    bool is_inside_listener() noexcept { return _gate.is_inside(); }
    TopicEntity& topic() noexcept { return _topic; }
    const DDS_GUID_t& guid() const noexcept { return _qos.protocol.virtual_guid; }
    /// @return the number of the latest sample that a reader can have; lives on when the writer is deleted.
    std::shared_ptr<const std::atomic<std::int64_t>> last_number() const noexcept { return _last_number; }

    DDSTopic* get_topic() override { return &_topic; }
    DDSPublisher* get_publisher() override { return &_publisher; }
    DDS_ReturnCode_t get_qos(DDS_DataWriterQos& qos) override { return DDS_DataWriterQos_copy(&qos, &_qos); }
    DDS_DataWriter* get_c_datawriter() override { return this; }
    DDS_ReturnCode_t set_listener(DDSDataWriterListener* listener, DDS_StatusMask mask) override {
        return _gate.set(listener, mask);
    }
    DDSDataWriterListener* get_listener() override { return _gate.get(); }
    DDS_ReturnCode_t get_publication_matched_status(DDS_PublicationMatchedStatus& status) override;
    DDS_ReturnCode_t get_offered_incompatible_qos_status(DDS_OfferedIncompatibleQosStatus& status) override;
    DDS_ReturnCode_t get_incompatible_type_status(DDS_IncompatibleTypeStatus& status) override;
    DDS_ReturnCode_t get_counts(DDS_DataWriterCounts& counts) override;
    DDS_ReturnCode_t get_matched_subscriptions(DDS_InstanceHandleSeq& handles) override { return _peers.list(handles); }
    DDS_ReturnCode_t get_matched_subscription_data(DDS_SubscriptionBuiltinTopicData& data,
                                                   const DDS_InstanceHandle_t& handle) override;
    DDS_ReturnCode_t wait_for_acknowledgments(const DDS_Duration_t& max_wait) override;
    DDS_ReturnCode_t leave_domain() override;
    DDSStatusCondition* get_statuscondition() override { return _status_condition; }
    DDS_StatusMask get_status_changes() override { return changes(); }
    DDS_InstanceHandle_t get_instance_handle() override { return handle_of(_qos.protocol.virtual_guid); }

    DDS_ReturnCode_t write_w_params_untyped_general(void* reserved, const void* data, DDS_WriteParams_t& params) override;

private:
    bool peer_changed(const PeerEvent& event) noexcept override;
    void announce() noexcept override;
    DDSEntity* entity() noexcept override { return this; }
    DDS_StatusMask changes() const noexcept override { return _changes.load(std::memory_order_relaxed); }
    void reset(DDS_StatusMask status) noexcept { _changes.fetch_and(~status, std::memory_order_relaxed); }

    const platform::ProcessMark _process;
    DDSPublisher& _publisher;
    TopicEntity& _topic;
    DDS_DataWriterQos _qos;
    std::unique_ptr<WriterPort> _port;
    std::shared_ptr<const std::atomic<std::int64_t>> _last_number;
    StatusCondition* _status_condition;
    PeerRegister _peers;
    ListenerGate<DDSDataWriterListener> _gate;
    std::atomic<DDS_StatusMask> _changes{0};
};

}  // namespace mw
}  // namespace norvane

#endif
