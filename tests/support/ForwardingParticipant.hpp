// SPDX-License-Identifier: Apache-2.0
// A participant that stands for another one: forwards every operation, wraps what it makes, unwraps what it is given, and counts.
// Topics, publishers and subscribers are not wrapped; asked for their participant, they name the real one.
#ifndef NORVANE_TESTS_SUPPORT_FORWARDINGPARTICIPANT_HPP
#define NORVANE_TESTS_SUPPORT_FORWARDINGPARTICIPANT_HPP

#include <memory>

#include "ForwardingDataReader.hpp"
#include "ForwardingDataWriter.hpp"
#include "LiveObjects.hpp"
#include "norvane/dds/DomainParticipant.hpp"

namespace norvane::test {

/// @par Threads  Any.
class ForwardingParticipant : public Forwarding<DDSDomainParticipant> {
public:
    /// What the real one still holds at the end is the test's to delete.
    using Forwarding::Forwarding;

    const LiveObjects& live() const { return _live; }

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
        _live.filters += topic != nullptr ? 1 : 0;
        return topic;
    }
    Code delete_contentfilteredtopic(DDSContentFilteredTopic* topic) override {
        const DDS_ReturnCode_t code = call("delete_contentfilteredtopic", &Real::delete_contentfilteredtopic, topic);
        _live.filters -= code == DDS_RETCODE_OK ? 1 : 0;
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
        return _writers.wrap(call("create_datawriter", &Real::create_datawriter, topic, qos, listener, mask), _script);
    }
    Code delete_datawriter(DDSDataWriter* writer) override {
        return _writers.deleted(call("delete_datawriter", &Real::delete_datawriter, _writers.unwrap(writer)));
    }
    DDSDataReader* create_datareader(DDSTopicDescription* topic, const DDS_DataReaderQos& qos, DDSDataReaderListener* listener,
                                     DDS_StatusMask mask) override {
        return _readers.wrap(call("create_datareader", &Real::create_datareader, topic, qos, listener, mask), _script, _live);
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
    LiveObjects _live;
    Doubles<DDSDataWriter, ForwardingDataWriter> _writers{_live.writers};
    Doubles<DDSDataReader, ForwardingDataReader> _readers{_live.readers};
};

}  // namespace norvane::test

#endif
