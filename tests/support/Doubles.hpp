// SPDX-License-Identifier: Apache-2.0
// Doubles of a participant and of what it makes: each forwards every operation to the real one. Operations that may fail are asked
// for in a script first, with the name of class and operation; the script also counts what is there. Listeners, statuses, topics,
// publishers and subscribers are the real ones.
// Thread rule: any thread.
#ifndef NORVANE_TESTS_SUPPORT_DOUBLES_HPP
#define NORVANE_TESTS_SUPPORT_DOUBLES_HPP

#include <list>
#include <memory>
#include <mutex>
#include <utility>

#include "CallScript.hpp"
#include "Thrown.hpp"
#include "norvane/dds/DomainParticipant.hpp"

namespace norvane::test {

template <typename Interface>
class Forwarding : public Interface {
public:
    typedef Interface Real;
    typedef DDS_ReturnCode_t Code;

    /// Both are borrowed.
    Forwarding(Real& real, CallScript& script) : _real(real), _script(script) {}

    Real& real() { return _real; }

protected:
    template <typename Result, typename... Parameters, typename... Arguments>
    Result call(const char* name, Result (Real::*operation)(Parameters...), Arguments&&... arguments) {
        return _script.forward(class_name(typeid(Real)) + "::" + name,
                               [&] { return (_real.*operation)(std::forward<Arguments>(arguments)...); });
    }

    Real& _real;
    CallScript& _script;
};

template <typename Interface>
class ForwardingEntity : public Forwarding<Interface> {
public:
    using Forwarding<Interface>::Forwarding;

    DDSStatusCondition* get_statuscondition() override { return this->_real.get_statuscondition(); }
    DDS_StatusMask get_status_changes() override { return this->_real.get_status_changes(); }
    DDS_InstanceHandle_t get_instance_handle() override { return this->_real.get_instance_handle(); }
};

/// What writers and readers have in common.
template <typename Interface, typename Listener, typename Qos, typename Counts>
class ForwardingEndpoint : public ForwardingEntity<Interface> {
public:
    using ForwardingEntity<Interface>::ForwardingEntity;
    typedef DDS_ReturnCode_t Code;

    Code get_qos(Qos& qos) override { return this->call("get_qos", &Interface::get_qos, qos); }
    Listener* get_listener() override { return this->_real.get_listener(); }
    Code set_listener(Listener* listener, DDS_StatusMask mask) override { return this->_real.set_listener(listener, mask); }
    Code get_counts(Counts& counts) override { return this->_real.get_counts(counts); }
    Code leave_domain() override { return this->_real.leave_domain(); }
    Code get_incompatible_type_status(DDS_IncompatibleTypeStatus& status) override {
        return this->_real.get_incompatible_type_status(status);
    }
};

/// The doubles of one kind that another one has handed out. One that is deleted stays until its maker goes: it may still be used
/// to return a loan.
template <typename Double>
class Doubles {
public:
    typedef typename Double::Real Real;

    /// @param kind  its name in the script's count.
    Doubles(CallScript& script, const char* kind) : _script(script), _kind(kind) {}

    /// @param real  null gives null. @param rest  what else a double is made with.
    template <typename... Rest>
    Real* wrap(Real* real, Rest&... rest) {
        if (real == nullptr) {
            return nullptr;
        }
        std::lock_guard<std::mutex> guard(_mutex);
        _script.count(_kind, 1);
        return &_made.emplace_back(*real, _script, rest...);
    }
    /// @return the real one of a double; anything else as it is.
    static Real* unwrap(Real* given) {
        Double* const wrapped = dynamic_cast<Double*>(given);
        return wrapped != nullptr ? &wrapped->real() : given;
    }
    /// @return `code`, the outcome of deleting one of them, which is counted.
    DDS_ReturnCode_t deleted(DDS_ReturnCode_t code) { return _script.count(_kind, code == DDS_RETCODE_OK ? -1 : 0), code; }

private:
    CallScript& _script;
    const char* const _kind;
    std::mutex _mutex;
    std::list<Double> _made;
};

/// Failing `get_c_condition` makes it one that no wait set accepts.
class ForwardingReadCondition : public Forwarding<DDSReadCondition>, public DDS_ReadCondition {
public:
    /// @param reader  the double that made it; borrowed.
    ForwardingReadCondition(DDSReadCondition& real, CallScript& script, DDSDataReader& reader)
        : Forwarding(real, script), _reader(reader) {}

    DDS_Boolean get_trigger_value() override { return _real.get_trigger_value(); }
    DDS_Condition* get_c_condition() override {
        return _script.forward("DDSReadCondition::get_c_condition", [&] { return _real.get_c_condition(); });
    }
    DDSDataReader* get_datareader() override { return &_reader; }
    DDS_SampleStateMask get_sample_state_mask() override { return _real.get_sample_state_mask(); }
    DDS_ViewStateMask get_view_state_mask() override { return _real.get_view_state_mask(); }
    DDS_InstanceStateMask get_instance_state_mask() override { return _real.get_instance_state_mask(); }
    DDS_ReadCondition* get_c_readcondition() override { return this; }
    DDS_DataReader* get_c_datareader() noexcept override { return _reader.get_c_datareader(); }

private:
    DDSDataReader& _reader;
};

class ForwardingDataReader
    : public ForwardingEndpoint<DDSDataReader, DDSDataReaderListener, DDS_DataReaderQos, DDS_DataReaderCounts>,
      public DDS_DataReader {
public:
    using ForwardingEndpoint::ForwardingEndpoint;

    DDSTopicDescription* get_topicdescription() override { return _real.get_topicdescription(); }
    DDSSubscriber* get_subscriber() override { return _real.get_subscriber(); }
    DDS_DataReader* get_c_datareader() override { return this; }

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
        return _conditions.deleted(call("delete_readcondition", &Real::delete_readcondition, _conditions.unwrap(condition)));
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
    Code get_subscription_matched_status(DDS_SubscriptionMatchedStatus& status) override {
        return _real.get_subscription_matched_status(status);
    }
    Code get_requested_incompatible_qos_status(DDS_RequestedIncompatibleQosStatus& status) override {
        return _real.get_requested_incompatible_qos_status(status);
    }
    Code get_sample_lost_status(DDS_SampleLostStatus& status) override { return _real.get_sample_lost_status(status); }
    Code get_matched_publications(DDS_InstanceHandleSeq& handles) override { return _real.get_matched_publications(handles); }
    Code get_matched_publication_data(DDS_PublicationBuiltinTopicData& data, const DDS_InstanceHandle_t& handle) override {
        return _real.get_matched_publication_data(data, handle);
    }

    Code read_or_take_w_condition_untyped(DDS_Boolean* is_loan, void*** received_data, int* data_count, DDS_SampleInfoSeq& info_seq,
                                          DDS_Long data_seq_len, DDS_Long data_seq_max_len, DDS_Boolean data_seq_has_ownership,
                                          void* reserved, int sample_size, DDS_Long max_samples, DDS_ReadCondition* condition,
                                          DDS_Boolean take) override {
        ForwardingReadCondition* const wrapped = dynamic_cast<ForwardingReadCondition*>(condition);
        const Code code = _script.forward("DDS_DataReader::read_or_take", [&] {
            return _real.get_c_datareader()->read_or_take_w_condition_untyped(
                is_loan, received_data, data_count, info_seq, data_seq_len, data_seq_max_len, data_seq_has_ownership, reserved,
                sample_size, max_samples, wrapped != nullptr ? wrapped->real().get_c_readcondition() : condition, take);
        });
        _script.count("loans", code == DDS_RETCODE_OK ? 1 : 0);
        return code;
    }
    /// A loan whose return is failed goes back all the same, uncounted: its holder may not try again.
    Code return_loan_untyped(void** received_data, DDS_SampleInfoSeq& info_seq) override {
        const Code failure = _script.next("DDS_DataReader::return_loan");
        const Code code = _real.get_c_datareader()->return_loan_untyped(received_data, info_seq);
        _script.count("loans", failure == DDS_RETCODE_OK && code == DDS_RETCODE_OK ? -1 : 0);
        return failure == DDS_RETCODE_OK ? code : failure;
    }

private:
    DDSReadCondition* wrap(DDSReadCondition* real) {
        DDSDataReader& self = *this;
        return _conditions.wrap(real, self);
    }

    Doubles<ForwardingReadCondition> _conditions{_script, "conditions"};
};

class ForwardingDataWriter
    : public ForwardingEndpoint<DDSDataWriter, DDSDataWriterListener, DDS_DataWriterQos, DDS_DataWriterCounts>,
      public DDS_DataWriter {
public:
    using ForwardingEndpoint::ForwardingEndpoint;

    DDSTopic* get_topic() override { return _real.get_topic(); }
    DDSPublisher* get_publisher() override { return _real.get_publisher(); }
    DDS_DataWriter* get_c_datawriter() override { return this; }

    Code write_w_params_untyped_general(void* reserved, const void* data, DDS_WriteParams_t& params) override {
        return _script.forward("DDS_DataWriter::write",
                               [&] { return _real.get_c_datawriter()->write_w_params_untyped_general(reserved, data, params); });
    }
    Code get_publication_matched_status(DDS_PublicationMatchedStatus& status) override {
        return _real.get_publication_matched_status(status);
    }
    Code get_offered_incompatible_qos_status(DDS_OfferedIncompatibleQosStatus& status) override {
        return _real.get_offered_incompatible_qos_status(status);
    }
    Code get_matched_subscriptions(DDS_InstanceHandleSeq& handles) override { return _real.get_matched_subscriptions(handles); }
    Code get_matched_subscription_data(DDS_SubscriptionBuiltinTopicData& data, const DDS_InstanceHandle_t& handle) override {
        return _real.get_matched_subscription_data(data, handle);
    }
    Code wait_for_acknowledgments(const DDS_Duration_t& max_wait) override {
        return call("wait_for_acknowledgments", &Real::wait_for_acknowledgments, max_wait);
    }
};

/// What the real one still holds at the end is the test's to delete.
class ForwardingParticipant : public ForwardingEntity<DDSDomainParticipant> {
public:
    using ForwardingEntity::ForwardingEntity;

    DDS_DomainId_t get_domain_id() override { return _real.get_domain_id(); }
    const char* get_engine_name() override { return _real.get_engine_name(); }
    DDS_Boolean reaches_other_processes() override { return _real.reaches_other_processes(); }
    std::shared_ptr<const DDS_TypeOperations> lookup_type(const char* type_name) override { return _real.lookup_type(type_name); }

    Code get_qos(DDS_DomainParticipantQos& qos) override { return _real.get_qos(qos); }
    Code get_current_time(DDS_Time_t& current_time) override {
        return call("get_current_time", &Real::get_current_time, current_time);
    }
    Code register_type(const char* type_name, const std::shared_ptr<const DDS_TypeOperations>& type) override {
        return call("register_type", &Real::register_type, type_name, type);
    }
    Code unregister_type(const char* type_name) override { return _real.unregister_type(type_name); }

    DDSTopic* create_topic(const char* topic_name, const char* type_name, const DDS_TopicQos& qos, DDSTopicListener* listener,
                           DDS_StatusMask mask) override {
        return call("create_topic", &Real::create_topic, topic_name, type_name, qos, listener, mask);
    }
    Code delete_topic(DDSTopic* topic) override { return _real.delete_topic(topic); }
    DDSTopicDescription* lookup_topicdescription(const char* name) override {
        return call("lookup_topicdescription", &Real::lookup_topicdescription, name);
    }
    DDSContentFilteredTopic* create_contentfilteredtopic(const char* name, DDSTopic* related_topic, const char* filter_expression,
                                                         const DDS_StringSeq& expression_parameters) override {
        DDSContentFilteredTopic* const topic = call("create_contentfilteredtopic", &Real::create_contentfilteredtopic, name,
                                                    related_topic, filter_expression, expression_parameters);
        _script.count("filters", topic != nullptr ? 1 : 0);
        return topic;
    }
    Code delete_contentfilteredtopic(DDSContentFilteredTopic* topic) override {
        const Code code = call("delete_contentfilteredtopic", &Real::delete_contentfilteredtopic, topic);
        _script.count("filters", code == DDS_RETCODE_OK ? -1 : 0);
        return code;
    }

    DDSPublisher* create_publisher(const DDS_PublisherQos& qos, DDSPublisherListener* listener, DDS_StatusMask mask) override {
        return _real.create_publisher(qos, listener, mask);
    }
    Code delete_publisher(DDSPublisher* publisher) override { return _real.delete_publisher(publisher); }
    DDSSubscriber* create_subscriber(const DDS_SubscriberQos& qos, DDSSubscriberListener* listener, DDS_StatusMask mask) override {
        return _real.create_subscriber(qos, listener, mask);
    }
    Code delete_subscriber(DDSSubscriber* subscriber) override { return _real.delete_subscriber(subscriber); }

    DDSDataWriter* create_datawriter(DDSTopic* topic, const DDS_DataWriterQos& qos, DDSDataWriterListener* listener,
                                     DDS_StatusMask mask) override {
        return _writers.wrap(call("create_datawriter", &Real::create_datawriter, topic, qos, listener, mask));
    }
    Code delete_datawriter(DDSDataWriter* writer) override {
        return _writers.deleted(call("delete_datawriter", &Real::delete_datawriter, _writers.unwrap(writer)));
    }
    DDSDataReader* create_datareader(DDSTopicDescription* topic, const DDS_DataReaderQos& qos, DDSDataReaderListener* listener,
                                     DDS_StatusMask mask) override {
        return _readers.wrap(call("create_datareader", &Real::create_datareader, topic, qos, listener, mask));
    }
    Code delete_datareader(DDSDataReader* reader) override {
        return _readers.deleted(call("delete_datareader", &Real::delete_datareader, _readers.unwrap(reader)));
    }

    Code get_default_datawriter_qos(DDS_DataWriterQos& qos) override { return _real.get_default_datawriter_qos(qos); }
    Code set_default_datawriter_qos(const DDS_DataWriterQos& qos) override { return _real.set_default_datawriter_qos(qos); }
    Code get_default_datareader_qos(DDS_DataReaderQos& qos) override { return _real.get_default_datareader_qos(qos); }
    Code set_default_datareader_qos(const DDS_DataReaderQos& qos) override { return _real.set_default_datareader_qos(qos); }
    Code get_default_datawriter_qos_for_topic(DDS_DataWriterQos& qos, const char* topic_name) override {
        return call("get_default_datawriter_qos_for_topic", &Real::get_default_datawriter_qos_for_topic, qos, topic_name);
    }
    Code get_default_datareader_qos_for_topic(DDS_DataReaderQos& qos, const char* topic_name) override {
        return call("get_default_datareader_qos_for_topic", &Real::get_default_datareader_qos_for_topic, qos, topic_name);
    }
    /// Does not bring the counts down: what it had to delete, another had left behind.
    Code delete_contained_entities() override { return _real.delete_contained_entities(); }

private:
    Doubles<ForwardingDataWriter> _writers{_script, "writers"};
    Doubles<ForwardingDataReader> _readers{_script, "readers"};
};

}  // namespace norvane::test

#endif
