// SPDX-License-Identifier: Apache-2.0
// The untyped core: topics, endpoint QoS, life of the endpoints, sending, waiting, and loans.
//
// Nothing here takes a lock or starts a thread. A successful call allocates nothing: codes are checked before a text is built, and
// condition and info sequences start without memory.
#include "norvane/details/EntityUntypedImpl.hpp"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "UntypedCommon.pkg.hpp"
#include "norvane/dds/DomainParticipantFactory.hpp"
#include "norvane/details/precondition.hpp"
#include "norvane/details/topic_names.hpp"

ScopedReadCondition::~ScopedReadCondition() {
    if (_condition == nullptr) {
        return;
    }
    DDSDataReader* reader = _condition->get_datareader();
    if (reader != nullptr) {
        reader->delete_readcondition(_condition);
    }
}

namespace norvane {
namespace details {

// ---- reports --------------------------------------------------------------------------------------------------------------------

std::string log_and_rethrow_conditional(DDSDataWriter* datawriter, DDSDataReader* datareader, const Rethrowable& ex,
                                        const char* class_name, const char* function_name, bool rethrow) {
    const char* writer_topic_name = nullptr;
    if (datawriter != nullptr) {
        DDSTopic* topic = datawriter->get_topic();
        if (topic != nullptr) {
            writer_topic_name = topic->get_name();
        }
    }
    const char* reader_topic_name = nullptr;
    DDSTopicDescription* description = datareader != nullptr ? datareader->get_topicdescription() : nullptr;
    if (description != nullptr) {
        DDSContentFilteredTopic* filtered = DDSContentFilteredTopic::narrow(description);
        if (filtered != nullptr) {
            description = filtered->get_related_topic();
        }
        reader_topic_name = description != nullptr ? description->get_name() : nullptr;
    }

    std::string context = class_name;
    if (writer_topic_name != nullptr && reader_topic_name != nullptr) {
        context.append("(").append(writer_topic_name).append(", ").append(reader_topic_name).append(")");
    }
    context.append("::").append(function_name);
    log_line(LOG_ERROR, context.c_str(), VOST_LOG_ANY_FAILURE_s, "failed (see previous errors)");
    context.append(" failure");
    if (rethrow) {
        ex.rethrow(context);
    }
    return context;
}

void EntityUntypedImpl::log_and_rethrow(const Rethrowable& ex, const char* class_name, const char* function_name) const {
    log_and_rethrow_conditional(get_datawriter(), get_datareader(), ex, class_name, function_name, true);
    std::abort();  // not reached: the compiler cannot know that a call with `rethrow` true never returns
}

void init_sample_info(DDS_SampleInfo& info) { info.valid_data = DDS_BOOLEAN_FALSE; }

// ---- topics ---------------------------------------------------------------------------------------------------------------------

std::string create_request_topic_name_from_service_name(std::string service_name) { return service_name.append("Request"); }

std::string create_reply_topic_name_from_service_name(std::string service_name) { return service_name.append("Reply"); }

DDSTopicDescription* get_or_create_topic(DDSDomainParticipant* participant, const char* name, const char* type_name,
                                         bool allow_cft) {
    const char* const METHOD_NAME = "norvane::details::get_or_create_topic";
    DDSTopicDescription* found = participant->lookup_topicdescription(name);
    if (found != nullptr) {
        if (DDSTopic::narrow(found) == nullptr && !allow_cft) {
            check_retcode(DDS_RETCODE_PRECONDITION_NOT_MET, METHOD_NAME, VOST_LOG_PRECONDITION_FAILURE_s,
                          std::string("a content-filtered topic with the name already exists (") + name + ")", false);
        }
        return found;
    }
    DDSTopic* created = participant->create_topic(name, type_name, DDS_TOPIC_QOS_DEFAULT, nullptr, DDS_STATUS_MASK_NONE);
    if (created == nullptr) {
        check_retcode(DDS_RETCODE_ERROR, METHOD_NAME, VOST_LOG_CREATION_FAILURE_s, std::string("topic ") + name, false);
    }
    return created;
}

EntityUntypedImpl::TopicBuilder::~TopicBuilder() = default;

// ---- endpoint QoS ---------------------------------------------------------------------------------------------------------------

namespace {

const char* const NO_WRITERS_SAMPLE_PROPERTY = "dds.data_reader.history.generate_not_alive_no_writers_sample";

// A role name that the source of the QoS has set is kept.
void set_role_name(DDS_EntityNameQosPolicy& names, const char* role_name, const char* method_name) {
    if (names.role_name != nullptr) {
        return;
    }
    names.role_name = DDS_String_dup(role_name);
    if (names.role_name == nullptr) {
        check_retcode(DDS_RETCODE_ERROR, method_name, VOST_LOG_ANY_FAILURE_s, "allocate string", false);
    }
}

// Overrides the source of the QoS, which may be that of an endpoint of the other kind.
void set_awaits_replies(DDS_PropertyQosPolicy& properties, bool awaits_replies) {
    DDS_ReturnCode_t retcode = DDS_RETCODE_OK;
    if (awaits_replies) {
        retcode = DDSPropertyQosPolicyHelper::assert_property(properties, AWAITS_REPLIES_PROPERTY, "true", DDS_BOOLEAN_TRUE);
    } else if (DDSPropertyQosPolicyHelper::lookup_property(properties, AWAITS_REPLIES_PROPERTY) != nullptr) {
        retcode = DDSPropertyQosPolicyHelper::remove_property(properties, AWAITS_REPLIES_PROPERTY);
    }
    check_code(retcode, "EntityUntypedImpl::initialize", VOST_LOG_ANY_FAILURE_s, "set DataWriter qos property");
}

// A QoS that loses samples may be intended, but is usually a default-constructed record.
void report_lossy_qos(const DDS_ReliabilityQosPolicy& reliability, const DDS_HistoryQosPolicy& history, const char* endpoint,
                      const char* topic_name, const char* defaults) {
    const bool is_best_effort = reliability.kind != DDS_RELIABLE_RELIABILITY_QOS;
    const bool keeps_last = history.kind != DDS_KEEP_ALL_HISTORY_QOS;
    if ((is_best_effort || keeps_last) && log_is_on(LOG_ERROR)) {
        const std::string text =
            std::string("the ") + endpoint + " of topic \"" + topic_name + "\" is " + (is_best_effort ? "best-effort" : "") +
            (is_best_effort && keeps_last ? " and " : "") + (keeps_last ? "keep-last" : "") +
            ": samples can be lost without an error; start from norvane::" + defaults + "(), and change what has to be changed";
        log_line(LOG_ERROR, "EntityUntypedImpl::initialize", VOST_LOG_ANY_s, text.c_str());
    }
}

}  // namespace

void EntityUntypedImpl::get_datawriter_qos(DDS_DataWriterQos& qos, const EntityParams& params, const char* topic_name,
                                           const char* role_name) {
    const char* const METHOD_NAME = "EntityUntypedImpl::get_datawriter_qos";
    NORVANE_CHECK_PRECONDITION(topic_name != NULL, "get_datawriter_qos");

    DDS_ReturnCode_t retcode;
    if (params.datawriter_qos() != nullptr) {
        retcode = DDS_DataWriterQos_copy(&qos, params.datawriter_qos());
    } else if (!params.qos_library_name().empty()) {
        NORVANE_CHECK_PRECONDITION(params.qos_profile_name() != "", "get_datawriter_qos");
        retcode = DDSDomainParticipantFactory::get_instance()->get_datawriter_qos_from_profile_for_topic(
            qos, params.qos_library_name().c_str(), params.qos_profile_name().c_str(), topic_name);
    } else {
        retcode = _participant->get_default_datawriter_qos_for_topic(qos, topic_name);
        set_request_reply_defaults(qos);
    }
    set_role_name(qos.publication_name, role_name, METHOD_NAME);
    check_code(retcode, METHOD_NAME, VOST_LOG_GET_FAILURE_s, "DataWriter qos");
}

void EntityUntypedImpl::get_datareader_qos(DDS_DataReaderQos& qos, const EntityParams& params, const char* topic_name,
                                           const char* role_name) {
    const char* const METHOD_NAME = "EntityUntypedImpl::get_datareader_qos";
    NORVANE_CHECK_PRECONDITION(topic_name != NULL, "get_datareader_qos");

    DDS_ReturnCode_t retcode;
    if (params.datareader_qos() != nullptr) {
        retcode = DDS_DataReaderQos_copy(&qos, params.datareader_qos());
    } else if (!params.qos_library_name().empty()) {
        // The profile name is not checked here: it may be empty beside an explicit writer QoS, and the look-up reports what is
        // wrong.
        retcode = DDSDomainParticipantFactory::get_instance()->get_datareader_qos_from_profile_for_topic(
            qos, params.qos_library_name().c_str(), params.qos_profile_name().c_str(), topic_name);
    } else {
        retcode = _participant->get_default_datareader_qos_for_topic(qos, topic_name);
        set_request_reply_defaults(qos);
    }
    set_role_name(qos.subscription_name, role_name, METHOD_NAME);
    check_code(retcode, METHOD_NAME, VOST_LOG_GET_FAILURE_s, "DataReader qos");

    if (DDSPropertyQosPolicyHelper::lookup_property(qos.property, NO_WRITERS_SAMPLE_PROPERTY) == nullptr) {
        retcode = DDSPropertyQosPolicyHelper::add_property(qos.property, NO_WRITERS_SAMPLE_PROPERTY, "0", DDS_BOOLEAN_FALSE);
        check_code(retcode, METHOD_NAME, VOST_LOG_ANY_FAILURE_s, "set DataReader qos property");
    }
}

// ---- life of the endpoints ------------------------------------------------------------------------------------------------------

const char* const EntityUntypedImpl::CLASS_NAME = "norvane::details::EntityUntypedImpl";

EntityUntypedImpl::EntityUntypedImpl(bool delete_cft)
    : _participant(nullptr),
      _publisher(nullptr),
      _subscriber(nullptr),
      _writer_topic(nullptr),
      _reader_topic(nullptr),
      _writer(nullptr),
      _reader(nullptr),
      _not_read_sample_cond(nullptr),
      _any_sample_cond(nullptr),
      _clock(nullptr),
      _sample_size(-1),
      _isStringDataReader(false),
      _max_samples_per_read(DDS_LENGTH_UNLIMITED),
      _finalized(false),
      _delete_cft(delete_cft) {}

EntityUntypedImpl::~EntityUntypedImpl() { finalize(); }

namespace {

void check_created(const void* entity, const char* name) {
    if (entity == nullptr) {
        check_retcode(DDS_RETCODE_ERROR, "initialize", VOST_LOG_CREATION_FAILURE_s, name, false);
    }
}

}  // namespace

void EntityUntypedImpl::initialize(const EntityParams& params, RegisterTypeFunc register_writer_type_fnc,
                                   RegisterTypeFunc register_reader_type_fnc, int sample_size, TopicBuilder& topic_builder,
                                   DDSDataReaderListener* reader_listener, bool isStringDataReader, const char* role_name) {
    try {
        params.validate();
        NORVANE_CHECK_PRECONDITION(register_writer_type_fnc != NULL, "initialize");
        NORVANE_CHECK_PRECONDITION(register_reader_type_fnc != NULL, "initialize");
        _sample_size = sample_size;
        _participant = params.participant();
        _publisher = params.publisher();
        _subscriber = params.subscriber();

        const char* writer_type_name = register_writer_type_fnc(params.datawriter_type_support(), _participant);
        NORVANE_CHECK_PRECONDITION(writer_type_name != NULL, "initialize");
        _writer_topic = topic_builder.create_writer_topic(params, writer_type_name);
        const char* topic_name = _writer_topic->get_name();
        DDS_DataWriterQos writer_qos;
        get_datawriter_qos(writer_qos, params, topic_name, role_name);
        set_awaits_replies(writer_qos.property, role_name != nullptr && std::strcmp(role_name, "Requester") == 0);
        report_lossy_qos(writer_qos.reliability, writer_qos.history, "writer", topic_name, "request_reply_writer_qos");
        _writer = _publisher != nullptr ? _publisher->create_datawriter(_writer_topic, writer_qos, nullptr, DDS_STATUS_MASK_NONE)
                                        : _participant->create_datawriter(_writer_topic, writer_qos, nullptr, DDS_STATUS_MASK_NONE);
        check_created(_writer, "DataWriter");

        // Only now: a requester's reader topic is a filter on the GUID of the writer above.
        const char* reader_type_name = register_reader_type_fnc(params.datareader_type_support(), _participant);
        NORVANE_CHECK_PRECONDITION(reader_type_name != NULL, "initialize");
        _reader_topic = topic_builder.create_reader_topic(params, reader_type_name);
        DDSContentFilteredTopic* cft = DDSContentFilteredTopic::narrow(_reader_topic);
        if (cft != nullptr) {
            NORVANE_CHECK_PRECONDITION(cft->get_related_topic() != NULL, "initialize");
            topic_name = cft->get_related_topic()->get_name();
        } else {
            topic_name = _reader_topic->get_name();
        }
        DDS_DataReaderQos reader_qos;
        get_datareader_qos(reader_qos, params, topic_name, role_name);
        report_lossy_qos(reader_qos.reliability, reader_qos.history, "reader", topic_name, "request_reply_reader_qos");
        _max_samples_per_read = reader_qos.reader_resource_limits.max_samples_per_read;
        const DDS_StatusMask mask = reader_listener != nullptr ? DDS_DATA_AVAILABLE_STATUS : DDS_STATUS_MASK_NONE;
        _reader = _subscriber != nullptr ? _subscriber->create_datareader(_reader_topic, reader_qos, reader_listener, mask)
                                         : _participant->create_datareader(_reader_topic, reader_qos, reader_listener, mask);
        check_created(_reader, "DataReader");

        _any_sample_cond = _reader->create_readcondition(DDS_ANY_SAMPLE_STATE, DDS_ANY_VIEW_STATE, DDS_ANY_INSTANCE_STATE);
        check_created(_any_sample_cond, "any-sample read condition");
        _not_read_sample_cond =
            _reader->create_readcondition(DDS_NOT_READ_SAMPLE_STATE, DDS_ANY_VIEW_STATE, DDS_ANY_INSTANCE_STATE);
        check_created(_not_read_sample_cond, "not-read-sample read condition");
        _waitset.attach_condition(_not_read_sample_cond);
        _isStringDataReader = isStringDataReader;
    } catch (const Rethrowable& ex) {
        // Before anything is deleted: the context names the topics of the endpoints.
        const std::string context =
            log_and_rethrow_conditional(get_datawriter(), get_datareader(), ex, CLASS_NAME, "initialize", false);
        finalize();
        ex.rethrow(context);
    }
}

namespace {

void log_if_failed(DDS_ReturnCode_t retcode, const VOSTLogMessage& message, const char* what) {
    if (retcode != DDS_RETCODE_OK) {
        log_line(LOG_ERROR, "finalize", message, what);
    }
}

}  // namespace

void EntityUntypedImpl::finalize() {
    if (_finalized) {
        return;
    }
    if (_participant != nullptr) {
        if (_reader != nullptr) {
            // Conditions before the reader: a reader that still has one refuses to be deleted.
            if (_not_read_sample_cond != nullptr) {
                log_if_failed(_waitset.detach_condition(_not_read_sample_cond), VOST_LOG_REMOVE_FAILURE_s, "condition");
                log_if_failed(_reader->delete_readcondition(_not_read_sample_cond), VOST_LOG_DESTRUCTION_FAILURE_s,
                              "read condition (1)");
                _not_read_sample_cond = nullptr;
            }
            if (_any_sample_cond != nullptr) {
                log_if_failed(_reader->delete_readcondition(_any_sample_cond), VOST_LOG_DESTRUCTION_FAILURE_s,
                              "read condition (2)");
                _any_sample_cond = nullptr;
            }
            DDSTopicDescription* description = _reader->get_topicdescription();
            log_if_failed(
                _subscriber != nullptr ? _subscriber->delete_datareader(_reader) : _participant->delete_datareader(_reader),
                VOST_LOG_DESTRUCTION_FAILURE_s, "reader");
            _reader = nullptr;
            // After the reader, which uses it.
            if (_delete_cft) {
                log_if_failed(_participant->delete_contentfilteredtopic(DDSContentFilteredTopic::narrow(description)),
                              VOST_LOG_DESTRUCTION_FAILURE_s, "content-filtered topic");
            }
        }
        if (_writer != nullptr) {
            log_if_failed(_publisher != nullptr ? _publisher->delete_datawriter(_writer) : _participant->delete_datawriter(_writer),
                          VOST_LOG_DESTRUCTION_FAILURE_s, "writer");
            _writer = nullptr;
        }
    }
    _finalized = true;
}

void EntityUntypedImpl::swap(EntityUntypedImpl& other) {
    std::swap(_participant, other._participant);
    std::swap(_publisher, other._publisher);
    std::swap(_subscriber, other._subscriber);
    std::swap(_writer_topic, other._writer_topic);
    std::swap(_reader_topic, other._reader_topic);
    std::swap(_reader, other._reader);
    std::swap(_writer, other._writer);
    std::swap(_any_sample_cond, other._any_sample_cond);
    std::swap(_not_read_sample_cond, other._not_read_sample_cond);
    std::swap(_sample_size, other._sample_size);
    _waitset.swap(other._waitset);
}

// ---- sending --------------------------------------------------------------------------------------------------------------------

void EntityUntypedImpl::send_sample(const void* data, DDS_WriteParams_t& info) {
    const char* const METHOD_NAME = "EntityUntypedImpl::send_sample";
    // One record may serve many writes; a leftover identity would go out as a second sample with the first one's number.
    info.identity = DDS_AUTO_SAMPLE_IDENTITY;
    const DDS_ReturnCode_t retcode =
        DDS_DataWriter_write_w_params_untyped_generalI(_writer->get_c_datawriter(), nullptr, data, info);
    if (retcode == DDS_RETCODE_TIMEOUT) {
        check_retcode(retcode, METHOD_NAME, VOST_LOG_ANY_FAILURE_s, "DataWriter write timeout", true);
    }
    check_code(retcode, METHOD_NAME, VOST_LOG_ANY_FAILURE_s, "DataWriter write failure");
}

// ---- waiting --------------------------------------------------------------------------------------------------------------------

bool EntityUntypedImpl::wait_for_samples(const DDS_Duration_t& max_wait, int min_sample_count, DDSWaitSet& waitset,
                                         DDSReadCondition* initial_condition, DDSReadCondition* condition) {
    const char* const FUNCTION_NAME = "EntityUntypedImpl::wait_for_samples";
    constexpr DDS_SampleStateMask ANY_SAMPLE_STATE = DDS_ANY_SAMPLE_STATE;  // the name that the check below shows
    DDS_Duration_t remaining_wait = max_wait;
    DDSConditionSeq activeConditions(0);
    NORVANE_CHECK_PRECONDITION(initial_condition != NULL, "wait_for_samples");
    NORVANE_CHECK_PRECONDITION(condition != NULL, "wait_for_samples");
    NORVANE_CHECK_PRECONDITION(condition->get_sample_state_mask() == DDS_NOT_READ_SAMPLE_STATE, "wait_for_samples");
    NORVANE_CHECK_PRECONDITION(initial_condition->get_sample_state_mask() == ANY_SAMPLE_STATE, "wait_for_samples");

    if (min_sample_count == DDS_LENGTH_UNLIMITED) {
        min_sample_count = 0x7fffffff;
    }
    // Counting marks the samples read, which resets the not-read condition: the wait below sees only what comes after.
    min_sample_count -= touch_samples(min_sample_count, initial_condition);
    while (min_sample_count > 0) {
        DDS_ReturnCode_t retcode;
        if (min_sample_count == 1) {
            retcode = waitset.wait(activeConditions, remaining_wait);  // the last wait: its duration is not needed
        } else {
            DDS_Time_t before_wait = DDS_TIME_INVALID;
            _participant->get_current_time(before_wait);
            retcode = waitset.wait(activeConditions, remaining_wait);
            DDS_Time_t after_wait = before_wait;
            _participant->get_current_time(after_wait);
            // If the clock cannot be read, the wait goes on with the time that was left.
            if (before_wait != DDS_TIME_INVALID) {
                remaining_wait = remaining_wait - (after_wait - before_wait);
            }
        }
        if (retcode == DDS_RETCODE_TIMEOUT) {
            log_line(LOG_NOTICE, FUNCTION_NAME, VOST_LOG_ANY_s, "timed out waiting for data");
            return false;
        }
        check_code(retcode, FUNCTION_NAME, VOST_LOG_ANY_FAILURE_s, "wait for samples");
        NORVANE_CHECK_PRECONDITION(activeConditions.length() == 1, "wait_for_samples");
        NORVANE_CHECK_PRECONDITION(activeConditions[0] == condition, "wait_for_samples");

        if (min_sample_count <= 1) {
            --min_sample_count;  // the trigger stands for the missing sample, which stays not read
        } else {
            min_sample_count -= touch_samples(min_sample_count, condition);
        }
    }
    return true;
}

bool EntityUntypedImpl::wait_for_any_sample(const DDS_Duration_t& max_wait, int min_sample_count) {
    return wait_for_samples(max_wait, min_sample_count, _waitset, _any_sample_cond, _not_read_sample_cond);
}

int EntityUntypedImpl::touch_samples(int max_count, DDSReadCondition* read_condition) {
    DDS_SampleInfoSeq info_seq(0);
    void** data = nullptr;
    int sample_count = 0;
    if (get_sample_loaned(&data, &sample_count, info_seq, 0, 0, DDS_BOOLEAN_TRUE, max_count, read_condition, false)) {
        return_loan(data, info_seq);
    }
    return sample_count;
}

// ---- loans ----------------------------------------------------------------------------------------------------------------------

bool EntityUntypedImpl::get_sample_loaned(void*** received_data, int* data_count, DDS_SampleInfoSeq& info_seq,
                                          DDS_Long data_seq_len, DDS_Long data_seq_max_len, DDS_Boolean data_seq_has_ownership,
                                          DDS_Long max_samples, DDSReadCondition* read_condition, bool take) {
    NORVANE_CHECK_PRECONDITION(received_data != NULL, "get_sample_loaned");
    NORVANE_CHECK_PRECONDITION(data_count != NULL, "get_sample_loaned");
    NORVANE_CHECK_PRECONDITION(read_condition != NULL, "get_sample_loaned");

    DDS_Boolean is_loan = DDS_BOOLEAN_FALSE;
    const DDS_ReturnCode_t retcode = DDS_DataReader_read_or_take_w_condition_untypedI(
        _reader->get_c_datareader(), &is_loan, received_data, data_count, info_seq, data_seq_len, data_seq_max_len,
        data_seq_has_ownership, nullptr, _sample_size, max_samples, read_condition->get_c_readcondition(),
        take ? DDS_BOOLEAN_TRUE : DDS_BOOLEAN_FALSE);
    if (!check_code(retcode, "EntityUntypedImpl::get_sample_loaned", VOST_LOG_ANY_FAILURE_s, "read from DataReader")) {
        return false;
    }
    NORVANE_CHECK_PRECONDITION(is_loan, "get_sample_loaned");
    return true;
}

bool EntityUntypedImpl::get_sample_loaned(void*** received_data, int* data_count, DDS_SampleInfoSeq& info_seq, DDS_Long max_samples,
                                          bool take, DDSReadCondition* read_condition) {
    NORVANE_CHECK_PRECONDITION(received_data != NULL, "get_sample_loaned");
    NORVANE_CHECK_PRECONDITION(data_count != NULL, "get_sample_loaned");
    if (max_samples < 0 && max_samples != DDS_LENGTH_UNLIMITED) {
        check_retcode(DDS_RETCODE_BAD_PARAMETER, "EntityUntypedImpl::get_sample_loaned", DDS_LOG_BAD_PARAMETER_s, "max_samples",
                      false);
    }
    return get_sample_loaned(received_data, data_count, info_seq, 0, 0, DDS_BOOLEAN_TRUE, max_samples,
                             read_condition != nullptr ? read_condition : _any_sample_cond, take);
}

bool EntityUntypedImpl::receive_sample_loaned(void*** received_data, int* data_count, DDS_SampleInfoSeq& info_seq,
                                              DDS_Long max_samples, const DDS_Duration_t& max_wait, int min_sample_count) {
    NORVANE_CHECK_PRECONDITION(received_data != NULL, "receive_sample_loaned");
    NORVANE_CHECK_PRECONDITION(data_count != NULL, "receive_sample_loaned");
    validate(min_sample_count, max_samples, max_wait);
    if (!wait_for_any_sample(max_wait, min_sample_count)) {
        *data_count = 0;
        return false;
    }
    // Any state: the wait has marked what it counted as read.
    return get_sample_loaned(received_data, data_count, info_seq, 0, 0, DDS_BOOLEAN_TRUE, max_samples, _any_sample_cond, true);
}

void EntityUntypedImpl::validate(int min_count, int max_count, DDS_Duration_t max_wait) const {
    if (max_count == DDS_LENGTH_UNLIMITED) {
        max_count = _max_samples_per_read;
    }
    if (min_count == DDS_LENGTH_UNLIMITED) {
        min_count = _max_samples_per_read;
    }
    const char* violated = nullptr;
    if (max_count <= 0 && max_count != DDS_LENGTH_UNLIMITED) {
        violated = "max_count must be greater than zero";
    } else if (max_count != DDS_LENGTH_UNLIMITED && (min_count == DDS_LENGTH_UNLIMITED || min_count > max_count)) {
        violated = "max_count must be greater or equal than min_count";
    } else if (max_wait == DDS_DURATION_ZERO) {
        violated = "max_wait must be greater than zero";
    } else if (max_count == DDS_LENGTH_UNLIMITED && max_wait == DDS_DURATION_INFINITE) {
        violated = "max_count and max_wait cannot be both unbounded";
    }
    if (violated != nullptr) {
        check_retcode(DDS_RETCODE_BAD_PARAMETER, "EntityUntypedImpl::validate", DDS_LOG_BAD_PARAMETER_s, violated, false);
    }
}

void EntityUntypedImpl::return_loan(void** dataArray, DDS_SampleInfoSeq& info_seq) {
    NORVANE_CHECK_PRECONDITION(dataArray != NULL, "return_loan");
    if (DDS_DataReader_return_loan_untypedI(_reader->get_c_datareader(), dataArray, info_seq) != DDS_RETCODE_OK) {
        log_line(LOG_ERROR, "EntityUntypedImpl::return_loan", VOST_LOG_ANY_FAILURE_s, "return DataReader loan");
    }
}

}  // namespace details
}  // namespace norvane
