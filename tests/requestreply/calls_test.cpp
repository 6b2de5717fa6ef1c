// SPDX-License-Identifier: Apache-2.0
// Whole calls: readiness, time-outs that say why, replies that come too late, closing, limits and counters.
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "support/AllocationProbe.hpp"
#include "support/LogCapture.hpp"
#include "support/ServiceFixture.hpp"
#include "support/Thrown.hpp"

namespace norvane::test {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds SHORT(20);

typedef Service<std::string, std::string> TextService;

std::string marked(const std::string& request) { return request + "!"; }

class Calls : public ServiceFixture {
protected:
    static std::future<Thrown> started(const std::function<void()>& action) {
        return start_blocking([action] { return thrown_by(action); });
    }
};

TEST_P(Calls, wait_for_a_replier_inside_their_time_or_fail_at_once) {
    TextRequester requester(requester_params());
    EXPECT_FALSE(requester.is_service_ready());
    EXPECT_FALSE(requester.wait_for_service(SHORT));
    expect_thrown("CallTimeoutException NO_REPLIER", "no replier is there", thrown_by([&] { requester.call("x", SHORT); }));
    expect_thrown("CallTimeoutException NO_REPLIER", "no replier is there",
                  thrown_by([&] { requester.call("x", PATIENCE, WhenNobodyIsThere::FAIL); }));
    expect_thrown("BadParameterException", "count", thrown_by([&] { requester.wait_for_service(SHORT, 0); }));
    EXPECT_EQ(0, requester.stats().sent) << "to nobody";

    std::future<Thrown> waiting = started([&] { EXPECT_EQ("x!", requester.call("x", PATIENCE)); });
    std::future<Thrown> for_two = started([&] { EXPECT_TRUE(requester.wait_for_service(PATIENCE, 2)); });
    {
        const TextService echo(replier_params(), marked);
        EXPECT_EQ("", waiting.get().type);
        EXPECT_TRUE(requester.wait_for_service());
        EXPECT_FALSE(requester.wait_for_service(SHORT, 2));
        const TextReplier another(replier_params(join()));
        EXPECT_EQ("", for_two.get().type);
        EXPECT_EQ(2, requester.matched_repliers());
    }
    EXPECT_TRUE(eventually([&] { return requester.matched_repliers() == 0; }));
    expect_thrown("CallTimeoutException NO_REPLIER", "has left", thrown_by([&] { requester.call("x", SHORT); }));
}

// Peers that announce nothing of who belongs to whom: a reader and a writer in one participant are one replier.
TEST_P(Calls, count_plain_peers_as_repliers_when_both_their_ends_are_there) {
    TextRequester requester(requester_params());
    DDSDomainParticipant& peer = *join();
    const char* const type = DDSStringTypeSupport::get_instance().get_type_name();
    ASSERT_EQ(DDS_RETCODE_OK, DDSStringTypeSupport::get_instance().register_type(&peer));
    DDSTopic* requests = peer.create_topic("SRequest", type, DDS_TOPIC_QOS_DEFAULT, nullptr, 0);
    DDSTopic* replies = peer.create_topic("SReply", type, DDS_TOPIC_QOS_DEFAULT, nullptr, 0);
    DDS_DataReaderQos reader_qos;
    reader_qos.reliability.kind = DDS_RELIABLE_RELIABILITY_QOS;
    DDSDataReader* reader = peer.create_datareader(requests, reader_qos, nullptr, 0);
    ASSERT_TRUE(eventually([&] {
        DDS_PublicationMatchedStatus status;
        requester.get_request_datawriter()->get_publication_matched_status(status);
        return status.current_count == 1;
    }));
    EXPECT_EQ(0, requester.matched_repliers());
    expect_thrown("CallTimeoutException NOT_MATCHED_YET", "the way of its replies is not there",
                  thrown_by([&] { requester.call("x", SHORT); }));
    DDSDataWriter* writer = peer.create_datawriter(replies, DDS_DATAWRITER_QOS_DEFAULT, nullptr, 0);
    EXPECT_TRUE(requester.wait_for_service(PATIENCE));
    EXPECT_EQ(DDS_RETCODE_OK, peer.delete_datareader(reader));
    EXPECT_TRUE(eventually([&] { return requester.matched_repliers() == 0; }));
    expect_thrown("CallTimeoutException NOT_MATCHED_YET", "the way of the requests to it is not there",
                  thrown_by([&] { requester.call("x", SHORT); }));
    EXPECT_EQ(DDS_RETCODE_OK, peer.delete_datawriter(writer));
}

struct Number {
    int value = 0;
};
BOOST_DESCRIBE_STRUCT(Number, (), (value))

TEST_P(Calls, that_time_out_say_why) {
    const LogCapture quiet(0, 0);
    const auto says = [](TextRequester& requester, const std::string& reason, const std::string& words) {
        return eventually([&] {
            const Thrown thrown = thrown_by([&] { requester.call("x", SHORT); });
            return thrown.type == "CallTimeoutException " + reason && thrown.message.find(words) != std::string::npos;
        });
    };
    // The request is with one that leaves while another one comes. The time-out is seen once the loop runs.
    Dispatcher dispatcher(Dispatcher::CALLERS);
    TextRequester asking(requester_params(), dispatcher);
    for (const bool has_successor : {false, true}) {
        EXPECT_TRUE(eventually([&] { return asking.matched_repliers() == 0; }));
        const std::int64_t before = asking.stats().sent;
        std::optional<TextReplier> leaving(std::in_place, replier_params());
        ASSERT_TRUE(asking.wait_for_service(PATIENCE));
        EXPECT_TRUE(says(asking, "SILENT", "1 replier is ready, and has not answered"));
        std::future<std::string> call = asking.call_async("x", SHORT);
        EXPECT_TRUE(eventually([&] { return leaving->stats().queued == asking.stats().sent - before; }));
        std::optional<TextReplier> successor;
        if (has_successor) {
            successor.emplace(replier_params());
            EXPECT_TRUE(asking.wait_for_service(PATIENCE, 2));
        }
        leaving.reset();
        EXPECT_TRUE(eventually([&] { return asking.matched_repliers() == (has_successor ? 1 : 0); }));
        EXPECT_EQ(1, dispatcher.run_once(PATIENCE));
        expect_thrown("CallTimeoutException REPLIER_LEFT",
                      has_successor ? "1 replier is ready that came later" : "the last one has left",
                      thrown_by([&] { call.get(); }));
    }
    {
        DDS_DataWriterQos best_effort = request_reply_writer_qos();
        best_effort.reliability.kind = DDS_BEST_EFFORT_RELIABILITY_QOS;
        TextRequester stranger(requester_params(nullptr, "Q"));
        const TextReplier replier(replier_params(nullptr, "Q").datawriter_qos(best_effort));
        EXPECT_TRUE(says(stranger, "INCOMPATIBLE_QOS", "RELIABILITY, offered BEST_EFFORT, requested RELIABLE"));
    }
    std::optional<Replier<Number, Number>> another_type(std::in_place, replier_params(join(), "T"));
    TextRequester mistaken(requester_params(nullptr, "T"));
    EXPECT_TRUE(says(mistaken, "INCOMPATIBLE_TYPE", ": a replier was found, but reads requests of another type"));
    // It was taken for one that is there when it had left long ago, and the right one after it.
    another_type.reset();
    {
        const TextReplier right(replier_params(nullptr, "T"));
        EXPECT_TRUE(says(mistaken, "SILENT", "1 replier is ready"));
    }
    EXPECT_TRUE(
        says(mistaken, "NO_REPLIER", ": no replier is there any more: the last one has left; besides, a replier was found"));
}

TEST_P(Calls, count_the_repliers_that_came_while_memory_was_short) {
    if (GetParam() != "embedded") {
        GTEST_SKIP() << "only there the requester hears of a replier on the thread that makes it";
    }
    const LogCapture quiet(0, 0);
    TextRequester requester(requester_params());
    const ReplierParams params = replier_params();
    std::unique_ptr<TextReplier> replier;
    int counted = 0;
    fail_each_allocation([&] {
        try {
            replier = std::make_unique<TextReplier>(params);
        } catch (const std::exception&) {
            replier = nullptr;
        }
        AllocationProbe::stop();
        DDS_InstanceHandleSeq readers;
        DDS_InstanceHandleSeq writers;
        requester.get_request_datawriter()->get_matched_subscriptions(readers);
        requester.get_reply_datareader()->get_matched_publications(writers);
        if (readers.length() == 1 && writers.length() == 1 && !HasFailure()) {
            ++counted;
            EXPECT_TRUE(requester.wait_for_service(PATIENCE));
            EXPECT_EQ(1, requester.matched_repliers());
        }
        replier = nullptr;
        EXPECT_EQ(0, requester.matched_repliers());
    });
    EXPECT_LT(5, counted) << "repliers that were made although memory was short";
}

TEST_P(Calls, do_not_lose_their_room_to_replies_that_answer_nothing) {
    TextReplier replier(replier_params());
    DDS_DataReaderQos bounded = request_reply_reader_qos();
    bounded.resource_limits.max_samples = 2;
    TextRequester requester(requester_params().datareader_qos(bounded));
    ASSERT_TRUE(requester.wait_for_service(PATIENCE));
    const DDS_SampleIdentity_t first = requester.send_request("x");
    for (DDS_UnsignedLong ahead = 1; ahead <= 3; ++ahead) {
        replier.send_reply("nothing", {first.writer_guid, {0, first.sequence_number.low + ahead}});
    }
    EXPECT_TRUE(eventually([&] { return requester.stats().late == 3 && answer_all(replier, "!") == 1; }));
    EXPECT_EQ("x!", requester.receive_reply(PATIENCE)->data());
    std::future<std::string> next = std::async(std::launch::async, [&] { return requester.call("y", PATIENCE); });
    EXPECT_TRUE(eventually([&] { return answer_all(replier, "!") == 1; }));
    EXPECT_EQ("y!", next.get());
}

TEST_P(Calls, that_are_forgotten_leave_no_reply_behind) {
    TextReplier replier(replier_params());
    TextRequester requester(requester_params());
    ASSERT_TRUE(requester.wait_for_service(PATIENCE));
    const DDS_SampleIdentity_t wanted = requester.send_request("wanted");
    const DDS_SampleIdentity_t forgotten = requester.send_request("forgotten");
    EXPECT_TRUE(eventually([&] { return answer_all(replier, "?") != 0 && requester.wait_for_replies(PATIENCE, 2); }));
    requester.forget(forgotten);
    EXPECT_FALSE(requester.take_reply(forgotten));
    // Numbers count requester by requester, and one of no request would in time close every later one.
    const DDS_SampleIdentity_t numberless = {wanted.writer_guid, DDS::SEQUENCE_NUMBER_MAX};
    const DDS_SampleIdentity_t foreign = {{{7}}, wanted.sequence_number};
    const LogCapture quiet(0, 0);
    for (const DDS_SampleIdentity_t& id : {foreign, numberless, DDS_UNKNOWN_SAMPLE_IDENTITY, DDS_SampleIdentity_t()}) {
        expect_thrown("BadParameterException", "no request of this requester", thrown_by([&] { requester.forget(id); }));
    }
    EXPECT_EQ("wanted?", requester.take_reply(wanted)->data());
    EXPECT_EQ(0, requester.stats().queued);
}

TEST_P(Calls, end_with_a_clear_error_when_either_side_is_closed) {
    TextReplier replier(replier_params().max_queued_requests(1));
    const DDS_DataWriterQos qos = one_on_the_way();
    auto requester = std::make_unique<TextRequester>(requester_params().datawriter_qos(qos));
    ASSERT_TRUE(requester->wait_for_service(PATIENCE));
    const DDS_SampleIdentity_t id = requester->send_request("fills the queue");
    EXPECT_TRUE(eventually([&] { return replier.stats().queued == 1; }));
    if (encodes()) {
        requester->send_request("is on the way");
    }
    TextRequester other(requester_params(nullptr, "nobody"));
    const std::function<void()> waits[] = {
        [&] { requester->call("finds no room", PATIENCE); }, [&] { requester->send_request("finds no room either"); },
        [&] { requester->wait_for_replies(PATIENCE); },      [&] { requester->wait_for_replies(PATIENCE, id); },
        [&] { requester->wait_for_service(PATIENCE, 2); },
    };
    std::vector<std::future<Thrown>> blocked;
    for (const auto& wait : waits) {
        blocked.push_back(started(wait));
    }
    blocked.push_back(started([&] { other.call("x", PATIENCE); }));
    const auto start = std::chrono::steady_clock::now();
    requester->close();
    other.close();
    for (std::future<Thrown>& each : blocked) {
        expect_thrown("AlreadyDeletedException", "the requester was closed", each.get());
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << "woken by their own time-outs";
    requester->close();
    for (const auto& wait : waits) {
        expect_thrown("AlreadyDeletedException", "the requester was closed", thrown_by(wait));
    }
    EXPECT_EQ(0, requester->take_replies().length());
    EXPECT_EQ("fills the queue", replier.take_request()->data());
    requester.reset();

    std::future<Thrown> idle = started([&] { replier.receive_request(PATIENCE); });
    replier.close();
    expect_thrown("AlreadyDeletedException", "the replier was closed", idle.get());
    replier.close();
    expect_thrown("AlreadyDeletedException", "the replier was closed", thrown_by([&] { replier.send_reply("x", id); }));
    expect_thrown("AlreadyDeletedException", "the replier was closed", thrown_by([&] { replier.receive_request(SHORT); }));
}

TEST_P(Calls, find_a_limit_on_queued_requests_and_nothing_is_lost_at_it) {
    LogCapture log;
    TextReplier replier(replier_params().max_queued_requests(2));
    const DDS_DataWriterQos qos = one_on_the_way();
    TextRequester requester(requester_params().datawriter_qos(qos));
    ASSERT_TRUE(requester.wait_for_service(PATIENCE));
    std::vector<std::future<std::string>> calls;
    for (int number = 0; number < 8; ++number) {
        calls.push_back(std::async(std::launch::async, [&] { return requester.call("x", PATIENCE); }));
    }
    EXPECT_TRUE(eventually([&] {
        DDS_DataWriterCounts counts;
        EXPECT_EQ(DDS_RETCODE_OK, requester.get_request_datawriter()->get_counts(counts));
        return replier.stats().queued == 2 && counts.written == (encodes() ? 3 : 2) && counts.unacknowledged == (encodes() ? 1 : 0);
    }));
    const Thrown refused = thrown_by([&] { requester.call("x", SHORT); });
    expect_thrown("CallTimeoutException NO_ROOM", "had no room", refused);
    EXPECT_TRUE(log.library_lines().empty()) << "a line for each call that is refused would fill the log when all else is full";
    int answered = 0;
    EXPECT_TRUE(eventually([&] { return (answered += answer_all(replier, "!")) >= 8; }));
    for (auto& call : calls) {
        EXPECT_EQ("x!", call.get());
    }
    EXPECT_EQ(8, replier.stats().answered);
    EXPECT_EQ(0, replier.stats().lost);
    expect_thrown("BadParameterException", "max_queued_requests",
                  thrown_by([&] { TextReplier(replier_params(nullptr, "Z").max_queued_requests(0)); }));
}

TEST_P(Calls, a_replier_that_takes_no_more_requests_in_serves_those_that_it_has) {
    TextReplier replier(replier_params());
    TextRequester requester(requester_params());
    ASSERT_TRUE(requester.wait_for_service(PATIENCE));
    const DDS_SampleIdentity_t ids[] = {requester.send_request("a"), requester.send_request("b")};
    EXPECT_TRUE(eventually([&] { return replier.stats().queued == 2; }));
    replier.stop_receiving();
    EXPECT_TRUE(eventually([&] { return requester.matched_repliers() == 0; }));
    expect_thrown("AlreadyDeletedException", "fewer than that", thrown_by([&] { replier.wait_for_requests(PATIENCE, 3); }));
    for (const DDS_SampleIdentity_t& id : ids) {
        const auto request = replier.receive_request(PATIENCE);
        ASSERT_TRUE(request);
        EXPECT_EQ(id, request->identity());
        replier.send_reply("!", id);
    }
    expect_thrown("AlreadyDeletedException", "none is queued", thrown_by([&] { replier.receive_request(PATIENCE); }));
    EXPECT_TRUE(replier.wait_for_acknowledgments(PATIENCE));
    EXPECT_TRUE(requester.wait_for_replies(PATIENCE, 2));
}

TEST_P(Calls, requests_to_nobody_are_counted_and_logged_once) {
    LogCapture log;
    TextRequester requester(requester_params());
    for (int time = 0; time < 3; ++time) {
        requester.send_request("x");
    }
    EXPECT_EQ(3, requester.stats().unmatched);
    {
        const TextReplier replier(replier_params());
        ASSERT_TRUE(requester.wait_for_service(PATIENCE));
        requester.send_request("to one");
        EXPECT_EQ(3, requester.stats().unmatched);
    }
    EXPECT_TRUE(eventually([&] { return requester.matched_repliers() == 0; }));
    requester.send_request("to nobody any more");
    EXPECT_EQ(4, requester.stats().unmatched);
    EXPECT_EQ(1, log.count("the request may be lost"));
}

// A default-constructed reader lost four requests of five without a line, and a QoS copied from an endpoint was refused for its
// GUID.
TEST_P(Calls, take_a_qos_of_ones_own_from_the_defaults_or_from_another_endpoint) {
    LogCapture log;
    const TextReplier first(replier_params());
    DDS_DataReaderQos reader_qos;
    DDS_DataWriterQos writer_qos;
    ASSERT_EQ(DDS_RETCODE_OK, first.get_request_datareader()->get_qos(reader_qos));
    ASSERT_EQ(DDS_RETCODE_OK, first.get_reply_datawriter()->get_qos(writer_qos));
    const DDS_DataWriterQos defaults = request_reply_writer_qos(&_participant);
    EXPECT_EQ(defaults.history.kind, writer_qos.history.kind);
    EXPECT_EQ(defaults.reliability.max_blocking_time, writer_qos.reliability.max_blocking_time);

    TextReplier second(replier_params().datareader_qos(reader_qos).datawriter_qos(writer_qos));
    TextRequester requester(requester_params().datareader_qos(reader_qos).datawriter_qos(writer_qos));
    DDS_DataWriterQos other;
    ASSERT_EQ(DDS_RETCODE_OK, second.get_reply_datawriter()->get_qos(other));
    EXPECT_FALSE(other.protocol.virtual_guid == writer_qos.protocol.virtual_guid);
    await_repliers(requester, 2);
    requester.send_request("x");
    EXPECT_TRUE(eventually([&] { return answer_all(second, "!") == 1; }));
    EXPECT_EQ("x!", requester.receive_reply(PATIENCE)->data());
    EXPECT_EQ(0, log.count("samples can be lost"));

    reader_qos = DDS_DataReaderQos();
    reader_qos.history.kind = DDS_KEEP_ALL_HISTORY_QOS;
    reader_qos.resource_limits.max_samples = 1;
    TextReplier lossy(replier_params().datareader_qos(reader_qos));
    EXPECT_EQ(1, log.count("is best-effort: samples can be lost"));
    await_repliers(requester, 3);
    for (int number = 0; number < 3; ++number) {
        requester.send_request("y");
    }
    EXPECT_TRUE(eventually([&] { return lossy.stats().lost == 2; })) << lossy.stats().lost;
}

INSTANTIATE_TEST_SUITE_P(Engine, Calls, ::testing::ValuesIn(engine_names()), engine_of_test);

}  // namespace
}  // namespace norvane::test
