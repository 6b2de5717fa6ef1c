// SPDX-License-Identifier: Apache-2.0
// The participant factory: the one way into the middleware, and the home of QoS profiles.
#ifndef NORVANE_DDS_DOMAINPARTICIPANTFACTORY_HPP
#define NORVANE_DDS_DOMAINPARTICIPANTFACTORY_HPP

#include "norvane/dds/DomainParticipant.hpp"

/// Makes participants, and keeps QoS profiles.
///
/// A QoS library holds profiles; a profile holds writer and reader settings, each for the topics that match a topic filter.
/// @par Threads  Any operation from any thread.
class NORVANE_EXPORT DDSDomainParticipantFactory {
public:
    virtual ~DDSDomainParticipantFactory();

    /// @return the factory of this process; never null. It lives until the process ends.
    static DDSDomainParticipantFactory* get_instance();

    /// Makes a participant.
    /// @param domain_id  0 to 232.
    /// @param qos        DDS_PARTICIPANT_QOS_DEFAULT for the default. The property "norvane.engine" chooses the engine ("embedded"
    ///                   or "fastdds"), else the environment variable NORVANE_ENGINE does, else it is the embedded one.
    /// @param listener   null: no status of a participant calls it so far.
    /// @return the participant, to be deleted with `delete_participant`; null when an argument is refused or the engine is not
    ///         there (the log says which).
    virtual DDSDomainParticipant* create_participant(DDS_DomainId_t domain_id, const DDS_DomainParticipantQos& qos,
                                                     DDSDomainParticipantListener* listener, DDS_StatusMask mask) = 0;
    /// @return DDS_RETCODE_OK; DDS_RETCODE_BAD_PARAMETER for null or what this factory did not make;
    ///         DDS_RETCODE_PRECONDITION_NOT_MET while it still has entities (topics included: see
    ///         DDSDomainParticipant::delete_contained_entities).
    virtual DDS_ReturnCode_t delete_participant(DDSDomainParticipant* participant) = 0;
    /// Deletes a participant with everything in it, as soon as that is safe: at once, or, while endpoints have a holder
    /// (DDSDomainParticipant::begin_holding), together with the last of those. Until then it works as before, and the log names the
    /// endpoints. The caller must not use the participant any more, nor what it made there itself.
    ///
    /// In a child process made by fork() a participant of the parent, and each of its entities, is forgotten and not destroyed.
    ///
    /// A participant whose last entity is deleted from inside a listener stays until the process ends, since the listener's thread
    /// may be the engine's own: the log says so.
    /// @return DDS_RETCODE_OK when it is gone; DDS_RETCODE_PRECONDITION_NOT_MET when it goes later; DDS_RETCODE_BAD_PARAMETER for
    ///         null or what this factory did not make.
    virtual DDS_ReturnCode_t release_participant(DDSDomainParticipant* participant) = 0;

    /// Fills `qos` from the settings of a profile that suit a topic: of those whose topic filter matches, the one added last.
    /// @param library_name, profile_name  not null. @param topic_name  null means the settings without a topic filter.
    /// @return DDS_RETCODE_OK (the default QoS when the profile has no writer settings for the topic); DDS_RETCODE_BAD_PARAMETER
    ///         for null, an empty or malformed name, or an unknown library or profile: the log names it;
    ///         DDS_RETCODE_OUT_OF_RESOURCES.
    virtual DDS_ReturnCode_t get_datawriter_qos_from_profile_for_topic(DDS_DataWriterQos& qos, const char* library_name,
                                                                       const char* profile_name, const char* topic_name) = 0;
    virtual DDS_ReturnCode_t get_datareader_qos_from_profile_for_topic(DDS_DataReaderQos& qos, const char* library_name,
                                                                       const char* profile_name, const char* topic_name) = 0;

    /// Adds a profile, and its library when that is new. One that is there already stays as it is.
    /// @param library_name, profile_name  not null, not empty; letters, digits, "_", "-", "." and "::".
    /// @return DDS_RETCODE_OK; DDS_RETCODE_BAD_PARAMETER: the log names what is wrong; DDS_RETCODE_OUT_OF_RESOURCES.
    virtual DDS_ReturnCode_t add_qos_profile(const char* library_name, const char* profile_name) = 0;
    /// Adds writer settings to a profile.
    /// @param topic_filter  pattern of topic names ("*" any run, "?" any one character, "[abc]" one of these); null means every
    ///                      topic.
    /// @return DDS_RETCODE_OK; DDS_RETCODE_BAD_PARAMETER for an unknown library or profile; DDS_RETCODE_OUT_OF_RESOURCES.
    virtual DDS_ReturnCode_t add_datawriter_qos_to_profile(const char* library_name, const char* profile_name,
                                                           const char* topic_filter, const DDS_DataWriterQos& qos) = 0;
    virtual DDS_ReturnCode_t add_datareader_qos_to_profile(const char* library_name, const char* profile_name,
                                                           const char* topic_filter, const DDS_DataReaderQos& qos) = 0;
    /// Removes a profile; its library goes with the last one.
    /// @return DDS_RETCODE_OK; DDS_RETCODE_BAD_PARAMETER for an unknown one.
    virtual DDS_ReturnCode_t remove_qos_profile(const char* library_name, const char* profile_name) = 0;
};

#endif
