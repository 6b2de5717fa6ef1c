// SPDX-License-Identifier: Apache-2.0
// Conditions and wait sets: what ends a wait, who is woken, and in which order conditions, sets and entities may go.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <set>
#include <vector>

#include "support/TextFixture.hpp"
#include "support/Waiter.hpp"

namespace norvane::test {
namespace {

std::set<DDSCondition*> attached(DDSWaitSet& set) {
    DDSConditionSeq conditions;
    EXPECT_EQ(OK, set.get_conditions(conditions));
    return as_set(conditions);
}

typedef Waiter::Outcome Outcome;

class Waiting : public TextFixture {};
INSTANTIATE_TEST_SUITE_P(Engine, Waiting, ::testing::ValuesIn(engine_names()), engine_of_test);

TEST_P(Waiting, a_wait_takes_its_time_and_no_more) {
    struct {
        DDS_Duration_t timeout;
        DDS_ReturnCode_t when_false;  // OK: not tried, since nothing would end it
        DDS_ReturnCode_t when_true;
        int at_least_ms;  // of a time-out
    } const CASES[] = {
        {NO_TIME, TIMEOUT, OK, 0},          {{-1, 0}, TIMEOUT, TIMEOUT, 0}, {{-1, 999999999}, TIMEOUT, TIMEOUT, 0},
        {{0, 1}, TIMEOUT, OK, 0},           {SHORT_TIME, TIMEOUT, OK, 20},  {LONG_TIME, OK, OK, 0},
        {DDS_DURATION_INFINITE, OK, OK, 0},
    };
    DDSGuardCondition guard;
    DDSWaitSet empty;
    DDSWaitSet set;
    ASSERT_EQ(OK, set.attach_condition(&guard));
    for (const auto& each : CASES) {
        for (const bool triggered : {false, true}) {
            EXPECT_EQ(OK, guard.set_trigger_value(triggered));
            for (DDSWaitSet* waiting : {&empty, &set}) {
                const DDS_ReturnCode_t expected = triggered && waiting == &set ? each.when_true : each.when_false;
                DDSConditionSeq active;
                active.length(active.maximum());
                const auto start = std::chrono::steady_clock::now();
                if (expected == TIMEOUT || (triggered && waiting == &set)) {
                    EXPECT_EQ(expected, waiting->wait(active, each.timeout));
                    EXPECT_EQ(expected == OK ? 1 : 0, active.length());
                }
                EXPECT_GE(std::chrono::steady_clock::now() - start,
                          std::chrono::milliseconds(expected == OK ? 0 : each.at_least_ms));
            }
        }
    }
}

TEST_P(Waiting, what_comes_true_wakes_every_set_it_is_attached_to_and_no_other) {
    DDSDataReader& receiver = reader();
    ASSERT_EQ(OK, receiver.create_index("index"));
    DDSDataWriter& sender = writer();
    meet(sender, receiver);
    DDSReadCondition& not_read = condition(receiver, DDS_NOT_READ_SAMPLE_STATE);
    DDSReadCondition& read = condition(receiver, DDS_READ_SAMPLE_STATE);
    DDSReadCondition& keyed = key_condition(receiver, 7);
    DDSReadCondition& other_key = key_condition(receiver, 8);
    DDSGuardCondition guard;
    DDSWaitSet sets[3];
    for (DDSCondition* each : std::initializer_list<DDSCondition*>{&not_read, &keyed, &guard}) {
        EXPECT_EQ(OK, sets[0].attach_condition(each));
        EXPECT_EQ(OK, sets[0].attach_condition(each)) << "it stays attached once";
        EXPECT_EQ(OK, sets[1].attach_condition(each));
    }
    EXPECT_EQ(OK, sets[2].attach_condition(&other_key));
    EXPECT_EQ(OK, sets[2].attach_condition(&read));
    Waiter bystander(sets[2]);
    struct {
        const char* what;
        std::function<void()> trigger;
        std::set<DDSCondition*> active;
        std::function<void()> reset;
    } const CASES[] = {
        {"a sample of no key", [&] { deliver(sender, "x"); }, {&not_read}, [&] { take(receiver); }},
        {"a sample of the key", [&] { deliver(sender, "x", related_to(7)); }, {&not_read, &keyed}, [&] { take(receiver); }},
        {"a guard", [&] { guard.set_trigger_value(true); }, {&guard}, [&] { guard.set_trigger_value(false); }},
    };
    for (const auto& each : CASES) {
        SCOPED_TRACE(each.what);
        {
            Waiter one(sets[0]);
            Waiter two(sets[1]);
            EXPECT_FALSE(one.is_over() || two.is_over());
            each.trigger();
            EXPECT_EQ(OK, one.get().first);
            EXPECT_EQ(OK, two.get().first);
        }
        // All that holds, once it holds; and again, for as long as it does.
        DDSConditionSeq active;
        for (DDSWaitSet* set : {&sets[0], &sets[1], &sets[1]}) {
            EXPECT_EQ(OK, set->wait(active, NO_TIME));
            EXPECT_EQ(each.active, as_set(active));
        }
        DDSCondition* room[1];
        DDSConditionSeq narrow;
        ASSERT_TRUE(narrow.loan_contiguous(room, 0, 1));
        EXPECT_EQ(each.active.size() > 1 ? DDS_RETCODE_OUT_OF_RESOURCES : OK, sets[0].wait(narrow, NO_TIME));
        EXPECT_TRUE(narrow.unloan());
        each.reset();
        EXPECT_EQ(TIMEOUT, sets[0].wait(active, NO_TIME));
        EXPECT_FALSE(bystander.is_over());
    }
    // Reading one makes another condition true.
    deliver(sender, "x");
    EXPECT_EQ(1, Loan(receiver, not_read, false).count);
    EXPECT_EQ((Outcome{OK, {&read}}), bystander.get());
}

TEST_P(Waiting, a_second_thread_in_one_set_is_refused_with_a_word_of_advice) {
    const LogCapture log;
    DDSWaitSet set;
    DDSGuardCondition guard;
    ASSERT_EQ(OK, set.attach_condition(&guard));
    Waiter first(set);
    DDSConditionSeq active;
    for (const DDS_Duration_t& timeout : {NO_TIME, LONG_TIME}) {
        EXPECT_EQ(PRECONDITION, set.wait(active, timeout));
        EXPECT_EQ(0, active.length());
    }
    EXPECT_EQ(2, log.count("use one wait set per thread"));
    EXPECT_FALSE(first.is_over());
    guard.set_trigger_value(true);
    EXPECT_EQ((Outcome{OK, {&guard}}), first.get());
    EXPECT_EQ(OK, set.wait(active, NO_TIME)) << "the set is free again";
}

TEST_P(Waiting, what_is_attached_and_detached_takes_effect_while_a_thread_waits) {
    const LogCapture log;
    DDSDataReader& receiver = reader();
    DDSDataWriter& sender = writer();
    meet(sender, receiver);
    deliver(sender, "x");
    DDSReadCondition& holds = condition(receiver);
    DDSReadCondition& deleted = condition(receiver);
    DDSGuardCondition guard;
    DDSWaitSet set;
    struct {
        const char* what;
        DDS_ReturnCode_t code;
        std::function<DDS_ReturnCode_t()> act;
    } const STEPS[] = {
        {"attach null", BAD_PARAMETER, [&] { return set.attach_condition(nullptr); }},
        {"detach null", BAD_PARAMETER, [&] { return set.detach_condition(nullptr); }},
        {"detach what is not attached", PRECONDITION, [&] { return set.detach_condition(&guard); }},
        {"attach a false one", OK, [&] { return set.attach_condition(&guard); }},
        {"delete a condition", OK, [&] { return receiver.delete_readcondition(&deleted); }},
        {"attach a deleted one", ALREADY_DELETED, [&] { return set.attach_condition(&deleted); }},
        {"detach the false one", OK, [&] { return set.detach_condition(&guard); }},
        {"detach it again", PRECONDITION, [&] { return set.detach_condition(&guard); }},
        {"make it true", OK, [&] { return guard.set_trigger_value(true); }},
    };
    Waiter first(set);
    for (const auto& step : STEPS) {
        EXPECT_EQ(step.code, step.act()) << step.what;
        EXPECT_FALSE(first.is_over()) << step.what;
    }
    EXPECT_EQ(OK, set.attach_condition(&holds));
    EXPECT_EQ((Outcome{OK, {&holds}}), first.get());
    EXPECT_EQ(OK, receiver.delete_readcondition(&holds));
    EXPECT_TRUE(attached(set).empty());
    Waiter second(set);
    EXPECT_FALSE(second.is_over());
    EXPECT_EQ(OK, set.attach_condition(&guard));
    EXPECT_EQ((Outcome{OK, {&guard}}), second.get());
}

TEST_P(Waiting, conditions_sets_and_entities_may_go_in_any_order) {
    DDSDataReader& receiver = reader();
    ASSERT_EQ(OK, receiver.create_index("index"));
    DDSDataWriter& sender = writer();
    meet(sender, receiver);
    DDSStatusCondition* const status = sender.get_statuscondition();
    DDSReadCondition& plain = condition(receiver);
    DDSReadCondition& keyed = key_condition(receiver, 1);
    auto guard = std::make_unique<DDSGuardCondition>();
    DDSWaitSet one;
    DDSWaitSet two;
    auto brief = std::make_unique<DDSWaitSet>();
    for (DDSWaitSet* set : {&one, &two, brief.get()}) {
        for (DDSCondition* each : std::initializer_list<DDSCondition*>{&plain, &keyed, guard.get(), status}) {
            EXPECT_EQ(OK, set->attach_condition(each));
        }
    }
    brief.reset();
    EXPECT_TRUE(attached(*std::make_unique<DDSWaitSet>()).empty()) << "the next set got its leftovers";
    guard->set_trigger_value(true);  // tells the sets that are left
    EXPECT_EQ(OK, receiver.delete_readcondition(&plain));
    EXPECT_EQ((std::set<DDSCondition*>{&keyed, guard.get(), status}), attached(one));
    guard.reset();
    EXPECT_EQ((std::set<DDSCondition*>{&keyed, status}), attached(two));
    EXPECT_EQ(OK, _participant.delete_datawriter(&sender));
    EXPECT_EQ((std::set<DDSCondition*>{&keyed}), attached(one));
    EXPECT_EQ(OK, one.detach_condition(&keyed));
    EXPECT_TRUE(attached(one).empty());
    EXPECT_EQ((std::set<DDSCondition*>{&keyed}), attached(two));

    // What is attached moves with the swap, its trigger and all.
    DDSGuardCondition raised;
    raised.set_trigger_value(true);
    EXPECT_EQ(OK, one.attach_condition(&raised));
    one.swap(two);
    one.swap(one);
    EXPECT_EQ((std::set<DDSCondition*>{&keyed}), attached(one));
    DDSConditionSeq active;
    EXPECT_EQ(OK, two.wait(active, NO_TIME));
    EXPECT_EQ((std::set<DDSCondition*>{&raised}), as_set(active));
    Waiter waiter(one);
    DDSDataWriter& late_sender = writer();
    meet(late_sender, receiver);
    deliver(late_sender, "x", related_to(1));
    EXPECT_EQ((Outcome{OK, {&keyed}}), waiter.get());
    EXPECT_EQ(OK, receiver.delete_readcondition(&keyed));
    EXPECT_EQ(OK, _participant.delete_datareader(&receiver));
    EXPECT_TRUE(attached(one).empty());
}

TEST_P(Waiting, a_status_condition_holds_while_an_enabled_status_has_changed) {
    DDSDataReader& receiver = reader();
    DDSStatusCondition* const status = receiver.get_statuscondition();
    EXPECT_EQ(static_cast<DDSEntity*>(&receiver), status->get_entity());
    DDSWaitSet set;
    EXPECT_EQ(OK, set.attach_condition(status));
    const auto holds = [&](DDS_StatusMask mask) {
        DDSConditionSeq active;
        EXPECT_EQ(OK, status->set_enabled_statuses(mask));
        EXPECT_EQ(mask, status->get_enabled_statuses());
        const bool held = set.wait(active, NO_TIME) == OK;
        EXPECT_EQ(held, status->get_trigger_value() != DDS_BOOLEAN_FALSE);
        return held;
    };
    Waiter matched(set);
    DDSDataWriter& sender = writer();
    EXPECT_EQ((Outcome{OK, {status}}), matched.get());
    meet(sender, receiver);
    EXPECT_EQ(DDS_SUBSCRIPTION_MATCHED_STATUS, receiver.get_status_changes());
    EXPECT_TRUE(holds(DDS_SUBSCRIPTION_MATCHED_STATUS));
    EXPECT_FALSE(holds(DDS_DATA_AVAILABLE_STATUS));
    EXPECT_FALSE(holds(DDS_STATUS_MASK_NONE));
    DDS_SubscriptionMatchedStatus got;
    EXPECT_EQ(OK, receiver.get_subscription_matched_status(got));
    EXPECT_FALSE(holds(DDS_STATUS_MASK_ALL)) << "getting a status resets it";

    Waiter data(set);
    deliver(sender, "x");
    EXPECT_EQ((Outcome{OK, {status}}), data.get());
    EXPECT_EQ(DDS_DATA_AVAILABLE_STATUS, receiver.get_status_changes());
    EXPECT_EQ(1, Loan(receiver, condition(receiver), false).count);
    EXPECT_FALSE(holds(DDS_STATUS_MASK_ALL)) << "so does reading";
    // A status that is there already counts as soon as it is enabled, for a thread that waits, too.
    deliver(sender, "y");
    EXPECT_FALSE(holds(DDS_STATUS_MASK_NONE));
    Waiter enabled(set);
    EXPECT_FALSE(enabled.is_over());
    EXPECT_EQ(OK, status->set_enabled_statuses(DDS_DATA_AVAILABLE_STATUS));
    EXPECT_EQ((Outcome{OK, {status}}), enabled.get());
}

TEST_P(Waiting, sets_and_conditions_come_and_go_while_samples_arrive_and_others_wait) {
    constexpr DDS_UnsignedLong ROUNDS = 300;
    DDSDataReader& receiver = reader();
    ASSERT_EQ(OK, receiver.create_index("index"));
    DDSDataWriter& sender = writer();
    meet(sender, receiver);
    DDSReadCondition& shared = condition(receiver);
    DDSGuardCondition guard;
    DDSWaitSet steady;
    ASSERT_EQ(OK, steady.attach_condition(&guard));
    std::atomic<int> busy{3};
    std::vector<std::future<void>> threads;
    while (threads.size() < 3) {
        threads.push_back(std::async(std::launch::async, [&] {
            for (DDS_UnsignedLong round = 0; round < ROUNDS; ++round) {
                DDSWaitSet own;
                DDSReadCondition& keyed = key_condition(receiver, round % 5);
                DDSWaitSet also_brief;
                for (DDSWaitSet* set : {&own, &also_brief}) {
                    EXPECT_EQ(OK, set->attach_condition(&keyed));
                    EXPECT_EQ(OK, set->attach_condition(&shared));
                    EXPECT_EQ(OK, set->attach_condition(&guard));
                }
                EXPECT_EQ(OK, steady.attach_condition(&keyed));
                EXPECT_EQ(OK, write(sender, "x", related_to(round % 5)));
                DDSConditionSeq active;
                own.wait(active, {0, 1000000});
                take(receiver);
                guard.set_trigger_value(round % 3 == 0);
                EXPECT_TRUE(round % 2 == 0 || steady.detach_condition(&keyed) == OK);
                EXPECT_EQ(OK, receiver.delete_readcondition(&keyed));
            }
            --busy;
        }));
    }
    while (busy > 0) {
        DDSConditionSeq active;
        const DDS_ReturnCode_t code = steady.wait(active, {0, 1000000});
        EXPECT_EQ(code == OK, active.length() > 0);
    }
    EXPECT_EQ((std::set<DDSCondition*>{&guard}), attached(steady));
}

}  // namespace
}  // namespace norvane::test
