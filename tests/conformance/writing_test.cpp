// SPDX-License-Identifier: Apache-2.0
// Writing: identities, what a sample carries, room and the want of it, and what late readers get.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <future>
#include <vector>

#include "support/AllocationProbe.hpp"
#include "support/TextFixture.hpp"

namespace norvane::test {
namespace {

class Writing : public TextFixture {
protected:
    static DDS_LongLong lost(DDSDataReader& reader, DDS_LongLong DDS_SampleLostStatus::*kind) {
        DDS_SampleLostStatus status;
        EXPECT_EQ(OK, reader.get_sample_lost_status(status));
        return status.*kind;
    }
};
INSTANTIATE_TEST_SUITE_P(Engine, Writing, ::testing::ValuesIn(engine_names()), engine_of_test);

TEST_P(Writing, a_sample_carries_the_identity_that_its_write_returned_and_what_it_answers) {
    DDSDataWriter& sender = writer();
    DDSDataReader& receiver = reader();
    DDSReadCondition& all = condition(receiver);
    meet(sender, receiver);
    DDS_DataWriterQos qos;
    ASSERT_EQ(OK, sender.get_qos(qos));
    const DDS_GUID_t guid = qos.protocol.virtual_guid;
    DDS_Time_t start;
    ASSERT_EQ(OK, _participant.get_current_time(start));
    for (DDS_UnsignedLong number = 1; number <= 5; ++number) {
        const DDS_SampleIdentity_t related = number % 2 == 0 ? related_to(number * 10) : DDS_UNKNOWN_SAMPLE_IDENTITY;
        const DDS_SampleIdentity_t identity = deliver(sender, "x", related);
        EXPECT_EQ((DDS_SampleIdentity_t{guid, {0, number}}), identity) << "from one, without a gap";
        Loan loan(receiver, all);
        ASSERT_EQ(1, loan.count);
        const DDS_SampleInfo& info = loan.infos[0];
        EXPECT_EQ(identity, identity_of(info));
        EXPECT_EQ(related, related_identity_of(info));
        EXPECT_EQ(guid, info.publication_virtual_guid);
        EXPECT_EQ(identity.sequence_number, info.publication_virtual_sequence_number);
        EXPECT_EQ((DDS_SequenceNumber_t{0, number}), info.reception_sequence_number);
        EXPECT_EQ(sender.get_instance_handle(), info.publication_handle);
        EXPECT_EQ(DDS_HANDLE_NIL, info.instance_handle);
        EXPECT_TRUE(info.valid_data);
        EXPECT_TRUE(info.view_state == DDS_NEW_VIEW_STATE && info.instance_state == DDS_ALIVE_INSTANCE_STATE);
        EXPECT_GE((info.source_timestamp - start).sec, 0);
        EXPECT_GE((info.reception_timestamp - info.source_timestamp).sec, 0);
    }
    DDS_WriteParams_t params;
    params.source_timestamp = {12345, 678};
    EXPECT_EQ(OK, write(sender, "old", params));
    EXPECT_EQ(OK, sender.wait_for_acknowledgments(LONG_TIME));
    const Loan loan(receiver, all);
    ASSERT_EQ(1, loan.count);
    EXPECT_EQ((DDS_Time_t{12345, 678}), loan.infos[0].source_timestamp);
    EXPECT_GE((loan.infos[0].reception_timestamp - start).sec, 0);
}

TEST_P(Writing, an_explicit_identity_is_the_writers_own_and_above_all_that_it_has_used) {
    const LogCapture log;
    DDSDataWriter& sender = writer();
    DDSDataReader& receiver = reader();
    DDSReadCondition& all = condition(receiver);
    meet(sender, receiver);
    DDS_DataWriterQos qos;
    ASSERT_EQ(OK, sender.get_qos(qos));
    const DDS_GUID_t own = qos.protocol.virtual_guid;
    const DDS_GUID_t foreign = {{9, 9, 9}};
    const DDS_SequenceNumber_t automatic = DDS_AUTO_SEQUENCE_NUMBER;
    const bool may_choose = GetParam() != "fastdds";  // a number: Fast DDS has its own
    DDS_SequenceNumber_t last = DDS::SEQUENCE_NUMBER_ZERO;
    // In this order: each row goes on from the one before.
    struct {
        DDS_GUID_t guid;
        DDS_SequenceNumber_t wanted;
        DDS_SequenceNumber_t given;  // {0, 0}: refused
    } const CASES[] = {
        {DDS_GUID_AUTO, automatic, {0, 1}},
        {own, automatic, {0, 2}},
        {DDS_GUID_AUTO, {0, 7}, {0, 7}},
        {DDS_GUID_AUTO, {0, 7}, {0, 0}},
        {foreign, {0, 8}, {0, 0}},
        {foreign, automatic, {0, 0}},
        {DDS_GUID_UNKNOWN, automatic, {0, 0}},
        {own, DDS::SEQUENCE_NUMBER_UNKNOWN, {0, 0}},
        {own, DDS::SEQUENCE_NUMBER_MAX, {0, 0}},
        {own, {-5, 3}, {0, 0}},
        {DDS_GUID_AUTO, automatic, {0, 8}},
        {own, {0, 0xffffffff}, {0, 0xffffffff}},
        {own, automatic, {1, 0}},
        {own, {3, 1}, {3, 1}},
        {DDS_GUID_AUTO, automatic, {3, 2}},
    };
    int row = 0;
    for (const auto& each : CASES) {
        SCOPED_TRACE("row " + std::to_string(row++));
        const bool is_supported = may_choose || each.wanted == automatic || each.guid == foreign;
        const bool legal = is_supported && each.given != DDS::SEQUENCE_NUMBER_ZERO;
        if (legal) {
            last = may_choose ? each.given : DDS_SequenceNumber_t{0, last.low + 1};
        }
        DDS_WriteParams_t params;
        params.identity = {each.guid, each.wanted};
        EXPECT_EQ(legal ? OK : is_supported ? BAD_PARAMETER : DDS_RETCODE_UNSUPPORTED, write(sender, "x", params));
        EXPECT_EQ(legal ? (DDS_SampleIdentity_t{own, last}) : (DDS_SampleIdentity_t{each.guid, each.wanted}), params.identity);
        if (legal) {
            EXPECT_EQ(OK, sender.wait_for_acknowledgments(LONG_TIME));
        }
        Loan loan(receiver, all);
        ASSERT_EQ(legal ? 1 : 0, loan.count);
        EXPECT_TRUE(!legal || identity_of(loan.infos[0]) == params.identity);
    }
    DDS_WriteParams_t params;
    params.replace_auto = DDS_BOOLEAN_FALSE;
    EXPECT_EQ(OK, write(sender, "x", params));
    EXPECT_EQ(DDS_AUTO_SAMPLE_IDENTITY, params.identity);
    EXPECT_EQ(OK, write(sender, "x", params));
    EXPECT_EQ(OK, sender.wait_for_acknowledgments(LONG_TIME));
    const Loan loan(receiver, all);
    ASSERT_EQ(2, loan.count);
    EXPECT_TRUE(may_choose || log.count("leave that of the identity automatic") > 0);
    EXPECT_EQ((DDS_SequenceNumber_t{last.high, last.low + 2}), identity_of(loan.infos[1]).sequence_number)
        << "a refused write used up a number";
    if (may_choose) {
        params.identity = {own, {INT32_MAX, 0xfffffffe}};
        EXPECT_EQ(OK, write(sender, "x", params));
        params.identity = DDS_AUTO_SAMPLE_IDENTITY;
        EXPECT_EQ(DDS_RETCODE_OUT_OF_RESOURCES, write(sender, "x", params)) << "the numbers are used up";
    }
}

// A full reader that is reliable stops its writer: nothing is lost, and nothing is written that was not acknowledged with OK.
TEST_P(Writing, without_room_a_write_times_out_and_leaves_no_gap) {
    struct {
        DDS_Duration_t of_writer;
        DDS_Duration_t of_write;  // the shorter of the two holds
        int at_least_ms;
    } const CASES[] = {
        {NO_TIME, DDS_DURATION_INFINITE, 0},
        {SHORT_TIME, DDS_DURATION_INFINITE, 20},
        {LONG_TIME, NO_TIME, 0},
    };
    for (const auto& each : CASES) {
        DDSDataReader& receiver = reader(reader_qos(2));
        DDS_DataWriterQos qos = writer_qos(each.of_writer);
        qos.resource_limits = {8, 0};  // an engine that keeps samples on the way to the reader keeps as many
        DDSDataWriter& sender = writer(qos);
        meet(sender, receiver);
        DDS_WriteParams_t params;
        const auto write_next = [&](const char* text) {
            params.identity = DDS_AUTO_SAMPLE_IDENTITY;
            params.max_blocking_time = each.of_write;
            return write(sender, text, params);
        };
        DDS_UnsignedLong written = 0;
        while (written < 10000 && write_next("x") == OK) {
            ++written;
        }
        EXPECT_LE(2U, written);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(TIMEOUT, write_next("too much"));
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(each.at_least_ms));
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
        EXPECT_TRUE(eventually([&] { return take(receiver), write_next("next") == OK; }));
        EXPECT_EQ(written + 1, params.identity.sequence_number.low);
        EXPECT_EQ(OK, _participant.delete_datawriter(&sender));
        EXPECT_EQ(OK, _participant.delete_datareader(&receiver));
    }
}

TEST_P(Writing, a_blocked_write_goes_on_when_room_comes_or_either_end_goes) {
    constexpr int SAMPLES = 6;
    typedef std::function<DDS_ReturnCode_t(DDSDataWriter&, DDSDataReader&, Loan&)> Release;
    const Release read_on = [this](DDSDataWriter&, DDSDataReader& receiver, Loan&) {
        return take(receiver).empty() ? TIMEOUT : OK;
    };
    const Release give_back = [](DDSDataWriter&, DDSDataReader&, Loan& loan) { return loan.give_back(); };
    const Release close_key = [](DDSDataWriter&, DDSDataReader& reader, Loan&) { return reader.close_index_key("index", {0, 5}); };
    const Release end_reader = [this](DDSDataWriter&, DDSDataReader& reader, Loan&) {
        return _participant.delete_datareader(&reader);
    };
    const Release end_writer = [this](DDSDataWriter& writer, DDSDataReader&, Loan&) {
        return _participant.delete_datawriter(&writer);
    };
    const Release reader_leaves = [](DDSDataWriter&, DDSDataReader& reader, Loan&) { return reader.leave_domain(); };
    const Release writer_leaves = [](DDSDataWriter& writer, DDSDataReader&, Loan&) { return writer.leave_domain(); };
    struct {
        const char* what;
        bool lend;  // the two samples that fill the reader are taken beforehand, and are on loan
        bool either_end_goes;
        DDS_ReturnCode_t outcome;
        Release release;
    } const CASES[] = {
        {"a loan comes back", true, false, OK, give_back},
        {"samples are taken", false, false, OK, read_on},
        {"a key is closed", false, false, OK, close_key},
        {"the reader goes", false, true, OK, end_reader},
        {"the reader goes with loans out", true, true, OK, end_reader},
        {"the writer goes", false, true, ALREADY_DELETED, end_writer},
        {"the reader leaves", false, true, OK, reader_leaves},
        {"the writer leaves", false, true, ALREADY_DELETED, writer_leaves},
    };
    for (const auto& each : CASES) {
        SCOPED_TRACE(each.what);
        DDSDataReader& receiver = reader(reader_qos(2), each.what);
        ASSERT_EQ(OK, receiver.create_index("index"));
        DDSReadCondition& all = condition(receiver);
        DDS_DataWriterQos qos = writer_qos();
        qos.resource_limits.max_samples = 1;  // an engine that keeps samples on the way to the reader keeps one
        qos.resource_limits.initial_samples = 0;
        DDSDataWriter& sender = writer(qos, each.what);
        meet(sender, receiver);
        std::atomic<long> thread{0};
        std::atomic<int> written{0};
        auto blocked = std::async(std::launch::async, [&] {
            thread = this_thread_number();
            DDS_WriteParams_t params;
            params.related_sample_identity = related_to(5);
            DDS_ReturnCode_t code = OK;
            while (code == OK && written < SAMPLES) {
                params.identity = DDS_AUTO_SAMPLE_IDENTITY;
                code = write(sender, "x", params);
                written += code == OK ? 1 : 0;
            }
            return code;
        });
        EXPECT_TRUE(eventually([&] { return Loan(receiver, all, false).count == 2; }));
        EXPECT_TRUE(eventually([&] { return written >= 2 && is_asleep(thread); }));
        Loan loan(receiver, all, each.lend);
        EXPECT_EQ(2, loan.count);
        if (!each.lend) {
            EXPECT_EQ(OK, loan.give_back());
        }
        const int before = written;
        EXPECT_LT(before, SAMPLES) << "what was only lent made room";
        EXPECT_EQ(OK, receiver.delete_readcondition(&all));
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(OK, each.release(sender, receiver, loan));
        EXPECT_TRUE(eventually([&] { return written > before || each.outcome != OK; }));
        EXPECT_TRUE(eventually([&] {
            if (!each.either_end_goes) {
                take(receiver);
            }
            return blocked.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
        }));
        EXPECT_EQ(each.outcome, blocked.get());
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15)) << "woken by its own deadline";
        EXPECT_EQ(each.outcome == OK ? SAMPLES : before, written);
    }
}

TEST_P(Writing, one_that_has_left_is_gone_for_its_peers_and_keeps_what_it_received) {
    const LogCapture quiet(0, 0);
    DDSDataWriter& sender = writer();
    DDSDataReader& receiver = reader();
    meet(sender, receiver);
    deliver(sender, "1");
    DDS_InstanceHandleSeq peers;
    for (int time = 0; time < 2; ++time) {
        EXPECT_EQ(OK, receiver.leave_domain());
        EXPECT_TRUE(eventually([&] { return sender.get_matched_subscriptions(peers) == OK && peers.length() == 0; }));
    }
    EXPECT_EQ(OK, write(sender, "2"));
    const auto held = [&] {
        DDS_DataReaderCounts counts;
        EXPECT_EQ(OK, receiver.get_counts(counts));
        EXPECT_EQ(1, counts.received);
        return counts.held;
    };
    EXPECT_EQ("1", Loan(receiver, condition(receiver), false).texts());
    EXPECT_EQ(1, held()) << "what was only read is still there";
    EXPECT_EQ("1", take(receiver));
    EXPECT_EQ(0, held());

    DDSDataReader& another = reader();
    meet(sender, another);
    for (int time = 0; time < 2; ++time) {
        EXPECT_EQ(OK, sender.leave_domain());
        EXPECT_EQ(ALREADY_DELETED, write(sender, "3"));
        EXPECT_EQ(ALREADY_DELETED, sender.wait_for_acknowledgments(LONG_TIME));
    }
    EXPECT_TRUE(eventually([&] { return another.get_matched_publications(peers) == OK && peers.length() == 0; }));

    // From inside its own listener nobody leaves: it would wait for itself.
    std::promise<DDS_ReturnCode_t> told;
    DataListener leaver([&](DDSDataReader& reader) { told.set_value(reader.leave_domain()); });
    EXPECT_EQ(OK, another.set_listener(&leaver, DDS_DATA_AVAILABLE_STATUS));
    DDSDataWriter& last = writer();
    meet(last, another);
    deliver(last, "4");
    EXPECT_EQ(PRECONDITION, told.get_future().get());
    EXPECT_EQ(OK, another.set_listener(nullptr, 0));
}

TEST_P(Writing, best_effort_drops_what_finds_no_room_and_counts_it) {
    for (const bool reliable_writer : {true, false}) {
        DDS_DataReaderQos qos = reader_qos(2);
        qos.reliability.kind = DDS_BEST_EFFORT_RELIABILITY_QOS;
        DDSDataReader& receiver = reader(qos);
        DDS_DataWriterQos sender_qos = writer_qos(NO_TIME);
        sender_qos.reliability.kind = reliable_writer ? DDS_RELIABLE_RELIABILITY_QOS : DDS_BEST_EFFORT_RELIABILITY_QOS;
        DDSDataWriter& sender = writer(sender_qos);
        meet(sender, receiver);
        int written = 0;
        EXPECT_TRUE(eventually([&] {
            EXPECT_EQ(OK, write(sender, std::to_string(++written)));
            return lost(receiver, &DDS_SampleLostStatus::no_room_count) >= 3;
        }));
        const std::string got = take(receiver);
        EXPECT_EQ("1 2", got);
        DDS_SampleLostStatus status;
        EXPECT_EQ(OK, receiver.get_sample_lost_status(status));
        EXPECT_EQ(status.total_count, status.no_room_count);
        EXPECT_EQ(OK, _participant.delete_datawriter(&sender));
        EXPECT_EQ(OK, _participant.delete_datareader(&receiver));
    }
}

TEST_P(Writing, keep_last_replaces_the_oldest_but_not_what_is_on_loan) {
    DDS_DataReaderQos qos = reader_qos(3);
    qos.history = {DDS_KEEP_LAST_HISTORY_QOS, 2};
    DDSDataReader& receiver = reader(qos);
    DDSReadCondition& all = condition(receiver);
    DDS_DataWriterQos sender_qos = writer_qos(NO_TIME);
    sender_qos.resource_limits.max_samples = 1;  // an engine that keeps samples on the way to the reader keeps one
    sender_qos.resource_limits.initial_samples = 0;
    DDSDataWriter& sender = writer(sender_qos);
    meet(sender, receiver);
    for (const char* text : {"1", "2", "3", "4", "5"}) {
        deliver(sender, text);
    }
    EXPECT_EQ(3, lost(receiver, &DDS_SampleLostStatus::replaced_count));
    Loan lent(receiver, all, false);
    EXPECT_EQ("4 5", lent.texts());
    deliver(sender, "6");  // replaces "4", which goes on taking room
    // Two are on loan and one is new: there is no room for a fourth.
    const bool on_the_way = write(sender, "7") == OK;
    EXPECT_EQ(TIMEOUT, write(sender, "too much"));
    EXPECT_EQ("5 6", Loan(receiver, all, false).texts());
    EXPECT_EQ("4 5", lent.texts());
    EXPECT_EQ(OK, lent.give_back());
    EXPECT_TRUE(eventually([&] { return write(sender, "8") == OK; }));
    EXPECT_EQ(OK, sender.wait_for_acknowledgments(LONG_TIME));
    EXPECT_EQ(on_the_way ? "7 8" : "6 8", Loan(receiver, all).texts());
}

TEST_P(Writing, a_late_reader_gets_what_a_transient_local_writer_keeps_and_its_filter_passes) {
    DDS_DataWriterQos keeping = writer_qos();
    keeping.durability.kind = DDS_TRANSIENT_LOCAL_DURABILITY_QOS;
    DDS_DataReaderQos late = reader_qos();
    late.durability.kind = DDS_TRANSIENT_LOCAL_DURABILITY_QOS;
    const DDS_DataReaderQos brief = reader_qos();
    DDS_DataReaderQos small = late;
    small.resource_limits.max_samples = 2;
    DDSDataWriter& sender = writer(keeping);
    keeping.history = {DDS_KEEP_LAST_HISTORY_QOS, 2};
    DDSDataWriter& brief_sender = writer(keeping, "Brief");
    for (int number = 1; number <= 5; ++number) {
        const DDS_SampleIdentity_t related = related_to(static_cast<DDS_UnsignedLong>(number));
        deliver(sender, std::to_string(number), number % 2 == 0 ? related : DDS_UNKNOWN_SAMPLE_IDENTITY);
        deliver(brief_sender, std::to_string(number));
    }
    const auto filtered = [&](const char* name, const char* filter) {
        return _participant.create_contentfilteredtopic(name, topic(), filter, DDS_StringSeq());
    };
    struct {
        DDSTopicDescription* topic;
        const DDS_DataReaderQos& qos;
        const char* expected;  // as room comes
    } const CASES[] = {
        {topic(), late, "1 2 3 4 5"},
        {topic(), brief, ""},
        {topic(), small, "1 2 3 4 5"},
        {topic("Brief"), late, "4 5"},
        {filtered("F1", "value >= '3'"), late, "3 4 5"},
        {filtered("F2", "@related_sample_identity.writer_guid.value = &hex(42000000000000000000000000000000)"), late, "2 4"},
        {filtered("F3", "@related_sample_identity.sequence_number = 4 AND value <> 'x'"), late, "4"},
    };
    for (const auto& each : CASES) {
        DDSDataReader* receiver = _participant.create_datareader(each.topic, each.qos, nullptr, 0);
        ASSERT_NE(nullptr, receiver);
        meet(each.topic == topic("Brief") ? brief_sender : sender, *receiver);
        std::string got;
        const auto take_more = [&] {
            const std::string more = take(*receiver);
            got += (got.empty() || more.empty() ? "" : " ") + more;
        };
        EXPECT_TRUE(eventually([&] {
            take_more();
            return sender.wait_for_acknowledgments(NO_TIME) == OK && brief_sender.wait_for_acknowledgments(NO_TIME) == OK;
        }));
        take_more();
        EXPECT_EQ(each.expected, got) << each.topic->get_name();
    }
    deliver(sender, "6");
    DDSDataReader& last = reader(late);
    meet(sender, last);
    EXPECT_EQ(OK, sender.wait_for_acknowledgments(LONG_TIME));
    EXPECT_EQ("1 2 3 4 5 6", take(last));
    if (!encodes()) {  // the thread that makes a reader sends it what was kept
        DDSTopic* const base = topic();
        fail_each_allocation([&] {
            DDSDataReader* const made = _participant.create_datareader(base, late, nullptr, 0);
            AllocationProbe::stop();
            EXPECT_TRUE(AllocationProbe::has_failed() || made != nullptr);
            EXPECT_EQ("1 2 3 4 5 6", made != nullptr ? take(*made) : "1 2 3 4 5 6") << "some, but not all";
            EXPECT_TRUE(made == nullptr || _participant.delete_datareader(made) == OK);
        });
        deliver(sender, "7");
        EXPECT_EQ("7", take(last));
    }
}

TEST_P(Writing, who_waits_for_a_late_reader_wakes_when_it_has_all_or_an_end_leaves) {
    struct {
        const char* what;
        DDS_ReturnCode_t outcome;
        std::function<DDS_ReturnCode_t(DDSDataWriter&, DDSDataReader&)> release;
    } const CASES[] = {
        {"it has all", OK,
         [this](DDSDataWriter&, DDSDataReader& late) {
             std::string got;
             return eventually([&] { return (got += take(late)) == "123"; }) ? OK : TIMEOUT;
         }},
        {"it leaves", OK, [](DDSDataWriter&, DDSDataReader& late) { return late.leave_domain(); }},
        {"the writer leaves", ALREADY_DELETED, [](DDSDataWriter& sender, DDSDataReader&) { return sender.leave_domain(); }},
    };
    DDS_DataWriterQos keeping = writer_qos();
    keeping.durability.kind = DDS_TRANSIENT_LOCAL_DURABILITY_QOS;
    DDS_DataReaderQos small = reader_qos(1);
    small.durability.kind = DDS_TRANSIENT_LOCAL_DURABILITY_QOS;
    for (const auto& each : CASES) {
        SCOPED_TRACE(each.what);
        DDSDataWriter& sender = writer(keeping, each.what);
        for (const char* text : {"1", "2", "3"}) {
            deliver(sender, text);
        }
        DDSDataReader& late = reader(small, each.what);
        meet(sender, late);
        EXPECT_EQ(TIMEOUT, sender.wait_for_acknowledgments(SHORT_TIME));
        auto waiting = start_blocking([&] { return sender.wait_for_acknowledgments(LONG_TIME); });
        EXPECT_EQ(OK, each.release(sender, late));
        ASSERT_EQ(std::future_status::ready, waiting.wait_for(std::chrono::seconds(15))) << "woken by its own deadline";
        EXPECT_EQ(each.outcome, waiting.get());
    }
}

// Between rounds all is quiet: a thread that was not told of room is not woken by what comes later.
TEST_P(Writing, concurrent_writes_through_narrow_readers_arrive_once_in_the_order_of_their_numbers) {
    constexpr DDS_UnsignedLong ROUNDS = 300;
    constexpr DDS_UnsignedLong SAMPLES = 3;  // of each of four threads in a round
    DDSDataReader* const receivers[] = {&reader(reader_qos(2)), &reader(reader_qos(1))};
    DDSReadCondition* const conditions[] = {&condition(*receivers[0]), &condition(*receivers[1])};
    DDSDataWriter* const senders[] = {&writer(), &writer()};
    for (DDSDataReader* receiver : receivers) {
        meet(*senders[0], *receiver);
        meet(*senders[1], *receiver);
    }
    DDS_UnsignedLong arrived[2][2] = {};  // at each reader from each writer
    for (DDS_UnsignedLong round = 1; round <= ROUNDS; ++round) {
        std::vector<std::future<void>> threads;
        for (const bool is_patient : {true, false}) {  // one without patience tries again: its failures must leave no gap
            for (DDSDataWriter* sender : senders) {
                threads.push_back(std::async(std::launch::async, [is_patient, sender] {
                    for (DDS_UnsignedLong sample = 0; sample < SAMPLES; ++sample) {
                        EXPECT_TRUE(eventually([&] {
                            DDS_WriteParams_t params;
                            params.max_blocking_time = is_patient ? LONG_TIME : NO_TIME;
                            return write(*sender, "x", params) == OK;
                        }));
                    }
                }));
            }
        }
        ASSERT_TRUE(eventually([&] {
            for (const int place : {0, 1}) {
                const Loan loan(*receivers[place], *conditions[place]);
                for (DDS_Long index = 0; index < loan.count; ++index) {
                    const bool second = loan.infos[index].publication_handle == senders[1]->get_instance_handle();
                    EXPECT_EQ((DDS_SequenceNumber_t{0, ++arrived[place][second ? 1 : 0]}),
                              identity_of(loan.infos[index]).sequence_number);
                }
            }
            return std::min({arrived[0][0], arrived[0][1], arrived[1][0], arrived[1][1]}) == 2 * SAMPLES * round;
        })) << "in round "
            << round;
    }
}

}  // namespace
}  // namespace norvane::test
