// SPDX-License-Identifier: Apache-2.0
// The named index, the interruption of waits, and open keys.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <vector>

#include "support/TextFixture.hpp"
#include "support/Waiter.hpp"

namespace norvane::test {
namespace {

DDS_SequenceNumber_t key(DDS_UnsignedLong number) { return {0, number}; }

class Index : public TextFixture {
protected:
    DDSDataReader& indexed_reader(const DDS_DataReaderQos& qos = reader_qos(), const std::string& topic_name = "T",
                                  DDSDataReaderListener* listener = nullptr) {
        DDSDataReader& made = reader(qos, topic_name, listener);
        EXPECT_EQ(OK, made.create_index("index"));
        return made;
    }
    // What is there under a key, read through a condition and without one.
    std::string under(DDSDataReader& receiver, DDS_UnsignedLong number) {
        DDSReadCondition& keyed = key_condition(receiver, number);
        const std::string texts = Loan(receiver, keyed, false).texts();
        EXPECT_EQ(texts, Loan(receiver, "index", number, false).texts());
        EXPECT_EQ(OK, receiver.delete_readcondition(&keyed));
        return texts;
    }
    static DDS_LongLong closed_key_losses(DDSDataReader& receiver) {
        DDS_SampleLostStatus status;
        EXPECT_EQ(OK, receiver.get_sample_lost_status(status));
        EXPECT_EQ(status.total_count, status.closed_key_count);
        return status.closed_key_count;
    }
};
INSTANTIATE_TEST_SUITE_P(Engine, Index, ::testing::ValuesIn(engine_names()), engine_of_test);

TEST_P(Index, a_key_selects_what_is_related_to_it_whenever_the_index_was_made) {
    const LogCapture log;
    DDSDataReader& receiver = reader();
    DDSReadCondition& all = condition(receiver);
    DDSDataWriter& sender = writer();
    meet(sender, receiver);
    deliver(sender, "1a", related_to(1));
    deliver(sender, "none");
    deliver(sender, "2a", related_to(2));
    EXPECT_EQ("1a none", Loan(receiver, all, false, 2).texts());  // these two are read now

    const DDS_SampleInfo any_key;
    for (const char* name : {static_cast<const char*>(nullptr), "", "index"}) {
        EXPECT_EQ(nullptr, receiver.create_index_condition(0xffff, 0xffff, 0xffff, name, any_key));
    }
    EXPECT_EQ(BAD_PARAMETER, receiver.create_index(nullptr));
    EXPECT_EQ(BAD_PARAMETER, receiver.create_index(""));
    EXPECT_EQ(OK, receiver.create_index("index"));
    EXPECT_EQ(PRECONDITION, receiver.create_index("index"));
    EXPECT_EQ(OK, receiver.create_index("another"));

    deliver(sender, "1b", related_to(1));
    deliver(sender, "2b", related_to(2));
    DDSReadCondition& one = key_condition(receiver, 1);
    DDSReadCondition& one_not_read = key_condition(receiver, 1, DDS_NOT_READ_SAMPLE_STATE);
    DDSReadCondition& one_read = key_condition(receiver, 1, DDS_READ_SAMPLE_STATE);
    EXPECT_EQ("1a", Loan(receiver, one_read, false).texts());
    EXPECT_EQ("1a 1b", Loan(receiver, one, false, 7).texts());
    EXPECT_FALSE(one_not_read.get_trigger_value()) << "read under the key is read";
    EXPECT_EQ("2a 2b", Loan(receiver, condition(receiver, DDS_NOT_READ_SAMPLE_STATE), false).texts());
    EXPECT_EQ("1a 1b", Loan(receiver, one_read, true).texts());
    EXPECT_FALSE(one.get_trigger_value());
    EXPECT_EQ("none 2a 2b", Loan(receiver, all, false).texts()) << "taken under the key is taken";
    EXPECT_EQ("none 2a", Loan(receiver, all, true, 2).texts());
    EXPECT_EQ("2b", under(receiver, 2)) << "and the other way round";
    // The same through the other name; the writer of the related sample does not matter.
    DDS_SampleInfo two;
    two.related_original_publication_virtual_sequence_number = key(2);
    two.related_original_publication_virtual_guid = {{7, 7, 7}};
    EXPECT_EQ("2b", Loan(receiver, *receiver.create_index_condition(0xffff, 0xffff, 0xffff, "another", two)).texts());

    deliver(sender, "3a", related_to(3));
    deliver(sender, "3b", related_to(3));
    EXPECT_EQ("3a", Loan(receiver, "another", 3, true, 1).texts());
    EXPECT_EQ("3b", Loan(receiver, "index", 3, true).texts());
    EXPECT_EQ(NO_DATA, Loan(receiver, "index", 3, true).code) << "the key is gone with its last sample";
    EXPECT_EQ(BAD_PARAMETER, Loan(receiver, "no such index", 3, true).code);
}

TEST_P(Index, an_interruption_ends_waits_now_and_later_until_it_is_ended) {
    constexpr DDS_ReturnCode_t CODE = ALREADY_DELETED;
    DDSDataReader& receiver = indexed_reader();
    const auto reader_code = [&](DDS_ReturnCode_t code) { return [&receiver, code] { return receiver.interrupt(code); }; };
    const auto key_code = [&](DDS_ReturnCode_t code) {
        return [&receiver, code] { return receiver.interrupt_index_key("index", key(1), code); };
    };
    struct {
        const char* what;
        std::function<DDS_ReturnCode_t()> interrupt;
        DDS_ReturnCode_t plain;  // what a wait on a condition of the whole reader returns, and so on
        DDS_ReturnCode_t keyed;
        DDS_ReturnCode_t other_key;
    } const STEPS[] = {
        {"the reader", reader_code(CODE), CODE, CODE, CODE},
        {"the reader no more", reader_code(OK), TIMEOUT, TIMEOUT, TIMEOUT},
        {"a key", key_code(CODE), TIMEOUT, CODE, TIMEOUT},
        {"both", reader_code(DDS_RETCODE_ERROR), DDS_RETCODE_ERROR, CODE, DDS_RETCODE_ERROR},
        {"the key alone", reader_code(OK), TIMEOUT, CODE, TIMEOUT},
        {"nothing any more", key_code(OK), TIMEOUT, TIMEOUT, TIMEOUT},
        {"the key again", key_code(CODE), TIMEOUT, CODE, TIMEOUT},
        {"closed", [&] { return receiver.close_index_key("index", key(1)); }, TIMEOUT, TIMEOUT, TIMEOUT},
    };
    // Of each kind one condition that waits all the time, and one that is made and attached anew for each look.
    DDSWaitSet steady[3];
    EXPECT_EQ(OK, steady[0].attach_condition(&condition(receiver)));
    EXPECT_EQ(OK, steady[1].attach_condition(&key_condition(receiver, 1)));
    EXPECT_EQ(OK, steady[2].attach_condition(&key_condition(receiver, 2)));
    DDS_ReturnCode_t now[] = {TIMEOUT, TIMEOUT, TIMEOUT};
    for (const auto& step : STEPS) {
        SCOPED_TRACE(step.what);
        std::unique_ptr<Waiter> waiting[3];
        for (int kind = 0; kind < 3; ++kind) {
            waiting[kind] = now[kind] == TIMEOUT ? std::make_unique<Waiter>(steady[kind]) : nullptr;
        }
        EXPECT_EQ(OK, step.interrupt());
        const DDS_ReturnCode_t expected[] = {step.plain, step.keyed, step.other_key};
        DDSReadCondition* const fresh[] = {&condition(receiver), &key_condition(receiver, 1), &key_condition(receiver, 2)};
        for (int kind = 0; kind < 3; ++kind) {
            DDSGuardCondition guard;
            guard.set_trigger_value(true);
            if (waiting[kind] != nullptr && expected[kind] == TIMEOUT) {
                EXPECT_FALSE(waiting[kind]->is_over()) << kind;
                EXPECT_EQ(OK, steady[kind].attach_condition(&guard));
                EXPECT_EQ((Waiter::Outcome{OK, {&guard}}), waiting[kind]->get()) << kind;
            } else if (waiting[kind] != nullptr) {
                EXPECT_EQ((Waiter::Outcome{expected[kind], {}}), waiting[kind]->get()) << kind;
            }
            now[kind] = expected[kind];
            DDSWaitSet set;
            EXPECT_EQ(OK, set.attach_condition(fresh[kind]));
            DDSConditionSeq active;
            EXPECT_EQ(expected[kind], set.wait(active, NO_TIME)) << kind;
            EXPECT_EQ(TIMEOUT, set.wait(active, {-1, 0})) << kind;
            // One that is interrupted speaks for its set, whatever else holds there.
            EXPECT_EQ(OK, set.attach_condition(&guard));
            EXPECT_EQ(expected[kind] == TIMEOUT ? OK : expected[kind], set.wait(active, NO_TIME)) << kind;
            EXPECT_EQ(OK, receiver.delete_readcondition(fresh[kind]));
        }
    }
    EXPECT_EQ(BAD_PARAMETER, receiver.interrupt_index_key("no such index", key(1), CODE));
    EXPECT_EQ(BAD_PARAMETER, receiver.interrupt_index_key(nullptr, key(1), CODE));
}

TEST_P(Index, samples_for_keys_that_are_over_are_dropped_and_counted_and_take_no_room) {
    DDSDataReader& receiver = indexed_reader(reader_qos(1));
    DDSDataWriter& sender = writer(writer_qos(NO_TIME));
    meet(sender, receiver);
    const auto arrives = [&](DDS_UnsignedLong number) {
        const DDS_LongLong before = closed_key_losses(receiver);
        const DDS_SampleIdentity_t related = number == 0 ? DDS_UNKNOWN_SAMPLE_IDENTITY : related_to(number);
        EXPECT_EQ(OK, write(sender, std::to_string(number), related)) << number;
        EXPECT_EQ(OK, sender.wait_for_acknowledgments(LONG_TIME));
        const bool stored = take(receiver) == std::to_string(number);
        EXPECT_EQ(before + (stored ? 0 : 1), closed_key_losses(receiver)) << number;
        return stored;
    };
    const auto do_open = [&](DDS_UnsignedLong number) { EXPECT_EQ(OK, receiver.open_index_key("index", key(number))); };
    const auto do_close = [&](DDS_UnsignedLong number) { EXPECT_EQ(OK, receiver.close_index_key("index", key(number))); };
    do_open(1);
    do_close(1);
    EXPECT_TRUE(arrives(1)) << "all are admitted until only open ones are";
    ASSERT_EQ(OK, receiver.admit_open_keys_only("index", DDS_BOOLEAN_TRUE));
    struct {
        const char* what;
        std::function<void()> act;
        std::vector<DDS_UnsignedLong> admitted;
        std::vector<DDS_UnsignedLong> dropped;
    } const STEPS[] = {
        {"one is over", [] {}, {0, 2, 3, 1000}, {1}},
        {"three is opened before two", [&] { do_open(3); }, {0, 2, 3, 4}, {1}},
        {"three is closed before two is opened", [&] { do_close(3); }, {2, 4}, {1, 3}},
        {"two is opened late, and again", [&] { do_open(2), do_open(2); }, {2, 4, 5}, {1, 3}},
        {"five is closed, never opened", [&] { do_close(5); }, {2, 4, 6}, {1, 3, 5}},
        {"closed twice", [&] { do_close(5), do_close(1); }, {2, 4, 6}, {1, 3, 5}},
        {"all are closed up to six", [&] { do_close(2), do_close(4), do_close(6); }, {0, 7, 8}, {1, 2, 3, 4, 5, 6}},
        {"one is used once more", [&] { do_open(1); }, {1, 7}, {2, 6}},
        {"so is what answers nothing", [&] { receiver.close_index_key("index", DDS::SEQUENCE_NUMBER_UNKNOWN); }, {0, 7}, {6}},
        {"all are admitted again", [&] { receiver.admit_open_keys_only("index", DDS_BOOLEAN_FALSE); }, {1, 2, 6, 9}, {}},
    };
    for (const auto& step : STEPS) {
        SCOPED_TRACE(step.what);
        step.act();
        for (const DDS_UnsignedLong number : step.admitted) {
            EXPECT_TRUE(arrives(number)) << number;
        }
        for (const DDS_UnsignedLong number : step.dropped) {
            EXPECT_FALSE(arrives(number)) << number;
        }
    }

    // A full reader: what would be dropped does not wait for room.
    ASSERT_EQ(OK, receiver.admit_open_keys_only("index", DDS_BOOLEAN_TRUE));
    EXPECT_EQ(OK, write(sender, "fills it"));
    EXPECT_EQ(OK, sender.wait_for_acknowledgments(LONG_TIME));
    const DDS_LongLong before = closed_key_losses(receiver);
    for (int count = 0; count < 100; ++count) {
        deliver(sender, "late", related_to(2));
    }
    EXPECT_EQ(before + 100, closed_key_losses(receiver));
    EXPECT_EQ("fills it", take(receiver));
    for (const char* name : {static_cast<const char*>(nullptr), "", "no such index"}) {
        EXPECT_EQ(BAD_PARAMETER, receiver.admit_open_keys_only(name, DDS_BOOLEAN_TRUE));
        EXPECT_EQ(BAD_PARAMETER, receiver.open_index_key(name, key(1)));
        EXPECT_EQ(BAD_PARAMETER, receiver.close_index_key(name, key(1)));
    }
}

TEST_P(Index, closing_a_key_drops_what_is_stored_but_not_what_is_on_loan) {
    DDSDataReader& receiver = indexed_reader();
    DDSDataWriter& sender = writer();
    meet(sender, receiver);
    for (const char* text : {"a", "b", "c"}) {
        deliver(sender, text, related_to(1));
        deliver(sender, std::string(text) + "2", related_to(2));
    }
    DDSReadCondition& one = key_condition(receiver, 1);
    DDSReadCondition& all = condition(receiver);
    const Loan lent(receiver, one, false, 2);
    EXPECT_EQ(OK, receiver.close_index_key("index", key(1)));
    EXPECT_FALSE(one.get_trigger_value());
    EXPECT_EQ(NO_DATA, Loan(receiver, one).code);
    EXPECT_EQ("a2 b2 c2", Loan(receiver, all, false).texts());
    EXPECT_EQ("a b", lent.texts());
    EXPECT_EQ(3, closed_key_losses(receiver));
    deliver(sender, "d", related_to(1));
    EXPECT_EQ("d", under(receiver, 1)) << "without the rule that only open keys are admitted";
}

}  // namespace
}  // namespace norvane::test
