// SPDX-License-Identifier: Apache-2.0
// Subscribers: groups of data readers.
#ifndef NORVANE_DDS_SUBSCRIBER_HPP
#define NORVANE_DDS_SUBSCRIBER_HPP

#include "norvane/dds/DataReader.hpp"

class DDSDomainParticipant;

/// Tells of what happens to a subscriber. Nothing does so far.
class NORVANE_EXPORT DDSSubscriberListener {
public:
    virtual ~DDSSubscriberListener();
};

/// Makes data readers, and owns them.
/// @par Threads  Any operation from any thread.
class NORVANE_EXPORT DDSSubscriber : public DDSEntity {
public:
    virtual DDSDomainParticipant* get_participant() = 0;
    virtual DDS_ReturnCode_t get_qos(DDS_SubscriberQos& qos) = 0;

    /// Makes a data reader.
    /// @param topic     a topic or content-filtered topic of the same participant.
    /// @param qos       DDS_DATAREADER_QOS_DEFAULT means the default of the participant.
    /// @param listener  borrowed until replaced or the reader is deleted; null for none.
    /// @param mask      statuses that the listener is called for.
    /// @return the reader, to be deleted with `delete_datareader`; null when an argument is refused (the log says which).
    virtual DDSDataReader* create_datareader(DDSTopicDescription* topic, const DDS_DataReaderQos& qos,
                                             DDSDataReaderListener* listener, DDS_StatusMask mask) = 0;
    /// Deletes a data reader; one with loans out is closed, and goes with its last loan.
    /// @return DDS_RETCODE_OK; DDS_RETCODE_BAD_PARAMETER for null; DDS_RETCODE_PRECONDITION_NOT_MET for a reader of another
    ///         subscriber, one that still has conditions, or from inside the reader's listener.
    /// @par Blocks  While the reader's listener runs on another thread.
    virtual DDS_ReturnCode_t delete_datareader(DDSDataReader* reader) = 0;
};

#endif
