// SPDX-License-Identifier: Apache-2.0
// Reading: which samples a condition selects, how many come, and loans: what they keep, and who takes them back.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <functional>
#include <future>
#include <vector>

#include "support/Doubles.hpp"
#include "support/TextFixture.hpp"

namespace norvane::test {
namespace {

class Reading : public TextFixture {
protected:
    static void deliver_up_to(int last, DDSDataWriter& sender, int first = 1) {
        for (int number = first; number <= last; ++number) {
            deliver(sender, std::to_string(number));
        }
    }
};
INSTANTIATE_TEST_SUITE_P(Engine, Reading, ::testing::ValuesIn(engine_names()), engine_of_test);

TEST_P(Reading, a_condition_selects_by_the_states_that_its_masks_name_and_is_true_when_it_selects_anything) {
    constexpr DDS_SampleStateMask READ = DDS_READ_SAMPLE_STATE;
    constexpr DDS_SampleStateMask NOT_READ = DDS_NOT_READ_SAMPLE_STATE;
    constexpr DDS_SampleStateMask ANY = 0xffff;
    struct {
        DDS_SampleStateMask samples;
        DDS_ViewStateMask views;
        DDS_InstanceStateMask instances;
        const char* selected;  // of 1 and 2, which were read before, and 3
        const char* left;
    } const CASES[] = {
        {READ, ANY, ANY, "1 2", "3"},
        {NOT_READ, ANY, ANY, "3", "1 2"},
        {READ | NOT_READ, ANY, ANY, "1 2 3", ""},
        {ANY, ANY, ANY, "1 2 3", ""},
        {ANY, DDS_NEW_VIEW_STATE, DDS_ALIVE_INSTANCE_STATE, "1 2 3", ""},
        {0, ANY, ANY, "", "1 2 3"},
        {4, ANY, ANY, "", "1 2 3"},
        {ANY, DDS_NOT_NEW_VIEW_STATE, ANY, "", "1 2 3"},
        {ANY, 0, ANY, "", "1 2 3"},
        {ANY, ANY, DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE | DDS_NOT_ALIVE_NO_WRITERS_INSTANCE_STATE, "", "1 2 3"},
        {ANY, ANY, 0, "", "1 2 3"},
    };
    const auto state_before = [&](const char* text) { return *text == '3' ? NOT_READ : READ; };
    int row = 0;
    for (const auto& each : CASES) {
        SCOPED_TRACE("row " + std::to_string(row));
        const std::string name = "T" + std::to_string(row++);
        DDSDataReader& receiver = reader(reader_qos(), name);
        DDSDataReader& by_masks = reader(reader_qos(), name);  // the string reader takes the masks themselves
        DDSDataWriter& sender = writer(writer_qos(), name);
        meet(sender, receiver);
        meet(sender, by_masks);
        DDSReadCondition& selection = *receiver.create_readcondition(each.samples, each.views, each.instances);
        EXPECT_FALSE(selection.get_trigger_value());
        EXPECT_EQ(NO_DATA, Loan(receiver, selection).code);
        deliver_up_to(2, sender);
        EXPECT_EQ("1 2", Loan(receiver, condition(receiver), false).texts());
        EXPECT_EQ("1 2", Loan(by_masks, condition(by_masks), false).texts());
        deliver_up_to(3, sender, 3);

        const bool any = *each.selected != '\0';
        EXPECT_EQ(any, selection.get_trigger_value() != DDS_BOOLEAN_FALSE);
        {
            const Loan loan(receiver, selection);
            EXPECT_EQ(any ? OK : NO_DATA, loan.code);
            EXPECT_EQ(any, loan.is_loan != DDS_BOOLEAN_FALSE);
            EXPECT_EQ(each.selected, loan.texts());
            for (int index = 0; index < loan.count; ++index) {
                EXPECT_EQ(state_before(loan.text(index)), loan.infos[index].sample_state);
            }
        }
        EXPECT_FALSE(selection.get_trigger_value());
        EXPECT_EQ(each.left, Loan(receiver, condition(receiver)).texts());

        DDS_StringSeq texts;
        DDS_SampleInfoSeq infos;
        DDSStringDataReader* const strings = DDSStringDataReader::narrow(&by_masks);
        ASSERT_NE(nullptr, strings);
        EXPECT_EQ(any ? OK : NO_DATA, strings->take(texts, infos, -1, each.samples, each.views, each.instances));
        std::string joined;
        for (DDS_Long index = 0; index < texts.length(); ++index) {
            joined += (index == 0 ? "" : " ") + std::string(texts[index]);
            EXPECT_EQ(state_before(texts[index]), infos[index].sample_state);
        }
        EXPECT_EQ(each.selected, joined);
        EXPECT_EQ(any ? OK : BAD_PARAMETER, strings->return_loan(texts, infos));
        EXPECT_TRUE(texts.has_ownership() && texts.length() == 0 && infos.has_ownership() && infos.length() == 0);
    }
}

TEST_P(Reading, as_many_come_as_are_asked_for_and_the_cap_is_on_takes_alone) {
    struct {
        bool take;
        DDS_Long cap;  // max_samples_per_read
        DDS_Long max_samples;
        int count;
    } const CASES[] = {
        {false, -1, -1, 5},      {false, -1, 0, 0}, {false, -1, INT_MIN, 0}, {false, -1, 3, 3},
        {false, -1, INT_MAX, 5}, {false, 2, 4, 4},  {true, -1, -1, 5},       {true, -1, 0, 0},
        {true, -1, -2, 0},       {true, -1, 3, 3},  {true, 2, -1, 2},        {true, 2, 1, 1},
    };
    DDSDataWriter& sender = writer();
    for (const auto& each : CASES) {
        SCOPED_TRACE(std::string(each.take ? "take " : "read ") + std::to_string(each.max_samples) + " of cap " +
                     std::to_string(each.cap));
        DDS_DataReaderQos qos = reader_qos();
        qos.reader_resource_limits.max_samples_per_read = each.cap;
        DDSDataReader& receiver = reader(qos);
        DDSReadCondition& all = condition(receiver);
        meet(sender, receiver);
        deliver_up_to(5, sender);
        {
            const Loan loan(receiver, all, each.take, each.max_samples);
            EXPECT_EQ(each.count > 0 ? OK : NO_DATA, loan.code);
            EXPECT_EQ(each.count, loan.count);
            EXPECT_EQ(each.count, loan.infos.length());
            EXPECT_TRUE(each.count == 0 || std::string("1") == loan.text(0)) << "the oldest first";
        }
        EXPECT_EQ(each.take ? 5 - each.count : 5, Loan(receiver, all, false).count);
        EXPECT_EQ(OK, receiver.delete_readcondition(&all));
        EXPECT_EQ(OK, _participant.delete_datareader(&receiver));
    }
}

TEST_P(Reading, arguments_that_make_no_sense_are_refused_and_nothing_is_read) {
    const LogCapture log;
    DDSDataReader& receiver = reader();
    DDSDataReader& other = reader();
    DDSDataWriter& sender = writer();
    meet(sender, receiver);
    meet(sender, other);
    deliver_up_to(1, sender);
    DDSReadCondition& all = condition(receiver);
    DDSReadCondition& deleted = condition(receiver);
    ASSERT_EQ(OK, receiver.delete_readcondition(&deleted));
    CallScript script;
    ForwardingReadCondition of_nobody(all, script, receiver);  // the application's own class
    DDS_SampleInfoSeq with_memory(1);
    DDS_SampleInfo lent[1];
    DDS_SampleInfoSeq with_loan;
    ASSERT_TRUE(with_loan.loan_contiguous(lent, 1, 1));
    DDS_SampleInfoSeq empty;

    // One call, all in order, from which each row departs.
    struct Call {
        DDS_DataReader* reader;
        DDS_SampleInfoSeq* infos;
        DDS_ReadCondition* condition;
        bool is_loan = true, data = true, count = true;  // else null
        DDS_Long maximum = 0;
        DDS_Boolean owns = DDS_BOOLEAN_TRUE;
        int size = TEXT_SIZE;
    };
    struct {
        const char* what;
        DDS_ReturnCode_t code;
        std::function<void(Call&)> spoil;
    } const CASES[] = {
        {"null reader", BAD_PARAMETER, [](Call& call) { call.reader = nullptr; }},
        {"null is_loan", BAD_PARAMETER, [](Call& call) { call.is_loan = false; }},
        {"null received_data", BAD_PARAMETER, [](Call& call) { call.data = false; }},
        {"null data_count", BAD_PARAMETER, [](Call& call) { call.count = false; }},
        {"null condition", BAD_PARAMETER, [](Call& call) { call.condition = nullptr; }},
        {"another reader's condition", BAD_PARAMETER, [&](Call& call) { call.condition = condition(other).get_c_readcondition(); }},
        {"condition of nobody", BAD_PARAMETER, [&](Call& call) { call.condition = of_nobody.get_c_readcondition(); }},
        {"deleted condition", ALREADY_DELETED, [&](Call& call) { call.condition = deleted.get_c_readcondition(); }},
        {"smaller size", BAD_PARAMETER, [](Call& call) { call.size = TEXT_SIZE - 1; }},
        {"data sequence with memory", PRECONDITION, [](Call& call) { call.maximum = 1; }},
        {"data sequence with a loan", PRECONDITION, [](Call& call) { call.owns = DDS_BOOLEAN_FALSE; }},
        {"infos with memory", PRECONDITION, [&](Call& call) { call.infos = &with_memory; }},
        {"infos with a loan", PRECONDITION, [&](Call& call) { call.infos = &with_loan; }},
    };
    for (const auto& each : CASES) {
        DDS_Boolean is_loan = 77;
        void** data = nullptr;
        int count = 77;
        Call call{receiver.get_c_datareader(), &empty, all.get_c_readcondition()};
        each.spoil(call);
        EXPECT_EQ(each.code, DDS_DataReader_read_or_take_w_condition_untypedI(
                                 call.reader, call.is_loan ? &is_loan : nullptr, call.data ? &data : nullptr,
                                 call.count ? &count : nullptr, *call.infos, 0, call.maximum, call.owns, nullptr, call.size,
                                 DDS_LENGTH_UNLIMITED, call.condition, DDS_BOOLEAN_TRUE))
            << each.what;
        EXPECT_TRUE(data == nullptr && empty.has_ownership()) << each.what;
    }
    EXPECT_EQ("1", take(receiver)) << "a refused take took it";
    EXPECT_TRUE(with_loan.unloan());
    EXPECT_FALSE(deleted.get_trigger_value());
    EXPECT_EQ(nullptr, deleted.get_datareader());
    EXPECT_LE(6,
              log.count("condition is of another reader") + log.count("octets, the caller expects") + log.count("already holds"));
}

TEST_P(Reading, a_loan_goes_back_once_to_the_reader_that_lent_it_with_both_its_parts) {
    const LogCapture log;
    DDSDataReader& receiver = reader();
    DDSDataReader& other = reader();
    DDSDataWriter& sender = writer();
    meet(sender, receiver);
    meet(sender, other);
    deliver_up_to(3, sender);
    DDSReadCondition& all = condition(receiver);
    Loan first(receiver, all, false);
    Loan second(receiver, all, false);
    Loan foreign(other, condition(other), false);
    DDS_SampleInfoSeq owning;
    void* nothing[1] = {nullptr};
    struct {
        const char* what;
        DDSDataReader* reader;
        void** data;
        DDS_SampleInfoSeq* infos;
        DDS_ReturnCode_t code;
    } const CASES[] = {
        {"null array", &receiver, nullptr, &first.infos, BAD_PARAMETER},
        {"array of nobody", &receiver, nothing, &first.infos, PRECONDITION},
        {"infos of nobody", &receiver, first.data, &owning, PRECONDITION},
        {"infos of another loan", &receiver, first.data, &second.infos, PRECONDITION},
        {"array of another loan", &receiver, second.data, &first.infos, PRECONDITION},
        {"infos of another reader's", &receiver, first.data, &foreign.infos, PRECONDITION},
        {"wrong reader", &other, first.data, &first.infos, PRECONDITION},
        {"right reader", &receiver, first.data, &first.infos, OK},
        {"again", &receiver, first.data, &first.infos, PRECONDITION},
        {"again with other infos", &receiver, first.data, &second.infos, PRECONDITION},
    };
    for (const auto& each : CASES) {
        const bool was_lent = !each.infos->has_ownership();
        EXPECT_EQ(each.code, DDS_DataReader_return_loan_untypedI(each.reader->get_c_datareader(), each.data, *each.infos))
            << each.what;
        EXPECT_EQ(was_lent && each.code != OK, !each.infos->has_ownership()) << each.what;
        EXPECT_EQ("1 2 3", second.texts()) << each.what;
        EXPECT_EQ("1 2 3", foreign.texts()) << each.what;
    }
    EXPECT_EQ(BAD_PARAMETER, DDS_DataReader_return_loan_untypedI(nullptr, second.data, second.infos));
    DDSStringDataReader* const strings = DDSStringDataReader::narrow(&receiver);
    DDS_StringSeq texts;
    EXPECT_EQ(OK, strings->read(texts, owning, 1, 0xffff, 0xffff, 0xffff));
    EXPECT_EQ(PRECONDITION, strings->read(texts, owning, 1, 0xffff, 0xffff, 0xffff)) << "the sequences are in use";
    EXPECT_EQ(PRECONDITION, strings->return_loan(texts, second.infos));
    EXPECT_EQ(1, texts.length());
    EXPECT_EQ(OK, strings->return_loan(texts, owning));
}

// Another thread may take the sample between the trigger and the look: then the wait goes on.
TEST_P(Reading, threads_that_wait_and_take_at_once_get_every_sample_once_and_readers_do_not_share_states) {
    constexpr int SAMPLES = 2000;
    DDSDataReader& receiver = reader();
    DDSDataReader& witness = reader();
    DDSDataWriter& sender = writer();
    meet(sender, receiver);
    meet(sender, witness);
    std::atomic<int> left{SAMPLES};
    std::vector<std::atomic<int>> got(SAMPLES);
    std::vector<std::future<void>> threads;
    for (const bool takes : {true, false, true, false}) {  // a sample that another thread takes meanwhile must stay whole
        threads.push_back(std::async(std::launch::async, [&, takes] {
            DDSReadCondition& own = condition(receiver);
            DDSWaitSet set;
            EXPECT_EQ(OK, set.attach_condition(&own));
            EXPECT_TRUE(eventually([&] {
                DDSConditionSeq active;
                const DDS_ReturnCode_t code = set.wait(active, SHORT_TIME);
                EXPECT_TRUE(code == OK || code == TIMEOUT);
                EXPECT_EQ(code == OK ? 1 : 0, active.length());
                const Loan loan(receiver, own, takes, 3);
                for (int index = 0; index < loan.count; ++index) {
                    std::atomic<int>& times = got.at(static_cast<std::size_t>(std::stoi(loan.text(index))));
                    times += takes ? 1 : 0;
                    left -= takes ? 1 : 0;
                }
                return left <= 0;
            }));
            EXPECT_EQ(OK, receiver.delete_readcondition(&own));
        }));
    }
    for (int number = 0; number < SAMPLES; ++number) {
        EXPECT_EQ(OK, write(sender, std::to_string(number)));
    }
    threads.clear();
    EXPECT_EQ(SAMPLES, std::count(got.begin(), got.end(), 1));
    EXPECT_EQ(SAMPLES, Loan(witness, condition(witness, DDS_NOT_READ_SAMPLE_STATE), false).count);
}

}  // namespace
}  // namespace norvane::test
