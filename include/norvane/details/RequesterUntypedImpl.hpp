// SPDX-License-Identifier: Apache-2.0
// The untyped core of a requester: writes requests, reads only the replies to its own, and tells them apart by request.
#ifndef NORVANE_DETAILS_REQUESTERUNTYPEDIMPL_HPP
#define NORVANE_DETAILS_REQUESTERUNTYPEDIMPL_HPP

#include <cstddef>

#include "norvane/RequesterParams.hpp"
#include "norvane/details/EntityUntypedImpl.hpp"
#include "norvane/details/FastObjectPool.hpp"

namespace norvane {
namespace details {

/// Index of the reply reader that keys replies by the number of their request. Made by the requester, named by each keyed
/// condition.
inline constexpr const char* CORRELATION_INDEX_NAME = "RequestReplyIndex";

/// Makes the content-filtered topic that passes only replies to one request writer.
class NORVANE_EXPORT CorrelationCFTBuilder {
public:
    static const char* const GUID_FIELD_NAME;
    static const int GUID_SIZE = 16;
    static const std::size_t MAX_TOPIC_NAME_LENGTH = 190;

    /// @param participant, topic  not null. @param correlation_guid  the request writer's virtual GUID.
    /// @return the content-filtered topic; the caller's to delete.
    /// @throws PreconditionNotMetException  an argument is null.
    /// @throws BadParameterException        the topic's name is longer than MAX_TOPIC_NAME_LENGTH.
    /// @throws RuntimeException             the middleware refused it.
    DDSContentFilteredTopic* create_correlation_cft(DDSDomainParticipant* participant, DDSTopic* topic,
                                                    const DDS_GUID_t& correlation_guid);
};

/// Untyped requester: complete when its constructor returns.
///
/// Any number of threads may send, wait for replies and collect them at once: each wait has its own conditions, and its own wait
/// set from the pool. Construction, swap and destruction overlap with nothing.
class NORVANE_EXPORT RequesterUntypedImpl : public EntityUntypedImpl {
public:
    ~RequesterUntypedImpl() override;

    /// Supplies the request topic, and the filter over the reply topic.
    class NORVANE_EXPORT RequesterTopicBuilder : public EntityUntypedImpl::TopicBuilder {
    public:
        explicit RequesterTopicBuilder(RequesterUntypedImpl* requester);
        DDSTopic* create_writer_topic(const EntityParams& params, const char* request_type_name) override;
        DDSTopicDescription* create_reader_topic(const EntityParams& params, const char* reply_type_name) override;
        ~RequesterTopicBuilder() override;

    private:
        RequesterUntypedImpl* _requester;
    };

protected:
    /// @param sample_size         octets of one reply sample.
    /// @param isStringDataReader  whether the reply type is the built-in string.
    /// @throws as EntityUntypedImpl::initialize; the class of the middleware's code when the index could not be made;
    /// std::bad_alloc.
    RequesterUntypedImpl(const RequesterParams& params, RegisterTypeFunc register_request_type_fnc,
                         RegisterTypeFunc register_reply_type_fnc, int sample_size, bool isStringDataReader);

    /// Waits until replies to one request are available.
    ///
    /// Samples already received count. They stay in the reader, so a later take returns them all.
    /// @param max_wait            Longest time blocked, time spent reading not included. DDS_DURATION_ZERO polls;
    ///                            DDS_DURATION_INFINITE never gives up.
    /// @param min_sample_count    Replies wanted, or DDS_LENGTH_UNLIMITED to wait out the whole time.
    /// @param related_request_id  The identity that the request's write returned; only its number is looked at. Borrowed for the
    ///                            call.
    /// @return true when enough replies are there; false on time-out, which is not an error.
    /// @throws BadParameterException  the request's sequence number is automatic, zero, unknown or maximal.
    /// @throws RuntimeException       the middleware could not make a condition.
    /// @throws std::bad_alloc         no wait set could be had.
    /// @par Threads  Same object: any number of threads, for the same or different requests. Destruction must not overlap.
    /// @par Blocks   Up to max_wait.
    bool wait_for_replies(const DDS_Duration_t& max_wait, int min_sample_count, const DDS_SampleIdentity_t& related_request_id);

    /// Reads or takes replies to one request as a loan, to be given to `return_loan`.
    /// @param max_samples  at most so many; DDS_LENGTH_UNLIMITED for all.
    /// @throws as wait_for_replies, but for std::bad_alloc.
    void get_reply_loaned(void*** received_data, int* data_count, DDS_SampleInfoSeq& info_seq, DDS_Long max_samples,
                          const DDS_SampleIdentity_t& related_request_id, bool take);

    /// @return a condition on the replies to one request; to be deleted through the reader.
    DDSReadCondition* create_correlation_condition(DDS_SampleStateMask state_kind, const DDS_SequenceNumber_t& sequence_number);

    FastObjectPool<DDSWaitSet>* waitset_pool;  // owned
};

/// Exchanges the entities of two requesters. Each keeps its own pool of wait sets: they are alike.
NORVANE_EXPORT void swap(RequesterUntypedImpl& a, RequesterUntypedImpl& b);

}  // namespace details
}  // namespace norvane

#endif
