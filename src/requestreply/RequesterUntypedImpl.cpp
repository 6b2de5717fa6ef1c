// SPDX-License-Identifier: Apache-2.0
// The requester: the filter that passes only its replies, the index that tells them apart by request, and the pool of wait sets.
#include "norvane/details/RequesterUntypedImpl.hpp"

#include "UntypedCommon.pkg.hpp"
#include "norvane/details/guid_text.hpp"
#include "norvane/details/precondition.hpp"
#include "norvane/details/topic_names.hpp"

namespace norvane {
namespace details {

// ---- the filter -----------------------------------------------------------------------------------------------------------------

const char* const CorrelationCFTBuilder::GUID_FIELD_NAME = "@related_sample_identity.writer_guid.value";
const int CorrelationCFTBuilder::GUID_SIZE;
const std::size_t CorrelationCFTBuilder::MAX_TOPIC_NAME_LENGTH;

DDSContentFilteredTopic* CorrelationCFTBuilder::create_correlation_cft(DDSDomainParticipant* participant, DDSTopic* topic,
                                                                       const DDS_GUID_t& correlation_guid) {
    const char* const METHOD_NAME = "CorrelationCFTBuilder::create_correlation_cft";
    static_assert(sizeof correlation_guid.value == GUID_SIZE, "a GUID is written octet by octet");
    NORVANE_CHECK_PRECONDITION(participant != NULL, "create_correlation_cft");
    NORVANE_CHECK_PRECONDITION(topic != NULL, "create_correlation_cft");
    const std::string topic_name = topic->get_name();
    if (topic_name.length() > MAX_TOPIC_NAME_LENGTH) {
        check_retcode(DDS_RETCODE_BAD_PARAMETER, METHOD_NAME, DDS_LOG_BAD_PARAMETER_s, "topic name is too long: " + topic_name,
                      false);
    }
    std::string filtered_name = topic_name + "_";
    append_guid_text(filtered_name, correlation_guid);
    std::string filter = std::string(GUID_FIELD_NAME) + " = &hex(";
    append_guid_text(filter, correlation_guid);
    filter += ")";

    DDSContentFilteredTopic* created =
        participant->create_contentfilteredtopic(filtered_name.c_str(), topic, filter.c_str(), DDS_StringSeq());
    if (created == nullptr) {
        check_retcode(DDS_RETCODE_ERROR, METHOD_NAME, VOST_LOG_CREATE_s, "content-filtered topic for topic " + topic_name, false);
    }
    return created;
}

// ---- topics ---------------------------------------------------------------------------------------------------------------------

RequesterUntypedImpl::RequesterTopicBuilder::RequesterTopicBuilder(RequesterUntypedImpl* requester) : _requester(requester) {}

RequesterUntypedImpl::RequesterTopicBuilder::~RequesterTopicBuilder() = default;

DDSTopic* RequesterUntypedImpl::RequesterTopicBuilder::create_writer_topic(const EntityParams& params,
                                                                           const char* request_type_name) {
    const std::string name = !params.request_topic_name().empty()
                                 ? params.request_topic_name()
                                 : create_request_topic_name_from_service_name(params.service_name());
    return DDSTopic::narrow(get_or_create_topic(_requester->_participant, name.c_str(), request_type_name, false));
}

DDSTopicDescription* RequesterUntypedImpl::RequesterTopicBuilder::create_reader_topic(const EntityParams& params,
                                                                                      const char* reply_type_name) {
    const std::string name = !params.reply_topic_name().empty() ? params.reply_topic_name()
                                                                : create_reply_topic_name_from_service_name(params.service_name());
    DDSTopic* topic = DDSTopic::narrow(get_or_create_topic(_requester->_participant, name.c_str(), reply_type_name, false));
    NORVANE_CHECK_PRECONDITION(topic != NULL, "create_reader_topic");

    // The GUID is checked, not the code of get_qos. A filter on a GUID that no request carries would silently pass no reply; one on
    // the unknown GUID would pass samples that answer no request.
    DDS_DataWriterQos writer_qos;
    _requester->get_datawriter()->get_qos(writer_qos);
    const DDS_GUID_t& guid = writer_qos.protocol.virtual_guid;
    if (guid == DDS_GUID_AUTO || guid == DDS_GUID_UNKNOWN) {
        check_retcode(DDS_RETCODE_ERROR, "RequesterTopicBuilder::create_reader_topic", VOST_LOG_GET_FAILURE_s,
                      "DataWriter virtual guid", false);
    }
    return CorrelationCFTBuilder().create_correlation_cft(_requester->_participant, topic, guid);
}

namespace {

// Remembers the name of the filter, so that the constructor can delete it when no reader was created for it. The name's memory was
// reserved beforehand: nothing may fail between creating the filter and remembering it.
class RememberingTopicBuilder : public RequesterUntypedImpl::RequesterTopicBuilder {
public:
    explicit RememberingTopicBuilder(RequesterUntypedImpl* requester) : RequesterTopicBuilder(requester) {
        _filter_name.reserve(CorrelationCFTBuilder::MAX_TOPIC_NAME_LENGTH + 1 + GUID_TEXT_LENGTH);
    }
    DDSTopicDescription* create_reader_topic(const EntityParams& params, const char* reply_type_name) override {
        DDSTopicDescription* filter = RequesterTopicBuilder::create_reader_topic(params, reply_type_name);
        _filter_name = filter->get_name();
        return filter;
    }
    const std::string& filter_name() const { return _filter_name; }

private:
    std::string _filter_name;
};

constexpr PALUFastBufferPoolProperty WAITSET_POOL_PROPERTY = {{2, -1, -1}, 0, 0, 0, 0};

}  // namespace

// ---- life -----------------------------------------------------------------------------------------------------------------------

RequesterUntypedImpl::RequesterUntypedImpl(const RequesterParams& params, RegisterTypeFunc register_request_type_fnc,
                                           RegisterTypeFunc register_reply_type_fnc, int sample_size, bool isStringDataReader)
    : EntityUntypedImpl(true), waitset_pool(nullptr) {
    RememberingTopicBuilder builder(this);
    try {
        initialize(params, register_request_type_fnc, register_reply_type_fnc, sample_size, builder, nullptr, isStringDataReader,
                   "Requester");
    } catch (...) {
        // The entity core deletes the filter with its reader. Without a reader it still exists. It is looked up by name, since the
        // core does not report whether there was a reader, and may have deleted both by now.
        if (get_datareader() == nullptr && !builder.filter_name().empty()) {
            DDSContentFilteredTopic* filter =
                DDSContentFilteredTopic::narrow(_participant->lookup_topicdescription(builder.filter_name().c_str()));
            if (filter != nullptr && _participant->delete_contentfilteredtopic(filter) != DDS_RETCODE_OK) {
                log_line(LOG_ERROR, "RequesterUntypedImpl", VOST_LOG_DESTRUCTION_FAILURE_s, "content-filtered topic");
            }
        }
        throw;
    }
    // After a failure from here on, the destructor of the entity core deletes the entities: reader and filter are in place.
    check_code(get_datareader()->create_index(CORRELATION_INDEX_NAME), "RequesterUntypedImpl", VOST_LOG_CREATION_FAILURE_s,
               "correlation index");
    PALUFastBufferPoolProperty property = WAITSET_POOL_PROPERTY;
    property.multiThreadedAccess = 1;
    waitset_pool = new FastObjectPool<DDSWaitSet>(property);
}

RequesterUntypedImpl::~RequesterUntypedImpl() { delete waitset_pool; }

void swap(RequesterUntypedImpl& a, RequesterUntypedImpl& b) { a.swap(b); }

// ---- replies to one request -----------------------------------------------------------------------------------------------------

namespace {

void check_request_number(const DDS_SequenceNumber_t& sequence_number) {
    if (sequence_number == DDS_AUTO_SEQUENCE_NUMBER || sequence_number == DDS::SEQUENCE_NUMBER_MAX ||
        sequence_number == DDS::SEQUENCE_NUMBER_ZERO || sequence_number == DDS::SEQUENCE_NUMBER_UNKNOWN) {
        check_retcode(DDS_RETCODE_BAD_PARAMETER, "RequesterUntypedImpl::create_correlation_condition", DDS_LOG_BAD_PARAMETER_s,
                      "sample identity", false);
    }
}

}  // namespace

DDSReadCondition* RequesterUntypedImpl::create_correlation_condition(DDS_SampleStateMask state_kind,
                                                                     const DDS_SequenceNumber_t& sequence_number) {
    const char* const METHOD_NAME = "RequesterUntypedImpl::create_correlation_condition";
    check_request_number(sequence_number);
    DDS_SampleInfo key;
    key.related_original_publication_virtual_sequence_number = sequence_number;
    DDSReadCondition* condition = get_datareader()->create_index_condition(state_kind, DDS_ANY_VIEW_STATE, DDS_ANY_INSTANCE_STATE,
                                                                           CORRELATION_INDEX_NAME, key);
    if (condition == nullptr) {
        check_retcode(DDS_RETCODE_ERROR, METHOD_NAME, VOST_LOG_CREATION_FAILURE_s, "correlation condition", false);
    }
    return condition;
}

bool RequesterUntypedImpl::wait_for_replies(const DDS_Duration_t& max_wait, int min_sample_count,
                                            const DDS_SampleIdentity_t& related_request_id) {
    // Declared in this order so that both conditions are deleted, and thereby detached, before the wait set returns to the pool,
    // where another thread can take it.
    PoolAutoPtr<DDSWaitSet> waitset(waitset_pool->get_auto_ptr());
    ScopedReadCondition correlation_condition(
        create_correlation_condition(DDS_NOT_READ_SAMPLE_STATE, related_request_id.sequence_number));
    ScopedReadCondition initial_condition(create_correlation_condition(DDS_ANY_SAMPLE_STATE, related_request_id.sequence_number));
    waitset->attach_condition(correlation_condition.get());
    return wait_for_samples(max_wait, min_sample_count, *waitset, initial_condition.get(), correlation_condition.get());
}

void RequesterUntypedImpl::get_reply_loaned(void*** received_data, int* data_count, DDS_SampleInfoSeq& info_seq,
                                            DDS_Long max_samples, const DDS_SampleIdentity_t& related_request_id, bool take) {
    check_request_number(related_request_id.sequence_number);
    if (received_data != nullptr && data_count != nullptr && (max_samples >= 0 || max_samples == DDS_LENGTH_UNLIMITED)) {
        const DDS_ReturnCode_t retcode = DDS_DataReader_read_or_take_index_key_untypedI(
            get_datareader()->get_c_datareader(), received_data, data_count, info_seq, _sample_size, max_samples,
            CORRELATION_INDEX_NAME, related_request_id.sequence_number, take ? DDS_BOOLEAN_TRUE : DDS_BOOLEAN_FALSE);
        if (retcode != DDS_RETCODE_UNSUPPORTED) {
            check_code(retcode, "EntityUntypedImpl::get_sample_loaned", VOST_LOG_ANY_FAILURE_s, "read from DataReader");
            return;
        }
    }
    // A reader that knows conditions only, and arguments that are refused.
    ScopedReadCondition correlation_condition(
        create_correlation_condition(DDS_ANY_SAMPLE_STATE, related_request_id.sequence_number));
    get_sample_loaned(received_data, data_count, info_seq, max_samples, take, correlation_condition.get());
}

}  // namespace details
}  // namespace norvane
