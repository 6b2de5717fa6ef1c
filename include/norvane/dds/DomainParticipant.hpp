// SPDX-License-Identifier: Apache-2.0
// Domain participants: the membership of a program in a domain, and the owner of topics and endpoints there.
#ifndef NORVANE_DDS_DOMAINPARTICIPANT_HPP
#define NORVANE_DDS_DOMAINPARTICIPANT_HPP

#include "norvane/dds/Publisher.hpp"
#include "norvane/dds/Subscriber.hpp"
#include "norvane/dds/Topic.hpp"
#include "norvane/dds/TypeSupport.hpp"

/// Is called when a status of a participant changes. A participant has no statuses so far.
class NORVANE_EXPORT DDSDomainParticipantListener {
public:
    virtual ~DDSDomainParticipantListener();
};

/// Membership in a domain. Endpoints meet when their participants are in the same domain and on engines that reach each other.
///
/// An object of one participant that is given to another is refused: a deletion with DDS_RETCODE_PRECONDITION_NOT_MET, a creation
/// with null.
/// @par Threads  Any operation from any thread.
class NORVANE_EXPORT DDSDomainParticipant : public DDSEntity {
public:
    virtual DDS_DomainId_t get_domain_id() = 0;
    virtual DDS_ReturnCode_t get_qos(DDS_DomainParticipantQos& qos) = 0;
    /// @return name of the engine that carries the samples: "embedded" or "fastdds"; lives as long as the participant.
    virtual const char* get_engine_name() = 0;
    /// @return whether that engine carries samples to other processes.
    virtual DDS_Boolean reaches_other_processes() { return DDS_BOOLEAN_TRUE; }
    /// Time on the participant's clock: wall time when the process started, going on steadily whatever is done to the wall clock.
    virtual DDS_ReturnCode_t get_current_time(DDS_Time_t& current_time) = 0;

    /// Registers a type under a name. (DDSTypeSupport::register_type calls it.)
    /// @param type_name  not null, not empty, at most 255 characters.
    /// @param type       not null.
    /// @return as DDSTypeSupport::register_type.
    virtual DDS_ReturnCode_t register_type(const char* type_name, const std::shared_ptr<const DDS_TypeOperations>& type) = 0;
    /// Forgets a type name.
    /// @return DDS_RETCODE_OK; DDS_RETCODE_BAD_PARAMETER for an unknown name; DDS_RETCODE_PRECONDITION_NOT_MET while a topic uses
    /// it.
    virtual DDS_ReturnCode_t unregister_type(const char* type_name) = 0;
    /// @return the operations registered under the name; null when there are none.
    virtual std::shared_ptr<const DDS_TypeOperations> lookup_type(const char* type_name) = 0;

    /// Makes a topic. With an existing name and the same type the existing topic is returned, so that threads that start on one
    /// service at once all succeed.
    /// @param topic_name  not null, not empty, at most 255 characters.
    /// @param type_name   a registered type.
    /// @return the topic; null when the type is unknown, or the name is taken by a topic of another type or a content-filtered
    /// topic.
    virtual DDSTopic* create_topic(const char* topic_name, const char* type_name, const DDS_TopicQos& qos,
                                   DDSTopicListener* listener, DDS_StatusMask mask) = 0;
    /// @return DDS_RETCODE_OK; DDS_RETCODE_BAD_PARAMETER for null; DDS_RETCODE_PRECONDITION_NOT_MET when it is not this
    ///         participant's or an endpoint or a content-filtered topic uses it.
    virtual DDS_ReturnCode_t delete_topic(DDSTopic* topic) = 0;
    /// Finds a topic or content-filtered topic by name. A topic that was to go with its last user (see `begin_holding`) stays from
    /// then on, until the application deletes it.
    /// @return the topic or content-filtered topic of that name in this participant; null when there is none.
    virtual DDSTopicDescription* lookup_topicdescription(const char* name) = 0;

    /// Makes a content-filtered topic.
    /// @param name                   not null, not empty, at most 255 characters, not taken.
    /// @param related_topic          a topic of this participant.
    /// @param filter_expression      see docs/filters.md. Errors are logged with their column.
    /// @param expression_parameters  values of %0, %1 ... in the expression; copied.
    /// @return the content-filtered topic; null when an argument is refused.
    virtual DDSContentFilteredTopic* create_contentfilteredtopic(const char* name, DDSTopic* related_topic,
                                                                 const char* filter_expression,
                                                                 const DDS_StringSeq& expression_parameters) = 0;
    /// @return DDS_RETCODE_OK; DDS_RETCODE_BAD_PARAMETER for null; DDS_RETCODE_PRECONDITION_NOT_MET when it is not this
    ///         participant's or a reader uses it.
    virtual DDS_ReturnCode_t delete_contentfilteredtopic(DDSContentFilteredTopic* topic) = 0;

    virtual DDSPublisher* create_publisher(const DDS_PublisherQos& qos, DDSPublisherListener* listener, DDS_StatusMask mask) = 0;
    /// @return DDS_RETCODE_PRECONDITION_NOT_MET while the publisher has writers, or when it is not this participant's.
    virtual DDS_ReturnCode_t delete_publisher(DDSPublisher* publisher) = 0;
    virtual DDSSubscriber* create_subscriber(const DDS_SubscriberQos& qos, DDSSubscriberListener* listener,
                                             DDS_StatusMask mask) = 0;
    /// @return DDS_RETCODE_PRECONDITION_NOT_MET while the subscriber has readers, or when it is not this participant's.
    virtual DDS_ReturnCode_t delete_subscriber(DDSSubscriber* subscriber) = 0;

    /// Makes a data writer in the participant's own publisher. See DDSPublisher::create_datawriter.
    virtual DDSDataWriter* create_datawriter(DDSTopic* topic, const DDS_DataWriterQos& qos, DDSDataWriterListener* listener,
                                             DDS_StatusMask mask) = 0;
    virtual DDS_ReturnCode_t delete_datawriter(DDSDataWriter* writer) = 0;
    /// Makes a data reader in the participant's own subscriber. See DDSSubscriber::create_datareader.
    virtual DDSDataReader* create_datareader(DDSTopicDescription* topic, const DDS_DataReaderQos& qos,
                                             DDSDataReaderListener* listener, DDS_StatusMask mask) = 0;
    virtual DDS_ReturnCode_t delete_datareader(DDSDataReader* reader) = 0;

    virtual DDS_ReturnCode_t get_default_datawriter_qos(DDS_DataWriterQos& qos) = 0;
    virtual DDS_ReturnCode_t set_default_datawriter_qos(const DDS_DataWriterQos& qos) = 0;
    virtual DDS_ReturnCode_t get_default_datareader_qos(DDS_DataReaderQos& qos) = 0;
    virtual DDS_ReturnCode_t set_default_datareader_qos(const DDS_DataReaderQos& qos) = 0;
    /// @param topic_name  not null. Gives the participant's default: this participant has no defaults for single topics.
    virtual DDS_ReturnCode_t get_default_datawriter_qos_for_topic(DDS_DataWriterQos& qos, const char* topic_name) = 0;
    virtual DDS_ReturnCode_t get_default_datareader_qos_for_topic(DDS_DataReaderQos& qos, const char* topic_name) = 0;

    /// Deletes everything that the participant made, in the order that each deletion asks for: conditions, readers, writers,
    /// publishers, subscribers, content-filtered topics, topics. Loans out keep their reader's memory until they are returned.
    /// @return DDS_RETCODE_OK; DDS_RETCODE_PRECONDITION_NOT_MET when called from inside a listener of one of them, or while an
    ///         endpoint has a holder (see `begin_holding`): then nothing is deleted, and the log names the endpoints.
    virtual DDS_ReturnCode_t delete_contained_entities() = 0;

    /// Says that what the calling thread makes here, until `end_holding`, has a holder: an object such as a requester, which keeps
    /// pointers to its endpoints and deletes them itself. May be nested. Listeners that run meanwhile are not concerned.
    ///
    /// An endpoint with a holder is not deleted by `delete_contained_entities`, and keeps its participant alive
    /// (DDSDomainParticipantFactory::release_participant). A topic that is made goes with its last endpoint and content-filtered
    /// topic. One that the application makes or looks up, before or after, is the application's, and stays until it is deleted.
    /// @param holder  what the holder is, for the log: "Requester". Not null; lives as long as the process.
    /// @return DDS_RETCODE_OK; DDS_RETCODE_OUT_OF_RESOURCES when memory is short: then `end_holding` must not follow.
    virtual DDS_ReturnCode_t begin_holding(const char* holder);
    /// Ends what the last `begin_holding` of the calling thread began. Without one it does nothing.
    virtual void end_holding();
};

#endif
