// SPDX-License-Identifier: Apache-2.0
// A data reader that stands for another one, the record behind it included, and wraps the conditions that it makes.
// Listeners and statuses are those of the real one.
#ifndef NORVANE_TESTS_SUPPORT_FORWARDINGDATAREADER_HPP
#define NORVANE_TESTS_SUPPORT_FORWARDINGDATAREADER_HPP

#include <atomic>
#include <mutex>
#include <vector>

#include "Doubles.hpp"
#include "Forwarding.hpp"
#include "ForwardingReadCondition.hpp"
#include "LiveObjects.hpp"
#include "norvane/dds/DataReader.hpp"

namespace norvane::test {

class ForwardingDataReader : public Forwarding<DDSDataReader>, public DDS_DataReader {
public:
    /// All are borrowed.
    ForwardingDataReader(Real& real, CallScript& script, LiveObjects& live) : Forwarding(real, script), _live(live) {}
    /// Returns the loans whose return was failed: nobody else can any more.
    ~ForwardingDataReader() override {
        for (const Loan& loan : _refused) {
            DDS_SampleInfoSeq infos;
            infos.loan_contiguous(loan.infos, loan.length, loan.maximum);
            forward_return(loan.data, infos);
        }
    }

    DDSTopicDescription* get_topicdescription() override { return _real.get_topicdescription(); }
    DDSSubscriber* get_subscriber() override { return _real.get_subscriber(); }
    DDS_DataReader* get_c_datareader() override { return this; }
    DDSDataReaderListener* get_listener() override { return _real.get_listener(); }

    Code get_qos(DDS_DataReaderQos& qos) override { return _real.get_qos(qos); }
    DDSReadCondition* create_readcondition(DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                                           DDS_InstanceStateMask instance_states) override {
        return wrap(call("create_readcondition", &Real::create_readcondition, sample_states, view_states, instance_states));
    }
    DDSReadCondition* create_index_condition(DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                                             DDS_InstanceStateMask instance_states, const char* index_name,
                                             const DDS_SampleInfo& key) override {
        return wrap(call("create_index_condition", &Real::create_index_condition, sample_states, view_states, instance_states,
                         index_name, key));
    }
    Code delete_readcondition(DDSReadCondition* condition) override {
        return _conditions.deleted(call("delete_readcondition", &Real::delete_readcondition, Conditions::unwrap(condition)));
    }
    Code create_index(const char* index_name) override { return call("create_index", &Real::create_index, index_name); }
    Code interrupt(DDS_ReturnCode_t code) override { return _real.interrupt(code); }
    Code interrupt_index_key(const char* index_name, const DDS_SequenceNumber_t& key, DDS_ReturnCode_t code) override {
        return _real.interrupt_index_key(index_name, key, code);
    }
    Code admit_open_keys_only(const char* index_name, DDS_Boolean open_only) override {
        return _real.admit_open_keys_only(index_name, open_only);
    }
    Code open_index_key(const char* index_name, const DDS_SequenceNumber_t& key) override {
        return _real.open_index_key(index_name, key);
    }
    Code close_index_key(const char* index_name, const DDS_SequenceNumber_t& key) override {
        return _real.close_index_key(index_name, key);
    }
    Code set_listener(DDSDataReaderListener* listener, DDS_StatusMask mask) override { return _real.set_listener(listener, mask); }
    Code get_subscription_matched_status(DDS_SubscriptionMatchedStatus& status) override {
        return _real.get_subscription_matched_status(status);
    }
    Code get_requested_incompatible_qos_status(DDS_RequestedIncompatibleQosStatus& status) override {
        return _real.get_requested_incompatible_qos_status(status);
    }
    Code get_incompatible_type_status(DDS_IncompatibleTypeStatus& status) override {
        return _real.get_incompatible_type_status(status);
    }
    Code get_sample_lost_status(DDS_SampleLostStatus& status) override { return _real.get_sample_lost_status(status); }
    Code get_counts(DDS_DataReaderCounts& counts) override { return _real.get_counts(counts); }
    Code leave_domain() override { return _real.leave_domain(); }
    Code get_matched_publications(DDS_InstanceHandleSeq& handles) override { return _real.get_matched_publications(handles); }
    Code get_matched_publication_data(DDS_PublicationBuiltinTopicData& data, const DDS_InstanceHandle_t& handle) override {
        return _real.get_matched_publication_data(data, handle);
    }

    Code read_or_take_w_condition_untyped(DDS_Boolean* is_loan, void*** received_data, int* data_count, DDS_SampleInfoSeq& info_seq,
                                          DDS_Long data_seq_len, DDS_Long data_seq_max_len, DDS_Boolean data_seq_has_ownership,
                                          void* reserved, int sample_size, DDS_Long max_samples, DDS_ReadCondition* condition,
                                          DDS_Boolean take) override {
        DDS_ReturnCode_t code = _script.next("DDS_DataReader::read_or_take");
        if (code != DDS_RETCODE_OK) {
            return code;
        }
        ForwardingReadCondition* const wrapped = dynamic_cast<ForwardingReadCondition*>(condition);
        code = _real.get_c_datareader()->read_or_take_w_condition_untyped(
            is_loan, received_data, data_count, info_seq, data_seq_len, data_seq_max_len, data_seq_has_ownership, reserved,
            sample_size, max_samples, wrapped != nullptr ? wrapped->real().get_c_readcondition() : condition, take);
        _live.loans += code == DDS_RETCODE_OK ? 1 : 0;
        return code;
    }
    Code return_loan_untyped(void** received_data, DDS_SampleInfoSeq& info_seq) override {
        const DDS_ReturnCode_t code = _script.next("DDS_DataReader::return_loan");
        if (code == DDS_RETCODE_OK) {
            return forward_return(received_data, info_seq);
        }
        std::lock_guard<std::mutex> guard(_mutex);
        _refused.push_back({received_data, info_seq.get_contiguous_buffer(), info_seq.length(), info_seq.maximum()});
        return code;
    }

private:
    struct Loan {
        void** data;
        DDS_SampleInfo* infos;
        DDS_Long length;
        DDS_Long maximum;
    };

    typedef Doubles<DDSReadCondition, ForwardingReadCondition> Conditions;

    DDSReadCondition* wrap(DDSReadCondition* real) {
        DDSDataReader& self = *this;
        return _conditions.wrap(real, self, _script);
    }

    Code forward_return(void** received_data, DDS_SampleInfoSeq& info_seq) {
        const DDS_ReturnCode_t code = _real.get_c_datareader()->return_loan_untyped(received_data, info_seq);
        _live.loans -= code == DDS_RETCODE_OK ? 1 : 0;
        return code;
    }

    LiveObjects& _live;
    Conditions _conditions{_live.conditions};
    std::mutex _mutex;
    std::vector<Loan> _refused;
};

}  // namespace norvane::test

#endif
