// SPDX-License-Identifier: Apache-2.0
// Publishers: groups of data writers.
#ifndef NORVANE_DDS_PUBLISHER_HPP
#define NORVANE_DDS_PUBLISHER_HPP

#include "norvane/dds/DataWriter.hpp"

class DDSDomainParticipant;

/// Tells of what happens to a publisher. Nothing does so far.
class NORVANE_EXPORT DDSPublisherListener {
public:
    virtual ~DDSPublisherListener();
};

/// Makes data writers, and owns them.
/// @par Threads  Any operation from any thread.
class NORVANE_EXPORT DDSPublisher : public DDSEntity {
public:
    virtual DDSDomainParticipant* get_participant() = 0;
    virtual DDS_ReturnCode_t get_qos(DDS_PublisherQos& qos) = 0;

    /// Makes a data writer.
    /// @param topic     a topic of the same participant.
    /// @param qos       DDS_DATAWRITER_QOS_DEFAULT means the default of the participant.
    /// @param listener  borrowed until replaced or the writer is deleted; null for none.
    /// @param mask      statuses that the listener is called for.
    /// @return the writer, to be deleted with `delete_datawriter`; null when an argument is refused (the log says which).
    virtual DDSDataWriter* create_datawriter(DDSTopic* topic, const DDS_DataWriterQos& qos, DDSDataWriterListener* listener,
                                             DDS_StatusMask mask) = 0;
    /// Deletes a data writer. Threads that are blocked in its write return with DDS_RETCODE_ALREADY_DELETED first.
    /// @return DDS_RETCODE_OK; DDS_RETCODE_BAD_PARAMETER for null; DDS_RETCODE_PRECONDITION_NOT_MET for a writer of another
    ///         publisher, or from inside the writer's listener.
    virtual DDS_ReturnCode_t delete_datawriter(DDSDataWriter* writer) = 0;
};

#endif
