// SPDX-License-Identifier: Apache-2.0
// A data writer that stands for another one, the record behind it included. Listeners and statuses are those of the real one.
#ifndef NORVANE_TESTS_SUPPORT_FORWARDINGDATAWRITER_HPP
#define NORVANE_TESTS_SUPPORT_FORWARDINGDATAWRITER_HPP

#include "Forwarding.hpp"
#include "norvane/dds/DataWriter.hpp"

namespace norvane::test {

class ForwardingDataWriter : public Forwarding<DDSDataWriter>, public DDS_DataWriter {
public:
    using Forwarding::Forwarding;

    DDSTopic* get_topic() override { return _real.get_topic(); }
    DDSPublisher* get_publisher() override { return _real.get_publisher(); }
    DDS_DataWriter* get_c_datawriter() override { return this; }
    DDSDataWriterListener* get_listener() override { return _real.get_listener(); }

    Code get_qos(DDS_DataWriterQos& qos) override { return call("get_qos", &Real::get_qos, qos); }
    Code write_w_params_untyped_general(void* reserved, const void* data, DDS_WriteParams_t& params) override {
        return _script.forward("DDS_DataWriter::write",
                               [&] { return _real.get_c_datawriter()->write_w_params_untyped_general(reserved, data, params); });
    }
    Code leave_domain() override { return _real.leave_domain(); }
    Code set_listener(DDSDataWriterListener* listener, DDS_StatusMask mask) override { return _real.set_listener(listener, mask); }
    Code get_publication_matched_status(DDS_PublicationMatchedStatus& status) override {
        return _real.get_publication_matched_status(status);
    }
    Code get_offered_incompatible_qos_status(DDS_OfferedIncompatibleQosStatus& status) override {
        return _real.get_offered_incompatible_qos_status(status);
    }
    Code get_incompatible_type_status(DDS_IncompatibleTypeStatus& status) override {
        return _real.get_incompatible_type_status(status);
    }
    Code get_counts(DDS_DataWriterCounts& counts) override { return _real.get_counts(counts); }
    Code get_matched_subscriptions(DDS_InstanceHandleSeq& handles) override { return _real.get_matched_subscriptions(handles); }
    Code get_matched_subscription_data(DDS_SubscriptionBuiltinTopicData& data, const DDS_InstanceHandle_t& handle) override {
        return _real.get_matched_subscription_data(data, handle);
    }
    Code wait_for_acknowledgments(const DDS_Duration_t& max_wait) override { return _real.wait_for_acknowledgments(max_wait); }
};

}  // namespace norvane::test

#endif
