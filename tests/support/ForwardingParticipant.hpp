// SPDX-License-Identifier: Apache-2.0
// A participant that stands for another one: forwards every operation, wraps what it makes, unwraps what it is given, and counts.
// Topics, publishers and subscribers are not wrapped; asked for their participant, they name the real one.
#ifndef NORVANE_TESTS_SUPPORT_FORWARDINGPARTICIPANT_HPP
#define NORVANE_TESTS_SUPPORT_FORWARDINGPARTICIPANT_HPP

#include <memory>

#include "CallScript.hpp"
#include "ForwardingDataReader.hpp"
#include "ForwardingDataWriter.hpp"
#include "LiveObjects.hpp"
#include "norvane/dds/DomainParticipant.hpp"

namespace norvane {
namespace test {

/// @par Threads  Any.
class ForwardingParticipant : public DDSDomainParticipant {
public:
    /// Both are borrowed; what the real one still holds at the end is the test's to delete.
    ForwardingParticipant(DDSDomainParticipant& real, CallScript& script)
        : _real(real), _script(script), _writers(script, _live), _readers(script, _live) {}

    DDSDomainParticipant& real() { return _real; }
    const LiveObjects& live() const { return _live; }

    DDSStatusCondition* get_statuscondition() override { return _real.get_statuscondition(); }
    DDS_StatusMask get_status_changes() override { return _real.get_status_changes(); }
    DDS_InstanceHandle_t get_instance_handle() override { return _real.get_instance_handle(); }
    DDS_DomainId_t get_domain_id() override { return _real.get_domain_id(); }
    const char* get_engine_name() override { return _real.get_engine_name(); }
    DDS_Boolean reaches_other_processes() override { return _real.reaches_other_processes(); }
    std::shared_ptr<const DDS_TypeOperations> lookup_type(const char* type_name) override { return _real.lookup_type(type_name); }

    DDS_ReturnCode_t get_qos(DDS_DomainParticipantQos& qos) override {
        return _script.code("DDSDomainParticipant::get_qos", [&] { return _real.get_qos(qos); });
    }
    DDS_ReturnCode_t get_current_time(DDS_Time_t& current_time) override {
        return _script.code("DDSDomainParticipant::get_current_time", [&] { return _real.get_current_time(current_time); });
    }
    DDS_ReturnCode_t register_type(const char* type_name, const std::shared_ptr<const DDS_TypeOperations>& type) override {
        return _script.code("DDSDomainParticipant::register_type", [&] { return _real.register_type(type_name, type); });
    }
    DDS_ReturnCode_t unregister_type(const char* type_name) override {
        return _script.code("DDSDomainParticipant::unregister_type", [&] { return _real.unregister_type(type_name); });
    }

    DDSTopic* create_topic(const char* topic_name, const char* type_name, const DDS_TopicQos& qos, DDSTopicListener* listener,
                           DDS_StatusMask mask) override {
        return _script.pointer("DDSDomainParticipant::create_topic",
                               [&] { return _real.create_topic(topic_name, type_name, qos, listener, mask); });
    }
    DDS_ReturnCode_t delete_topic(DDSTopic* topic) override {
        return _script.code("DDSDomainParticipant::delete_topic", [&] { return _real.delete_topic(topic); });
    }
    DDSTopicDescription* lookup_topicdescription(const char* name) override {
        return _script.pointer("DDSDomainParticipant::lookup_topicdescription",
                               [&] { return _real.lookup_topicdescription(name); });
    }
    DDSContentFilteredTopic* create_contentfilteredtopic(const char* name, DDSTopic* related_topic, const char* filter_expression,
                                                         const DDS_StringSeq& expression_parameters) override {
        return _script.pointer("DDSDomainParticipant::create_contentfilteredtopic", [&] {
            DDSContentFilteredTopic* topic =
                _real.create_contentfilteredtopic(name, related_topic, filter_expression, expression_parameters);
            _live.filters += topic != nullptr ? 1 : 0;
            return topic;
        });
    }
    DDS_ReturnCode_t delete_contentfilteredtopic(DDSContentFilteredTopic* topic) override {
        return _script.code("DDSDomainParticipant::delete_contentfilteredtopic", [&] {
            const DDS_ReturnCode_t code = _real.delete_contentfilteredtopic(topic);
            _live.filters -= code == DDS_RETCODE_OK ? 1 : 0;
            return code;
        });
    }

    DDSPublisher* create_publisher(const DDS_PublisherQos& qos, DDSPublisherListener* listener, DDS_StatusMask mask) override {
        return _real.create_publisher(qos, listener, mask);
    }
    DDS_ReturnCode_t delete_publisher(DDSPublisher* publisher) override { return _real.delete_publisher(publisher); }
    DDSSubscriber* create_subscriber(const DDS_SubscriberQos& qos, DDSSubscriberListener* listener, DDS_StatusMask mask) override {
        return _real.create_subscriber(qos, listener, mask);
    }
    DDS_ReturnCode_t delete_subscriber(DDSSubscriber* subscriber) override { return _real.delete_subscriber(subscriber); }

    DDSDataWriter* create_datawriter(DDSTopic* topic, const DDS_DataWriterQos& qos, DDSDataWriterListener* listener,
                                     DDS_StatusMask mask) override {
        return _script.pointer("DDSDomainParticipant::create_datawriter",
                               [&] { return _writers.wrap(_real.create_datawriter(topic, qos, listener, mask)); });
    }
    DDS_ReturnCode_t delete_datawriter(DDSDataWriter* writer) override {
        return _script.code("DDSDomainParticipant::delete_datawriter", [&] {
            const DDS_ReturnCode_t code = _real.delete_datawriter(ForwardingWriters::unwrap(writer));
            if (code == DDS_RETCODE_OK) {
                _writers.forget(writer);
            }
            return code;
        });
    }
    DDSDataReader* create_datareader(DDSTopicDescription* topic, const DDS_DataReaderQos& qos, DDSDataReaderListener* listener,
                                     DDS_StatusMask mask) override {
        return _script.pointer("DDSDomainParticipant::create_datareader",
                               [&] { return _readers.wrap(_real.create_datareader(topic, qos, listener, mask)); });
    }
    DDS_ReturnCode_t delete_datareader(DDSDataReader* reader) override {
        return _script.code("DDSDomainParticipant::delete_datareader", [&] {
            const DDS_ReturnCode_t code = _real.delete_datareader(ForwardingReaders::unwrap(reader));
            if (code == DDS_RETCODE_OK) {
                _readers.forget(reader);
            }
            return code;
        });
    }

    DDS_ReturnCode_t get_default_datawriter_qos(DDS_DataWriterQos& qos) override {
        return _script.code("DDSDomainParticipant::get_default_datawriter_qos",
                            [&] { return _real.get_default_datawriter_qos(qos); });
    }
    DDS_ReturnCode_t set_default_datawriter_qos(const DDS_DataWriterQos& qos) override {
        return _script.code("DDSDomainParticipant::set_default_datawriter_qos",
                            [&] { return _real.set_default_datawriter_qos(qos); });
    }
    DDS_ReturnCode_t get_default_datareader_qos(DDS_DataReaderQos& qos) override {
        return _script.code("DDSDomainParticipant::get_default_datareader_qos",
                            [&] { return _real.get_default_datareader_qos(qos); });
    }
    DDS_ReturnCode_t set_default_datareader_qos(const DDS_DataReaderQos& qos) override {
        return _script.code("DDSDomainParticipant::set_default_datareader_qos",
                            [&] { return _real.set_default_datareader_qos(qos); });
    }
    DDS_ReturnCode_t get_default_datawriter_qos_for_topic(DDS_DataWriterQos& qos, const char* topic_name) override {
        return _script.code("DDSDomainParticipant::get_default_datawriter_qos_for_topic",
                            [&] { return _real.get_default_datawriter_qos_for_topic(qos, topic_name); });
    }
    DDS_ReturnCode_t get_default_datareader_qos_for_topic(DDS_DataReaderQos& qos, const char* topic_name) override {
        return _script.code("DDSDomainParticipant::get_default_datareader_qos_for_topic",
                            [&] { return _real.get_default_datareader_qos_for_topic(qos, topic_name); });
    }
    /// Does not bring the counts down: what it had to delete, somebody else had left behind.
    DDS_ReturnCode_t delete_contained_entities() override {
        return _script.code("DDSDomainParticipant::delete_contained_entities", [&] { return _real.delete_contained_entities(); });
    }

private:
    DDSDomainParticipant& _real;
    CallScript& _script;
    LiveObjects _live;
    ForwardingWriters _writers;
    ForwardingReaders _readers;
};

}  // namespace test
}  // namespace norvane

#endif
