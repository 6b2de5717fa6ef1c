// SPDX-License-Identifier: Apache-2.0
// A string reader that counts the loans given back to it. It stands for a real one, or for none: then the loans are the test's own, and only
// their return is answered.
// Thread rule: one thread at a time.
#ifndef NORVANE_TESTS_SUPPORT_COUNTINGSTRINGREADER_HPP
#define NORVANE_TESTS_SUPPORT_COUNTINGSTRINGREADER_HPP

#include <vector>

#include "norvane/dds/DataReader.hpp"

namespace norvane {
namespace test {

class CountingStringReader : public DDSStringDataReader {
public:
    struct Return {
        const void* data;
        const DDS_SampleInfo* infos;
        DDS_Long length;
        DDS_ReturnCode_t code;  ///< What the return was answered with.
    };

    explicit CountingStringReader(DDSStringDataReader* real = nullptr) : _real(real) {}

    DDSStringDataReader* real() { return _real; }
    /// Makes returns fail, and touch nothing, until told DDS_RETCODE_OK.
    void refuse(DDS_ReturnCode_t code) { _refusal = code; }
    /// @return what was given back, refused or not, in order.
    const std::vector<Return>& returns() const { return _returns; }
    void forget() { _returns.clear(); }

    DDS_ReturnCode_t return_loan(DDS_StringSeq& data, DDS_SampleInfoSeq& infos) override {
        _returns.push_back({data.get_discontiguous_buffer(), infos.get_contiguous_buffer(), data.length(), _refusal});
        if (_refusal == DDS_RETCODE_OK) {
            _returns.back().code = _real != nullptr                  ? _real->return_loan(data, infos)
                                   : data.unloan() && infos.unloan() ? DDS_RETCODE_OK
                                                                     : DDS_RETCODE_PRECONDITION_NOT_MET;
        }
        return _returns.back().code;
    }

    DDS_ReturnCode_t read(DDS_StringSeq& data, DDS_SampleInfoSeq& infos, DDS_Long max_samples, DDS_SampleStateMask samples,
                          DDS_ViewStateMask views, DDS_InstanceStateMask instances) override {
        return _real->read(data, infos, max_samples, samples, views, instances);
    }
    DDS_ReturnCode_t take(DDS_StringSeq& data, DDS_SampleInfoSeq& infos, DDS_Long max_samples, DDS_SampleStateMask samples,
                          DDS_ViewStateMask views, DDS_InstanceStateMask instances) override {
        return _real->take(data, infos, max_samples, samples, views, instances);
    }
    DDSStatusCondition* get_statuscondition() override { return _real->get_statuscondition(); }
    DDS_StatusMask get_status_changes() override { return _real->get_status_changes(); }
    DDS_InstanceHandle_t get_instance_handle() override { return _real->get_instance_handle(); }
    DDSTopicDescription* get_topicdescription() override { return _real->get_topicdescription(); }
    DDSSubscriber* get_subscriber() override { return _real->get_subscriber(); }
    DDS_ReturnCode_t get_qos(DDS_DataReaderQos& qos) override { return _real->get_qos(qos); }
    DDS_DataReader* get_c_datareader() override { return _real->get_c_datareader(); }
    DDSReadCondition* create_readcondition(DDS_SampleStateMask samples, DDS_ViewStateMask views,
                                           DDS_InstanceStateMask instances) override {
        return _real->create_readcondition(samples, views, instances);
    }
    DDS_ReturnCode_t delete_readcondition(DDSReadCondition* condition) override { return _real->delete_readcondition(condition); }
    DDS_ReturnCode_t create_index(const char* name) override { return _real->create_index(name); }
    DDSReadCondition* create_index_condition(DDS_SampleStateMask samples, DDS_ViewStateMask views, DDS_InstanceStateMask instances,
                                             const char* name, const DDS_SampleInfo& key) override {
        return _real->create_index_condition(samples, views, instances, name, key);
    }
    DDS_ReturnCode_t interrupt(DDS_ReturnCode_t code) override { return _real->interrupt(code); }
    DDS_ReturnCode_t interrupt_index_key(const char* name, const DDS_SequenceNumber_t& key, DDS_ReturnCode_t code) override {
        return _real->interrupt_index_key(name, key, code);
    }
    DDS_ReturnCode_t admit_open_keys_only(const char* name, DDS_Boolean open_only) override {
        return _real->admit_open_keys_only(name, open_only);
    }
    DDS_ReturnCode_t open_index_key(const char* name, const DDS_SequenceNumber_t& key) override {
        return _real->open_index_key(name, key);
    }
    DDS_ReturnCode_t close_index_key(const char* name, const DDS_SequenceNumber_t& key) override {
        return _real->close_index_key(name, key);
    }
    DDS_ReturnCode_t set_listener(DDSDataReaderListener* listener, DDS_StatusMask mask) override {
        return _real->set_listener(listener, mask);
    }
    DDSDataReaderListener* get_listener() override { return _real->get_listener(); }
    DDS_ReturnCode_t get_subscription_matched_status(DDS_SubscriptionMatchedStatus& status) override {
        return _real->get_subscription_matched_status(status);
    }
    DDS_ReturnCode_t get_requested_incompatible_qos_status(DDS_RequestedIncompatibleQosStatus& status) override {
        return _real->get_requested_incompatible_qos_status(status);
    }
    DDS_ReturnCode_t get_incompatible_type_status(DDS_IncompatibleTypeStatus& status) override {
        return _real->get_incompatible_type_status(status);
    }
    DDS_ReturnCode_t get_sample_lost_status(DDS_SampleLostStatus& status) override { return _real->get_sample_lost_status(status); }
    DDS_ReturnCode_t get_counts(DDS_DataReaderCounts& counts) override { return _real->get_counts(counts); }
    DDS_ReturnCode_t leave_domain() override { return _real->leave_domain(); }
    DDS_ReturnCode_t get_matched_publications(DDS_InstanceHandleSeq& handles) override {
        return _real->get_matched_publications(handles);
    }
    DDS_ReturnCode_t get_matched_publication_data(DDS_PublicationBuiltinTopicData& data,
                                                  const DDS_InstanceHandle_t& handle) override {
        return _real->get_matched_publication_data(data, handle);
    }

private:
    DDSStringDataReader* _real;
    DDS_ReturnCode_t _refusal = DDS_RETCODE_OK;
    std::vector<Return> _returns;
};

}  // namespace test
}  // namespace norvane

#endif
