// SPDX-License-Identifier: Apache-2.0
// The participant: its types, topics, publishers and subscribers, and the endpoints in them.
//
// Invariants:
// 1. The mutex guards the registry: which types, topics, publishers, subscribers and endpoints there are, and what uses what. It is
//    never held while an engine is called, since that may run a listener.
// 2. An argument is looked up in the registry by its address before it is used: a foreign or deleted object is refused.
// 3. A released participant owns itself until the last endpoint with a holder is deleted. The thread that deletes that endpoint
//    destroys the participant; all other deletions have left their last section under the mutex by then.
// 4. In a child process made by fork() it makes no endpoints and leaks what is deleted, since the engine's threads are missing.
#ifndef NORVANE_MIDDLEWARE_PARTICIPANTENTITY_HPP
#define NORVANE_MIDDLEWARE_PARTICIPANTENTITY_HPP

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "middleware/DataReaderEntity.hpp"
#include "middleware/DataWriterEntity.hpp"
#include "middleware/Engine.hpp"
#include "middleware/HoldingSpans.hpp"
#include "middleware/TopicEntity.hpp"
#include "norvane/dds/DomainParticipant.hpp"
#include "platform/ProcessMark.hpp"

namespace norvane {
namespace mw {

class PublisherEntity;
class SubscriberEntity;

class ParticipantEntity final : public DDSDomainParticipant {
public:
    ParticipantEntity(DDS_DomainId_t domain_id, Engine& engine);
    ~ParticipantEntity() override;

    /// Joins the domain. Once, before anything else. @return false when the engine refused; the log says why.
    [[nodiscard]] bool prepare(const DDS_DomainParticipantQos& qos);
    /// @return whether it has no entity, and no thread makes one for a holder; true in a child process.
    bool is_empty() noexcept;
    /// @return its entities in words for the log: the first few, and how many more. @throws std::bad_alloc
    std::string contents();
    /// Destroys a participant with all its entities: now, or together with the last endpoint that has a holder.
    /// @return as DDSDomainParticipantFactory::release_participant.
    static DDS_ReturnCode_t release(std::unique_ptr<ParticipantEntity> participant);

    DDS_DomainId_t get_domain_id() override { return _domain_id; }
    DDS_ReturnCode_t get_qos(DDS_DomainParticipantQos& qos) override;
    const char* get_engine_name() override { return _engine.name(); }
    DDS_Boolean reaches_other_processes() override { return _engine.leaves_process() ? DDS_BOOLEAN_TRUE : DDS_BOOLEAN_FALSE; }
    DDS_ReturnCode_t get_current_time(DDS_Time_t& current_time) override;

    DDS_ReturnCode_t register_type(const char* type_name, const std::shared_ptr<const DDS_TypeOperations>& type) override;
    DDS_ReturnCode_t unregister_type(const char* type_name) override;
    std::shared_ptr<const DDS_TypeOperations> lookup_type(const char* type_name) override;

    DDSTopic* create_topic(const char* topic_name, const char* type_name, const DDS_TopicQos& qos, DDSTopicListener* listener,
                           DDS_StatusMask mask) override;
    DDS_ReturnCode_t delete_topic(DDSTopic* topic) override;
    DDSTopicDescription* lookup_topicdescription(const char* name) override;
    DDSContentFilteredTopic* create_contentfilteredtopic(const char* name, DDSTopic* related_topic, const char* filter_expression,
                                                         const DDS_StringSeq& expression_parameters) override;
    DDS_ReturnCode_t delete_contentfilteredtopic(DDSContentFilteredTopic* topic) override;

    DDSPublisher* create_publisher(const DDS_PublisherQos& qos, DDSPublisherListener* listener, DDS_StatusMask mask) override;
    DDS_ReturnCode_t delete_publisher(DDSPublisher* publisher) override;
    DDSSubscriber* create_subscriber(const DDS_SubscriberQos& qos, DDSSubscriberListener* listener, DDS_StatusMask mask) override;
    DDS_ReturnCode_t delete_subscriber(DDSSubscriber* subscriber) override;

    DDSDataWriter* create_datawriter(DDSTopic* topic, const DDS_DataWriterQos& qos, DDSDataWriterListener* listener,
                                     DDS_StatusMask mask) override;
    DDS_ReturnCode_t delete_datawriter(DDSDataWriter* writer) override;
    DDSDataReader* create_datareader(DDSTopicDescription* topic, const DDS_DataReaderQos& qos, DDSDataReaderListener* listener,
                                     DDS_StatusMask mask) override;
    DDS_ReturnCode_t delete_datareader(DDSDataReader* reader) override;

    DDS_ReturnCode_t get_default_datawriter_qos(DDS_DataWriterQos& qos) override;
    DDS_ReturnCode_t set_default_datawriter_qos(const DDS_DataWriterQos& qos) override;
    DDS_ReturnCode_t get_default_datareader_qos(DDS_DataReaderQos& qos) override;
    DDS_ReturnCode_t set_default_datareader_qos(const DDS_DataReaderQos& qos) override;
    DDS_ReturnCode_t get_default_datawriter_qos_for_topic(DDS_DataWriterQos& qos, const char* topic_name) override;
    DDS_ReturnCode_t get_default_datareader_qos_for_topic(DDS_DataReaderQos& qos, const char* topic_name) override;
    DDS_ReturnCode_t delete_contained_entities() override;
    DDS_ReturnCode_t begin_holding(const char* holder) override;
    void end_holding() override;

    DDSStatusCondition* get_statuscondition() override { return _status.condition(); }
    DDS_StatusMask get_status_changes() override { return 0; }
    DDS_InstanceHandle_t get_instance_handle() override { return handle_of(_port->guid()); }

    // For publishers and subscribers: endpoints belong to `owner`.
    DDSDataWriter* create_writer(DDSPublisher& owner, DDSTopic* topic, const DDS_DataWriterQos& qos,
                                 DDSDataWriterListener* listener, DDS_StatusMask mask);
    DDS_ReturnCode_t delete_writer(DDSPublisher& owner, DDSDataWriter* writer);
    DDSDataReader* create_reader(DDSSubscriber& owner, DDSTopicDescription* topic, const DDS_DataReaderQos& qos,
                                 DDSDataReaderListener* listener, DDS_StatusMask mask);
    DDS_ReturnCode_t delete_reader(DDSSubscriber& owner, DDSDataReader* reader, bool with_conditions);

private:
    typedef std::lock_guard<std::mutex> Lock;
    // Looked up by plain characters: a look-up allocates nothing.
    typedef std::map<std::string, std::unique_ptr<TopicEntity>, std::less<>> Topics;

    class TopicUse;

    // Removed from the registry under the mutex, and destroyed after it is unlocked: destruction runs code of types and engine.
    struct Ended {
        Ended() = default;
        Ended(const Ended&) = delete;
        Ended& operator=(const Ended&) = delete;
        ~Ended();

        std::unique_ptr<ParticipantEntity> participant;
        Topics topics;
    };

    TopicEntity* find_topic_locked(const DDSTopicDescription* topic) noexcept;
    ContentFilteredTopicEntity* find_filtered_topic_locked(const DDSTopicDescription* topic) noexcept;
    bool may_make_endpoints(const char* method) const;
    std::shared_ptr<const std::atomic<std::int64_t>> last_asked_locked(const ContentFilteredTopicEntity& filtered) const;
    bool type_may_travel(const char* method, const TopicEntity& topic);
    void end_use_locked(TopicEntity& topic, ContentFilteredTopicEntity* filtered, Ended& ended) noexcept;
    void end_endpoint(const char* holder, TopicEntity& topic, ContentFilteredTopicEntity* filtered) noexcept;
    std::string held_endpoints_locked() const;
    DDS_ReturnCode_t delete_endpoints_without_holder();

    struct WriterEntry {
        DDSPublisher* owner;
        std::unique_ptr<DataWriterEntity> writer;
        const char* holder;  // null: none
    };
    struct ReaderEntry {
        DDSSubscriber* owner;
        ReaderControl* reader;
        const char* holder;  // null: none
    };

    const platform::ProcessMark _process;
    const DDS_DomainId_t _domain_id;
    Engine& _engine;
    DDS_DomainParticipantQos _qos;
    std::unique_ptr<DomainPort> _port;
    QuietStatus _status{*this};

    std::mutex _mutex;
    std::map<std::string, std::shared_ptr<const DDS_TypeOperations>, std::less<>> _types;
    Topics _topics;
    std::map<std::string, std::unique_ptr<ContentFilteredTopicEntity>, std::less<>> _filtered_topics;
    std::map<const DDSPublisher*, std::unique_ptr<PublisherEntity>> _publishers;
    std::map<const DDSSubscriber*, std::unique_ptr<SubscriberEntity>> _subscribers;
    std::map<const DDSDataWriter*, WriterEntry> _writers;
    std::map<const DDSDataReader*, ReaderEntry> _readers;
    DDS_DataWriterQos _default_writer_qos;
    DDS_DataReaderQos _default_reader_qos;
    std::unique_ptr<PublisherEntity> _own_publisher;  // of endpoints that are made through the participant
    std::unique_ptr<SubscriberEntity> _own_subscriber;
    HoldingSpans _holdings;
    std::size_t _held_endpoints = 0;           // those being deleted included
    std::unique_ptr<ParticipantEntity> _self;  // once released
};

}  // namespace mw
}  // namespace norvane

#endif
