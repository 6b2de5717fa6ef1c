// SPDX-License-Identifier: Apache-2.0
// Data writers, and the untyped write.
#ifndef NORVANE_DDS_DATAWRITER_HPP
#define NORVANE_DDS_DATAWRITER_HPP

#include "norvane/dds/Status.hpp"
#include "norvane/dds/Topic.hpp"
#include "norvane/dds/WriteParams.hpp"
#include "norvane/export.hpp"

class DDSDataWriter;
class DDSPublisher;

/// The record behind a data writer, as the untyped write knows it.
struct NORVANE_EXPORT DDS_DataWriter {
    virtual ~DDS_DataWriter();
    virtual DDS_ReturnCode_t write_w_params_untyped_general(void* reserved, const void* data, DDS_WriteParams_t& params) = 0;
};

/// Writes one sample with parameters.
/// @param writer    not null.
/// @param reserved  null.
/// @param data      one sample of the writer's type; borrowed for the call.
/// @param params    see DDS_WriteParams_t; `identity` gets the assigned identity.
/// @return DDS_RETCODE_OK; DDS_RETCODE_BAD_PARAMETER for null or an identity that is not this writer's to use;
///         DDS_RETCODE_UNSUPPORTED for a sequence number that is not automatic, on an engine that assigns them all;
///         DDS_RETCODE_TIMEOUT when there was no room within the reliability policy's `max_blocking_time`;
///         DDS_RETCODE_OUT_OF_RESOURCES when memory is short or the sample cannot be copied; DDS_RETCODE_ALREADY_DELETED when the
///         writer is deleted meanwhile. A write that fails stores nothing and uses up no number.
/// @par Threads  Same writer: any; distinct `params`.
/// @par Blocks   Up to `max_blocking_time`; never inside a listener.
NORVANE_EXPORT DDS_ReturnCode_t DDS_DataWriter_write_w_params_untyped_generalI(DDS_DataWriter* writer, void* reserved,
                                                                               const void* data, DDS_WriteParams_t& params);

/// Notified of what happens to a writer. Called without any lock of ours held, by one thread at a time for one writer.
/// An exception that leaves a listener is caught, logged and counted.
class NORVANE_EXPORT DDSDataWriterListener {
public:
    virtual ~DDSDataWriterListener();
    virtual void on_publication_matched(DDSDataWriter* writer, const DDS_PublicationMatchedStatus& status);
    virtual void on_offered_incompatible_qos(DDSDataWriter* writer, const DDS_OfferedIncompatibleQosStatus& status);
    virtual void on_incompatible_type(DDSDataWriter* writer, const DDS_IncompatibleTypeStatus& status);
};

/// Writes samples of one type on one topic.
/// @par Threads  Same writer: any operation from any thread. Deletion must not overlap with another operation.
class NORVANE_EXPORT DDSDataWriter : public DDSEntity {
public:
    virtual DDSTopic* get_topic() = 0;
    virtual DDSPublisher* get_publisher() = 0;
    /// @return DDS_RETCODE_OK with the QoS in force: an automatic virtual GUID is resolved.
    virtual DDS_ReturnCode_t get_qos(DDS_DataWriterQos& qos) = 0;
    /// @return the record for the untyped write; not null.
    virtual DDS_DataWriter* get_c_datawriter() = 0;

    /// Replaces the listener; null for none. Returns when the old one is not running any more.
    /// @return DDS_RETCODE_OK; DDS_RETCODE_PRECONDITION_NOT_MET from inside the listener.
    virtual DDS_ReturnCode_t set_listener(DDSDataWriterListener* listener, DDS_StatusMask mask) = 0;
    virtual DDSDataWriterListener* get_listener() = 0;

    /// Getting a status resets its changes and its bit in `get_status_changes`.
    virtual DDS_ReturnCode_t get_publication_matched_status(DDS_PublicationMatchedStatus& status) = 0;
    virtual DDS_ReturnCode_t get_offered_incompatible_qos_status(DDS_OfferedIncompatibleQosStatus& status) = 0;
    virtual DDS_ReturnCode_t get_incompatible_type_status(DDS_IncompatibleTypeStatus& status) = 0;
    virtual DDS_ReturnCode_t get_counts(DDS_DataWriterCounts& counts) = 0;

    /// Lists the matched readers.
    virtual DDS_ReturnCode_t get_matched_subscriptions(DDS_InstanceHandleSeq& handles) = 0;
    /// @return DDS_RETCODE_OK; DDS_RETCODE_BAD_PARAMETER when no matched reader has that handle; DDS_RETCODE_OUT_OF_RESOURCES.
    virtual DDS_ReturnCode_t get_matched_subscription_data(DDS_SubscriptionBuiltinTopicData& data,
                                                           const DDS_InstanceHandle_t& handle) = 0;

    /// Waits until every reliable reader has every sample written so far, or is gone.
    /// @param max_wait  zero looks once; infinite never gives up.
    /// @return DDS_RETCODE_OK; DDS_RETCODE_TIMEOUT. On the embedded engine at once: a write that returned has delivered.
    virtual DDS_ReturnCode_t wait_for_acknowledgments(const DDS_Duration_t& max_wait) = 0;

    /// Leaves the domain for good, before the writer is deleted: readers see it go; blocked and later writes, and waits for
    /// acknowledgments, return DDS_RETCODE_ALREADY_DELETED. May overlap with every other operation but deletion.
    /// @return DDS_RETCODE_OK, also when it has left already; DDS_RETCODE_PRECONDITION_NOT_MET from inside its listener.
    /// @par Blocks  While its listener runs.
    virtual DDS_ReturnCode_t leave_domain() = 0;
};

#endif
