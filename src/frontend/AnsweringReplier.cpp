// SPDX-License-Identifier: Apache-2.0
#include "norvane/details/AnsweringReplier.hpp"

#include <string>

#include "frontend/HoldingSpan.hpp"
#include "norvane/details/guid_text.hpp"

namespace norvane {
namespace details {

AnsweringReplier::AnsweringReplier() : _max_queued_requests(DDS_LENGTH_UNLIMITED) {}

AnsweringReplier::~AnsweringReplier() = default;

void AnsweringReplier::initialize(const EntityParams& params, RegisterTypeFunc register_request_type,
                                  RegisterTypeFunc register_reply_type, int request_size, DDSDataReaderListener* reader_listener,
                                  bool is_string) {
    const HoldingSpan span(params.participant(), "Replier");
    ReplierUntypedImpl::initialize(params, register_request_type, register_reply_type, request_size, reader_listener, is_string);
}

void AnsweringReplier::get_datareader_qos(DDS_DataReaderQos& qos, const EntityParams& params, const char* topic_name,
                                          const char* role_name) {
    const char* const METHOD_NAME = "Replier::Replier";
    ReplierUntypedImpl::get_datareader_qos(qos, params, topic_name, role_name);
    if (_max_queued_requests != DDS_LENGTH_UNLIMITED) {
        if (_max_queued_requests < 1) {
            check_retcode(DDS_RETCODE_BAD_PARAMETER, METHOD_NAME, DDS_LOG_BAD_PARAMETER_s,
                          "max_queued_requests must be at least 1, or DDS_LENGTH_UNLIMITED", false);
        }
        qos.resource_limits.max_samples = _max_queued_requests;
        if (qos.resource_limits.initial_samples > _max_queued_requests) {
            qos.resource_limits.initial_samples = _max_queued_requests;
        }
    }
    // Requesters learn which writer belongs to this reader, and count the replier as ready when they have matched both.
    DDS_DataWriterQos writer_qos;
    check_retcode(get_datawriter()->get_qos(writer_qos), METHOD_NAME, VOST_LOG_GET_FAILURE_s, "DataWriter qos", true);
    std::string writer_guid;
    append_guid_text(writer_guid, writer_qos.protocol.virtual_guid);
    check_retcode(DDSPropertyQosPolicyHelper::assert_property(qos.property, DDS_PARTNER_WRITER_PROPERTY, writer_guid.c_str(),
                                                              DDS_BOOLEAN_TRUE),
                  METHOD_NAME, VOST_LOG_ANY_FAILURE_s, "set DataReader qos property", true);
}

ReplierStatistics AnsweringReplier::stats() const {
    DDS_DataReaderCounts read;
    DDS_DataWriterCounts written;
    get_datareader()->get_counts(read);
    get_datawriter()->get_counts(written);
    ReplierStatistics statistics;
    statistics.received = read.received;
    statistics.queued = read.held;
    statistics.lost = read.lost;
    statistics.answered = written.written;
    statistics.unmatched = written.unaddressed;
    statistics.unacknowledged = written.unacknowledged;
    return statistics;
}

void AnsweringReplier::throw_if_closed(const char* method_name) const {
    if (_closed.load(std::memory_order_acquire)) {
        throw AlreadyDeletedException(std::string("Replier(") + get_datareader()->get_topicdescription()->get_name() + ", " +
                                      get_datawriter()->get_topic()->get_name() + ")::" + method_name + ": the replier was closed");
    }
}

void AnsweringReplier::stop_receiving() {
    check_retcode(get_datareader()->leave_domain(), "Replier::stop_receiving", VOST_LOG_ANY_FAILURE_s, "leave the request topic",
                  true);
    _receiving.store(false, std::memory_order_release);
    check_retcode(get_datareader()->interrupt(DDS_RETCODE_ALREADY_DELETED), "Replier::stop_receiving", VOST_LOG_ANY_FAILURE_s,
                  "wake the threads that wait for requests", true);
}

bool AnsweringReplier::wait_for_acknowledgments(const Timeout& max_wait) {
    throw_if_closed("wait_for_acknowledgments");
    const DDS_ReturnCode_t code = get_datawriter()->wait_for_acknowledgments(max_wait);
    if (code == DDS_RETCODE_ALREADY_DELETED) {
        throw_if_closed("wait_for_acknowledgments");
    }
    return check_retcode(code, "Replier::wait_for_acknowledgments", VOST_LOG_ANY_FAILURE_s, "wait for acknowledgments", false);
}

void AnsweringReplier::close() {
    // Waiting threads first: leaving may take as long as the listener runs.
    _closed.store(true, std::memory_order_release);
    get_datareader()->interrupt(DDS_RETCODE_ALREADY_DELETED);
    get_datawriter()->leave_domain();
    check_retcode(get_datareader()->leave_domain(), "Replier::close", VOST_LOG_ANY_FAILURE_s, "leave the request topic", true);
}

bool AnsweringReplier::wait_for_requests(const Timeout& max_wait, int min_count) {
    const char* const METHOD_NAME = "wait_for_requests";
    throw_if_closed(METHOD_NAME);
    try {
        return wait_for_any_sample(max_wait, min_count);
    } catch (const AlreadyDeletedException&) {
        throw_if_closed(METHOD_NAME);
        if (_receiving.load(std::memory_order_acquire)) {
            throw;
        }
    }
    // What came before the end of receiving counts, also when the wait was interrupted before it saw it.
    if (min_count != DDS_LENGTH_UNLIMITED && touch_samples(min_count, _any_sample_cond) >= min_count) {
        return true;
    }
    throw AlreadyDeletedException(std::string("Replier(") + get_datareader()->get_topicdescription()->get_name() +
                                  ")::wait_for_requests: the replier takes no more requests in, and " +
                                  (touch_samples(1, _any_sample_cond) == 0 ? "none is queued" : "fewer than that are queued"));
}

void AnsweringReplier::send_reply(const void* reply, const DDS_SampleIdentity_t& request_id, DDS_WriteParams_t& params) {
    try {
        send_sample(reply, request_id, params);
    } catch (const AlreadyDeletedException&) {
        throw_if_closed("send_reply");
        throw;
    }
}

}  // namespace details
}  // namespace norvane
