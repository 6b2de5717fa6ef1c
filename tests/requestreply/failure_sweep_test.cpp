// SPDX-License-Identifier: Apache-2.0
// Fails the 1st, 2nd, 3rd ... call of the object API that an operation makes, until the operation succeeds. A table lists the calls
// of each operation in their order, and what comes of it when that call fails; afterwards nothing may be left behind.
#include <gtest/gtest.h>
#include <boost/describe/class.hpp>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "norvane/Replier.hpp"
#include "norvane/Requester.hpp"
#include "norvane/Service.hpp"
#include "support/AllocationProbe.hpp"
#include "support/DoubledDomain.hpp"
#include "support/Eventually.hpp"
#include "support/LogCapture.hpp"
#include "support/OpenEntities.hpp"
#include "support/Thrown.hpp"

namespace norvane::test {
namespace {

// What comes of a failed call.
enum Outcome {
    BY_CODE,       // the exception of the code
    ALWAYS,        // RuntimeException, whatever the code: the call returns null, or its result is looked at and not its code
    PRECONDITION,  // PreconditionNotMetException, whatever the code
    IGNORED,       // the operation succeeds
    TIMES_OUT      // the operation succeeds with a time-out: nothing can end the wait
};

struct Step {
    const char* call;
    Outcome outcome;
    const char* begin;  // how the exception's message begins; of an operation that succeeds: the method of a log line, or empty
    const char* part;   // what else is in the message, or in that log line
    const char* remains = "";  // instead of what else remains: the middleware was told to refuse to let it go
};

struct Operation {
    std::vector<Step> steps;
    std::function<void()> prepare;
    std::function<bool()> run;
    const char* after_failure;
    const char* after_success;
};

constexpr const char* AT_REST = "4 conditions 1 filters 2 readers 2 writers";
constexpr const char* AT_REST_WITH_A_LOAN = "4 conditions 1 filters 1 loans 2 readers 2 writers";
constexpr const char* AT_REST_WITH_A_CONDITION = "5 conditions 1 filters 2 readers 2 writers";

constexpr const char* NO_READER_YET = "norvane::details::EntityUntypedImpl::initialize failure caused by ";
constexpr const char* BOTH_ENDS = "norvane::details::EntityUntypedImpl(SRequest, SReply)::initialize failure caused by initialize:";
constexpr const char* WAIT = "EntityUntypedImpl::wait_for_samples";
constexpr const char* READ = "EntityUntypedImpl::get_sample_loaned:";
constexpr const char* RETURN = "EntityUntypedImpl::return_loan";

class FailureSweep : public DoubledDomain {
protected:
    void sweep(const Operation& operation) {
        for (const DDS_ReturnCode_t code : {DDS_RETCODE_ERROR, DDS_RETCODE_OUT_OF_RESOURCES}) {
            for (std::size_t number = 0; number <= operation.steps.size(); ++number) {
                // The last round fails nothing, and tells whether the table is complete.
                const bool complete = number == operation.steps.size();
                const Step step = complete ? Step{"", IGNORED, "", ""} : operation.steps[number];
                SCOPED_TRACE(std::to_string(number + 1) + ": " + step.call + ", code " + std::to_string(code));
                _script.fail_call(0);
                operation.prepare();
                LogCapture log;
                _max_wait = step.outcome == TIMES_OUT ? DDS_Duration_t{0, 20000000} : DDS_Duration_t{20, 0};
                _script.fail_call(static_cast<int>(number) + 1, code);
                _arm();
                bool result = false;
                const Thrown thrown = thrown_by([&] { result = operation.run(); });
                const std::string failed = _script.failed_call();
                EXPECT_EQ(step.call, failed);
                EXPECT_TRUE(!complete || _script.calls().size() == number) << _script.calls().back() << " is not in the table";
                _script.fail_call(0);

                const std::string type = step.outcome == ALWAYS         ? "RuntimeException"
                                         : step.outcome == PRECONDITION ? "PreconditionNotMetException"
                                         : step.outcome != BY_CODE      ? ""
                                         : code == DDS_RETCODE_ERROR    ? "RuntimeException"
                                                                        : "OutOfResourcesException";
                EXPECT_EQ(type, thrown.type) << thrown.message;
                if (type.empty()) {
                    EXPECT_EQ(step.outcome != TIMES_OUT, result);
                    const auto lines = log.library_lines();
                    EXPECT_TRUE(*step.begin == '\0' || std::any_of(lines.begin(), lines.end(), [&](const LogCapture::Line& line) {
                        return line.method == step.begin && line.text.find(step.part) != std::string::npos;
                    })) << "no such log line";
                } else {
                    EXPECT_EQ(step.begin, thrown.message.substr(0, std::string(step.begin).size())) << thrown.message;
                    EXPECT_NE(std::string::npos, thrown.message.find(step.part)) << thrown.message;
                    EXPECT_LE(1U, log.library_lines().size());
                }
                EXPECT_EQ(*step.remains != '\0' ? step.remains
                          : type.empty()        ? operation.after_success
                                                : operation.after_failure,
                          live());
                if (_requester != NULL) {
                    EXPECT_EQ(0, _requester->waitset_pool().buffers_in_use());
                }
                tidy_up();
                if (HasFailure()) {
                    return;  // one story is enough
                }
            }
        }
    }

    void tidy_up() {
        _arm = [] {};
        _requester.reset();
        _replier.reset();
        _participant.reset();
        ASSERT_EQ(DDS_RETCODE_OK, _real.delete_contained_entities());
        _participant.reset(new ForwardingParticipant(_real, _script));
        _script.forget_live();
    }

    // Requester and replier with one request that waits for its replies.
    void pair_up() {
        _requester.reset(new OpenRequester(params("S")));
        _replier.reset(new OpenReplier(params("S")));
        _request = _requester->send("x");
    }

    // Writes past the double, so that the script knows nothing of it.
    static void slip_in(DDSDataWriter& writer, const DDS_SampleIdentity_t& related_identity) {
        DDS_WriteParams_t params;
        params.related_sample_identity = related_identity;
        const char* sample = "slipped in";
        DDS_DataWriter* real = dynamic_cast<ForwardingDataWriter&>(writer).real().get_c_datawriter();
        EXPECT_EQ(DDS_RETCODE_OK, DDS_DataWriter_write_w_params_untyped_generalI(real, NULL, &sample, params));
    }

    std::unique_ptr<OpenRequester> _requester;
    std::unique_ptr<OpenReplier> _replier;
    DDS_SampleIdentity_t _request;
    DDS_Duration_t _max_wait = {20, 0};
    std::function<void()> _arm = [] {};  // actions in the middle of the operation
};

TEST_F(FailureSweep, making_a_requester) {
    sweep({{
               {"DDSDomainParticipant::register_type", PRECONDITION, NO_READER_YET, "writer_type_name != NULL"},
               {"DDSDomainParticipant::lookup_topicdescription", IGNORED, "", ""},
               {"DDSDomainParticipant::create_topic", ALWAYS, NO_READER_YET, "topic SRequest"},
               {"DDSDomainParticipant::get_default_datawriter_qos_for_topic", BY_CODE, NO_READER_YET, "DataWriter qos"},
               {"DDSDomainParticipant::create_datawriter", ALWAYS, NO_READER_YET, "DataWriter"},
               {"DDSDomainParticipant::register_type", PRECONDITION, NO_READER_YET, "reader_type_name != NULL"},
               {"DDSDomainParticipant::lookup_topicdescription", IGNORED, "", ""},
               {"DDSDomainParticipant::create_topic", ALWAYS, NO_READER_YET, "topic SReply"},
               {"DDSDataWriter::get_qos", ALWAYS, NO_READER_YET, "DataWriter virtual guid"},
               {"DDSDomainParticipant::create_contentfilteredtopic", ALWAYS, NO_READER_YET,
                "content-filtered topic for topic SReply"},
               {"DDSDomainParticipant::get_default_datareader_qos_for_topic", BY_CODE, NO_READER_YET, "DataReader qos"},
               {"DDSDomainParticipant::create_datareader", ALWAYS, NO_READER_YET, "DataReader"},
               {"DDSDataReader::create_readcondition", ALWAYS, BOTH_ENDS, "any-sample read condition"},
               {"DDSDataReader::create_readcondition", ALWAYS, BOTH_ENDS, "not-read-sample read condition"},
               {"DDSReadCondition::get_c_condition", IGNORED, "", ""},
               {"DDSDataReader::create_index", BY_CODE, "RequesterUntypedImpl:", "correlation index"},
           },
           [] {},
           [&] {
               _requester.reset(new OpenRequester(params("S")));
               return true;
           },
           "",
           "2 conditions 1 filters 1 readers 1 writers"});
}

TEST_F(FailureSweep, sending_a_request_and_a_reply) {
    const std::vector<Step> steps = {
        {"DDS_DataWriter::write", BY_CODE, "EntityUntypedImpl::send_sample:", "DataWriter write failure"}};
    sweep({steps, [&] { pair_up(); }, [&] { return _requester->send("y") != DDS_AUTO_SAMPLE_IDENTITY; }, AT_REST, AT_REST});
    sweep({steps, [&] { pair_up(); }, [&] { return _replier->reply(_request, "y"), true; }, AT_REST, AT_REST});
}

// One reply is there, one comes into the first wait, and one into the second.
TEST_F(FailureSweep, waiting_for_replies) {
    const char* const NO_CONDITION = "RequesterUntypedImpl::create_correlation_condition:";
    sweep({{
               {"DDSDataReader::create_index_condition", ALWAYS, NO_CONDITION, "correlation condition"},
               {"DDSDataReader::create_index_condition", ALWAYS, NO_CONDITION, "correlation condition"},
               {"DDSReadCondition::get_c_condition", TIMES_OUT, WAIT, "timed out waiting for data"},
               {"DDS_DataReader::read_or_take", BY_CODE, READ, "read from DataReader"},
               {"DDS_DataReader::return_loan", IGNORED, RETURN, "return DataReader loan", AT_REST_WITH_A_LOAN},
               {"DDSDomainParticipant::get_current_time", IGNORED, "", ""},
               {"DDSDomainParticipant::get_current_time", IGNORED, "", ""},
               {"DDS_DataReader::read_or_take", BY_CODE, READ, "read from DataReader"},
               {"DDS_DataReader::return_loan", IGNORED, RETURN, "return DataReader loan", AT_REST_WITH_A_LOAN},
               {"DDSDataReader::delete_readcondition", IGNORED, "", "", AT_REST_WITH_A_CONDITION},
               {"DDSDataReader::delete_readcondition", IGNORED, "", "", AT_REST_WITH_A_CONDITION},
           },
           [&] {
               pair_up();
               _replier->reply(_request, "1");
               _arm = [&] {
                   _script.at_next("DDSDomainParticipant::get_current_time",
                                   [&] { slip_in(*_replier->get_datawriter(), _request); });
                   _script.at_next("DDS_DataReader::return_loan", nullptr);
                   _script.at_next("DDS_DataReader::return_loan", [&] { slip_in(*_replier->get_datawriter(), _request); });
               };
           },
           [&] { return _requester->wait_for_replies(_max_wait, 3, _request); },
           AT_REST,
           AT_REST});
}

// One request is there, and one comes into each of two waits, of which the first lasts a million seconds by the clock.
TEST_F(FailureSweep, the_time_of_earlier_waits_counts_and_the_sample_that_ends_a_wait_stays_not_read) {
    struct JumpingParticipant : ForwardingParticipant {
        using ForwardingParticipant::ForwardingParticipant;
        DDS_ReturnCode_t get_current_time(DDS_Time_t& time) override {
            const DDS_ReturnCode_t code = ForwardingParticipant::get_current_time(time);
            time.sec += ++readings % 2 == 0 ? 1000000 : 0;
            return code;
        }
        int readings = 0;
    };
    for (const bool endless : {false, true}) {
        JumpingParticipant jumping(_real, _script);
        OpenRequester requester(RequesterParams(&_real).service_name("S"));
        OpenReplier replier(RequesterParams(&jumping).service_name("S"));
        requester.send("1");
        _script.fail_call(0);
        _script.at_next("DDSDomainParticipant::get_current_time", [&] { requester.send("2"); });
        _script.at_next("DDS_DataReader::return_loan", nullptr);
        _script.at_next("DDS_DataReader::return_loan", [&] { requester.send("3"); });
        EXPECT_EQ(endless, replier.wait_for_any_sample(endless ? DDS_DURATION_INFINITE : DDS_Duration_t{20, 0}, 3));
        EXPECT_EQ(1, replier.touch_samples(9, replier._not_read_sample_cond));
    }
}

TEST_F(FailureSweep, collecting_replies) {
    for (const bool take : {false, true}) {
        sweep({{
                   {"DDSDataReader::create_index_condition", ALWAYS,
                    "RequesterUntypedImpl::create_correlation_condition:", "correlation condition"},
                   {"DDS_DataReader::read_or_take", BY_CODE, READ, "read from DataReader"},
                   {"DDSDataReader::delete_readcondition", IGNORED, "", "", AT_REST_WITH_A_CONDITION},
                   {"DDS_DataReader::return_loan", IGNORED, RETURN, "return DataReader loan", AT_REST_WITH_A_LOAN},
               },
               [&] {
                   pair_up();
                   _replier->reply(_request, "1");
               },
               [&] {
                   void** data = nullptr;
                   int count = 0;
                   DDS_SampleInfoSeq infos;
                   _requester->get_reply_loaned(&data, &count, infos, DDS_LENGTH_UNLIMITED, _request, take);
                   _requester->return_loan(data, infos);
                   return count == 1;
               },
               AT_REST,
               AT_REST});
    }
}

TEST_F(FailureSweep, destroying_a_requester) {
    sweep(
        {{
             {"DDSReadCondition::get_c_condition", IGNORED, "finalize", "condition"},
             {"DDSDataReader::delete_readcondition", IGNORED, "finalize", "read condition (1)", "1 conditions 1 filters 1 readers"},
             {"DDSDataReader::delete_readcondition", IGNORED, "finalize", "read condition (2)", "1 conditions 1 filters 1 readers"},
             {"DDSDomainParticipant::delete_datareader", IGNORED, "finalize", "reader", "1 filters 1 readers"},
             {"DDSDomainParticipant::delete_contentfilteredtopic", IGNORED, "finalize", "content-filtered topic", "1 filters"},
             {"DDSDomainParticipant::delete_datawriter", IGNORED, "finalize", "writer", "1 writers"},
         },
         [&] { _requester.reset(new OpenRequester(params("S"))); },
         [&] { return _requester.reset(), true; },
         "",
         ""});
}

// A failure while the requester cleans up after another one.
TEST_F(FailureSweep, a_filter_without_a_reader_that_cannot_be_deleted_is_logged) {
    _script.fail_every("DDSDomainParticipant::create_datareader");
    _script.fail_every("DDSDomainParticipant::delete_contentfilteredtopic");
    LogCapture log;
    EXPECT_EQ("RuntimeException", thrown_by([&] { OpenRequester requester(params("S")); }).type);
    EXPECT_EQ("1 filters", live());
    EXPECT_EQ(1, log.count(expanded(VOST_LOG_DESTRUCTION_FAILURE_s, "content-filtered topic")));
}

TEST_F(FailureSweep, codes_by_which_nothing_failed_let_the_operation_go_on) {
    const LogCapture quiet;
    for (const DDS_ReturnCode_t code : {DDS_RETCODE_TIMEOUT, DDS_RETCODE_NO_DATA}) {
        pair_up();
        for (const char* call : {"DDSDomainParticipant::get_default_datawriter_qos_for_topic",
                                 "DDSDomainParticipant::get_default_datareader_qos_for_topic", "DDSDataReader::create_index"}) {
            _script.fail_every(call, code);
            EXPECT_EQ("", thrown_by([&] { OpenRequester requester(params("T")); }).type) << call;
        }
        _script.fail_every("DDS_DataWriter::write", code);
        const Thrown thrown = thrown_by([&] { _requester->send("y"); });
        const bool late = code == DDS_RETCODE_TIMEOUT;
        EXPECT_EQ(late ? "TimeoutException" : "", thrown.type);
        EXPECT_EQ(late ? "EntityUntypedImpl::send_sample:" + expanded(VOST_LOG_ANY_FAILURE_s, "DataWriter write timeout") : "",
                  thrown.message);
        _script.fail_every("DDS_DataWriter::write", DDS_RETCODE_OK);
        tidy_up();
    }
}

struct Number {
    int value;
};
BOOST_DESCRIBE_STRUCT(Number, (), (value))
typedef Requester<Number, Number> NumberRequester;
typedef Replier<Number, Number> NumberReplier;

// Answers with the next number, inside the requester's write. Outlives its replier.
struct Answerer : DDSDataReaderListener {
    void on_data_available(DDSDataReader*) override {
        for (const auto& request : replier->take_requests()) {
            replier->send_reply({request.data().value + 1}, request.identity());
        }
    }
    NumberReplier* replier = nullptr;
};

// The typed ends make more calls than the core, and promise the same: an exception of the library's, and nothing left.
TEST_F(FailureSweep, typed_ends_that_meet_call_and_close) {
    const LogCapture quiet(0, 0);
    int failures = 0;
    bool complete = false;
    for (int number = 1; !complete; ++number) {
        _script.fail_call(number);
        bool answered = false;
        const Thrown thrown = thrown_by([&] {
            Answerer answerer;
            NumberReplier replier(ReplierParams(_participant.get()).service_name("S"));
            NumberRequester requester(params("S"));
            answerer.replier = &replier;
            replier.get_request_datareader()->set_listener(&answerer, DDS_DATA_AVAILABLE_STATUS);
            answered = requester.call({6}, std::chrono::milliseconds(30)).value == 7;
            requester.stats();
            replier.stats();
            replier.wait_for_acknowledgments(DDS_DURATION_ZERO);
            requester.close();
            replier.close();
        });
        const std::string failed = _script.failed_call();
        SCOPED_TRACE(std::to_string(number) + ": " + failed + ", " + thrown.type + " " + thrown.message);
        complete = failed.empty();
        EXPECT_TRUE(!complete || answered);
        failures += thrown.type.empty() ? 0 : 1;
        EXPECT_TRUE(answered || !thrown.type.empty());
        EXPECT_TRUE(thrown.type.empty() || thrown.type.find("Exception") != std::string::npos);
        const bool may_leave_something =
            failed.find("::delete_") != std::string::npos || failed.find("return_loan") != std::string::npos;
        EXPECT_TRUE(live().empty() || may_leave_something) << live();
        _script.fail_call(0);
        tidy_up();
    }
    EXPECT_LT(20, failures);
}

// The second request comes between the look at what is there and the wait, and with it the end of receiving.
TEST_F(FailureSweep, a_request_that_came_before_the_end_of_receiving_counts) {
    const LogCapture quiet(0, 0);
    NumberReplier replier(ReplierParams(_participant.get()).service_name("S"));
    NumberRequester requester(RequesterParams(&_real).service_name("S"));
    requester.send_request({1});
    _script.at_next("DDS_DataReader::return_loan", [&] {
        requester.send_request({2});
        replier.stop_receiving();
    });
    EXPECT_TRUE(replier.wait_for_requests(std::chrono::seconds(20), 2));
    EXPECT_EQ(2, replier.take_requests().length());
}

TEST_F(FailureSweep, a_service_goes_on_when_a_wait_fails_and_says_when_acknowledgments_are_missing) {
    const LogCapture log;
    {
        Service<Number, Number> service(ReplierParams(_participant.get()).service_name("S"),
                                        [](const Number& request) { return Number{request.value + 1}; });
        NumberRequester requester(RequesterParams(&_real).service_name("S"));
        _script.fail_every("DDS_DataReader::read_or_take");
        const DDS_SampleIdentity_t id = requester.send_request({1});
        EXPECT_TRUE(eventually([&] { return log.count("waiting for a request failed, the worker goes on: ") > 0; }));
        _script.fail_every("DDS_DataReader::read_or_take", DDS_RETCODE_OK);
        EXPECT_TRUE(requester.wait_for_replies(std::chrono::seconds(20), id));
        _script.fail_every("DDSDataWriter::wait_for_acknowledgments", DDS_RETCODE_TIMEOUT);
        EXPECT_FALSE(service.stop(std::chrono::seconds(1)));
    }
    EXPECT_EQ(1, log.count("destroyed before the last replies were acknowledged"));
}

TEST_F(FailureSweep, a_call_for_which_memory_is_short_leaves_nothing) {
    const LogCapture quiet(0, 0);
    Answerer answerer;
    NumberReplier replier(ReplierParams(&_real).service_name("S"));
    NumberRequester requester(RequesterParams(&_real).service_name("S"));
    answerer.replier = &replier;
    replier.get_request_datareader()->set_listener(&answerer, DDS_DATA_AVAILABLE_STATUS);
    for (const int value : {1, 2}) {  // the first finds the pools empty
        fail_each_allocation([&] {
            bool answered = false;
            try {
                answered = requester.call({value}, DDS_DURATION_ZERO).value == value + 1;
            } catch (const Rethrowable&) {
            } catch (const std::bad_alloc&) {
            }
            AllocationProbe::stop();
            EXPECT_TRUE(answered || AllocationProbe::has_failed());
        });
    }
    const RequesterStatistics statistics = requester.stats();
    EXPECT_EQ(0, statistics.pending + statistics.queued);
    EXPECT_EQ(6, requester.call({5}, DDS_DURATION_ZERO).value);
    EXPECT_EQ(DDS_RETCODE_OK, replier.get_request_datareader()->set_listener(nullptr, 0));
}

}  // namespace
}  // namespace norvane::test
