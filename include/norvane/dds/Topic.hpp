// SPDX-License-Identifier: Apache-2.0
// Topics and content-filtered topics. Both belong to their participant.
#ifndef NORVANE_DDS_TOPIC_HPP
#define NORVANE_DDS_TOPIC_HPP

#include "norvane/dds/Status.hpp"
#include "norvane/dds/sequence.hpp"
#include "norvane/export.hpp"

class DDSDomainParticipant;

/// A name with a type, from which a reader can be made.
class NORVANE_EXPORT DDSTopicDescription {
public:
    virtual ~DDSTopicDescription();
    /// @return the name; never null; lives as long as the object.
    virtual const char* get_name() = 0;
    /// @return the name of the registered type; never null.
    virtual const char* get_type_name() = 0;
    virtual DDSDomainParticipant* get_participant() = 0;

protected:
    DDSTopicDescription() = default;
    DDSTopicDescription(const DDSTopicDescription&) = delete;
    DDSTopicDescription& operator=(const DDSTopicDescription&) = delete;
};

/// Tells of what happens to a topic. Nothing does so far: the class is there so that `create_topic` has its usual form.
class NORVANE_EXPORT DDSTopicListener {
public:
    virtual ~DDSTopicListener();
};

/// A topic: samples of one type under one name.
class NORVANE_EXPORT DDSTopic : public DDSTopicDescription, public DDSEntity {
public:
    /// @return the description as a topic; null when it is null or something else.
    static DDSTopic* narrow(DDSTopicDescription* description);
    virtual DDS_ReturnCode_t get_qos(DDS_TopicQos& qos) = 0;
};

/// A topic seen through a filter. Readers can be made from it, writers cannot.
class NORVANE_EXPORT DDSContentFilteredTopic : public DDSTopicDescription {
public:
    /// @return the description as a content-filtered topic; null when it is null or something else.
    static DDSContentFilteredTopic* narrow(DDSTopicDescription* description);
    /// @return the topic that is filtered.
    virtual DDSTopic* get_related_topic() = 0;
    /// @return the filter's text; never null; lives as long as the object.
    virtual const char* get_filter_expression() = 0;
    /// Copies the filter's parameters.
    virtual DDS_ReturnCode_t get_expression_parameters(DDS_StringSeq& parameters) = 0;
};

#endif
