// SPDX-License-Identifier: Apache-2.0
// The untyped core that requester and replier share: one writer, one reader, two read conditions and a wait set.
//
// Thread rule: construction, initialisation, swap and destruction overlap with nothing. Sending: any number of threads. The
// entity's own wait set serves one waiting thread at a time.
#ifndef NORVANE_DETAILS_ENTITYUNTYPEDIMPL_HPP
#define NORVANE_DETAILS_ENTITYUNTYPEDIMPL_HPP

#include "norvane/EntityParams.hpp"
#include "norvane/Exception.hpp"
#include "norvane/dds/DomainParticipant.hpp"
#include "norvane/dds/WaitSet.hpp"
#include "norvane/export.hpp"

struct VOSTClock;

namespace norvane {
namespace details {

/// Makes every sample of an info sequence's slot invalid before it is filled: sets `valid_data` to false, touches nothing else.
NORVANE_EXPORT void init_sample_info(DDS_SampleInfo& info);

/// Builds the context line of a failed operation, logs it, and rethrows or returns it.
///
/// The line is the class name, "(writer topic, reader topic)" when both are known, "::", the function name and " failure". A reader
/// on a content-filtered topic is named by the topic that is filtered.
/// @param datawriter, datareader  may be null.
/// @param rethrow  true: rethrows `ex` with the line in front, never returns.
NORVANE_EXPORT std::string log_and_rethrow_conditional(DDSDataWriter* datawriter, DDSDataReader* datareader, const Rethrowable& ex,
                                                       const char* class_name, const char* function_name, bool rethrow);

class NORVANE_EXPORT EntityUntypedImpl {
public:
    /// Registers a type with a participant. The type support may be null. Returns the registered name, null on failure.
    typedef const char* (*RegisterTypeFunc)(DDSTypeSupport* type_support, DDSDomainParticipant* participant);

    /// Supplies a role's two topics during initialisation. What it throws should derive from Rethrowable.
    class NORVANE_EXPORT TopicBuilder {
    public:
        TopicBuilder() = default;
        TopicBuilder(const TopicBuilder&) = default;
        /// @return the writer's topic; never null.
        virtual DDSTopic* create_writer_topic(const EntityParams& params, const char* type_name) = 0;
        /// Called once the writer exists.
        /// @return the reader's topic or content-filtered topic; never null.
        virtual DDSTopicDescription* create_reader_topic(const EntityParams& params, const char* type_name) = 0;
        virtual ~TopicBuilder();
    };

    static const char* const CLASS_NAME;

    EntityUntypedImpl(const EntityUntypedImpl&) = delete;
    EntityUntypedImpl& operator=(const EntityUntypedImpl&) = delete;
    virtual ~EntityUntypedImpl();

    /// Exchanges endpoints, topics, conditions and wait sets.
    void swap(EntityUntypedImpl& other);

protected:
    virtual void get_datawriter_qos(DDS_DataWriterQos& qos, const EntityParams& params, const char* topic_name,
                                    const char* role_name);
    virtual void get_datareader_qos(DDS_DataReaderQos& qos, const EntityParams& params, const char* topic_name,
                                    const char* role_name);

    /// @param delete_cft  whether `finalize` deletes the reader's content-filtered topic.
    explicit EntityUntypedImpl(bool delete_cft);

    /// Makes the endpoints. On failure deletes what it made and rethrows with context.
    /// @param sample_size      octets of one sample of the reader's type.
    /// @param reader_listener  may be null.
    /// @param role_name        "Requester" or "Replier".
    /// @throws BadParameterException        the parameters are invalid.
    /// @throws PreconditionNotMetException  a registration function is null or returned null.
    /// @throws RuntimeException             an endpoint, topic or condition could not be made.
    void initialize(const EntityParams& params, RegisterTypeFunc register_writer_type_fnc,
                    RegisterTypeFunc register_reader_type_fnc, int sample_size, TopicBuilder& topic_builder,
                    DDSDataReaderListener* reader_listener, bool isStringDataReader, const char* role_name);
    /// Deletes what `initialize` made. Idempotent; failures are logged.
    void finalize();

    DDSDataReader* get_datareader() const { return _reader; }
    DDSDataWriter* get_datawriter() const { return _writer; }

    /// Writes one sample.
    /// @param data  one sample of the writer's type.
    /// @param info  its `identity` is reset to automatic first, and afterwards holds the identity assigned. Not shared between
    ///              threads.
    /// @throws TimeoutException  no room within the writer's `max_blocking_time`.
    /// @throws the class of the middleware's code, for any other failure.
    /// @par Blocks  Up to `max_blocking_time`.
    void send_sample(const void* data, DDS_WriteParams_t& info);

    /// Waits until `min_sample_count` samples are there; counts by reading, takes nothing.
    /// @param waitset            has `condition` attached, and nothing else.
    /// @param initial_condition  selects samples in any state. @param condition  selects not-read samples.
    /// @return false when the time ran out first.
    bool wait_for_samples(const DDS_Duration_t& max_wait, int min_sample_count, DDSWaitSet& waitset,
                          DDSReadCondition* initial_condition, DDSReadCondition* condition);
    bool wait_for_any_sample(const DDS_Duration_t& max_wait, int min_sample_count);
    /// Reads at most `max_count` samples and returns the loan at once. @return how many there were.
    int touch_samples(int max_count, DDSReadCondition* read_condition);

    /// Reads or takes samples as a loan. See docs/life-of-a-request.md for the rules of the loan.
    /// @return false when there were none: nothing is lent then.
    bool get_sample_loaned(void*** received_data, int* data_count, DDS_SampleInfoSeq& info_seq, DDS_Long data_seq_len,
                           DDS_Long data_seq_max_len, DDS_Boolean data_seq_has_ownership, DDS_Long max_samples,
                           DDSReadCondition* read_condition, bool take);
    /// The same with an empty data sequence.
    /// @param max_samples     DDS_LENGTH_UNLIMITED for all; 0 finds nothing.
    /// @param read_condition  null means every sample.
    /// @throws BadParameterException  `max_samples` is negative and not DDS_LENGTH_UNLIMITED.
    bool get_sample_loaned(void*** received_data, int* data_count, DDS_SampleInfoSeq& info_seq, DDS_Long max_samples, bool take,
                           DDSReadCondition* read_condition);
    /// Waits for samples, then takes them as a loan.
    /// @return false when the time ran out first: nothing is taken, `*data_count` is 0.
    bool receive_sample_loaned(void*** received_data, int* data_count, DDS_SampleInfoSeq& info_seq, DDS_Long max_samples,
                               const DDS_Duration_t& max_wait, int min_sample_count);
    /// Checks the limits of a receive.
    /// @throws BadParameterException  the first that is violated.
    void validate(int min_count, int max_count, DDS_Duration_t max_wait) const;
    /// Returns a loan. A failure of the middleware is logged, not thrown.
    void return_loan(void** dataArray, DDS_SampleInfoSeq& info_seq);

    /// Logs the context of a failed operation of this entity and rethrows `ex` with it in front.
    [[noreturn]] void log_and_rethrow(const Rethrowable& ex, const char* class_name, const char* function_name) const;

    DDSDomainParticipant* _participant;
    DDSPublisher* _publisher;    // null: the participant makes and deletes the writer
    DDSSubscriber* _subscriber;  // null: the participant makes and deletes the reader
    DDSTopic* _writer_topic;     // shared by the whole participant; never deleted here
    DDSTopicDescription* _reader_topic;
    DDSDataWriter* _writer;  // owned
    DDSDataReader* _reader;  // owned
    DDSWaitSet _waitset;
    DDSReadCondition* _not_read_sample_cond;  // owned; attached to _waitset
    DDSReadCondition* _any_sample_cond;       // owned; not attached
    VOSTClock* _clock;
    int _sample_size;
    bool _isStringDataReader;
    DDS_Long _max_samples_per_read;
    bool _finalized;
    bool _delete_cft;
};

}  // namespace details
}  // namespace norvane

#endif
