// SPDX-License-Identifier: Apache-2.0
// The steps of a call: a replier is ready; the request is written; its key is open; its condition holds; its reply is taken; its
// key is closed.
#include "norvane/details/CallingRequester.hpp"

#include "frontend/HoldingSpan.hpp"
#include "frontend/log_line.hpp"
#include "frontend/require_ok.hpp"
#include "norvane/details/DispatcherLink.hpp"
#include "norvane/details/topic_names.hpp"

namespace norvane {
namespace details {

namespace {

std::string seconds_of(const DDS_Duration_t& duration) {
    std::string text = std::to_string(static_cast<double>(duration.sec) + duration.nanosec / 1e9);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') {
        text.pop_back();
    }
    return text + " s";
}

// Runs something on every way out.
template <class Action>
class AtEnd {
public:
    explicit AtEnd(Action action) : _action(action) {}
    AtEnd(const AtEnd&) = delete;
    AtEnd& operator=(const AtEnd&) = delete;
    ~AtEnd() { _action(); }

private:
    Action _action;
};

}  // namespace

CallingRequester::CallingRequester(const RequesterParams& params, Dispatcher* dispatcher, RegisterTypeFunc register_request_type,
                                   RegisterTypeFunc register_reply_type, int reply_size, bool is_string)
    : CallingRequester(HoldingSpan(params.participant(), "Requester"), params, dispatcher, register_request_type,
                       register_reply_type, reply_size, is_string) {}

CallingRequester::CallingRequester(const HoldingSpan&, const RequesterParams& params, Dispatcher* dispatcher,
                                   RegisterTypeFunc register_request_type, RegisterTypeFunc register_reply_type, int reply_size,
                                   bool is_string)
    : RequesterUntypedImpl(params, register_request_type, register_reply_type, reply_size, is_string),
      _repliers(*get_datawriter(), *get_datareader()) {
    check_retcode(get_datareader()->admit_open_keys_only(CORRELATION_INDEX_NAME, DDS_BOOLEAN_TRUE), "Requester::Requester",
                  VOST_LOG_ANY_FAILURE_s, "admit only replies that are wanted", true);
    DDS_DataWriterQos writer_qos;
    check_retcode(get_datawriter()->get_qos(writer_qos), "Requester::Requester", VOST_LOG_GET_FAILURE_s, "DataWriter qos", true);
    _writer_guid = writer_qos.protocol.virtual_guid;
    if (dispatcher != nullptr) {
        _dispatcher_link = DispatcherLink::join(*dispatcher, *this);
        _repliers.set_on_change([this] { _dispatcher_link->repliers_changed(); });
    }
}

CallingRequester::~CallingRequester() { end_async_calls(); }

void CallingRequester::end_async_calls() noexcept {
    if (_dispatcher_link != nullptr) {
        _dispatcher_link->close();
    }
}

// ---- readiness, counters, close -------------------------------------------------------------------------------------------------

std::string CallingRequester::title() const {
    DDSTopicDescription* description = get_datareader()->get_topicdescription();
    DDSContentFilteredTopic* filtered = DDSContentFilteredTopic::narrow(description);
    const char* reply_topic = filtered != nullptr ? filtered->get_related_topic()->get_name() : description->get_name();
    return std::string("Requester(") + get_datawriter()->get_topic()->get_name() + ", " + reply_topic + ")";
}

std::exception_ptr CallingRequester::closure(const char* method_name) const {
    return std::make_exception_ptr(AlreadyDeletedException(title() + "::" + method_name + ": the requester was closed"));
}

void CallingRequester::throw_if_closed(const char* method_name) const {
    if (_closed.load(std::memory_order_acquire)) {
        std::rethrow_exception(closure(method_name));
    }
}

bool CallingRequester::wait_for_service(const Timeout& max_wait, int count) {
    if (count < 1) {
        check_retcode(DDS_RETCODE_BAD_PARAMETER, "Requester::wait_for_service", DDS_LOG_BAD_PARAMETER_s, "count must be at least 1",
                      false);
    }
    const bool ready = _repliers.wait(Deadline(max_wait), count);
    throw_if_closed("wait_for_service");
    return ready;
}

void CallingRequester::forget(const DDS_SampleIdentity_t& request_id) {
    // Another requester's number would close a request of this one, and none at all would in time close every later one.
    if (request_id.writer_guid != _writer_guid || request_id.sequence_number.high < 0 ||
        request_id.sequence_number == DDS::SEQUENCE_NUMBER_ZERO || request_id.sequence_number == DDS::SEQUENCE_NUMBER_MAX) {
        check_retcode(DDS_RETCODE_BAD_PARAMETER, "Requester::forget", DDS_LOG_BAD_PARAMETER_s,
                      "request_id is no request of this requester", false);
    }
    check_retcode(get_datareader()->close_index_key(CORRELATION_INDEX_NAME, request_id.sequence_number), "Requester::forget",
                  VOST_LOG_ANY_FAILURE_s, "close the key of the request", true);
}

RequesterStatistics CallingRequester::stats() const {
    DDS_DataWriterCounts written;
    DDS_DataReaderCounts read;
    get_datawriter()->get_counts(written);
    get_datareader()->get_counts(read);
    RequesterStatistics statistics;
    statistics.sent = written.written;
    statistics.unmatched = written.unaddressed;
    statistics.completed = _completed.load(std::memory_order_relaxed);
    statistics.timed_out = _timed_out.load(std::memory_order_relaxed);
    statistics.pending = _pending.load(std::memory_order_relaxed);
    if (_dispatcher_link != nullptr) {
        statistics.pending += _dispatcher_link->kept_calls();
    }
    statistics.received = read.received;
    statistics.queued = read.held;
    statistics.late = read.closed_key;
    statistics.lost = read.lost;
    return statistics;
}

void CallingRequester::close() {
    if (_closed.exchange(true, std::memory_order_acq_rel)) {
        return;
    }
    // Waiting threads first: leaving may take as long as a listener runs.
    _repliers.close();
    if (_dispatcher_link != nullptr) {
        _dispatcher_link->begin_close();
    }
    get_datareader()->interrupt(DDS_RETCODE_ALREADY_DELETED);
    get_datawriter()->leave_domain();
    get_datareader()->leave_domain();
    // Last: a callback may destroy the requester.
    end_async_calls();
}

// ---- calls ----------------------------------------------------------------------------------------------------------------------

void CallingRequester::send_request(const void* request, DDS_WriteParams_t& params) {
    // Before the write: a listener that the write runs may end the requester.
    if (_repliers.count() == 0 && !_said_unmatched.exchange(true, std::memory_order_relaxed)) {
        log_line(LOG_ERROR, (title() + "::send_request").c_str(),
                 ("the request may be lost (said once; stats() counts): " + _repliers.obstacle().text).c_str());
    }
    unless_closed("send_request", [&] { send_sample(request, params); });
}

void CallingRequester::throw_nobody(const char* method_name, const Timeout& timeout) {
    throw_if_closed(method_name);
    _timed_out.fetch_add(1, std::memory_order_relaxed);
    const NoReply obstacle = _repliers.obstacle();
    throw CallTimeoutException(title() + "::" + method_name + ": nothing was sent, since no replier was ready within " +
                                   seconds_of(timeout) + ": " + obstacle.text,
                               obstacle.reason);
}

OpenCall CallingRequester::open_call(const void* request, const Deadline& deadline, WhenNobodyIsThere when_nobody) {
    if (_repliers.count() == 0 && (when_nobody == WhenNobodyIsThere::FAIL || !_repliers.wait(deadline, 1))) {
        throw_nobody("call", when_nobody == WhenNobodyIsThere::FAIL ? Timeout(DDS_DURATION_ZERO) : deadline.initial());
    }
    const std::uint64_t newest_replier = _repliers.newest();
    DDS_WriteParams_t params;
    params.max_blocking_time = deadline.left();
    if (write_request(request, params, "call") == DDS_RETCODE_TIMEOUT) {
        _timed_out.fetch_add(1, std::memory_order_relaxed);
        throw CallTimeoutException(title() + "::call: nothing was sent, since a replier had no room for the request within " +
                                       seconds_of(deadline.initial()) + " (or the writer's max_blocking_time): its queue is full",
                                   TimeoutReason::NO_ROOM);
    }
    return opened(params.identity, newest_replier);
}

bool CallingRequester::try_open_call(const void* request, OpenCall& call) {
    throw_if_closed("call_async");
    if (_repliers.count() == 0) {
        return false;
    }
    const std::uint64_t newest_replier = _repliers.newest();
    DDS_WriteParams_t params;
    params.max_blocking_time = DDS_DURATION_ZERO;
    if (write_request(request, params, "call_async") == DDS_RETCODE_TIMEOUT) {
        return false;
    }
    call = opened(params.identity, newest_replier);
    return true;
}

// Not by the core, which would log each of many tries, and each call that finds a full queue.
// @return OK, or TIMEOUT when there was no room.
DDS_ReturnCode_t CallingRequester::write_request(const void* request, DDS_WriteParams_t& params, const char* method_name) {
    const DDS_ReturnCode_t code =
        DDS_DataWriter_write_w_params_untyped_generalI(get_datawriter()->get_c_datawriter(), nullptr, request, params);
    if (code != DDS_RETCODE_OK && code != DDS_RETCODE_TIMEOUT) {
        throw_if_closed(method_name);
        check_retcode(code, (std::string("Requester::") + method_name).c_str(), VOST_LOG_ANY_FAILURE_s, "write the request", true);
    }
    return code;
}

// The request is written: its reply is wanted from here on.
OpenCall CallingRequester::opened(const DDS_SampleIdentity_t& request_id, std::uint64_t newest_replier) {
    OpenCall call;
    call.newest_replier = newest_replier;
    call.request_id = request_id;
    _pending.fetch_add(1, std::memory_order_relaxed);
    try {
        require_ok(get_datareader()->open_index_key(CORRELATION_INDEX_NAME, call.request_id.sequence_number), "Requester::call",
                   VOST_LOG_ANY_FAILURE_s, "open the key of the request");
        call.condition = create_correlation_condition(DDS_ANY_SAMPLE_STATE, call.request_id.sequence_number);
    } catch (...) {
        close_call(call);
        throw;
    }
    return call;
}

bool CallingRequester::take_reply(const OpenCall& call, void*** reply, int* count, DDS_SampleInfoSeq& infos) {
    return get_sample_loaned(reply, count, infos, 1, true, call.condition);
}

void CallingRequester::close_call(const OpenCall& call) noexcept {
    if (call.condition != nullptr) {
        get_datareader()->delete_readcondition(call.condition);
    }
    get_datareader()->close_index_key(CORRELATION_INDEX_NAME, call.request_id.sequence_number);
    _pending.fetch_sub(1, std::memory_order_relaxed);
}

std::exception_ptr CallingRequester::timeout_of(const Timeout& timeout, const OpenCall* sent) {
    _timed_out.fetch_add(1, std::memory_order_relaxed);
    NoReply why = sent != nullptr      ? _repliers.silence(sent->newest_replier)
                  : is_service_ready() ? NoReply{TimeoutReason::NO_ROOM, "a replier had no room for the request: its queue is full"}
                                       : _repliers.obstacle();
    // Acknowledged is what a replier has taken into its queue; a write returns before that where requests leave the process.
    if (why.reason == TimeoutReason::SILENT &&
        get_datawriter()->wait_for_acknowledgments(DDS_DURATION_ZERO) == DDS_RETCODE_TIMEOUT) {
        why.text += "; it has not taken in every request: its queue is full, or it hangs";
    }
    const std::string what = sent != nullptr ? "::call: no reply within " : "::call_async: nothing was sent within ";
    return std::make_exception_ptr(CallTimeoutException(title() + what + seconds_of(timeout) + ": " + why.text, why.reason));
}

void CallingRequester::call(const void* request, const Timeout& timeout, WhenNobodyIsThere when_nobody, void*** reply, int* count,
                            DDS_SampleInfoSeq& infos) {
    const Deadline deadline(timeout);
    // Before the call, so that it goes back to the pool after the call's condition has left it.
    PoolAutoPtr<DDSWaitSet> waitset(waitset_pool->get_auto_ptr());
    const OpenCall open = open_call(request, deadline, when_nobody);
    const AtEnd end([&] { close_call(open); });
    // A replier that answers inside its listener has done so by now.
    if (open.condition->get_trigger_value() && take_reply(open, reply, count, infos)) {
        count_completed();
        return;
    }
    require_ok(waitset->attach_condition(open.condition), "Requester::call", VOST_LOG_ANY_FAILURE_s, "attach the condition");
    DDSConditionSeq active(0);
    do {
        const DDS_ReturnCode_t code = waitset->wait(active, deadline.left());
        if (code == DDS_RETCODE_TIMEOUT) {
            std::rethrow_exception(timeout_of(timeout, &open));
        }
        if (code != DDS_RETCODE_OK) {
            throw_if_closed("call");
            check_retcode(code, "Requester::call", VOST_LOG_ANY_FAILURE_s, "wait for the reply", true);
        }
        // Nothing is there when another thread took the replies to all requests: then there may be another one.
    } while (!take_reply(open, reply, count, infos));
    count_completed();
}

}  // namespace details
}  // namespace norvane
