// SPDX-License-Identifier: Apache-2.0
// A data reader that stands for another one, the record behind it included, and wraps the conditions that it makes.
// Listeners and statuses are those of the real one.
#ifndef NORVANE_TESTS_SUPPORT_FORWARDINGDATAREADER_HPP
#define NORVANE_TESTS_SUPPORT_FORWARDINGDATAREADER_HPP

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "CallScript.hpp"
#include "ForwardingReadCondition.hpp"
#include "LiveObjects.hpp"
#include "norvane/dds/DataReader.hpp"

namespace norvane {
namespace test {

class ForwardingDataReader : public DDSDataReader, public DDS_DataReader {
public:
    /// All are borrowed.
    ForwardingDataReader(DDSDataReader& real, CallScript& script, LiveObjects& live) : _real(real), _script(script), _live(live) {}
    /// Returns the loans whose return was failed: nobody else can any more.
    ~ForwardingDataReader() override {
        for (const Loan& loan : _refused) {
            DDS_SampleInfoSeq infos;
            if (loan.contiguous != nullptr) {
                infos.loan_contiguous(loan.contiguous, loan.length, loan.maximum);
            } else {
                infos.loan_discontiguous(loan.discontiguous, loan.length, loan.maximum);
            }
            forward_return(loan.data, infos);
        }
    }

    /// Makes reads report that the samples were copied, as a middleware might that cannot lend. Their loans are returned here.
    void pretend_to_copy(bool pretend) { _pretends_to_copy = pretend; }

    DDSDataReader& real() { return _real; }
    int loans() const { return _loans; }

    DDSStatusCondition* get_statuscondition() override { return _real.get_statuscondition(); }
    DDS_StatusMask get_status_changes() override { return _real.get_status_changes(); }
    DDS_InstanceHandle_t get_instance_handle() override { return _real.get_instance_handle(); }
    DDSTopicDescription* get_topicdescription() override { return _real.get_topicdescription(); }
    DDSSubscriber* get_subscriber() override { return _real.get_subscriber(); }
    DDS_DataReader* get_c_datareader() override { return this; }
    DDSDataReaderListener* get_listener() override { return _real.get_listener(); }

    DDS_ReturnCode_t get_qos(DDS_DataReaderQos& qos) override {
        return _script.code("DDSDataReader::get_qos", [&] { return _real.get_qos(qos); });
    }
    DDSReadCondition* create_readcondition(DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                                           DDS_InstanceStateMask instance_states) override {
        return _script.pointer("DDSDataReader::create_readcondition",
                               [&] { return wrap(_real.create_readcondition(sample_states, view_states, instance_states)); });
    }
    DDSReadCondition* create_index_condition(DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                                             DDS_InstanceStateMask instance_states, const char* index_name,
                                             const DDS_SampleInfo& key) override {
        return _script.pointer("DDSDataReader::create_index_condition", [&] {
            return wrap(_real.create_index_condition(sample_states, view_states, instance_states, index_name, key));
        });
    }
    DDS_ReturnCode_t delete_readcondition(DDSReadCondition* condition) override {
        return _script.code("DDSDataReader::delete_readcondition", [&] { return unwrap_and_delete(condition); });
    }
    DDS_ReturnCode_t create_index(const char* index_name) override {
        return _script.code("DDSDataReader::create_index", [&] { return _real.create_index(index_name); });
    }
    DDS_ReturnCode_t interrupt(DDS_ReturnCode_t code) override {
        return _script.code("DDSDataReader::interrupt", [&] { return _real.interrupt(code); });
    }
    DDS_ReturnCode_t interrupt_index_key(const char* index_name, const DDS_SequenceNumber_t& key, DDS_ReturnCode_t code) override {
        return _script.code("DDSDataReader::interrupt_index_key", [&] { return _real.interrupt_index_key(index_name, key, code); });
    }
    DDS_ReturnCode_t admit_open_keys_only(const char* index_name, DDS_Boolean open_only) override {
        return _script.code("DDSDataReader::admit_open_keys_only",
                            [&] { return _real.admit_open_keys_only(index_name, open_only); });
    }
    DDS_ReturnCode_t open_index_key(const char* index_name, const DDS_SequenceNumber_t& key) override {
        return _script.code("DDSDataReader::open_index_key", [&] { return _real.open_index_key(index_name, key); });
    }
    DDS_ReturnCode_t close_index_key(const char* index_name, const DDS_SequenceNumber_t& key) override {
        return _script.code("DDSDataReader::close_index_key", [&] { return _real.close_index_key(index_name, key); });
    }
    DDS_ReturnCode_t set_listener(DDSDataReaderListener* listener, DDS_StatusMask mask) override {
        return _script.code("DDSDataReader::set_listener", [&] { return _real.set_listener(listener, mask); });
    }
    DDS_ReturnCode_t get_subscription_matched_status(DDS_SubscriptionMatchedStatus& status) override {
        return _script.code("DDSDataReader::get_subscription_matched_status",
                            [&] { return _real.get_subscription_matched_status(status); });
    }
    DDS_ReturnCode_t get_requested_incompatible_qos_status(DDS_RequestedIncompatibleQosStatus& status) override {
        return _script.code("DDSDataReader::get_requested_incompatible_qos_status",
                            [&] { return _real.get_requested_incompatible_qos_status(status); });
    }
    DDS_ReturnCode_t get_incompatible_type_status(DDS_IncompatibleTypeStatus& status) override {
        return _script.code("DDSDataReader::get_incompatible_type_status",
                            [&] { return _real.get_incompatible_type_status(status); });
    }
    DDS_ReturnCode_t get_sample_lost_status(DDS_SampleLostStatus& status) override {
        return _script.code("DDSDataReader::get_sample_lost_status", [&] { return _real.get_sample_lost_status(status); });
    }
    DDS_ReturnCode_t get_counts(DDS_DataReaderCounts& counts) override {
        return _script.code("DDSDataReader::get_counts", [&] { return _real.get_counts(counts); });
    }
    DDS_ReturnCode_t leave_domain() override {
        return _script.code("DDSDataReader::leave_domain", [&] { return _real.leave_domain(); });
    }
    DDS_ReturnCode_t get_matched_publications(DDS_InstanceHandleSeq& handles) override {
        return _script.code("DDSDataReader::get_matched_publications", [&] { return _real.get_matched_publications(handles); });
    }
    DDS_ReturnCode_t get_matched_publication_data(DDS_PublicationBuiltinTopicData& data,
                                                  const DDS_InstanceHandle_t& handle) override {
        return _script.code("DDSDataReader::get_matched_publication_data",
                            [&] { return _real.get_matched_publication_data(data, handle); });
    }

    DDS_ReturnCode_t read_or_take_w_condition_untyped(DDS_Boolean* is_loan, void*** received_data, int* data_count,
                                                      DDS_SampleInfoSeq& info_seq, DDS_Long data_seq_len, DDS_Long data_seq_max_len,
                                                      DDS_Boolean data_seq_has_ownership, void* reserved, int sample_size,
                                                      DDS_Long max_samples, DDS_ReadCondition* condition,
                                                      DDS_Boolean take) override {
        DDS_ReturnCode_t code = _script.next("DDS_DataReader::read_or_take");
        if (code != DDS_RETCODE_OK) {
            return code;
        }
        ForwardingReadCondition* wrapped = dynamic_cast<ForwardingReadCondition*>(condition);
        code = _real.get_c_datareader()->read_or_take_w_condition_untyped(
            is_loan, received_data, data_count, info_seq, data_seq_len, data_seq_max_len, data_seq_has_ownership, reserved,
            sample_size, max_samples, wrapped != nullptr ? wrapped->real().get_c_readcondition() : condition, take);
        if (code != DDS_RETCODE_OK) {
            return code;
        }
        count_loan(1);
        if (_pretends_to_copy) {
            *is_loan = DDS_BOOLEAN_FALSE;
            return forward_return(*received_data, info_seq);
        }
        return code;
    }
    DDS_ReturnCode_t return_loan_untyped(void** received_data, DDS_SampleInfoSeq& info_seq) override {
        const DDS_ReturnCode_t code = _script.next("DDS_DataReader::return_loan");
        if (code == DDS_RETCODE_OK) {
            return forward_return(received_data, info_seq);
        }
        std::lock_guard<std::mutex> guard(_mutex);
        _refused.push_back({received_data, info_seq.get_contiguous_buffer(), info_seq.get_discontiguous_buffer(), info_seq.length(),
                            info_seq.maximum()});
        return code;
    }

private:
    struct Loan {
        void** data;
        DDS_SampleInfo* contiguous;
        DDS_SampleInfo** discontiguous;
        DDS_Long length;
        DDS_Long maximum;
    };

    DDSReadCondition* wrap(DDSReadCondition* real) {
        if (real == nullptr) {
            return nullptr;
        }
        std::unique_ptr<ForwardingReadCondition> wrapped(new ForwardingReadCondition(*real, *this, _script));
        ForwardingReadCondition* handed_out = wrapped.get();
        std::lock_guard<std::mutex> guard(_mutex);
        _conditions[handed_out] = std::move(wrapped);
        ++_live.conditions;
        return handed_out;
    }

    DDS_ReturnCode_t unwrap_and_delete(DDSReadCondition* condition) {
        ForwardingReadCondition* wrapped = dynamic_cast<ForwardingReadCondition*>(condition);
        const DDS_ReturnCode_t code = _real.delete_readcondition(wrapped != nullptr ? &wrapped->real() : condition);
        std::lock_guard<std::mutex> guard(_mutex);
        if (code == DDS_RETCODE_OK && _conditions.erase(wrapped) != 0) {
            --_live.conditions;
        }
        return code;
    }

    DDS_ReturnCode_t forward_return(void** received_data, DDS_SampleInfoSeq& info_seq) {
        const DDS_ReturnCode_t code = _real.get_c_datareader()->return_loan_untyped(received_data, info_seq);
        if (code == DDS_RETCODE_OK) {
            count_loan(-1);
        }
        return code;
    }

    void count_loan(int change) {
        _loans += change;
        _live.loans += change;
    }

    DDSDataReader& _real;
    CallScript& _script;
    LiveObjects& _live;
    std::atomic<bool> _pretends_to_copy{false};
    std::atomic<int> _loans{0};
    std::mutex _mutex;
    std::map<ForwardingReadCondition*, std::unique_ptr<ForwardingReadCondition>> _conditions;
    std::vector<Loan> _refused;
};

/// The readers that a participant double has handed out.
class ForwardingReaders {
public:
    ForwardingReaders(CallScript& script, LiveObjects& live) : _script(script), _live(live) {}

    DDSDataReader* wrap(DDSDataReader* real) {
        if (real == nullptr) {
            return nullptr;
        }
        std::unique_ptr<ForwardingDataReader> wrapped(new ForwardingDataReader(*real, _script, _live));
        ForwardingDataReader* handed_out = wrapped.get();
        std::lock_guard<std::mutex> guard(_mutex);
        _wrapped[handed_out] = std::move(wrapped);
        ++_live.readers;
        return handed_out;
    }

    static DDSDataReader* unwrap(DDSDataReader* reader) {
        ForwardingDataReader* wrapped = dynamic_cast<ForwardingDataReader*>(reader);
        return wrapped != nullptr ? &wrapped->real() : reader;
    }

    void forget(DDSDataReader* reader) {
        std::lock_guard<std::mutex> guard(_mutex);
        const auto found = _wrapped.find(reader);
        if (found == _wrapped.end()) {
            return;
        }
        // A deleted reader goes with its last loan, and is still used to return it.
        if (found->second->loans() != 0) {
            _closed.push_back(std::move(found->second));
        }
        _wrapped.erase(found);
        --_live.readers;
    }

private:
    CallScript& _script;
    LiveObjects& _live;
    std::mutex _mutex;
    std::map<DDSDataReader*, std::unique_ptr<ForwardingDataReader>> _wrapped;
    std::vector<std::unique_ptr<ForwardingDataReader>> _closed;
};

}  // namespace test
}  // namespace norvane

#endif
