// SPDX-License-Identifier: Apache-2.0
// A data writer that stands for another one, the record behind it included. Listeners and statuses are those of the real one.
#ifndef NORVANE_TESTS_SUPPORT_FORWARDINGDATAWRITER_HPP
#define NORVANE_TESTS_SUPPORT_FORWARDINGDATAWRITER_HPP

#include <utility>

#include "CallScript.hpp"
#include "norvane/dds/DataWriter.hpp"

namespace norvane::test {

class ForwardingDataWriter : public DDSDataWriter, public DDS_DataWriter {
public:
    /// Both are borrowed.
    ForwardingDataWriter(DDSDataWriter& real, CallScript& script) : _real(real), _script(script) {}

    DDSDataWriter& real() { return _real; }

    DDSStatusCondition* get_statuscondition() override { return _real.get_statuscondition(); }
    DDS_StatusMask get_status_changes() override { return _real.get_status_changes(); }
    DDS_InstanceHandle_t get_instance_handle() override { return _real.get_instance_handle(); }
    DDSTopic* get_topic() override { return _real.get_topic(); }
    DDSPublisher* get_publisher() override { return _real.get_publisher(); }
    DDS_DataWriter* get_c_datawriter() override { return this; }
    DDSDataWriterListener* get_listener() override { return _real.get_listener(); }

    DDS_ReturnCode_t get_qos(DDS_DataWriterQos& qos) override { return call("get_qos", &DDSDataWriter::get_qos, qos); }
    DDS_ReturnCode_t write_w_params_untyped_general(void* reserved, const void* data, DDS_WriteParams_t& params) override {
        return _script.code("DDS_DataWriter::write",
                            [&] { return _real.get_c_datawriter()->write_w_params_untyped_general(reserved, data, params); });
    }
    DDS_ReturnCode_t leave_domain() override { return call("leave_domain", &DDSDataWriter::leave_domain); }
    DDS_ReturnCode_t set_listener(DDSDataWriterListener* listener, DDS_StatusMask mask) override {
        return call("set_listener", &DDSDataWriter::set_listener, listener, mask);
    }
    DDS_ReturnCode_t get_publication_matched_status(DDS_PublicationMatchedStatus& status) override {
        return call("get_publication_matched_status", &DDSDataWriter::get_publication_matched_status, status);
    }
    DDS_ReturnCode_t get_offered_incompatible_qos_status(DDS_OfferedIncompatibleQosStatus& status) override {
        return call("get_offered_incompatible_qos_status", &DDSDataWriter::get_offered_incompatible_qos_status, status);
    }
    DDS_ReturnCode_t get_incompatible_type_status(DDS_IncompatibleTypeStatus& status) override {
        return call("get_incompatible_type_status", &DDSDataWriter::get_incompatible_type_status, status);
    }
    DDS_ReturnCode_t get_counts(DDS_DataWriterCounts& counts) override {
        return call("get_counts", &DDSDataWriter::get_counts, counts);
    }
    DDS_ReturnCode_t get_matched_subscriptions(DDS_InstanceHandleSeq& handles) override {
        return call("get_matched_subscriptions", &DDSDataWriter::get_matched_subscriptions, handles);
    }
    DDS_ReturnCode_t get_matched_subscription_data(DDS_SubscriptionBuiltinTopicData& data,
                                                   const DDS_InstanceHandle_t& handle) override {
        return call("get_matched_subscription_data", &DDSDataWriter::get_matched_subscription_data, data, handle);
    }
    DDS_ReturnCode_t wait_for_acknowledgments(const DDS_Duration_t& max_wait) override {
        return call("wait_for_acknowledgments", &DDSDataWriter::wait_for_acknowledgments, max_wait);
    }

private:
    template <typename Result, typename... Parameters, typename... Arguments>
    Result call(const char* name, Result (DDSDataWriter::*operation)(Parameters...), Arguments&&... arguments) {
        return _script.call("DDSDataWriter", name, _real, operation, std::forward<Arguments>(arguments)...);
    }

    DDSDataWriter& _real;
    CallScript& _script;
};

}  // namespace norvane::test

#endif
