// SPDX-License-Identifier: Apache-2.0
// Data readers: the untyped read through a condition, loans, the named index, interruption, and open keys.
#ifndef NORVANE_DDS_DATAREADER_HPP
#define NORVANE_DDS_DATAREADER_HPP

#include "norvane/dds/Condition.hpp"
#include "norvane/dds/SampleInfo.hpp"
#include "norvane/dds/Status.hpp"
#include "norvane/dds/Topic.hpp"
#include "norvane/export.hpp"

class DDSDataReader;
class DDSSubscriber;

/// The record behind a data reader, as the untyped read knows it.
struct NORVANE_EXPORT DDS_DataReader {
    virtual ~DDS_DataReader();
    virtual DDS_ReturnCode_t read_or_take_w_condition_untyped(DDS_Boolean* is_loan, void*** received_data, int* data_count,
                                                              DDS_SampleInfoSeq& info_seq, DDS_Long data_seq_len,
                                                              DDS_Long data_seq_max_len, DDS_Boolean data_seq_has_ownership,
                                                              void* reserved, int sample_size, DDS_Long max_samples,
                                                              DDS_ReadCondition* condition, DDS_Boolean take) = 0;
    virtual DDS_ReturnCode_t return_loan_untyped(void** received_data, DDS_SampleInfoSeq& info_seq) = 0;
    /// Optional: a record that does not override it is read through a condition.
    virtual DDS_ReturnCode_t read_or_take_index_key_untyped(void*** received_data, int* data_count, DDS_SampleInfoSeq& info_seq,
                                                            int sample_size, DDS_Long max_samples, const char* index_name,
                                                            const DDS_SequenceNumber_t& key, DDS_Boolean take);
};

/// Reads or takes the samples that a condition selects, as a loan.
///
/// A read leaves the samples in the reader and marks them read; a take removes them. Samples come in the order in which they
/// were received. The samples are shared and immutable: a loan gives access, not a copy.
/// @param reader                  not null.
/// @param is_loan                 set to true when samples were lent. Not null.
/// @param received_data           gets the array of pointers to samples. Not null; the reader's until the loan is returned.
/// @param data_count              gets the number of samples; 0 when there are none. Not null.
/// @param info_seq                gets the infos, as a loan. An owning sequence without memory (maximum 0).
/// @param data_seq_len, data_seq_max_len, data_seq_has_ownership  state of the caller's data sequence; only 0, 0, true (an
///                                empty one) is accepted: the reader lends, and never copies into the caller's buffer.
/// @param reserved                null.
/// @param sample_size             octets of one sample; must be the size of the reader's type.
/// @param max_samples             at most so many; DDS_LENGTH_UNLIMITED for all. 0 and other negative counts find nothing. A take
///                                is bounded by `max_samples_per_read` of the reader's QoS besides.
/// @param condition               a live condition of this reader. Not null.
/// @param take                    whether to take.
/// @return DDS_RETCODE_OK with at least one sample; DDS_RETCODE_NO_DATA; DDS_RETCODE_BAD_PARAMETER for a null argument, another
///         reader's condition, or another sample size; DDS_RETCODE_PRECONDITION_NOT_MET when `info_seq` holds memory or a loan, or
///         the data sequence is not empty; DDS_RETCODE_ALREADY_DELETED for a deleted condition or reader;
///         DDS_RETCODE_OUT_OF_RESOURCES.
/// @par Threads  Same reader: any.
/// @par Blocks   Never.
NORVANE_EXPORT DDS_ReturnCode_t DDS_DataReader_read_or_take_w_condition_untypedI(
    DDS_DataReader* reader, DDS_Boolean* is_loan, void*** received_data, int* data_count, DDS_SampleInfoSeq& info_seq,
    DDS_Long data_seq_len, DDS_Long data_seq_max_len, DDS_Boolean data_seq_has_ownership, void* reserved, int sample_size,
    DDS_Long max_samples, DDS_ReadCondition* condition, DDS_Boolean take);

/// Reads or takes the samples of one index key in any state, as a loan, without a condition for it.
/// @param index_name  of an index of the reader. @param key  sequence number of the related identity.
/// @param others      as those of DDS_DataReader_read_or_take_w_condition_untypedI.
/// @return as that function; DDS_RETCODE_BAD_PARAMETER also when there is no such index; DDS_RETCODE_UNSUPPORTED from a record that
///         can only be read through conditions.
/// @par Threads  Same reader: any.
/// @par Blocks   Never.
NORVANE_EXPORT DDS_ReturnCode_t DDS_DataReader_read_or_take_index_key_untypedI(DDS_DataReader* reader, void*** received_data,
                                                                               int* data_count, DDS_SampleInfoSeq& info_seq,
                                                                               int sample_size, DDS_Long max_samples,
                                                                               const char* index_name,
                                                                               const DDS_SequenceNumber_t& key, DDS_Boolean take);

/// Returns a loan. Any number may be out at once, and they come back in any order, from any thread.
/// @param received_data, info_seq  as the read gave them. Afterwards `info_seq` is empty and owning.
/// @return DDS_RETCODE_OK; DDS_RETCODE_BAD_PARAMETER for null; DDS_RETCODE_PRECONDITION_NOT_MET for what this reader has not lent,
///         or has back already: nothing changes then.
/// @par Blocks  Never.
NORVANE_EXPORT DDS_ReturnCode_t DDS_DataReader_return_loan_untypedI(DDS_DataReader* reader, void** received_data,
                                                                    DDS_SampleInfoSeq& info_seq);

/// Notified of what happens to a reader. Called without any lock of ours held, by one thread at a time for one reader: what arrives
/// meanwhile makes that thread call it once more. A listener may read, write, and create and delete other entities.
/// An exception that leaves a listener is caught, logged and counted.
class NORVANE_EXPORT DDSDataReaderListener {
public:
    virtual ~DDSDataReaderListener();
    virtual void on_data_available(DDSDataReader* reader);
    virtual void on_subscription_matched(DDSDataReader* reader, const DDS_SubscriptionMatchedStatus& status);
    virtual void on_requested_incompatible_qos(DDSDataReader* reader, const DDS_RequestedIncompatibleQosStatus& status);
    virtual void on_incompatible_type(DDSDataReader* reader, const DDS_IncompatibleTypeStatus& status);
    virtual void on_sample_lost(DDSDataReader* reader, const DDS_SampleLostStatus& status);
};

/// Receives the samples of one topic, and keeps them until they are taken.
///
/// Deleting a reader that has loans out closes it; the object goes with its last loan, and may be used until then to return them.
/// @par Threads  Same reader: any operation from any thread. Deletion must not overlap with another operation, except for the
///               return of loans and the delivery of samples.
class NORVANE_EXPORT DDSDataReader : public DDSEntity {
public:
    virtual DDSTopicDescription* get_topicdescription() = 0;
    virtual DDSSubscriber* get_subscriber() = 0;
    /// @return DDS_RETCODE_OK with the QoS in force: an automatic virtual GUID is resolved.
    virtual DDS_ReturnCode_t get_qos(DDS_DataReaderQos& qos) = 0;
    /// @return the record for the untyped read; not null.
    virtual DDS_DataReader* get_c_datareader() = 0;

    /// Makes a condition on the whole reader.
    /// @return the condition, to be deleted with `delete_readcondition`; null when memory is short or the reader is deleted.
    virtual DDSReadCondition* create_readcondition(DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                                                   DDS_InstanceStateMask instance_states) = 0;
    /// Deletes a condition and detaches it from every wait set.
    /// @return DDS_RETCODE_OK; DDS_RETCODE_BAD_PARAMETER for null; DDS_RETCODE_PRECONDITION_NOT_MET for another reader's condition;
    ///         DDS_RETCODE_ALREADY_DELETED for one that was deleted before.
    virtual DDS_ReturnCode_t delete_readcondition(DDSReadCondition* condition) = 0;

    /// Makes an index: samples can then be selected by the sequence number of their related identity at a cost that does not depend
    /// on what else the reader holds. What is there already is indexed as well.
    /// @param index_name  not null, not empty; copied.
    /// @return DDS_RETCODE_OK; DDS_RETCODE_BAD_PARAMETER; DDS_RETCODE_PRECONDITION_NOT_MET when there is an index of that name;
    ///         DDS_RETCODE_OUT_OF_RESOURCES when memory is short.
    virtual DDS_ReturnCode_t create_index(const char* index_name) = 0;
    /// Makes a condition on the samples of one index key.
    /// @param key  only `related_original_publication_virtual_sequence_number` is looked at.
    /// @return the condition, to be deleted with `delete_readcondition`; null when there is no such index, or memory is short.
    virtual DDSReadCondition* create_index_condition(DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                                                     DDS_InstanceStateMask instance_states, const char* index_name,
                                                     const DDS_SampleInfo& key) = 0;

    /// Interrupts the reader: running and future waits on any of its conditions return `code`.
    /// @param code  what the waits return; DDS_RETCODE_OK ends the interruption.
    virtual DDS_ReturnCode_t interrupt(DDS_ReturnCode_t code) = 0;
    /// Interrupts one index key: running and future waits on its conditions return `code`.
    /// The interruption is kept until it is ended with DDS_RETCODE_OK or the key is closed.
    /// @return DDS_RETCODE_OK; DDS_RETCODE_BAD_PARAMETER when there is no such index; DDS_RETCODE_OUT_OF_RESOURCES.
    virtual DDS_ReturnCode_t interrupt_index_key(const char* index_name, const DDS_SequenceNumber_t& key,
                                                 DDS_ReturnCode_t code) = 0;

    /// Admits samples for open keys only (true), or all samples (false, as at start).
    ///
    /// A sample for a closed key is dropped and counted before it takes room. A key that was neither opened nor closed, and above
    /// every key that can be told to be over, counts as open, since a sample may arrive before its key is opened.
    /// A reader whose filter selects the answers to one writer of the participant drops, besides, what answers a number that this
    /// writer has not given yet, and what names no number. Other samples without a related identity are not looked at.
    virtual DDS_ReturnCode_t admit_open_keys_only(const char* index_name, DDS_Boolean open_only) = 0;
    /// Opens a key: its samples are admitted until it is closed.
    virtual DDS_ReturnCode_t open_index_key(const char* index_name, const DDS_SequenceNumber_t& key) = 0;
    /// Closes a key. Its samples that were not taken are dropped and counted.
    virtual DDS_ReturnCode_t close_index_key(const char* index_name, const DDS_SequenceNumber_t& key) = 0;

    /// Leaves the domain for good, before the reader is deleted: writers see it go, and nothing is received any more. What was
    /// received can still be read and taken. May overlap with every other operation but deletion.
    /// @return DDS_RETCODE_OK, also when it has left already; DDS_RETCODE_PRECONDITION_NOT_MET from inside its listener.
    /// @par Blocks  While its listener runs.
    virtual DDS_ReturnCode_t leave_domain() = 0;

    /// Replaces the listener; null for none. Returns when the old one is not running any more.
    /// @return DDS_RETCODE_OK; DDS_RETCODE_PRECONDITION_NOT_MET from inside the listener.
    virtual DDS_ReturnCode_t set_listener(DDSDataReaderListener* listener, DDS_StatusMask mask) = 0;
    virtual DDSDataReaderListener* get_listener() = 0;

    /// Getting a status resets its changes and its bit in `get_status_changes`.
    virtual DDS_ReturnCode_t get_subscription_matched_status(DDS_SubscriptionMatchedStatus& status) = 0;
    virtual DDS_ReturnCode_t get_requested_incompatible_qos_status(DDS_RequestedIncompatibleQosStatus& status) = 0;
    virtual DDS_ReturnCode_t get_incompatible_type_status(DDS_IncompatibleTypeStatus& status) = 0;
    virtual DDS_ReturnCode_t get_sample_lost_status(DDS_SampleLostStatus& status) = 0;
    virtual DDS_ReturnCode_t get_counts(DDS_DataReaderCounts& counts) = 0;

    /// Lists the matched writers.
    virtual DDS_ReturnCode_t get_matched_publications(DDS_InstanceHandleSeq& handles) = 0;
    /// @return DDS_RETCODE_OK; DDS_RETCODE_BAD_PARAMETER when no matched writer has that handle; DDS_RETCODE_OUT_OF_RESOURCES.
    virtual DDS_ReturnCode_t get_matched_publication_data(DDS_PublicationBuiltinTopicData& data,
                                                          const DDS_InstanceHandle_t& handle) = 0;
};

/// Reader of the built-in string type.
class NORVANE_EXPORT DDSStringDataReader : public DDSDataReader {
public:
    /// @return the reader as a string reader; null when it is null or of another type.
    static DDSStringDataReader* narrow(DDSDataReader* reader);

    /// Reads, as a loan, at most `max_samples` of the samples in the given states. Both sequences: owning, maximum 0.
    /// @return as DDS_DataReader_read_or_take_w_condition_untypedI.
    virtual DDS_ReturnCode_t read(DDS_StringSeq& received_data, DDS_SampleInfoSeq& info_seq, DDS_Long max_samples,
                                  DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                                  DDS_InstanceStateMask instance_states) = 0;
    /// Takes, as a loan. Else as `read`.
    virtual DDS_ReturnCode_t take(DDS_StringSeq& received_data, DDS_SampleInfoSeq& info_seq, DDS_Long max_samples,
                                  DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                                  DDS_InstanceStateMask instance_states) = 0;
    /// Returns a loan: both sequences are empty and owning afterwards.
    /// @return as DDS_DataReader_return_loan_untypedI.
    virtual DDS_ReturnCode_t return_loan(DDS_StringSeq& received_data, DDS_SampleInfoSeq& info_seq) = 0;
};

#endif
